// verify: tells whether packet files are whole, and where the damage begins.
#include <CLI/CLI.hpp>
#include <algorithm>

#include "command.h"
#include "io.h"
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

std::string quoted(const std::string& text) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string json = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\') {
            json += '\\';
            json += c;
        } else if (static_cast<unsigned char>(c) < ' ') {
            json += "\\u00";
            json += kDigits[static_cast<unsigned char>(c) >> 4];
            json += kDigits[c & 0xF];
        } else {
            json += c;
        }
    }
    return json + '"';
}

class Verify : public Command {
public:
    explicit Verify(CLI::App& program)
        : Command(program, "verify", "Tell whether packet files are whole", kNotes) {
        arguments().add_option("FILE", inputs_, "The packet files")->type_name("");
        arguments().add_flag("--json", json_, "Print a JSON object for each file");
    }

    ExitCode run() override {
        Output out(output());
        ExitCode code = ExitCode::kDone;
        for (const std::string& input : inputs_) {
            std::string report;
            try {
                code = std::max(code, verify(input, report));
            } catch (const Failure& failure) {
                tell(failure.what());
                code = std::max(code, failure.code());
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
        uint64_t count = 0;
        Outcome outcome = reader.next();
        while (outcome == Outcome::kRecord) {
            ++count;
            outcome = reader.next();
        }
        const bool whole = outcome == Outcome::kEnd;
        report = json_ ? as_json(reader, count, whole) : as_text(reader, count, whole);
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
        return "{\"file\":" + quoted(reader.name()) + ",\"records\":" + std::to_string(count) +
               ",\"bytes\":" + std::to_string(reader.position()) +
               (whole ? ",\"whole\":true}\n"
                      : ",\"whole\":false,\"offset\":" + std::to_string(reader.offset()) +
                            ",\"reason\":" + quoted(reader.reason()) + "}\n");
    }

    std::vector<std::string> inputs_{"-"};
    bool json_ = false;
};

}  // namespace

CommandPtr make_verify(CLI::App& program) { return std::make_unique<Verify>(program); }

}  // namespace vynpkt
