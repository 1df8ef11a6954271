// The two ways to copy text into a buffer of a stated size, by name.
#ifndef VYN_COMMON_UTILS_BOUNDED_H
#define VYN_COMMON_UTILS_BOUNDED_H

#include <glib.h>

#include <cstddef>
#include <cstring>
#include <string_view>

namespace vyn {

// Whether text of this length and its NUL go into size bytes. Nothing fits into none.
inline bool fits(std::size_t length, std::size_t size) { return length < size; }

// All or nothing: dest is untouched when text and its NUL do not fit. Says whether they did.
[[nodiscard]] inline bool copy_if_fits(char* dest, std::size_t size, const char* text,
                                       std::size_t length) {
    if (!fits(length, size)) {
        return false;
    }
    // dest may be the buffer that text was parsed from, never text itself.
    std::memcpy(dest, text, length);
    dest[length] = '\0';
    return true;
}

// The text in a member of a record. One that does not end inside it, as none should, is all of it.
template <std::size_t Size>
[[nodiscard]] std::string_view text_of(const char (&member)[Size]) {
    return {member, ::strnlen(member, Size)};
}

// Cut to size, at the byte. Says whether all of the text fitted.
inline bool copy_cut(char* dest, std::size_t size, const char* text) {
    return fits(g_strlcpy(dest, text, size), size);
}

}  // namespace vyn

#endif  // VYN_COMMON_UTILS_BOUNDED_H
