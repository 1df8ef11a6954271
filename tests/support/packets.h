// Packets as the services on the other side make and read them, with zstd and protobuf themselves.
#ifndef VYN_TESTS_SUPPORT_PACKETS_H
#define VYN_TESTS_SUPPORT_PACKETS_H

#include <google/protobuf/text_format.h>
#include <zstd.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "vyn_header_v3.pb.h"

namespace vyn_test {

inline std::string compressed(const std::string& bytes) {
    std::string out(ZSTD_compressBound(bytes.size()), '\0');
    out.resize(ZSTD_compress(out.data(), out.size(), bytes.data(), bytes.size(), 3));
    return out;
}

// With every field set, and the property bag too.
inline Header full_header() {
    Header header;
    (void)google::protobuf::TextFormat::ParseFromString(
        R"(message_id: "0123" correlation_id: "c" version: 4 system_id: "s" body: "\000\001/\377"
           sub_system_id: 0x80000001 device_id: "d/\"\303\244" message_type: 32773 target_id: "t"
           ttl: -2 time: 1700000000000 packet_status: 3
           property_bag { error_code: 0x80000000 ack_required: 1 checksum: "abc" error: "e/\001"
                          target: "t" file: "f" attempt: "a" })",
        &header);
    return header;
}

inline const uint8_t* bytes_of(const std::string& text) {
    return reinterpret_cast<const uint8_t*>(text.data());
}
inline uint8_t* bytes_of(std::string& text) { return reinterpret_cast<uint8_t*>(text.data()); }
inline uint32_t length_of(const std::string& text) { return static_cast<uint32_t>(text.size()); }

// Text of one character repeated.
inline std::string times(std::size_t count, char character) {
    return std::string(count, character);
}

// A number that no call gives.
constexpr uint32_t kUntouched = 0xAAAAAAAA;

}  // namespace vyn_test

#endif  // VYN_TESTS_SUPPORT_PACKETS_H
