// Packets as the services on the other side make and read them, with zstd and protobuf themselves.
#ifndef VYN_TESTS_SUPPORT_PACKETS_H
#define VYN_TESTS_SUPPORT_PACKETS_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "vyn_header_v3.pb.h"

namespace vyn_test {

std::string compressed(const std::string& bytes);

// With every field set, and the property bag too.
Header full_header();

inline const uint8_t* bytes_of(const std::string& text) {
    return reinterpret_cast<const uint8_t*>(text.data());
}
inline uint8_t* bytes_of(std::string& text) { return reinterpret_cast<uint8_t*>(text.data()); }
inline uint32_t length_of(const std::string& text) { return static_cast<uint32_t>(text.size()); }

// Text of one character repeated.
inline std::string times(std::size_t count, char character) {
    return std::string(count, character);
}

// What a function that writes bytes and their length gave.
struct Outcome {
    uint32_t code;
    uint32_t length;     // 0xAAAAAAAA when it was left alone
    std::string buffer;  // all of the buffer, which is full of '#' before the call
    bool operator==(const Outcome& other) const {
        return code == other.code && length == other.length && buffer == other.buffer;
    }
};

constexpr uint32_t kUntouched = 0xAAAAAAAA;

// Runs a call of (buffer, capacity, length) on a buffer with guards behind its end.
template <typename Call>
Outcome into_buffer(std::size_t capacity, Call call) {
    constexpr std::size_t kGuard = 16;
    Outcome outcome{0, kUntouched, times(capacity + kGuard, '#')};
    outcome.code = call(bytes_of(outcome.buffer), static_cast<uint32_t>(capacity), &outcome.length);
    return outcome;
}

}  // namespace vyn_test

#endif  // VYN_TESTS_SUPPORT_PACKETS_H
