// Files as the commands use them: "-" is standard input or output, and a file that is written
// appears whole or not at all.
#ifndef VYN_TOOLS_IO_H
#define VYN_TOOLS_IO_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "report.h"

namespace vynpkt {

// The most that is read into memory. No packet of the unit comes near it, and a device or an
// endless pipe does not exhaust the machine.
constexpr std::size_t kMaxInMemory = std::size_t{64} << 20;

[[nodiscard]] bool is_standard(const std::string& path);
// What messages call an input.
[[nodiscard]] std::string input_name(const std::string& path);

// A file descriptor, or -1.
class UniqueFd {
public:
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { (void)close(); }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    UniqueFd(UniqueFd&&) = delete;
    UniqueFd& operator=(UniqueFd&&) = delete;

    [[nodiscard]] int get() const { return fd_; }
    // 0 or an errno.
    int close();

private:
    int fd_;
};

class Input {
public:
    explicit Input(const std::string& path);

    [[nodiscard]] const std::string& name() const { return name_; }
    // That of a file, 0 when it cannot be known.
    [[nodiscard]] uint64_t size() const;
    // What is there by now, at most size bytes; 0 is the end.
    [[nodiscard]] std::size_t read_some(char* data, std::size_t size);
    // Fills the buffer; less is the end.
    [[nodiscard]] std::size_t fill(std::vector<char>& buffer);

private:
    std::string name_;
    UniqueFd file_;
    int fd_;
};

// All of an input, refused when longer than kMaxInMemory.
[[nodiscard]] std::string read_whole(const std::string& path);

// A regular file of any size, of which no more is in memory than was asked for last and a block.
class FileWindow {
public:
    explicit FileWindow(const std::string& path);

    // What it was at the beginning, or less once the file turns out to have been cut.
    [[nodiscard]] uint64_t size() const { return size_; }
    // The bytes at this offset; fewer at the end of the file. Good until the next call.
    [[nodiscard]] std::string_view bytes_at(uint64_t offset, std::size_t length);
    // All in all.
    [[nodiscard]] uint64_t bytes_read() const { return bytes_read_; }

private:
    void load(uint64_t offset, std::size_t length);

    std::string name_;
    UniqueFd file_;
    uint64_t size_ = 0;
    std::vector<char> buffer_;
    uint64_t begin_ = 0;
    std::size_t held_ = 0;
    uint64_t bytes_read_ = 0;
};

// The lines of an input as they arrive, so that it also serves a pipe that stays open.
class LineReader {
public:
    explicit LineReader(const std::string& path);

    // False at the end. A line comes without its newline, and the last one may lack it.
    [[nodiscard]] bool next(std::string& line);
    // The line that was read last.
    [[nodiscard]] Place place() const;

private:
    [[nodiscard]] bool read_more();

    Input input_;
    std::vector<char> piece_;
    std::string_view unread_;
    std::size_t number_ = 0;
};

class Temporary;

// Where data goes. Standard output, a device or a pipe is written at once. Any other file is
// replaced by commit(), and without it stays as it was.
class Output {
public:
    // An empty path is standard output as well.
    explicit Output(const std::string& path);
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    Output(Output&&) = delete;
    Output& operator=(Output&&) = delete;

    [[nodiscard]] bool is_terminal() const;
    // Comes before binary data, which garbles a terminal.
    void refuse_terminal() const;
    void write(std::string_view bytes);
    void commit();

private:
    [[noreturn]] void fail(int error) const;

    std::string name_;
    std::unique_ptr<Temporary> temporary_;
    UniqueFd in_place_;
    int fd_;
};

// Opens /dev/null in the place of standard streams that are closed, or a file that is opened next
// would get the words meant for them.
void occupy_standard_streams();

// Whether two paths name one file, or would once it is made.
[[nodiscard]] bool same_file(const std::string& one, const std::string& other);

// Makes a signal that ends the process remove its temporaries, and a closed pipe end it without
// a word.
void end_cleanly_on_signals();

}  // namespace vynpkt

#endif  // VYN_TOOLS_IO_H
