// restamp: another packet status.
#include <CLI/CLI.hpp>

#include "cli/command.h"
#include "io/input.h"
#include "io/output.h"
#include "io/packet.h"
#include "io/zstd_frame.h"
#include "proto_helper.h"

namespace vynpkt {
namespace {

constexpr char kNotes[] =
    R"(Reads a packet from FILE, or from standard input without FILE or with "-". A
compressed packet stays compressed, a plain one plain.

Examples:
  vynpkt restamp HISTORY packet.bin -o packet.bin
  vynpkt restamp 3 < packet.zst > live.zst)";

// Bytes for the tag and the number of a status that the packet did not have before.
constexpr std::size_t kStatusRoom = 11;

class Restamp : public Command {
public:
    explicit Restamp(CLI::App& program)
        : Command(program, "restamp", "Give a packet another status", kNotes) {
        arguments()
            .add_option_function<std::string>(
                "STATUS", [this](const std::string& text) { status_ = parse_status(text); },
                status_names())
            ->type_name("")
            ->required();
        add_input(input_, "The packet");
    }

    ExitCode run() override {
        Output out(output());
        out.refuse_terminal();
        const std::string packet = read_packet(input_);
        const std::string restamped = restamp(plain_packet(packet, input_name(input_)));
        out.write(is_frame(packet) ? compressed(restamped) : restamped);
        out.commit();
        return ExitCode::kDone;
    }

private:
    [[nodiscard]] std::string restamp(const std::string& packet) const {
        std::string result(packet.size() + kStatusRoom, '\0');
        uint32_t length = 0;
        uint32_t message_type = 0;
        const uint32_t code = deser_nd_alter_pkt_st(
            bytes_of(std::string_view(packet)), static_cast<uint32_t>(packet.size()),
            bytes_of(result), static_cast<uint32_t>(result.size()), &length,
            static_cast<uint32_t>(status_), &message_type);
        if (code != VYN_OK) {
            throw Failure(ExitCode::kRefused, input_name(input_),
                          code == VYN_NOT_A_HEADER ? kNotAHeader : "the packet could not be made",
                          code);
        }
        result.resize(length);
        return result;
    }

    int status_ = 0;
    std::string input_ = "-";
};

}  // namespace

CommandPtr make_restamp(CLI::App& program) { return std::make_unique<Restamp>(program); }

}  // namespace vynpkt
