// One standard zstd frame, which is what a compressed packet is. Reading is strict where the zstd
// command is not: what stands behind the frame, or in a skippable one, is no packet.
#ifndef VYN_TOOLS_ZSTD_FRAME_H
#define VYN_TOOLS_ZSTD_FRAME_H

#include <stdexcept>
#include <string>
#include <string_view>

namespace vynpkt {

class Input;
class Output;

// The reason why bytes are not one frame.
class FrameError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Whether a frame starts here, or ends within its first bytes. No packet of the unit starts so:
// they would be a sub_system_id where the texts before it are missing.
[[nodiscard]] bool is_frame(std::string_view bytes);

// The frame states the length of its content.
[[nodiscard]] std::string compressed(std::string_view content);
// The content; refused when longer than kMaxInMemory.
[[nodiscard]] std::string decompressed(std::string_view frame);

// Any length, in memory that does not grow with it.
void compress(Input& content, Output& frame);
void decompress(Input& frame, Output& content);

}  // namespace vynpkt

#endif  // VYN_TOOLS_ZSTD_FRAME_H
