#include "utils/json_text.h"

#include <algorithm>
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

// ---- Many characters at once --------------------------------------------------------------------

#if __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "the first character is expected in the lowest byte"
#endif

using Word = uint64_t;

// How many characters come before the first byte of which a bit is set.
std::size_t characters_before(Word found) {
    return static_cast<std::size_t>(__builtin_ctzll(found)) / 8;
}

#if defined(__SSE2__) || defined(__ARM_NEON)

// In the processor's vector registers. A comparison gives a byte of ones for each character for which
// it holds.
using Block = uint8_t __attribute__((vector_size(16)));
using Found = Block;

Block load(const char* text) {
    Block block;
    std::memcpy(&block, text, sizeof block);
    return block;
}

// The characters that need an escape.
Found escapes_in(Block block) {
    return (block == '"') | (block == '\\') | (block == '/') | (block < ' ');
}

// Those of them whose escape is a code.
Found codes_in(Block block) {
    return (block < ' ') & (block != '\b') & (block != '\t') & (block != '\n') & (block != '\f') &
           (block != '\r');
}

using Words = Word __attribute__((vector_size(16)));

bool any(Found found) {
    const auto words = reinterpret_cast<Words>(found);
    return (words[0] | words[1]) != 0;
}

std::size_t characters_before(Found found) {
    const auto words = reinterpret_cast<Words>(found);
    return words[0] != 0 ? characters_before(words[0]) : sizeof(Word) + characters_before(words[1]);
}

std::size_t sum_of_bytes(Word bytes) {
    constexpr Word kEvenBytes = 0x00FF00FF00FF00FFU;
    constexpr Word kSums = 0x0001000100010001U;  // adds up the four pairs in the highest one
    return static_cast<std::size_t>(((bytes & kEvenBytes) + (bytes >> 8 & kEvenBytes)) * kSums >>
                                    48);
}

// Counts in how many characters of some blocks find() holds. A byte counts to 255, so there are no
// more blocks than that.
template <typename Find>
std::size_t count_in(const char* text, std::size_t blocks, Find find) {
    Block counts{};
    for (std::size_t i = 0; i < blocks; ++i) {
        counts -= find(load(text + i * sizeof(Block)));
    }
    const auto words = reinterpret_cast<Words>(counts);
    return sum_of_bytes(words[0]) + sum_of_bytes(words[1]);
}

// How many characters the escapes add to whole blocks. Codes are rare, so they are counted apart.
std::size_t length_of_escapes_in_blocks(const char* text, std::size_t blocks) {
    constexpr std::size_t kMaxCount = 255;
    std::size_t length = 0;
    while (blocks > 0) {
        const std::size_t count = std::min(blocks, kMaxCount);
        Found control{};
        length += count_in(text, count, [&control](Block block) {
            control |= block < ' ';
            return escapes_in(block);
        });
        if (any(control)) {
            length += (kMaxEscape - 2) * count_in(text, count, codes_in);
        }
        text += count * sizeof(Block);
        blocks -= count;
    }
    return length;
}

#else

using Block = Word;
using Found = Word;

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
constexpr Found escapes_in(Block block) {
    return first_zero(block ^ repeated('"')) | first_zero(block ^ repeated('\\')) |
           first_zero(block ^ repeated('/')) | first_zero(block & repeated(0xE0));
}

bool any(Found found) { return found != 0; }

std::size_t length_of_escapes_in_blocks(const char* text, std::size_t blocks) {
    std::size_t length = 0;
    for (; blocks > 0; --blocks, text += sizeof(Block)) {
        if (any(escapes_in(load(text)))) {
            length += length_of_escapes({text, sizeof(Block)});
        }
    }
    return length;
}

#endif

}  // namespace

std::size_t escaped_length(std::string_view text) {
    const std::size_t blocks = text.size() / sizeof(Block);
    return text.size() + length_of_escapes_in_blocks(text.data(), blocks) +
           length_of_escapes(text.substr(blocks * sizeof(Block)));
}

char* write_escaped(char* out, std::string_view text) {
    const char* at = text.data();
    const char* const end = at + text.size();
    while (static_cast<std::size_t>(end - at) >= sizeof(Block)) {
        // The room reaches over the whole block: no character takes less than itself.
        const Block block = load(at);
        std::memcpy(out, &block, sizeof block);
        const Found found = escapes_in(block);
        const std::size_t plain = any(found) ? characters_before(found) : sizeof block;
        at += plain;
        out += plain;
        if (any(found)) {
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
