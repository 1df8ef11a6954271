// The two ways to copy text into a buffer of a stated size, by name.
#ifndef VYN_COMMON_UTILS_BOUNDED_H
#define VYN_COMMON_UTILS_BOUNDED_H

#include <glib.h>

#include <cstddef>
#include <cstring>
#include <string_view>

namespace vyn {

// Whether a text of this length and its NUL fit into size bytes. Nothing fits into 0 bytes.
inline bool fits(std::size_t length, std::size_t size) { return length < size; }

// Copies all or nothing: dest is untouched when the text and its NUL do not fit. Returns whether they
// did. The text may not overlap dest, but may come from a tree that was parsed from dest.
[[nodiscard]] inline bool copy_if_fits(char* dest, std::size_t size, const char* text,
                                       std::size_t length) {
    if (!fits(length, size)) {
        return false;
    }
    std::memcpy(dest, text, length);
    dest[length] = '\0';
    return true;
}

// The text in a member of a header or a bag. An unterminated text is the whole array.
template <std::size_t Size>
[[nodiscard]] std::string_view member_text(const char (&member)[Size]) {
    return {member, ::strnlen(member, Size)};
}

// Copies as many bytes as fit and a NUL. Returns whether all of the text fitted.
inline bool copy_cut(char* dest, std::size_t size, const char* text) {
    return fits(g_strlcpy(dest, text, size), size);
}

}  // namespace vyn

#endif  // VYN_COMMON_UTILS_BOUNDED_H
