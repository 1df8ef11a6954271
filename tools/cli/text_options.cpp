#include "cli/text_options.h"

#include <CLI/CLI.hpp>

#include "io/input.h"
#include "io/line_reader.h"
#include "io/packet.h"
#include "io/zstd_frame.h"
#include "json/json_text.h"

namespace vynpkt {

void TextOptions::add_to(CLI::App& command) {
    command.add_flag("-l,--lines", lines_, "Take a packet from each line; see below");
    command.add_flag("--hex", hex_, "The packet is text: hexadecimal digits");
    command.add_flag("--base64", base64_, "The packet is text: base64");
    command.add_flag("--plain", plain_, "The packet is not compressed, whatever it looks like");
}

void TextOptions::check() const {
    if (hex_ && base64_) {
        throw Failure(ExitCode::kUsage, "--hex", "does not go with --base64");
    }
    if (lines_ && form() == TextForm::kNone) {
        throw Failure(ExitCode::kUsage, "--lines",
                      "needs --hex or --base64; \"vynpkt show\" reads packet files");
    }
}

TextForm TextOptions::form() const {
    return hex_ ? TextForm::kHex : base64_ ? TextForm::kBase64 : TextForm::kNone;
}

bool TextOptions::is_compressed(const std::string& packet) const {
    return !plain_ && is_frame(packet);
}

std::string TextOptions::read(const std::string& path) const {
    std::string bytes = read_text_form(form(), read_packet(path), {input_name(path)});
    if (bytes.empty()) {
        throw Failure(ExitCode::kRefused, input_name(path), "empty: no packet");
    }
    return bytes;
}

std::string TextOptions::plain(const std::string& packet, const Place& place) const {
    if (!is_compressed(packet)) {
        return packet;
    }
    try {
        return decompressed(packet);
    } catch (const FrameError& error) {
        throw Failure(ExitCode::kRefused, place, error.what(), VYN_NOT_DECOMPRESSED);
    }
}

ExitCode TextOptions::read_lines(const std::string& path, const Use& use, const Tell& tell) const {
    LineReader lines(path);
    std::string line;
    ExitCode code = ExitCode::kDone;
    bool more = true;
    while (more) {
        try {
            more = lines.next(line);
            if (!is_blank(line) && use(read_text_form(form(), line, lines.place()),
                                       lines.place()) != ExitCode::kDone) {
                code = ExitCode::kLoss;
            }
        } catch (const Failure& failure) {
            Remark remark = failure.remark();
            if (remark.exit != ExitCode::kRefused) {
                throw;
            }
            remark.exit = code = ExitCode::kLoss;
            tell(remark);
        }
    }
    return code;
}

}  // namespace vynpkt
