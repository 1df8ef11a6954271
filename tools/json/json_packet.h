// From the line of JSON that `show` prints with --types or --header to the packet, so that nothing of
// the line is lost. The way back from packet_json.h.
#ifndef VYN_TOOLS_JSON_JSON_PACKET_H
#define VYN_TOOLS_JSON_JSON_PACKET_H

#include <string>
#include <vector>

#include "cli/report.h"
#include "schema/message_types.h"
#include "vyn_header_v3.pb.h"

namespace vynpkt {

struct JsonPacket {
    Header header;
    std::vector<std::string> losses;  // what the packet lacks
};

// Whether the line is no plain envelope, but one that `show --types` prints: with "message", or with
// both "type" and "encoding".
[[nodiscard]] bool is_typed_line(const std::string& json);

// Reads the line: the envelope or, with header_form, the JSON of `Header`. Refuses one that
// contradicts itself or the types.
[[nodiscard]] JsonPacket read_json_packet(const std::string& json, bool header_form,
                                          const MessageTypes& types, const Place& place);

}  // namespace vynpkt

#endif  // VYN_TOOLS_JSON_JSON_PACKET_H
