// A call of every exported function with arguments from one place, for the programs that try all of
// them: under damaged input, in many threads, without memory.
#ifndef VYN_TESTS_SUPPORT_CALLS_H
#define VYN_TESTS_SUPPORT_CALLS_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "json_helper.h"
#include "support/packets.h"
#include "vyn_header.h"

namespace vyn_test {

constexpr uint32_t kCallRoom = 2048;
// A packet file of up to this size can be read, whatever its records have become.
constexpr std::size_t kPacketFileRoom = 20000;

// The part of the arguments that a call works well with.
struct Sample {
    Sample(std::string text_ = {}, std::string key_ = {}, int number_ = 0, std::string other_ = {})
        : text(std::move(text_)), key(std::move(key_)), number(number_), other(std::move(other_)) {}

    std::string text;  // a document, mostly
    std::string key;
    int number;  // an index or a type
    std::string other;
};

// One reference is ours; of the one that set_array_key_json() is given it may have left us with.
struct TreeRelease {
    void operator()(json_object* tree) const;
};
struct TextRelease {
    void operator()(char* text) const { free(text); }
};

struct Input : Sample {
    Input(const Sample& sample, const std::string& pkt);

    uint32_t size = kCallRoom;
    std::string packet;
    std::string frame;                               // the packet, compressed
    Header header;                                   // the packet, parsed
    msg_hdr record{};                                // the text, when it is an envelope
    std::unique_ptr<json_object, TreeRelease> tree;  // the other text
    const char* json_path = "json";
    const char* packets_path = "packets";
};

// All that a call may write, but for files.
struct Output {
    explicit Output(const Input& in);
    bool operator==(const Output& good) const;

    alignas(8) char document[kCallRoom];  // the text, to be edited in place
    alignas(8) char buffer[kCallRoom];
    uint32_t length = kUntouched;
    uint32_t number = kUntouched;
    std::unique_ptr<char, TextRelease> made;  // what was returned as new
};

struct Call {
    const char* names;  // of the functions, with blanks between
    int64_t (*run)(Input& in, Output& out);
    Sample sample;
    // Bits of the results that may tell of memory that ran out; and those of them that outputs are
    // undefined after, or written for. Where the contract lets a function go on without a part,
    // that counts as its failure here.
    uint32_t failures = 1;
    uint32_t loose = 0;
};

// The same input gives the same result and the same output, but for the ids and the clock, which
// are left out.
extern const std::vector<Call> kCalls;

}  // namespace vyn_test

#endif  // VYN_TESTS_SUPPORT_CALLS_H
