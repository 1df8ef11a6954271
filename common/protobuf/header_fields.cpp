#include "protobuf/header_fields.h"

#include <string>

#include "utils/bounded.h"

namespace vyn {
namespace {

// Copies texts as long as they fit, and keeps in mind whether all did.
class TextCopier {
public:
    // A text counts with its whole length, so a NUL inside is counted, and ends the text.
    template <std::size_t Size>
    void copy(char (&member)[Size], const std::string& value) {
        all_fit_ = copy_if_fits(member, Size, value.data(), value.size()) && all_fit_;
    }
    [[nodiscard]] bool all_fit() const { return all_fit_; }

private:
    bool all_fit_ = true;
};

}  // namespace

bool copy_header(const Header& header, msg_hdr& hdr) {
    TextCopier texts;
    texts.copy(hdr.message_id, header.message_id());
    texts.copy(hdr.correlation_id, header.correlation_id());
    texts.copy(hdr.system_id, header.system_id());
    texts.copy(hdr.device_id, header.device_id());
    texts.copy(hdr.target_id, header.target_id());
    hdr.version = header.version();
    hdr.sub_system_id = header.sub_system_id();
    hdr.msg_type = header.message_type();
    hdr.time = header.time();
    hdr.ttl = header.ttl();
    return texts.all_fit();
}

bool copy_bag(const Header_Property_bag& from, msg_property_bag& bag) {
    TextCopier texts;
    texts.copy(bag.attempt, from.attempt());
    texts.copy(bag.checksum, from.checksum());
    texts.copy(bag.error, from.error());
    texts.copy(bag.target, from.target());
    texts.copy(bag.file, from.file());
    bag.error_code = from.error_code();
    bag.ack_required = from.ack_required();
    return texts.all_fit();
}

}  // namespace vyn
