// verify: tells whether packet files are whole, and where the damage begins.
#include <CLI/CLI.hpp>
#include <algorithm>

#include "command.h"
#include "io.h"
#include "progress.h"
#include "record_file.h"

namespace vynpkt {
namespace {

constexpr char kNotes[] =
    R"(Reads each FILE, or standard input without FILE or for "-", and prints a line:

  FILE: 3 records, 120 bytes, whole
  FILE: 2 records whole, damaged at offset 81: REASON

A record is damaged when its length is none or goes beyond the end of the file,
and when its bytes are not a valid Header. More than 8 zero bytes at the end are
damage, any other zero byte is an empty packet. There are no checksums: a byte
that changed inside a text or a body may go unnoticed. A record of more than
64 MiB counts as damage.

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
        using Outcome = RecordReader::Outcome;
        RecordReader reader(path);
        Progress progress(name(), reader.size());
        uint64_t count = 0;
        Outcome outcome = reader.next();
        while (outcome == Outcome::kRecord) {
            ++count;
            progress.at(reader.position());
            outcome = reader.next();
        }
        const bool whole = outcome == Outcome::kEnd;
        report = json() ? as_json(reader, count, whole) : as_text(reader, count, whole);
        return whole ? ExitCode::kDone : ExitCode::kRefused;
    }

    static std::string as_text(const RecordReader& reader, uint64_t count, bool whole) {
        const std::string records = std::to_string(count) + (count == 1 ? " record" : " records");
        return reader.name() + ": " + records +
               (whole ? ", " + std::to_string(reader.position()) + " bytes, whole\n"
                      : " whole, damaged at offset " + std::to_string(reader.offset()) + ": " +
                            reader.reason() + "\n");
    }

    static std::string as_json(const RecordReader& reader, uint64_t count, bool whole) {
        return "{\"file\":" + json_text(reader.name()) + ",\"records\":" + std::to_string(count) +
               ",\"bytes\":" + std::to_string(reader.position()) +
               (whole ? ",\"whole\":true}\n"
                      : ",\"whole\":false,\"offset\":" + std::to_string(reader.offset()) +
                            ",\"reason\":" + json_text(reader.reason()) + "}\n");
    }

    std::vector<std::string> inputs_{"-"};
};

}  // namespace

CommandPtr make_verify(CLI::App& program) { return std::make_unique<Verify>(program); }

}  // namespace vynpkt
