#include "io/packet.h"

#include <algorithm>
#include <cctype>
#include <charconv>

#include "cli/report.h"
#include "io/input.h"
#include "io/zstd_frame.h"
#include "proto_helper.h"

namespace vynpkt {

std::string read_packet(const std::string& path) {
    std::string packet = read_whole(path);
    if (packet.empty()) {
        throw Failure(ExitCode::kRefused, input_name(path), "empty: no packet");
    }
    return packet;
}

std::string plain_packet(const std::string& packet, const std::string& name) {
    if (!is_frame(packet)) {
        return packet;
    }
    try {
        return decompressed(packet);
    } catch (const FrameError& error) {
        throw Failure(ExitCode::kRefused, name, error.what(), VYN_NOT_DECOMPRESSED);
    }
}

int parse_status(const std::string& text) {
    std::string name = text;
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    PacketStatus status = NONE;
    if (PacketStatus_Parse(name, &status)) {
        return status;
    }
    // Numbers without a name are accepted: later schemas may name them.
    int number = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    if (error != std::errc() || stop != end || number < 0) {
        throw Failure(ExitCode::kUsage, text,
                      "not a packet status; give one of " + status_names() + ", by name or number");
    }
    return number;
}

std::string status_names() {
    const auto* statuses = PacketStatus_descriptor();
    std::string names;
    for (int i = 0; i < statuses->value_count(); ++i) {
        const auto* status = statuses->value(i);
        names += (i > 0 ? ", " : "") + status->name() + " " + std::to_string(status->number());
    }
    return names;
}

}  // namespace vynpkt
