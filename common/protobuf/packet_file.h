// Packet files, as store_proto_msg_to_file() and read_proto_msg_from_file() promise. The caller has
// checked the pointers.
#ifndef VYN_COMMON_PROTOBUF_PACKET_FILE_H
#define VYN_COMMON_PROTOBUF_PACKET_FILE_H

#include <cstdint>

#include "proto_helper.h"

namespace vyn {

[[nodiscard]] vyn_result store_packet(const uint8_t* pkt, int32_t pkt_len, const char* path);
[[nodiscard]] vyn_result read_packets(uint8_t** bufs, uint32_t& record_count, uint32_t* lens,
                                      const char* path);

}  // namespace vyn

#endif  // VYN_COMMON_PROTOBUF_PACKET_FILE_H
