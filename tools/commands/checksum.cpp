// checksum: the SHA-256 that a packet's sender puts into its property bag.
#include <CLI/CLI.hpp>
#include <algorithm>

#include "cli/command.h"
#include "io/input.h"
#include "io/output.h"
#include "io/packet.h"
#include "proto_helper.h"

namespace vynpkt {
namespace {

constexpr char kNotes[] =
    R"(Prints the SHA-256 of each FILE as sha256sum does, so that "sha256sum -c" reads
it. Without FILE, or for "-", it reads standard input. A file that cannot be
read is reported, the others are printed, and the run ends with exit code 3.
Files of more than 64 MiB are refused.

Examples:
  vynpkt checksum packet.bin
  vynpkt checksum *.bin -o SUMS && sha256sum -c SUMS)";

std::string digest_of(const std::string& bytes, const std::string& name) {
    constexpr std::size_t kDigits = 64;
    char digest[kDigits + 1] = "";
    if (calculate_checksum(bytes_of(std::string_view(bytes)), static_cast<uint32_t>(bytes.size()),
                           digest, sizeof digest) == 0) {
        throw Failure(ExitCode::kRefused, name, "no checksum could be computed", 0);
    }
    return digest;
}

// A name with a backslash or a line break is escaped, and the line then starts with a backslash.
std::string line_of(const std::string& digest, const std::string& name) {
    std::string escaped;
    for (const char c : name) {
        escaped += c == '\\' ? "\\\\" : c == '\n' ? "\\n" : c == '\r' ? "\\r" : std::string(1, c);
    }
    return (escaped == name ? "" : "\\") + digest + "  " + escaped + "\n";
}

class Checksum : public Command {
public:
    explicit Checksum(CLI::App& program)
        : Command(program, "checksum", "Print checksums as sha256sum does", kNotes) {
        add_inputs(inputs_, "FILE", "What to read");
    }

    ExitCode run() override {
        Output out(output());
        ExitCode code = ExitCode::kDone;
        for (const std::string& input : inputs_) {
            std::string digest;
            try {
                digest = digest_of(read_whole(input), input_name(input));
            } catch (const Failure& failure) {
                tell(failure.remark());
                code = std::max(code, failure.remark().exit);
                continue;
            }
            out.write(line_of(digest, input));
        }
        if (code == ExitCode::kDone) {
            out.commit();
        }
        return code;
    }

private:
    std::vector<std::string> inputs_{"-"};
};

}  // namespace

CommandPtr make_checksum(CLI::App& program) { return std::make_unique<Checksum>(program); }

}  // namespace vynpkt
