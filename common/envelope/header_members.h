// The text members of a header: the one table of what `Header` and JSON call them. All conversions
// hand the member itself over beside its name: kMessageId, hdr.message_id.
#ifndef VYN_COMMON_ENVELOPE_HEADER_MEMBERS_H
#define VYN_COMMON_ENVELOPE_HEADER_MEMBERS_H

#include <cstddef>

namespace vyn {

struct TextMember {
    const char* full_name;  // of the field in the schema
    int number;             // of that field

    // In JSON.
    [[nodiscard]] constexpr const char* key() const { return full_name + sizeof "Header." - 1; }
};

constexpr TextMember kMessageId = {"Header.message_id", 1};
constexpr TextMember kCorrelationId = {"Header.correlation_id", 2};
constexpr TextMember kSystemId = {"Header.system_id", 4};
constexpr TextMember kDeviceId = {"Header.device_id", 6};
constexpr TextMember kTargetId = {"Header.target_id", 8};

}  // namespace vyn

#endif  // VYN_COMMON_ENVELOPE_HEADER_MEMBERS_H
