// What the user is told beside the data: a line of text on standard error, or a JSON object.
#ifndef VYN_TOOLS_CLI_REPORT_H
#define VYN_TOOLS_CLI_REPORT_H

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

// The result code of the library's function that failed, if one did.
using LibraryCode = std::optional<uint32_t>;

// The file that a message is about, and the part of it.
struct Place {
    std::string file;
    std::string part = {};  // such as "line 3"; empty for the whole file

    [[nodiscard]] Place within(const std::string& inner) const {
        return {file, part.empty() ? inner : part + ": " + inner};
    }
};

struct Remark {
    // With ExitCode::kUsage, the place names a wrong argument instead of a file.
    Remark(ExitCode exit_code, const Place& place, const std::string& reason,
           LibraryCode number = {});

    ExitCode exit;     // with which the run ends, unless something worse happens
    std::string file;  // empty when the message is about no file
    std::string text;
    LibraryCode code;
};

// Ends the command: main() reports the remark and exits with its code.
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

// Throws the Failure of a file that could not be read or written, with the text of the errno.
[[noreturn]] void file_failure(const std::string& name, int error);

// A reason with the library's number, as it stands in messages.
[[nodiscard]] std::string with_code(const std::string& reason, LibraryCode code);

// From now on, report() writes each message as a JSON object on a line of its own.
void report_as_json();
// The command is empty when the arguments did not name one.
void report(const std::string& command, const Remark& remark);

// The text, or its begin if it is long, without the control characters that would move the cursor.
[[nodiscard]] std::string clipped(const std::string& text);

// The text as a JSON string, in quotes. Bytes that are not UTF-8 become U+FFFD.
[[nodiscard]] std::string json_text(std::string_view text);

}  // namespace vynpkt

#endif  // VYN_TOOLS_CLI_REPORT_H
