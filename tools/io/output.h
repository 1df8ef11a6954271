// What commands write: standard output, or a file that appears whole or not at all.
#ifndef VYN_TOOLS_IO_OUTPUT_H
#define VYN_TOOLS_IO_OUTPUT_H

#include <memory>
#include <string>
#include <string_view>

#include "utils/owned.h"

namespace vynpkt {

class Temporary;

// Standard output, a device or a pipe gets what is written at once. Any other file is replaced by
// commit() and, until then, stays as it was.
class Output {
public:
    // Both "-" and an empty path mean standard output.
    explicit Output(const std::string& path);
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    Output(Output&&) = delete;
    Output& operator=(Output&&) = delete;

    [[nodiscard]] bool is_terminal() const { return is_terminal_; }
    // To be called before binary data is written, which garbles a terminal.
    void refuse_terminal() const;
    void write(std::string_view bytes);
    // Gathers the bytes, and writes them once there are many, on a terminal at once. For commands
    // that write little at a time: they flush() before they wait for input or report something.
    void append(std::string_view bytes);
    void flush();
    // Closes what was written, so that nothing but the replacement can fail in commit().
    void finish();
    void commit();

private:
    [[noreturn]] void fail(int error) const;
    void write_now(std::string_view bytes) const;

    std::string name_;
    std::unique_ptr<Temporary> temporary_;
    vyn::UniqueFd in_place_;
    int fd_;
    bool is_terminal_;
    std::string gathered_;
};

// Whether two paths name the same file, which need not exist.
[[nodiscard]] bool same_file(const std::string& one, const std::string& other);

}  // namespace vynpkt

#endif  // VYN_TOOLS_IO_OUTPUT_H
