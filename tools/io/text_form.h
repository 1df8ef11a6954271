// Bytes as text that other programs pass on by line.
#ifndef VYN_TOOLS_IO_TEXT_FORM_H
#define VYN_TOOLS_IO_TEXT_FORM_H

#include <string>
#include <string_view>

#include "cli/report.h"

namespace vynpkt {

enum class TextForm { kNone, kHex, kBase64 };

// The bytes that the text stands for. Blanks and newlines do not matter, nor does the case of
// hexadecimal digits. Throws a Failure with the place for text that is not of this form.
[[nodiscard]] std::string read_text_form(TextForm form, const std::string& text,
                                         const Place& place);

// The text of these bytes, on one line, hexadecimal digits in lower case.
[[nodiscard]] std::string write_text_form(TextForm form, std::string_view bytes);

}  // namespace vynpkt

#endif  // VYN_TOOLS_IO_TEXT_FORM_H
