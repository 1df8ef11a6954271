#include "envelope/envelope_text.h"

#include "envelope/header_members.h"
#include "utils/bounded.h"

namespace vyn {
namespace {

constexpr int64_t kEnvelopeVersion = 3;
constexpr std::string_view kBagKey = ", \"property_bag\": ";
constexpr std::string_view kBodyKey = ", \"body\": \"";
constexpr std::string_view kEnd = " }";

// Numbers of 32 bits are signed in JSON, so large ones come out negative.
int64_t signed_number(uint32_t number) { return static_cast<int32_t>(number); }

}  // namespace

// The three kilobytes of head_ are not cleared, since they are written next.
// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
EnvelopeText::EnvelopeText(const msg_hdr& hdr, int64_t time, std::string_view bag) : bag_(bag) {
    ObjectWriter head(head_);
    head.text(kSystemId.key(), member_text(hdr.system_id));
    head.text(kMessageId.key(), member_text(hdr.message_id));
    head.text_if_set(kCorrelationId.key(), member_text(hdr.correlation_id));
    head.number("version", kEnvelopeVersion);
    head.number_if_set("sub_system_id", signed_number(hdr.sub_system_id));
    head.text_if_set(kDeviceId.key(), member_text(hdr.device_id));
    head.text_if_set(kTargetId.key(), member_text(hdr.target_id));
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

std::string_view write_property_bag(const msg_property_bag& bag, char (&room)[kBagTextCapacity]) {
    ObjectWriter json(room);
    json.number_if_set("error_code", signed_number(bag.error_code));
    json.number_if_set("OTT", signed_number(bag.OTT));
    json.number_if_set("ack_required", signed_number(bag.ack_required));
    json.text_if_set("attempt", member_text(bag.attempt));
    json.text_if_set("checksum", member_text(bag.checksum));
    json.text_if_set("error", member_text(bag.error));
    json.text_if_set("target", member_text(bag.target));
    json.text_if_set("file", member_text(bag.file));
    return json.empty() ? std::string_view{} : json.finish();
}

}  // namespace vyn
