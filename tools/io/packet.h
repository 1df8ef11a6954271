// Packets as bytes in a string, their statuses, and texts for results of the library.
#ifndef VYN_TOOLS_IO_PACKET_H
#define VYN_TOOLS_IO_PACKET_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "proto_helper.h"
#include "protobuf/packet.h"
#include "vyn_header_v3.pb.h"

namespace vynpkt {

[[nodiscard]] inline const uint8_t* bytes_of(std::string_view text) {
    return reinterpret_cast<const uint8_t*>(text.data());
}
[[nodiscard]] inline uint8_t* bytes_of(std::string& text) {
    return reinterpret_cast<uint8_t*>(text.data());
}

// Enough for the envelope of any packet that becomes JSON: a byte of the packet takes at most six,
// and keys and numbers take the rest.
constexpr std::size_t kEnvelopeRoom = 6 * VYN_PACKET_CAPACITY + 4096;

constexpr char kNotAHeader[] = "not a valid Header";

// Reads an input that holds one packet, compressed or plain. Refuses an empty input: it would be a
// packet without any field, but most likely an earlier command in a pipe has failed.
[[nodiscard]] std::string read_packet(const std::string& path);

// The packet, decompressed if it is a frame. The name stands for it in messages.
[[nodiscard]] std::string plain_packet(const std::string& packet, const std::string& name);

[[nodiscard]] inline bool parse_header(std::string_view plain, Header& header) {
    return vyn::parse_packet(bytes_of(plain), plain.size(), header);
}

// Reads a packet status: its name in upper or lower case, or its number. Throws a usage error.
[[nodiscard]] int parse_status(const std::string& text);
// "NONE 0, HISTORY 1, ...", for help and messages.
[[nodiscard]] std::string status_names();

}  // namespace vynpkt

#endif  // VYN_TOOLS_IO_PACKET_H
