#include "protobuf/header_fields.h"

#include <string>

#include "envelope/record_fields.h"
#include "utils/bounded.h"

namespace vyn {
namespace {

struct HeaderTextField {
    TextField record;
    const std::string& (Header::*get)() const;
};

constexpr HeaderTextField kTextFields[] = {
    {kMessageId, &Header::message_id}, {kCorrelationId, &Header::correlation_id},
    {kSystemId, &Header::system_id},   {kDeviceId, &Header::device_id},
    {kTargetId, &Header::target_id},
};

// Measured by its length, so a NUL inside is counted, and ends the text in the record.
template <std::size_t Size>
[[nodiscard]] bool copy_member(char (&member)[Size], const std::string& value) {
    return copy_if_fits(member, Size, value.data(), value.size());
}

}  // namespace

bool fill_record(const Header& header, msg_hdr& hdr) {
    bool all_fit = true;
    for (const HeaderTextField& field : kTextFields) {
        const std::string& value = (header.*field.get)();
        if (!copy_if_fits(text_in(hdr, field.record), field.record.size, value.data(),
                          value.size())) {
            all_fit = false;
        }
    }
    hdr.version = header.version();
    hdr.sub_system_id = header.sub_system_id();
    hdr.msg_type = header.message_type();
    hdr.time = header.time();
    hdr.ttl = header.ttl();
    return all_fit;
}

bool fill_record(const Header_Property_bag& bag, msg_property_bag& record) {
    record.error_code = bag.error_code();
    record.ack_required = bag.ack_required();
    bool all_fit = copy_member(record.attempt, bag.attempt());
    all_fit = copy_member(record.checksum, bag.checksum()) && all_fit;
    all_fit = copy_member(record.error, bag.error()) && all_fit;
    all_fit = copy_member(record.target, bag.target()) && all_fit;
    all_fit = copy_member(record.file, bag.file()) && all_fit;
    return all_fit;
}

}  // namespace vyn
