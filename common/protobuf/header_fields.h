// From the message `Header` to the records, field by field.
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

// Without `packet_status`; the whole message-type word goes into `msg_type`. A
// text that is too long for its member leaves it as it was. Says whether all fitted.
[[nodiscard]] bool fill_record(const Header& header, msg_hdr& hdr);

// The same for the property bag.
[[nodiscard]] bool fill_record(const Header_Property_bag& bag, msg_property_bag& record);

}  // namespace vyn

#endif  // VYN_COMMON_PROTOBUF_HEADER_FIELDS_H
