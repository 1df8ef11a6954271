// The conversions of packets, on arguments that are there. They throw when memory runs out.
#ifndef VYN_COMMON_PROTOBUF_WIRE_CONVERT_H
#define VYN_COMMON_PROTOBUF_WIRE_CONVERT_H

#include <cstdint>

#include "proto_helper.h"
#include "vyn_header_v3.pb.h"

namespace vyn {

// Where a packet goes, and where its length is told.
struct PacketOut {
    uint8_t* data;
    uint32_t capacity;
    uint32_t* length;
};

// False for bytes that are no `Header`, and for more than protobuf can count.
[[nodiscard]] bool parse_packet(const uint8_t* data, uint32_t length, Header& header);

// Tells the length, then writes the packet if it fits: VYN_OK, VYN_DOES_NOT_FIT or
// VYN_NOT_SERIALIZED.
[[nodiscard]] vyn_result write_packet(const Header& header, const PacketOut& out);

[[nodiscard]] vyn_result record_to_wire(const msg_hdr& hdr, const uint8_t* body, uint32_t body_len,
                                        const PacketOut& out);
[[nodiscard]] vyn_result json_to_wire(const char* json, const PacketOut& out);
[[nodiscard]] vyn_result wire_to_json(const uint8_t* pkt, uint32_t pkt_len, char* json_out,
                                      uint32_t json_out_size);
[[nodiscard]] vyn_result restamp(const uint8_t* pkt, uint32_t pkt_len, uint32_t new_status,
                                 uint32_t& msg_type_out, const PacketOut& out);

}  // namespace vyn

#endif  // VYN_COMMON_PROTOBUF_WIRE_CONVERT_H
