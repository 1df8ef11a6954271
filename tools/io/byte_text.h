// Bytes as a line of text, for programs that take one message a line.
#ifndef VYN_TOOLS_IO_BYTE_TEXT_H
#define VYN_TOOLS_IO_BYTE_TEXT_H

#include <string>
#include <string_view>

namespace vynpkt {

// Two digits a byte, in lower case.
[[nodiscard]] std::string hex_text(std::string_view bytes);
[[nodiscard]] std::string base64_text(std::string_view bytes);

}  // namespace vynpkt

#endif  // VYN_TOOLS_IO_BYTE_TEXT_H
