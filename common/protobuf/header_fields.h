// From the message `Header` to the header and the property bag, field by field.
#ifndef VYN_COMMON_PROTOBUF_HEADER_FIELDS_H
#define VYN_COMMON_PROTOBUF_HEADER_FIELDS_H

#include <cstdint>

#include "vyn_header.h"
#include "vyn_header_v3.pb.h"

namespace vyn {

// Any number, named or not. By way of int, since the enum need not reach beyond it.
inline PacketStatus packet_status_of(uint32_t status) {
    return static_cast<PacketStatus>(static_cast<int>(status));
}

// Copies all fields but `packet_status`; the whole message-type word goes into `msg_type`. A text
// that is too long leaves its member as it was. Returns whether all texts fitted.
[[nodiscard]] bool copy_header(const Header& header, msg_hdr& hdr);

// The same for the property bag.
[[nodiscard]] bool copy_bag(const Header_Property_bag& from, msg_property_bag& bag);

}  // namespace vyn

#endif  // VYN_COMMON_PROTOBUF_HEADER_FIELDS_H
