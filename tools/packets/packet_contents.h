// A packet that was read, with the message in its body: what is printed, filtered and counted.
#ifndef VYN_TOOLS_PACKETS_PACKET_CONTENTS_H
#define VYN_TOOLS_PACKETS_PACKET_CONTENTS_H

#include <google/protobuf/message.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "envelope/message_type.h"
#include "schema/message_types.h"
#include "vyn_header_v3.pb.h"

namespace vynpkt {

// Looks at one packet after the other. Each is parsed no further than somebody asks.
class PacketContents {
public:
    // The types must stay.
    explicit PacketContents(const MessageTypes& types) : types_(types) {}

    // Looks at this packet, which must stay until the next call.
    void look_at(const Header& header, uint64_t offset, std::size_t length);

    [[nodiscard]] const Header& header() const { return *header_; }
    // Where its entry begins in the file, and how many bytes the packet takes.
    [[nodiscard]] uint64_t offset() const { return offset_; }
    [[nodiscard]] std::size_t length() const { return length_; }
    [[nodiscard]] uint32_t type() const { return vyn::message_type_of(header_->message_type()); }
    [[nodiscard]] uint32_t encoding() const {
        return vyn::encoding_type_of(header_->message_type());
    }

    // Which message the body is by the types, whether or not its bytes are one; null for a type
    // that they do not have, and for a body that is text.
    [[nodiscard]] const Descriptor* descriptor() const { return descriptor_; }
    // The message in the body. Null without a descriptor, and for bytes that are no such message.
    [[nodiscard]] const google::protobuf::Message* message();
    // How many fields of the body the message does not know, at any depth.
    [[nodiscard]] std::size_t unknown_fields();

private:
    const MessageTypes& types_;
    std::map<const Descriptor*, std::unique_ptr<google::protobuf::Message>> messages_;
    const Header* header_ = nullptr;
    uint64_t offset_ = 0;
    std::size_t length_ = 0;
    const Descriptor* descriptor_ = nullptr;
    google::protobuf::Message* message_ = nullptr;  // that of the body, once it is parsed
    bool parsed_ = false;
};

// How many fields were not known when this message was parsed, in it and in its messages.
[[nodiscard]] std::size_t count_unknown_fields(const google::protobuf::Message& message);

}  // namespace vynpkt

#endif  // VYN_TOOLS_PACKETS_PACKET_CONTENTS_H
