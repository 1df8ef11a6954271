// What commands read: a file, or standard input for "-".
#ifndef VYN_TOOLS_IO_INPUT_H
#define VYN_TOOLS_IO_INPUT_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "cli/report.h"
#include "utils/owned.h"

namespace vynpkt {

// The most that is read into memory, far more than any packet of the unit. Without this limit an
// endless pipe or a device would use up all memory.
constexpr std::size_t kMaxInMemory = std::size_t{64} << 20;
// How many bytes are asked for in one read.
constexpr std::size_t kPieceSize = std::size_t{64} << 10;

[[nodiscard]] bool is_standard(const std::string& path);
// The name of an input in messages.
[[nodiscard]] std::string input_name(const std::string& path);

class Input {
public:
    explicit Input(const std::string& path);

    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] int fd() const { return fd_; }
    // The size of a regular file, 0 for any other input.
    [[nodiscard]] uint64_t size() const;
    [[nodiscard]] bool is_regular() const;
    // Reads what is available, at most size bytes. 0 means the end.
    [[nodiscard]] std::size_t read_some(char* data, std::size_t size);
    // Fills the buffer. Returns how many bytes were read: fewer than its size only at the end.
    [[nodiscard]] std::size_t fill(std::vector<char>& buffer);

private:
    std::string name_;
    vyn::UniqueFd file_;
    int fd_;
};

// Reads a whole input. Refuses one of more than kMaxInMemory bytes.
[[nodiscard]] std::string read_whole(const std::string& path);

// Appends more bytes. Refuses the input, as the place names it, beyond kMaxInMemory bytes.
void append_limited(std::string& bytes, std::string_view more, const Place& place);

}  // namespace vynpkt

#endif  // VYN_TOOLS_IO_INPUT_H
