// encode and decode: any message between its JSON and its bytes.
#include <CLI/CLI.hpp>
#include <memory>

#include "cli/command.h"
#include "io/input.h"
#include "io/output.h"
#include "schema/catalogue.h"

namespace vynpkt {
namespace {

constexpr char kEncodeNotes[] =
    R"(Reads JSON from FILE, or from standard input without FILE or with "-". Keys are
the field names of the schema; their camelCase forms serve as well. A key that
the message does not have is skipped and reported, with exit code 4.
"vynpkt list" prints the names for -t, "vynpkt describe" the fields.

Examples:
  vynpkt encode -t Telemetry telemetry.json -o telemetry.bin
  vynpkt encode -t Telemetry telemetry.json | vynpkt pack --body - head.json)";

constexpr char kDecodeNotes[] =
    R"(Reads the message from FILE, or from standard input without FILE or with "-".
The JSON has every field, also those at their default, and enums as numbers.
Bytes do not say which message they are. Those of another message are refused, or
have fields that this one does not know, which are reported with exit code 4.

Examples:
  vynpkt decode -t Telemetry telemetry.bin
  vynpkt unpack --body - packet.bin | vynpkt decode -t EventMessage.Step | jq .)";

class Transcode : public Command {
protected:
    Transcode(CLI::App& program, const char* name, const char* description, const char* notes,
              const char* input)
        : Command(program, name, description, notes) {
        add_input(input_, input);
        arguments()
            .add_option("-t,--type", type_, "The message, by its name or the last part of it")
            ->type_name("T")
            ->required();
    }

    [[nodiscard]] const Descriptor& type() const { return find_message(type_); }
    [[nodiscard]] const std::string& input() const { return input_; }

    [[nodiscard]] ExitCode finish(Output& out, const Converted& converted) const {
        out.write(converted.data);
        out.commit();
        if (converted.loss.empty()) {
            return ExitCode::kDone;
        }
        tell({ExitCode::kLoss, {input_name(input_)}, converted.loss});
        return ExitCode::kLoss;
    }

private:
    std::string input_ = "-";
    std::string type_;
};

class Encode : public Transcode {
public:
    explicit Encode(CLI::App& program)
        : Transcode(program, "encode", "Turn JSON into the bytes of a message", kEncodeNotes,
                    "The JSON") {}

    ExitCode run() override {
        const Descriptor& message = type();
        Output out(output());
        out.refuse_terminal();
        return finish(out, encode(message, read_whole(input()), {input_name(input())}));
    }
};

class Decode : public Transcode {
public:
    explicit Decode(CLI::App& program)
        : Transcode(program, "decode", "Turn the bytes of a message into JSON", kDecodeNotes,
                    "The message") {}

    ExitCode run() override {
        const Descriptor& message = type();
        Output out(output());
        Converted converted = decode(message, read_whole(input()), {input_name(input())});
        if (converted.data.empty() || converted.data.back() != '\n') {
            converted.data += '\n';
        }
        return finish(out, converted);
    }
};

}  // namespace

CommandPtr make_encode(CLI::App& program) { return std::make_unique<Encode>(program); }

CommandPtr make_decode(CLI::App& program) { return std::make_unique<Decode>(program); }

}  // namespace vynpkt
