// Writes the JSON texts that the library makes itself: the envelope and the property bag.
#ifndef VYN_COMMON_ENVELOPE_ENVELOPE_TEXT_H
#define VYN_COMMON_ENVELOPE_ENVELOPE_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "utils/json_text.h"
#include "vyn_header.h"

namespace vyn {

// The text of an envelope whose length is known before it is written. The members of limited size
// are kept as text; the property bag and the body, which can be long, stay where they are until
// write() copies them.
class EnvelopeText {
public:
    // The bag is JSON text; an empty one is left out.
    EnvelopeText(const msg_hdr& hdr, int64_t time, std::string_view bag);

    // Adds the member "body".
    void set_body(std::string_view body);

    [[nodiscard]] std::size_t length() const;
    // Writes that many characters, without a NUL.
    void write(char* out) const;

private:
    static constexpr std::size_t kNumbers = 5;
    static constexpr std::size_t kKeyLengths = sizeof(
        "system_id message_id correlation_id version sub_system_id device_id target_id"
        " message_type time ttl");
    static constexpr std::size_t kMembers = 10;
    static constexpr std::size_t kHeadCapacity =
        kMaxEscape * (3 * MSG_HDR_ID_SIZE + 2 * MSG_HDR_DEVICE_ID_SIZE) +
        kNumbers * ObjectWriter::kMaxNumber + kKeyLengths +
        kMembers * ObjectWriter::kMemberOverhead;

    char head_[kHeadCapacity];
    std::size_t head_length_ = 0;
    std::string_view bag_;
    std::string_view body_;
    bool has_body_ = false;
};

// Room for any property bag.
constexpr std::size_t kBagTextCapacity =
    kMaxEscape * sizeof(msg_property_bag) + 8 * ObjectWriter::kMemberOverhead +
    sizeof("error_code OTT ack_required attempt checksum error target file");

// Writes a property bag as JSON text into the room; the text is empty when nothing is set.
[[nodiscard]] std::string_view write_property_bag(const msg_property_bag& bag,
                                                  char (&room)[kBagTextCapacity]);

}  // namespace vyn

#endif  // VYN_COMMON_ENVELOPE_ENVELOPE_TEXT_H
