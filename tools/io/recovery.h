// Takes what can be trusted out of a damaged packet file.
#ifndef VYN_TOOLS_IO_RECOVERY_H
#define VYN_TOOLS_IO_RECOVERY_H

#include <cstdint>
#include <functional>
#include <string_view>

#include "cli/progress.h"
#include "io/file_window.h"

namespace vynpkt {

struct Recovered {
    uint64_t entries = 0;
    uint64_t left = 0;  // number of bytes left behind; 0 when the file was whole
};

// Receives the bytes that are kept, piece by piece.
using Keep = std::function<void(std::string_view bytes)>;
// Is told of each gap: the bytes from begin up to end are left behind.
using Leave = std::function<void(uint64_t begin, uint64_t end)>;

// The bytes that are kept form a whole packet file, which may be empty.
[[nodiscard]] Recovered recover(FileWindow& file, Progress& progress, const Keep& keep,
                                const Leave& leave);

}  // namespace vynpkt

#endif  // VYN_TOOLS_IO_RECOVERY_H
