#include "envelope/envelope_text.h"

#include "envelope/record_fields.h"
#include "utils/bounded.h"

namespace vyn {
namespace {

constexpr int64_t kEnvelopeVersion = 3;
constexpr std::string_view kBagKey = ", \"property_bag\": ";
constexpr std::string_view kBodyKey = ", \"body\": \"";
constexpr std::string_view kEnd = " }";

// Numbers of 32 bits are signed in JSON, so large ones come out negative.
int64_t signed_number(uint32_t number) { return static_cast<int32_t>(number); }

void put(ObjectWriter& envelope, const TextField& field, const msg_hdr& hdr) {
    envelope.text(field.key, text_in(hdr, field));
}

void put_if_set(ObjectWriter& envelope, const TextField& field, const msg_hdr& hdr) {
    envelope.text_if_set(field.key, text_in(hdr, field));
}

}  // namespace

// Three kilobytes that are written next are not cleared first.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
EnvelopeText::EnvelopeText(const msg_hdr& hdr, int64_t time, std::string_view bag) : bag_(bag) {
    ObjectWriter head(head_);
    put(head, kSystemId, hdr);
    put(head, kMessageId, hdr);
    put_if_set(head, kCorrelationId, hdr);
    head.number("version", kEnvelopeVersion);
    head.number_if_set("sub_system_id", signed_number(hdr.sub_system_id));
    put_if_set(head, kDeviceId, hdr);
    put_if_set(head, kTargetId, hdr);
    head.number("message_type",
                signed_number(combine_msg_type_encoding_type(hdr.msg_type, hdr.encoding_type)));
    head.number("time", time);
    head.number_if_set("ttl", hdr.ttl);
    head_length_ = head.written().size();
}

void EnvelopeText::set_body(std::string_view body) {
    body_ = body;
    has_body_ = true;
}

std::size_t EnvelopeText::length() const {
    std::size_t length = head_length_ + kEnd.size();
    if (!bag_.empty()) {
        length += kBagKey.size() + bag_.size();
    }
    if (has_body_) {
        length += kBodyKey.size() + escaped_length(body_) + sizeof '"';
    }
    return length;
}

void EnvelopeText::write(char* out) const {
    out = write_plain(out, {head_, head_length_});
    if (!bag_.empty()) {
        out = write_plain(out, kBagKey);
        out = write_plain(out, bag_);
    }
    if (has_body_) {
        out = write_plain(out, kBodyKey);
        out = write_escaped(out, body_);
        *out++ = '"';
    }
    (void)write_plain(out, kEnd);
}

std::string_view write_property_bag(const msg_property_bag& record,
                                    char (&room)[kBagTextCapacity]) {
    ObjectWriter bag(room);
    bag.number_if_set("error_code", signed_number(record.error_code));
    bag.number_if_set("OTT", signed_number(record.OTT));
    bag.number_if_set("ack_required", signed_number(record.ack_required));
    bag.text_if_set("attempt", text_of(record.attempt));
    bag.text_if_set("checksum", text_of(record.checksum));
    bag.text_if_set("error", text_of(record.error));
    bag.text_if_set("target", text_of(record.target));
    bag.text_if_set("file", text_of(record.file));
    return bag.empty() ? std::string_view{} : bag.finish();
}

}  // namespace vyn
