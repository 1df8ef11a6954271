// show: the packets of a packet file as lines of JSON.
#include <CLI/CLI.hpp>
#include <optional>

#include "cli/command.h"
#include "cli/progress.h"
#include "io/output.h"
#include "io/packet.h"
#include "io/packet_file.h"
#include "json_helper.h"
#include "proto_helper.h"
#include "protobuf/header_json.h"

namespace vynpkt {
namespace {

constexpr char kNotes[] =
    R"(Reads a packet file of any length from FILE, or from standard input without FILE
or with "-", and prints the envelope of each packet on a line, as "unpack" does.
A packet that does not become JSON, such as one of more than 24576 bytes, is an
object with "offset", "length" and "error" instead, and the run ends with exit
code 4. --only never selects such an object.

--skip and -n count the packets that --only selects. With --offset, each object
also tells where its record begins and the length of its packet.

Records in front of damage are shown. Then the offset of the damage is reported
and the run ends with exit code 1; a file named with -o stays as it was.

Examples:
  vynpkt show packets.dat
  vynpkt show --only message_type=5 -n 10 packets.dat | jq .body
  vynpkt show --offset packets.dat | jq -c '[.offset, .message_id]'
  vynpkt show --count packets.dat)";

const char* words_for(uint32_t code) {
    switch (code) {
        case VYN_DOES_NOT_FIT:
            return "a text is too long for the envelope and left empty there";
        case VYN_BAD_BODY:
            return "a binary body is too long for the envelope and left empty there";
        case VYN_NOT_DECOMPRESSED:
            return "more bytes than become JSON";
        default:
            return "the envelope could not be made";
    }
}

std::string_view up_to_nul(const std::string& buffer) {
    return std::string_view(buffer).substr(0, buffer.find('\0'));
}

std::string position_keys(const PacketFile& file) {
    return "\"offset\": " + std::to_string(file.offset()) +
           ", \"length\": " + std::to_string(file.length());
}

struct Filter {
    std::string key;
    std::string value;
};

class Show : public Command {
public:
    explicit Show(CLI::App& program)
        : Command(program, "show", "Print the packets of a packet file as JSON lines", kNotes) {
        add_input(input_, "The packet file");
        CLI::App& app = arguments();
        app.add_option("-n", most_, "Show at most N packets")->type_name("N");
        app.add_option("--skip", skip_, "Leave out the first N")->type_name("N");
        app.add_option_function<std::string>(
               "--only", [this](const std::string& text) { set_filter(text); },
               "Show packets whose envelope has this text or number")
            ->type_name("KEY=VALUE");
        app.add_flag("--offset", offset_, "Add the keys \"offset\" and \"length\"");
        app.add_flag("--count", count_, "Print only the number of packets");
    }

    ExitCode run() override {
        Output out(output());
        PacketFile file(input_);
        uint64_t seen = 0;
        uint64_t shown = 0;
        Progress progress(name(), file.size());
        progress.only_if(
            !out.is_terminal());  // packets that scroll by show the progress themselves
        auto outcome = PacketFile::Outcome::kEntry;
        while (!(most_ && shown >= *most_) &&
               (outcome = file.next()) == PacketFile::Outcome::kEntry) {
            progress.at(file.position());
            // A packet that is only counted is not converted to JSON.
            const bool wanted = !count_ && seen >= skip_;
            std::string line;
            if (filter_ || wanted) {
                line = convert(file);
            }
            if (filter_ && !matches(line)) {
                continue;
            }
            if (++seen <= skip_) {
                continue;
            }
            ++shown;
            if (!count_) {
                out.write(line + "\n");
            }
        }
        if (count_) {
            out.write(std::to_string(shown) + "\n");
        }
        if (outcome == PacketFile::Outcome::kDamaged) {
            throw Failure(
                ExitCode::kRefused, file.name(),
                "damaged at offset " + std::to_string(file.offset()) + ": " + file.reason());
        }
        out.commit();
        return code_;
    }

private:
    void set_filter(const std::string& text) {
        const std::size_t equals = text.find('=');
        if (equals == std::string::npos || equals == 0) {
            throw Failure(ExitCode::kUsage, "--only " + text, "not KEY=VALUE");
        }
        filter_ = Filter{text.substr(0, equals), text.substr(equals + 1)};
    }

    [[nodiscard]] bool matches(const std::string& line) {
        value_.resize(kEnvelopeRoom);
        return get_key_json(line.c_str(), filter_->key.c_str(), value_.data(),
                            static_cast<uint32_t>(value_.size())) != 0 &&
               filter_->value == up_to_nul(value_);
    }

    [[nodiscard]] std::string convert(const PacketFile& file) {
        uint32_t code = VYN_NOT_DECOMPRESSED;
        if (file.length() <= VYN_PACKET_CAPACITY) {
            envelope_.resize(kEnvelopeRoom);
            code = vyn::header_to_json(file.header(), envelope_.data(),
                                       static_cast<uint32_t>(envelope_.size()));
        }
        const bool soft = code == VYN_DOES_NOT_FIT || code == VYN_BAD_BODY;
        if (code != VYN_OK) {
            code_ = ExitCode::kLoss;
            tell({ExitCode::kLoss,
                  {file.name(), "record at offset " + std::to_string(file.offset())},
                  words_for(code),
                  code});
        }
        if (code != VYN_OK && !soft) {
            return "{ " + position_keys(file) + ", \"error\": \"" +
                   with_code(words_for(code), code) + "\" }";
        }
        std::string line(up_to_nul(envelope_));
        if (offset_) {
            line.insert(line.find('{') + 1, " " + position_keys(file) + ",");
        }
        return line;
    }

    std::string input_ = "-";
    std::optional<uint64_t> most_;
    uint64_t skip_ = 0;
    std::optional<Filter> filter_;
    bool offset_ = false;
    bool count_ = false;
    std::string envelope_;
    std::string value_;
    ExitCode code_ = ExitCode::kDone;
};

}  // namespace

CommandPtr make_show(CLI::App& program) { return std::make_unique<Show>(program); }

}  // namespace vynpkt
