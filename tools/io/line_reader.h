// Reads an input line by line.
#ifndef VYN_TOOLS_IO_LINE_READER_H
#define VYN_TOOLS_IO_LINE_READER_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "cli/report.h"
#include "io/input.h"

namespace vynpkt {

// Returns each line as soon as it has arrived, so a pipe may stay open.
class LineReader {
public:
    explicit LineReader(const std::string& path);

    // Reads a line, without its newline. The last one need not end in a newline. False at the end.
    // Refuses a line that is too long; the next call reads the one behind it.
    [[nodiscard]] bool next(std::string& line);
    // Names the line that was read last, for messages.
    [[nodiscard]] Place place() const;

private:
    [[nodiscard]] bool read_more();
    void skip_rest();

    Input input_;
    std::vector<char> piece_;
    std::string_view unread_;
    std::size_t number_ = 0;
    bool in_line_ = false;  // whether what is unread goes on with a line that was refused
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_IO_LINE_READER_H
