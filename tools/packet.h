// Packets as bytes in a string, and words for what the library says about them.
#ifndef VYN_TOOLS_PACKET_H
#define VYN_TOOLS_PACKET_H

#include <cstdint>
#include <string>
#include <string_view>

#include "vyn_header_v3.pb.h"

namespace vynpkt {

[[nodiscard]] inline const uint8_t* bytes_of(std::string_view text) {
    return reinterpret_cast<const uint8_t*>(text.data());
}
[[nodiscard]] inline uint8_t* bytes_of(std::string& text) {
    return reinterpret_cast<uint8_t*>(text.data());
}

constexpr char kNotAHeader[] = "not a valid Header";

// An input that holds one packet, compressed or plain. An empty one is refused: it reads as a
// packet without any field, but is what a failed command before this one leaves.
[[nodiscard]] std::string read_packet(const std::string& path);

// The packet without its compression, if it has one. Name is what messages call it.
[[nodiscard]] std::string plain_packet(const std::string& packet, const std::string& name);

[[nodiscard]] bool parse_header(std::string_view plain, Header& header);

// A packet status by its name, in any case, or its number. Anything else is a usage error.
[[nodiscard]] int parse_status(const std::string& text);
// "NONE 0, HISTORY 1, ...", for help and messages.
[[nodiscard]] std::string status_names();

}  // namespace vynpkt

#endif  // VYN_TOOLS_PACKET_H
