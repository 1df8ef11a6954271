#include "io/text_form.h"

#include <glib.h>

#include <algorithm>
#include <memory>

namespace vynpkt {
namespace {

constexpr std::string_view kBlanks = " \t\r\n\v\f";
constexpr std::string_view kBase64Digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t kBase64Group = 4;

[[noreturn]] void refuse(const Place& place, const std::string& reason) {
    throw Failure(ExitCode::kRefused, place, reason);
}

[[noreturn]] void refuse_character(std::size_t at, const Place& place, const char* form) {
    refuse(place, "character " + std::to_string(at + 1) + " is not " + form);
}

std::string hex_bytes(const std::string& text, const Place& place) {
    std::string bytes;
    int half = -1;  // the digit that waits for its second one
    for (std::size_t i = 0; i < text.size(); ++i) {
        const int digit = g_ascii_xdigit_value(text[i]);
        if (digit < 0 && kBlanks.find(text[i]) == std::string_view::npos) {
            refuse_character(i, place, "a hexadecimal digit");
        }
        if (digit >= 0 && half >= 0) {
            bytes += static_cast<char>(half * 16 + digit);
            half = -1;
        } else if (digit >= 0) {
            half = digit;
        }
    }
    if (half >= 0) {
        refuse(place, "an odd number of hexadecimal digits");
    }
    return bytes;
}

// glib skips what is not base64, and an end that is no whole group, so both are refused first.
std::string base64_bytes(const std::string& text, const Place& place) {
    std::string digits;
    std::size_t padding = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (kBlanks.find(text[i]) != std::string_view::npos) {
            continue;
        }
        padding += text[i] == '=' ? 1 : 0;
        if (text[i] != '=' && (padding > 0 || kBase64Digits.find(text[i]) == std::string::npos)) {
            refuse_character(i, place, "base64");
        }
        digits += text[i];
    }
    if (digits.size() % kBase64Group != 0 || padding > 2) {
        refuse(place, "base64 that is cut, or whose padding \"=\" is missing");
    }
    gsize length = 0;
    const std::unique_ptr<guchar, decltype(&g_free)> bytes(g_base64_decode(digits.c_str(), &length),
                                                           g_free);
    return {reinterpret_cast<const char*>(bytes.get()), length};
}

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

}  // namespace

std::string write_text_form(TextForm form, std::string_view bytes) {
    switch (form) {
        case TextForm::kHex:
            return hex_text(bytes);
        case TextForm::kBase64:
            return base64_text(bytes);
        case TextForm::kNone:
            break;
    }
    return std::string(bytes);
}

std::string read_text_form(TextForm form, const std::string& text, const Place& place) {
    switch (form) {
        case TextForm::kHex:
            return hex_bytes(text, place);
        case TextForm::kBase64:
            return base64_bytes(text, place);
        case TextForm::kNone:
            break;
    }
    return text;
}

}  // namespace vynpkt
