// append: adds packets to a packet file.
#include <CLI/CLI.hpp>

#include "cli/command.h"
#include "cli/progress.h"
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

Examples:
  vynpkt append packets.dat packet.bin more.zst
  vynpkt pack envelope.json | vynpkt append packets.dat)";

Failure not_stored(const std::string& file, const std::string& packet, uint32_t code) {
    switch (code) {
        case VYN_BAD_BODY:
            return {ExitCode::kRefused, packet, kNotAHeader, code};
        case VYN_FILE_NOT_OPENED:
            return {ExitCode::kFileError, file,
                    "not a file that can be opened or made for appending", code};
        default:
            return {ExitCode::kFileError, file,
                    packet + " was not stored: the disk is full or writing failed", code};
    }
}

class Append : public Command {
public:
    explicit Append(CLI::App& program)
        : Command(program, "append", "Add packets to a packet file", kNotes) {
        arguments().add_option("FILE", file_, "The packet file")->type_name("")->required();
        add_inputs(packets_, "PACKET", "The packets");
    }

    ExitCode run() override {
        if (is_standard(file_)) {
            throw Failure(ExitCode::kUsage, file_, "the packet file needs a name");
        }
        if (!output().empty()) {
            throw Failure(ExitCode::kUsage, "--output", "the output is the packet file");
        }
        Progress progress(name(), packets_.size(), 1);
        uint64_t stored = 0;
        for (const std::string& path : packets_) {
            const std::string packet = plain_packet(read_packet(path), input_name(path));
            const uint32_t code =
                store_proto_msg_to_file(bytes_of(std::string_view(packet)),
                                        static_cast<int32_t>(packet.size()), file_.c_str());
            if (code != VYN_OK) {
                throw not_stored(file_, input_name(path), code);
            }
            progress.at(++stored);
        }
        return ExitCode::kDone;
    }

private:
    std::string file_;
    std::vector<std::string> packets_{"-"};
};

}  // namespace

CommandPtr make_append(CLI::App& program) { return std::make_unique<Append>(program); }

}  // namespace vynpkt
