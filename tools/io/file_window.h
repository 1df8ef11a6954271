// Reads any part of a file, in any order.
#ifndef VYN_TOOLS_IO_FILE_WINDOW_H
#define VYN_TOOLS_IO_FILE_WINDOW_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "utils/owned.h"

namespace vynpkt {

// A regular file of any size. Memory holds only the bytes that were asked for last, and a block
// more.
class FileWindow {
public:
    explicit FileWindow(const std::string& path);

    [[nodiscard]] const std::string& name() const { return name_; }
    // The size when the file was opened; smaller once a read finds that the file has been cut.
    [[nodiscard]] uint64_t size() const { return size_; }
    // The bytes at this offset, fewer at the end of the file. Valid until the next call.
    [[nodiscard]] std::string_view bytes_at(uint64_t offset, std::size_t length);
    // How many bytes were read from the disk so far.
    [[nodiscard]] uint64_t bytes_read() const { return bytes_read_; }

private:
    void load(uint64_t offset, std::size_t length);

    std::string name_;
    vyn::UniqueFd file_;
    uint64_t size_ = 0;
    std::vector<char> buffer_;
    uint64_t begin_ = 0;
    std::size_t held_ = 0;
    uint64_t bytes_read_ = 0;
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_IO_FILE_WINDOW_H
