// Makes packets of headers: the bytes that `Header` would write, without a message in between.
#ifndef VYN_COMMON_PROTOBUF_PACKET_WRITER_H
#define VYN_COMMON_PROTOBUF_PACKET_WRITER_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "proto_helper.h"
#include "vyn_header.h"

namespace vyn {

// Where a packet goes, and where its length is told.
struct PacketOut {
    uint8_t* data;
    uint32_t capacity;
    uint32_t* length;

    void tell(uint64_t count) const;
};

// What of the property bag travels to the wire. A packet has a bag as soon as one of these members
// was found, whatever its value.
struct SentBag {
    bool present = false;
    uint32_t error_code = 0;
    std::string_view checksum;  // of fewer than MSG_HDR_BAG_SIZE characters
};

struct SentBody {
    const uint8_t* data;
    uint32_t length;
};

// The last field of a packet.
struct StatusField {
    uint8_t data[11] = {};
    uint32_t length = 0;

    StatusField() = default;
    explicit StatusField(uint32_t status);
};

// Tells the length, then writes the packet if it fits: VYN_OK or VYN_DOES_NOT_FIT. The output may
// overlap the body, the header and the bag.
[[nodiscard]] vyn_result write_packet(const msg_hdr& hdr, const SentBag& bag, const SentBody& body,
                                      const PacketOut& out);

}  // namespace vyn

#endif  // VYN_COMMON_PROTOBUF_PACKET_WRITER_H
