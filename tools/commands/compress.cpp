// compress and decompress: one zstd frame, as packets have it.
#include <CLI/CLI.hpp>

#include "cli/command.h"
#include "io/input.h"
#include "io/output.h"
#include "io/zstd_frame.h"

namespace vynpkt {
namespace {

constexpr char kCompressNotes[] =
    R"(Reads FILE, or standard input without FILE or with "-", of any length, and
writes one frame that the zstd command reads as well.

Examples:
  vynpkt compress packet.bin -o packet.zst
  vynpkt pack envelope.json | vynpkt compress | zstd -d | vynpkt unpack)";

constexpr char kDecompressNotes[] =
    R"(Reads FILE, or standard input without FILE or with "-", of any length. It must
be one zstd frame, as a packet is: truncated input, skippable frames and bytes
behind the frame are refused. Standard output has the content up to the fault by
then, while a file named with -o stays as it was.

Examples:
  vynpkt decompress packet.zst -o packet.bin
  zstd -c packet.bin | vynpkt decompress | vynpkt checksum)";

class Recode : public Command {
public:
    // Compresses or decompresses.
    using Direction = void (*)(Input& in, Output& out);

    Recode(CLI::App& program, const char* name, const char* description, const char* notes,
           Direction direction)
        : Command(program, name, description, notes), direction_(direction) {
        add_input(input_, "What to read");
    }

    ExitCode run() override {
        Output out(output());
        out.refuse_terminal();
        Input in(input_);
        try {
            direction_(in, out);
        } catch (const FrameError& error) {
            throw Failure(ExitCode::kRefused, in.name(), error.what());
        }
        out.commit();
        return ExitCode::kDone;
    }

private:
    Direction direction_;
    std::string input_ = "-";
};

}  // namespace

CommandPtr make_compress(CLI::App& program) {
    return std::make_unique<Recode>(program, "compress", "Compress into one zstd frame",
                                    kCompressNotes, compress);
}

CommandPtr make_decompress(CLI::App& program) {
    return std::make_unique<Recode>(program, "decompress", "Decompress one zstd frame",
                                    kDecompressNotes, decompress);
}

}  // namespace vynpkt
