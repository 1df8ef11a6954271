// Which fields of two packets differ.
#ifndef VYN_TOOLS_PACKETS_PACKET_DIFFERENCE_H
#define VYN_TOOLS_PACKETS_PACKET_DIFFERENCE_H

#include <optional>
#include <string>
#include <vector>

#include "packets/packet_contents.h"

namespace vynpkt {

struct FieldDifference {
    std::string path;              // as keys are, with indices: "message.data[2].id"
    std::optional<std::string> a;  // as JSON; none where there is no such field
    std::optional<std::string> b;
};

// The fields that differ: those of `Header`, and those of the message in place of the body where
// both are the same message. Empty when the same fields stand in other bytes.
[[nodiscard]] std::vector<FieldDifference> differences(PacketContents& a, PacketContents& b,
                                                       bool enum_names);

}  // namespace vynpkt

#endif  // VYN_TOOLS_PACKETS_PACKET_DIFFERENCE_H
