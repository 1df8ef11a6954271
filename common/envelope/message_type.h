// The message-type word of `Header` and of the JSON envelope: the message type in bits 0 to 13,
// the encoding type of the body in bits 14 and 15.
#ifndef VYN_COMMON_ENVELOPE_MESSAGE_TYPE_H
#define VYN_COMMON_ENVELOPE_MESSAGE_TYPE_H

#include <cstdint>

#include "vyn_header.h"

namespace vyn {

constexpr uint32_t kTypeMask = 0x3FFF;
constexpr uint32_t kEncodingMask = 3;
constexpr uint32_t kEncodingShift = 14;

constexpr uint32_t message_type_of(uint32_t word) { return word & kTypeMask; }
constexpr uint32_t encoding_type_of(uint32_t word) {
    return (word >> kEncodingShift) & kEncodingMask;
}
// A word with any bit above 15 set has a text body, even if its encoding type is 2.
constexpr bool has_binary_body(uint32_t word) {
    return word >> kEncodingShift == MSG_ENCODING_BINARY;
}

}  // namespace vyn

#endif  // VYN_COMMON_ENVELOPE_MESSAGE_TYPE_H
