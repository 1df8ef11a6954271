// The conversions between packets, headers and JSON envelopes. The caller has checked the pointers.
// Each function throws when memory runs out.
#ifndef VYN_COMMON_PROTOBUF_WIRE_CONVERT_H
#define VYN_COMMON_PROTOBUF_WIRE_CONVERT_H

#include <cstdint>

#include "proto_helper.h"
#include "protobuf/packet_writer.h"

namespace vyn {

[[nodiscard]] vyn_result header_to_wire(const msg_hdr& hdr, const SentBody& body,
                                        const PacketOut& out);
[[nodiscard]] vyn_result json_to_wire(const char* json, const PacketOut& out);
[[nodiscard]] vyn_result wire_to_json(const uint8_t* pkt, uint32_t pkt_len, char* json_out,
                                      uint32_t json_out_size);
[[nodiscard]] vyn_result restamp(const uint8_t* pkt, uint32_t pkt_len, uint32_t new_status,
                                 uint32_t& msg_type_out, const PacketOut& out);

}  // namespace vyn

#endif  // VYN_COMMON_PROTOBUF_WIRE_CONVERT_H
