// append: adds packets to a packet file.
#include <CLI/CLI.hpp>

#include "cli/command.h"
#include "cli/progress.h"
#include "cli/text_options.h"
#include "io/input.h"
#include "io/packet.h"
#include "proto_helper.h"

namespace vynpkt {
namespace {

constexpr char kNotes[] =
    R"(Adds each PACKET, compressed or plain, at the end of the packet file FILE, which
is created if it does not exist. Without PACKET, or for "-", it reads one packet
from standard input. The packet is stored without its compression, the fields in
the order of their numbers. The first packet that is refused ends the run; the
packets before it are in FILE by then. Other programs may append at the same time.

--hex and --base64 take packets as text. With -l each line of PACKET is one, which
is in FILE before the next line is read. A line that is refused is reported and
passed, and the exit code is 4. --plain takes no packet for a compressed one.

Examples:
  vynpkt append packets.dat packet.bin more.zst
  vynpkt pack envelope.json | vynpkt append packets.dat
  mosquitto_sub -F %x -t 'car/#' | vynpkt append -l --hex packets.dat)";

std::string name_of(const Place& place) {
    return place.part.empty() ? place.file : place.file + ", " + place.part + ",";
}

Failure not_stored(const std::string& file, const Place& packet, uint32_t code) {
    switch (code) {
        case VYN_BAD_BODY:
            return {ExitCode::kRefused, packet, kNotAHeader, code};
        case VYN_FILE_NOT_OPENED:
            return {ExitCode::kFileError, file,
                    "not a file that can be opened or made for appending", code};
        default:
            return {ExitCode::kFileError, file,
                    name_of(packet) + " was not stored: the disk is full or writing failed", code};
    }
}

class Append : public Command {
public:
    explicit Append(CLI::App& program)
        : Command(program, "append", "Add packets to a packet file", kNotes) {
        arguments().add_option("FILE", file_, "The packet file")->type_name("")->required();
        add_inputs(packets_, "PACKET", "The packets");
        text_.add_to(arguments());
    }

    ExitCode run() override {
        if (is_standard(file_)) {
            throw Failure(ExitCode::kUsage, file_, "the packet file needs a name");
        }
        if (!output().empty()) {
            throw Failure(ExitCode::kUsage, "--output", "the output is the packet file");
        }
        text_.check();
        return text_.lines() ? append_lines() : append_all();
    }

private:
    [[nodiscard]] ExitCode append_all() const {
        Progress progress(name(), packets_.size(), 1);
        uint64_t stored = 0;
        for (const std::string& path : packets_) {
            store(text_.read(path), {input_name(path)});
            progress.at(++stored);
        }
        return ExitCode::kDone;
    }

    [[nodiscard]] ExitCode append_lines() const {
        const auto use = [this](const std::string& packet, const Place& place) {
            store(packet, place);
            return ExitCode::kDone;
        };
        ExitCode code = ExitCode::kDone;
        for (const std::string& path : packets_) {
            const ExitCode one =
                text_.read_lines(path, use, [this](const Remark& remark) { tell(remark); });
            code = one == ExitCode::kDone ? code : one;
        }
        return code;
    }

    void store(const std::string& packet, const Place& place) const {
        const std::string plain = text_.plain(packet, place);
        const uint32_t code = store_proto_msg_to_file(
            bytes_of(std::string_view(plain)), static_cast<int32_t>(plain.size()), file_.c_str());
        if (code != VYN_OK) {
            throw not_stored(file_, place, code);
        }
    }

    std::string file_;
    std::vector<std::string> packets_{"-"};
    TextOptions text_;
};

}  // namespace

CommandPtr make_append(CLI::App& program) { return std::make_unique<Append>(program); }

}  // namespace vynpkt
