#include "utils/json_text.h"

#include <array>
#include <charconv>
#include <cstring>

namespace vyn {
namespace {

// The character behind the backslash of an escape, by the character that is escaped. 0 where none is
// needed.
constexpr char kHex = 'u';
constexpr std::array<char, 256> kEscapes = [] {
    std::array<char, 256> escapes{};
    for (std::size_t control = 0; control < ' '; ++control) {
        escapes[control] = kHex;
    }
    escapes['\b'] = 'b';
    escapes['\t'] = 't';
    escapes['\n'] = 'n';
    escapes['\f'] = 'f';
    escapes['\r'] = 'r';
    escapes['"'] = '"';
    escapes['/'] = '/';
    escapes['\\'] = '\\';
    return escapes;
}();

char escape_of(char c) { return kEscapes[static_cast<unsigned char>(c)]; }

char* write_escape(char* out, char c) {
    constexpr char kDigits[] = "0123456789abcdef";
    const char escape = escape_of(c);
    *out++ = '\\';
    *out++ = escape;
    if (escape == kHex) {
        out = write_plain(out, "00");
        *out++ = kDigits[static_cast<unsigned char>(c) >> 4];
        *out++ = kDigits[c & 0xF];
    }
    return out;
}

// How many characters the escapes add to a text.
std::size_t length_of_escapes(std::string_view text) {
    std::size_t length = 0;
    for (const char c : text) {
        const char escape = escape_of(c);
        length += escape == 0 ? 0 : escape == kHex ? kMaxEscape - 1 : 1;
    }
    return length;
}

// ---- Eight characters at once -------------------------------------------------------------------

using Block = uint64_t;

Block load(const char* text) {
    Block block = 0;
    std::memcpy(&block, text, sizeof block);
    return block;
}

constexpr Block repeated(unsigned char byte) { return 0x0101010101010101U * byte; }

// Sets the highest bit of the first byte that is zero. The bits of the bytes in front of it are 0, those
// of the bytes behind it mean nothing.
constexpr Block first_zero(Block block) { return (block - repeated(1)) & ~block & repeated(0x80); }

// The same for the first character that needs an escape.
constexpr Block first_escape(Block block) {
    return first_zero(block ^ repeated('"')) | first_zero(block ^ repeated('\\')) |
           first_zero(block ^ repeated('/')) | first_zero(block & repeated(0xE0));
}

// How many characters come before the one that was found.
std::size_t characters_before(Block found) {
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    return static_cast<std::size_t>(__builtin_ctzll(found)) / 8;
#else
#error "the first character is expected in the lowest byte"
#endif
}

}  // namespace

std::size_t escaped_length(std::string_view text) {
    std::size_t length = text.size();
    while (text.size() >= sizeof(Block)) {
        if (first_escape(load(text.data())) != 0) {
            length += length_of_escapes(text.substr(0, sizeof(Block)));
        }
        text.remove_prefix(sizeof(Block));
    }
    return length + length_of_escapes(text);
}

char* write_escaped(char* out, std::string_view text) {
    const char* at = text.data();
    const char* const end = at + text.size();
    while (static_cast<std::size_t>(end - at) >= sizeof(Block)) {
        // The room reaches over the whole block: no character takes less than itself.
        const Block block = load(at);
        std::memcpy(out, &block, sizeof block);
        const Block found = first_escape(block);
        const std::size_t plain = found == 0 ? sizeof block : characters_before(found);
        at += plain;
        out += plain;
        if (found != 0) {
            out = write_escape(out, *at++);
        }
    }
    for (; at != end; ++at) {
        if (escape_of(*at) == 0) {
            *out++ = *at;
        } else {
            out = write_escape(out, *at);
        }
    }
    return out;
}

// ---- Objects ------------------------------------------------------------------------------------

void ObjectWriter::key(std::string_view key) {
    end_ = write_plain(end_, empty() ? "{ \"" : ", \"");
    end_ = write_plain(end_, key);
    end_ = write_plain(end_, "\": ");
}

void ObjectWriter::text(std::string_view key, std::string_view value) {
    this->key(key);
    *end_++ = '"';
    end_ = write_escaped(end_, value);
    *end_++ = '"';
}

void ObjectWriter::number(std::string_view key, int64_t value) {
    this->key(key);
    end_ = std::to_chars(end_, end_ + kMaxNumber, value).ptr;
}

void ObjectWriter::text_if_set(std::string_view key, std::string_view value) {
    if (!value.empty()) {
        text(key, value);
    }
}

void ObjectWriter::number_if_set(std::string_view key, int64_t value) {
    if (value != 0) {
        number(key, value);
    }
}

std::string_view ObjectWriter::finish() {
    end_ = write_plain(end_, " }");
    return written();
}

}  // namespace vyn
