// What the user is told beside the data: a line of words on standard error, or a JSON object.
#ifndef VYN_TOOLS_REPORT_H
#define VYN_TOOLS_REPORT_H

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace vynpkt {

enum class ExitCode {
    kDone = 0,
    kRefused = 1,    // the data
    kUsage = 2,      // the arguments
    kFileError = 3,  // a file cannot be read or written
    kLoss = 4        // the output is there, but lacks something that the message names
};

// A number of the library's own, where it gave one.
using LibraryCode = std::optional<uint32_t>;

// What a message is about.
struct Place {
    std::string file;
    std::string part = {};  // such as "line 3"; empty: all of the file

    [[nodiscard]] Place within(const std::string& inner) const {
        return {file, part.empty() ? inner : part + ": " + inner};
    }
};

struct Remark {
    // About wrong arguments, the place is one of them and no file.
    Remark(ExitCode exit_code, const Place& place, const std::string& reason,
           LibraryCode number = {});

    ExitCode exit;     // how the run ends for this, unless something worse happens
    std::string file;  // empty: none
    std::string text;
    LibraryCode code;
};

// Carries a refusal to main().
class Failure : public std::runtime_error {
public:
    Failure(ExitCode exit, const Place& place, const std::string& reason, LibraryCode code = {})
        : std::runtime_error(reason), remark_(exit, place, reason, code) {}
    Failure(ExitCode exit, const std::string& file, const std::string& reason,
            LibraryCode code = {})
        : Failure(exit, Place{file}, reason, code) {}

    [[nodiscard]] const Remark& remark() const { return remark_; }

private:
    Remark remark_;
};

// A reason with the library's number, as it stands in messages.
[[nodiscard]] std::string with_code(const std::string& reason, LibraryCode code);

// From now on messages are JSON objects, one on each line.
void report_as_json();
// The command is empty as long as none is known.
void report(const std::string& command, const Remark& remark);

// A text as JSON, in quotes. What is not UTF-8 becomes U+FFFD.
[[nodiscard]] std::string json_text(std::string_view text);

}  // namespace vynpkt

#endif  // VYN_TOOLS_REPORT_H
