// What the fuzz targets share. They call the library on memory of exactly the size that they state
// and require what the headers promise.
#ifndef VYN_FUZZ_FUZZ_H
#define VYN_FUZZ_FUZZ_H

#include <google/protobuf/stubs/logging.h>
#include <sys/mman.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>

#include "support/guarded.h"
#include "support/log_trap.h"
#include "support/packets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace vyn_fuzz {

inline auto* const own_log_of_protobuf = google::protobuf::SetLogHandler(nullptr);

// A broken promise ends the program, and libFuzzer keeps the input.
inline void require(bool kept, const char* promise) {
    if (!kept) {
        std::cerr << "BROKEN PROMISE: " << promise << '\n';
        std::abort();
    }
}

// The first byte beyond it is not to be touched.
struct Buffer {
    explicit Buffer(std::size_t count) : Buffer(std::string(count, '#')) {}
    explicit Buffer(const std::string& contents) : size(vyn_test::length_of(contents)), text(size) {
        contents.copy(text.get(), size);
    }
    [[nodiscard]] uint8_t* bytes() const { return reinterpret_cast<uint8_t*>(text.get()); }
    [[nodiscard]] std::string contents() const { return {text.get(), size}; }

    uint32_t size;
    vyn_test::Guarded text;
};

// What a call fills where there is just enough room. With less it is refused and writes nothing.
template <typename Call>
std::string at_exact_fit(std::size_t needed, uint32_t code, uint32_t too_small, Call call) {
    const Buffer exact(needed);
    require(call(exact) == code, "an exact fit is enough");
    const Buffer small(needed > 0 ? needed - 1 : 0);
    require(needed == 0 ||
                (call(small) == too_small && small.contents() == Buffer(small.size).contents()),
            "too little room is refused, and left as it was");
    return exact.contents();
}

// A file without a name, at a path.
struct File {
    std::unique_ptr<std::FILE, decltype(&std::fclose)> stream{fdopen(memfd_create("input", 0), "r"),
                                                              &std::fclose};
    std::string path = "/proc/self/fd/" + std::to_string(fileno(stream.get()));
};

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
