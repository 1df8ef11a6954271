// What the fuzz targets share. They call the library on memory of exactly the size that they state
// and require what the headers promise.
#ifndef VYN_FUZZ_FUZZ_H
#define VYN_FUZZ_FUZZ_H

#include <google/protobuf/stubs/logging.h>
#include <sanitizer/asan_interface.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <tuple>

#include "proto_helper.h"
#include "support/log_trap.h"
#include "support/packets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace vyn_fuzz {

inline auto* const silent_protobuf = google::protobuf::SetLogHandler(nullptr);

// A broken promise ends the program, and libFuzzer keeps the input.
inline void require(bool kept, const char* promise) {
    if (!kept) {
        std::cerr << "BROKEN PROMISE: " << promise << '\n';
        std::abort();
    }
}

// Memory that ends where a page begins that nobody may read or write. The address sanitizer also
// guards what is in front of it.
struct Buffer {
    explicit Buffer(std::size_t count) : Buffer(std::string(count, '#')) {}
    explicit Buffer(const std::string& contents) : size(vyn_test::length_of(contents)) {
        contents.copy(text, size);
        ASAN_POISON_MEMORY_REGION(pages.get(), whole - size);
    }
    [[nodiscard]] uint8_t* bytes() const { return reinterpret_cast<uint8_t*>(text); }
    [[nodiscard]] std::string contents() const { return {text, size}; }

    static constexpr std::size_t kPage = 4096;
    struct Unmap {
        std::size_t length;
        void operator()(char* start) const { (void)munmap(start, length + kPage); }
    };
    // By length, for this thread's next ones: fresh pages take three times as long.
    inline static thread_local std::multimap<std::size_t, std::unique_ptr<char, Unmap>> unused;
    struct Keep {
        std::size_t length;
        void operator()(char* start) const {
            ASAN_UNPOISON_MEMORY_REGION(start, length);
            unused.emplace(length, std::unique_ptr<char, Unmap>(start, {length}));
        }
    };
    static char* take(std::size_t length) {
        if (auto found = unused.extract(length)) {
            return found.mapped().release();
        }
        void* fresh = mmap(nullptr, length + kPage, PROT_READ | PROT_WRITE,
                           MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        (void)mprotect(static_cast<char*>(fresh) + length, kPage, PROT_NONE);
        return static_cast<char*>(fresh);
    }

    uint32_t size;
    std::size_t whole = (size + kPage - 1) / kPage * kPage;
    std::unique_ptr<char, Keep> pages{take(whole), {whole}};
    char* text = pages.get() + whole - size;
    mutable uint32_t told = vyn_test::kUntouched;  // the length that a call tells
};

// The result of a call, the length that it tells, the lines that it logs, and all of the buffer.
using Outcome = std::tuple<uint32_t, uint32_t, vyn_test::LogLines, std::string>;
template <typename Call>
Outcome outcome_of(std::size_t room, Call call) {
    const Buffer to(room);
    (void)vyn_test::take_log();
    const auto code = static_cast<uint32_t>(call(to));
    return {code, to.told, vyn_test::take_log(), to.contents()};
}

// What a call fills where there is just enough room. With one byte less it is refused, writes
// nothing, and tells the same length.
template <typename Call>
std::string at_exact_fit(std::size_t needed, uint32_t code, uint32_t too_small, Call call) {
    const auto [result, length, log, bytes] = outcome_of(needed, call);
    require(result == code, "an exact fit is enough");
    if (needed > 0) {
        const auto [refusal, told, refused, left] = outcome_of(needed - 1, call);
        require(refusal == too_small && told == length && left == std::string(needed - 1, '#'),
                "too little room is refused, and left as it was");
    }
    return bytes;
}

// A conversion to a packet gives what its steps give, and needs no more room than the packet's length.
template <typename Convert, typename Steps>
void require_same(std::size_t ample, Convert convert, Steps steps) {
    const Outcome outcome = outcome_of(ample, convert);
    require(outcome == outcome_of(ample, steps), "the result, length, log and bytes of the steps");
    const auto& [code, length, log, room] = outcome;
    if (length != vyn_test::kUntouched) {
        (void)at_exact_fit(length, code, VYN_DOES_NOT_FIT, convert);
    }
}

// A name for a file in memory, which is removed in the end.
struct File {
    std::string path = "/dev/shm/vyn_fuzz_" + std::to_string(getpid()) + "_" +
                       std::to_string(reinterpret_cast<std::uintptr_t>(this));
    std::unique_ptr<const char, int (*)(const char*)> removal{path.c_str(), &unlink};
};
inline std::string contents_of(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// As a C function sees it.
inline std::string up_to_nul(const std::string& text) { return text.substr(0, text.find('\0')); }

// Takes the first line off the input.
inline std::string take_line(std::string& input) {
    std::string line = input.substr(0, input.find('\n'));
    input.erase(0, line.size() + 1);
    return line;
}
inline uint32_t take_number(std::string& input) {
    return static_cast<uint32_t>(std::strtoll(take_line(input).c_str(), nullptr, 10));
}

}  // namespace vyn_fuzz

#endif  // VYN_FUZZ_FUZZ_H
