// A compressed packet is one standard zstd frame. Bytes behind the frame and skippable frames,
// which the zstd command accepts, are refused.
#ifndef VYN_TOOLS_IO_ZSTD_FRAME_H
#define VYN_TOOLS_IO_ZSTD_FRAME_H

#include <stdexcept>
#include <string>
#include <string_view>

namespace vynpkt {

class Input;
class Output;

// Says why bytes are not exactly one frame.
class FrameError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Whether the bytes begin as a frame does, or are a frame cut within its first four bytes. A plain
// packet of the unit never begins so: it would lack all texts in front of its sub_system_id.
[[nodiscard]] bool is_frame(std::string_view bytes);

// Makes a frame that states the length of its content.
[[nodiscard]] std::string compressed(std::string_view content);
// Takes the content out of a frame. Throws a FrameError, also for more than kMaxInMemory bytes.
[[nodiscard]] std::string decompressed(std::string_view frame);

// The same from input to output, for any length in limited memory.
void compress(Input& content, Output& frame);
void decompress(Input& frame, Output& content);

}  // namespace vynpkt

#endif  // VYN_TOOLS_IO_ZSTD_FRAME_H
