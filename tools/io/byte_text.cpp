#include "io/byte_text.h"

#include <glib.h>

#include <memory>

namespace vynpkt {

std::string hex_text(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    constexpr unsigned kBits = 4;
    constexpr unsigned kMask = 0xF;
    std::string text;
    text.reserve(2 * bytes.size());
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += kDigits[byte >> kBits];
        text += kDigits[byte & kMask];
    }
    return text;
}

std::string base64_text(std::string_view bytes) {
    const std::unique_ptr<char, decltype(&g_free)> text(
        g_base64_encode(reinterpret_cast<const guchar*>(bytes.data()), bytes.size()), g_free);
    return text.get();
}

}  // namespace vynpkt
