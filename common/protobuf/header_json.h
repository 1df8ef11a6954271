// From the message `Header` to the text of a JSON envelope.
#ifndef VYN_COMMON_PROTOBUF_HEADER_JSON_H
#define VYN_COMMON_PROTOBUF_HEADER_JSON_H

#include <cstdint>

#include "proto_helper.h"
#include "vyn_header_v3.pb.h"

namespace vyn {

// Logs the message-type word of a packet behind the name of the conversion.
void log_message_type(const char* conversion, uint32_t word);

// What cnvrt_protobuf_to_json_hdr() does with a packet once it is parsed: logs its message type and
// writes the envelope. Gives VYN_OK, VYN_DOES_NOT_FIT, VYN_BAD_BODY or VYN_NO_BODY_ADDED.
[[nodiscard]] vyn_result header_to_json(const Header& header, char* json_out,
                                        uint32_t json_out_size);

}  // namespace vyn

#endif  // VYN_COMMON_PROTOBUF_HEADER_JSON_H
