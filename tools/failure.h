// How a run ends, and the exception that carries a refusal to main().
#ifndef VYN_TOOLS_FAILURE_H
#define VYN_TOOLS_FAILURE_H

#include <stdexcept>
#include <string>

namespace vynpkt {

enum class ExitCode {
    kDone = 0,
    kRefused = 1,    // the data
    kUsage = 2,      // the arguments
    kFileError = 3,  // a file cannot be read or written
    kLoss = 4        // the output is there, but lacks something that the message names
};

class Failure : public std::runtime_error {
public:
    // The subject is the file, or the place in it, that the reason is about.
    Failure(ExitCode code, const std::string& subject, const std::string& reason)
        : std::runtime_error(subject + ": " + reason), code_(code) {}

    [[nodiscard]] ExitCode code() const { return code_; }

private:
    ExitCode code_;
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_FAILURE_H
