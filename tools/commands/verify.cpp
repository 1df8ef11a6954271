// verify: tells whether packet files are whole, and where the damage begins.
#include <CLI/CLI.hpp>
#include <algorithm>

#include "cli/command.h"
#include "cli/progress.h"
#include "io/output.h"
#include "io/packet_file.h"

namespace vynpkt {
namespace {

constexpr char kNotes[] =
    R"(Reads each FILE, or standard input without FILE or for "-", and prints a line:

  FILE: 3 records, 120 bytes, whole
  FILE: 2 records whole, damaged at offset 81: REASON

A record is damaged when it has no valid length, when its length goes beyond the
end of the file, and when its bytes are not a valid Header. More than 8 zero
bytes behind the last record are damage. Any other zero byte is an empty packet,
and so is each byte of a file of zeros. There are no checksums: a byte that
changed inside a text or a body may go unnoticed. A record of more than 64 MiB
counts as damage.

With --json, a line is an object: "file", "records", "bytes" (those of the whole
records), "whole", and with damage "offset" and "reason".

Exit code 0: all whole; 1: one is damaged; 3: one cannot be read.

Examples:
  vynpkt verify packets.dat
  vynpkt verify --json *.dat | jq -r 'select(.whole | not).file')";

class Verify : public Command {
public:
    explicit Verify(CLI::App& program)
        : Command(program, "verify", "Tell whether packet files are whole", kNotes) {
        add_inputs(inputs_, "FILE", "The packet files");
        describe_json("Print a JSON object for each file; errors as objects, too");
    }

    ExitCode run() override {
        Output out(output());
        ExitCode code = ExitCode::kDone;
        for (const std::string& input : inputs_) {
            std::string report;
            try {
                code = std::max(code, verify(input, report));
            } catch (const Failure& failure) {
                tell(failure.remark());
                code = std::max(code, failure.remark().exit);
            }
            out.write(report);
        }
        out.commit();
        return code;
    }

private:
    ExitCode verify(const std::string& path, std::string& report) const {
        using Outcome = PacketFile::Outcome;
        PacketFile file(path);
        Progress progress(name(), file.size());
        uint64_t count = 0;
        Outcome outcome = file.next();
        while (outcome == Outcome::kEntry) {
            ++count;
            progress.at(file.position());
            outcome = file.next();
        }
        const bool whole = outcome == Outcome::kEnd;
        report = json() ? as_json(file, count, whole) : as_text(file, count, whole);
        return whole ? ExitCode::kDone : ExitCode::kRefused;
    }

    static std::string as_text(const PacketFile& file, uint64_t count, bool whole) {
        const std::string records = std::to_string(count) + (count == 1 ? " record" : " records");
        return file.name() + ": " + records +
               (whole ? ", " + std::to_string(file.position()) + " bytes, whole\n"
                      : " whole, damaged at offset " + std::to_string(file.offset()) + ": " +
                            file.reason() + "\n");
    }

    static std::string as_json(const PacketFile& file, uint64_t count, bool whole) {
        return "{\"file\":" + json_text(file.name()) + ",\"records\":" + std::to_string(count) +
               ",\"bytes\":" + std::to_string(file.position()) +
               (whole ? ",\"whole\":true}\n"
                      : ",\"whole\":false,\"offset\":" + std::to_string(file.offset()) +
                            ",\"reason\":" + json_text(file.reason()) + "}\n");
    }

    std::vector<std::string> inputs_{"-"};
};

}  // namespace

CommandPtr make_verify(CLI::App& program) { return std::make_unique<Verify>(program); }

}  // namespace vynpkt
