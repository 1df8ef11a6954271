// The two ways to copy text into a buffer of a stated size, by name.
#ifndef VYN_COMMON_UTILS_BOUNDED_H
#define VYN_COMMON_UTILS_BOUNDED_H

#include <glib.h>

#include <cstddef>
#include <cstring>

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

// Cut to size, at the byte. Says whether all of the text fitted.
inline bool copy_cut(char* dest, std::size_t size, const char* text) {
    return fits(g_strlcpy(dest, text, size), size);
}

}  // namespace vyn

#endif  // VYN_COMMON_UTILS_BOUNDED_H
