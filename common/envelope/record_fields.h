// The text fields of the header record: the one table behind every conversion of them.
#ifndef VYN_COMMON_ENVELOPE_RECORD_FIELDS_H
#define VYN_COMMON_ENVELOPE_RECORD_FIELDS_H

#include <cstddef>
#include <cstring>
#include <string_view>

#include "vyn_header.h"

namespace vyn {

struct TextField {
    const char* key;     // in JSON, and the field's name in `Header`
    std::size_t offset;  // of the member in msg_hdr
    std::size_t size;    // of the member, its NUL included
};

constexpr TextField kMessageId = {"message_id", offsetof(msg_hdr, message_id), MSG_HDR_ID_SIZE};
constexpr TextField kCorrelationId = {"correlation_id", offsetof(msg_hdr, correlation_id),
                                      MSG_HDR_ID_SIZE};
constexpr TextField kSystemId = {"system_id", offsetof(msg_hdr, system_id), MSG_HDR_ID_SIZE};
constexpr TextField kDeviceId = {"device_id", offsetof(msg_hdr, device_id), MSG_HDR_DEVICE_ID_SIZE};
constexpr TextField kTargetId = {"target_id", offsetof(msg_hdr, target_id), MSG_HDR_DEVICE_ID_SIZE};

inline char* text_in(msg_hdr& hdr, const TextField& field) {
    return reinterpret_cast<char*>(&hdr) + field.offset;
}
inline std::string_view text_in(const msg_hdr& hdr, const TextField& field) {
    const char* text = reinterpret_cast<const char*>(&hdr) + field.offset;
    return {text, ::strnlen(text, field.size)};
}

}  // namespace vyn

#endif  // VYN_COMMON_ENVELOPE_RECORD_FIELDS_H
