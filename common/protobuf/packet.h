// Packets as bytes: checked, parsed, and passed on with another status perhaps.
#ifndef VYN_COMMON_PROTOBUF_PACKET_H
#define VYN_COMMON_PROTOBUF_PACKET_H

#include <cstdint>

#include "protobuf/packet_writer.h"
#include "vyn_header_v3.pb.h"

namespace vyn {

// Parses a packet. False for bytes that are no `Header`, for a packet that is cut anywhere, which
// some releases of protobuf would take, and for more bytes than protobuf can count.
[[nodiscard]] bool parse_packet(const uint8_t* data, std::size_t length, Header& header);

// A packet that is written again as the message `Header` writes it. Most packets have this form
// already: their bytes are copied, and only the others go through the message.
class Packet {
public:
    // As parse_packet(). The bytes stay where they are.
    [[nodiscard]] bool read(const uint8_t* data, uint32_t length);

    [[nodiscard]] uint32_t message_type() const { return message_type_; }
    void set_status(uint32_t status);

    // Up to the next change.
    [[nodiscard]] uint64_t length() const;
    // Writes that many bytes, over those that were read if need be. False when protobuf failed.
    [[nodiscard]] bool write(uint8_t* out) const;

private:
    const uint8_t* data_ = nullptr;  // null: the packet is in header_
    uint32_t kept_ = 0;              // so many bytes of data_ are passed on
    uint32_t status_offset_ = 0;
    uint32_t message_type_ = 0;
    StatusField status_;
    Header header_;
};

}  // namespace vyn

#endif  // VYN_COMMON_PROTOBUF_PACKET_H
