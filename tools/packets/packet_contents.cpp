#include "packets/packet_contents.h"

#include <google/protobuf/unknown_field_set.h>

#include <vector>

namespace vynpkt {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

void PacketContents::look_at(const Header& header, uint64_t offset, std::size_t length) {
    header_ = &header;
    offset_ = offset;
    length_ = length;
    descriptor_ = vyn::has_binary_body(header.message_type()) ? types_.find(type()) : nullptr;
    message_ = nullptr;
    parsed_ = false;
}

const Message* PacketContents::message() {
    if (!parsed_ && descriptor_ != nullptr) {
        std::unique_ptr<Message>& message = messages_[descriptor_];
        if (message == nullptr) {
            message = new_message(*descriptor_);
        }
        message_ = message->ParseFromString(header_->body()) ? message.get() : nullptr;
    }
    parsed_ = true;
    return message_;
}

std::size_t PacketContents::unknown_fields() {
    return message() == nullptr ? 0 : count_unknown_fields(*message());
}

// Recursion goes no deeper than protobuf's parser lets messages nest.
// NOLINTNEXTLINE(misc-no-recursion)
std::size_t count_unknown_fields(const Message& message) {
    const auto& reflection = *message.GetReflection();
    auto count = static_cast<std::size_t>(reflection.GetUnknownFields(message).field_count());
    std::vector<const FieldDescriptor*> fields;
    reflection.ListFields(message, &fields);
    for (const FieldDescriptor* field : fields) {
        if (field->cpp_type() != FieldDescriptor::CPPTYPE_MESSAGE) {
            continue;
        }
        if (!field->is_repeated()) {
            count += count_unknown_fields(reflection.GetMessage(message, field));
            continue;
        }
        for (int i = 0; i < reflection.FieldSize(message, field); ++i) {
            count += count_unknown_fields(reflection.GetRepeatedMessage(message, field, i));
        }
    }
    return count;
}

}  // namespace vynpkt
