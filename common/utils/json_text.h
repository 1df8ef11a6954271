// Writes JSON text as json-c would render it, for objects of a known shape: no tree, no allocation.
#ifndef VYN_COMMON_UTILS_JSON_TEXT_H
#define VYN_COMMON_UTILS_JSON_TEXT_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace vyn {

// The longest escape, \u00xx, for one character.
constexpr std::size_t kMaxEscape = 6;

// The length of a text with its escapes, without the quotes.
[[nodiscard]] std::size_t escaped_length(std::string_view text);

// Writes that many characters and returns the end.
char* write_escaped(char* out, std::string_view text);

inline char* write_plain(char* out, std::string_view text) {
    return out + text.copy(out, text.size());
}

// Writes the members of an object one after the other, into a buffer that is large enough.
class ObjectWriter {
public:
    // Most characters that a member takes beside its key and its value, and that a number takes.
    static constexpr std::size_t kMemberOverhead = sizeof(R"(, "": "")") - 1;
    static constexpr std::size_t kMaxNumber = sizeof("-9223372036854775808") - 1;

    explicit ObjectWriter(char* out) : start_(out), end_(out) {}

    void text(std::string_view key, std::string_view value);
    void number(std::string_view key, int64_t value);

    // These write nothing for an empty text or for zero.
    void text_if_set(std::string_view key, std::string_view value);
    void number_if_set(std::string_view key, int64_t value);

    [[nodiscard]] bool empty() const { return end_ == start_; }
    // What was written so far; the object is still open.
    [[nodiscard]] std::string_view written() const {
        return {start_, static_cast<std::size_t>(end_ - start_)};
    }
    // Closes the object and returns its whole text.
    [[nodiscard]] std::string_view finish();

private:
    void key(std::string_view key);

    char* start_;
    char* end_;
};

}  // namespace vyn

#endif  // VYN_COMMON_UTILS_JSON_TEXT_H
