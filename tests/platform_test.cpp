#include "vynutils.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>

#include "support/packets.h"

namespace vyn_test {
namespace {

// What a call put out; "refused" when it failed, which leaves the length alone.
template <typename Call>
std::string output_of(uint32_t capacity, const Call& call) {
    const Outcome outcome = into_buffer(capacity, call);
    EXPECT_EQ(outcome.buffer.substr(capacity).find_first_not_of('#'), std::string::npos);
    EXPECT_EQ(outcome.code != 0, outcome.length == kUntouched);
    return outcome.code != 0 ? "refused" : outcome.buffer.substr(0, outcome.length);
}

std::string decoded(const std::string& text, uint32_t capacity) {
    return output_of(capacity, [&](uint8_t* out, uint32_t size, uint32_t* length) {
        return static_cast<uint32_t>(
            base64_decode(text.data(), length_of(text), out, length, size));
    });
}

std::string decompressed(const std::string& packet, uint32_t capacity) {
    return output_of(capacity, [&](uint8_t* out, uint32_t size, uint32_t* length) {
        return static_cast<uint32_t>(
            vyn_zstd_decompress(bytes_of(packet), length_of(packet), out, size, length));
    });
}

TEST(Platform, Base64RoundTripsAtEveryLengthAndCapacity) {
    std::string bytes;
    for (uint32_t length = 0; length <= 100; ++length) {
        const uint32_t chars = (length + 2) / 3 * 4;
        std::string text;
        for (uint32_t size = 0; size <= chars + 2; ++size) {
            std::string buffer(chars + 16, '#');
            const bool fits = size > chars;
            EXPECT_EQ(base64_encode(bytes_of(bytes), length, buffer.data(), size) == 0, fits);
            text = buffer.substr(0, chars);
            EXPECT_EQ(buffer.substr(fits ? chars : 0),
                      fits ? '\0' + std::string(15, '#') : std::string(chars + 16, '#'));
        }
        for (uint32_t capacity = 0; capacity <= length + 1; ++capacity) {
            EXPECT_EQ(decoded(text, capacity), capacity >= length ? bytes : "refused");
        }
        bytes += static_cast<char>(length * 41 + 7);
    }
}

TEST(Platform, Base64IsCanonical) {
    EXPECT_EQ(decoded("QQ==", 64), "A");
    EXPECT_EQ(decoded("QUE=", 64), "AA");
    EXPECT_EQ(decoded("QUFBQQ==", 64), "AAAA");
    EXPECT_EQ(decoded("+/+/", 64), "\xfb\xff\xbf");
    EXPECT_EQ(decoded(std::string("QUF\0", 4), 64), "refused");
    std::istringstream refused(
        "QR==|Qf==|QUF=|QUH=|QUFBQUF=|"  // spare bits
        "====|Q===|A===|QQ=A|=QQQ|Q=QQ|QQ==QQ==|QUE=QUE=|QUFB====|"
        "Q|QQ|QQQ|QQ=|QUFBQ|=|"
        " QQ==|QQ== |QQ==\n|    QQ==|QQ==    |\n\n\n\nQUFB|QUFB\r\n\r\n|QUFB    QUFB|"
        "QU-_|-|----|QUFB----|QUFB----QUFB|QUF-|QUF\x80");
    for (std::string text; std::getline(refused, text, '|');) {
        EXPECT_EQ(decoded(text, 64), "refused") << text;
    }
}

TEST(Platform, ZstdTakesExactlyOneStandardFrame) {
    std::string text;
    for (int i = 0; i < 300; ++i) {
        text += std::to_string(i * i);
    }
    const std::string packet = compressed(text);
    const std::string empty = compressed("");
    const std::string skippable("\x50\x2a\x4d\x18\x02\0\0\0ab", 10);
    for (const uint32_t short_by : {0U, 1U, 2U, length_of(text)}) {
        EXPECT_EQ(decompressed(packet, length_of(text) - short_by),
                  short_by == 0 ? text : "refused");
    }
    for (std::size_t length = 0; length < packet.size(); ++length) {
        EXPECT_EQ(decompressed(packet.substr(0, length), 4096), "refused") << length;
    }
    for (const std::string& odd :
         {skippable, skippable + packet, packet + skippable, packet + packet, packet + empty,
          empty + packet, packet + '\0', '\0' + packet, text}) {
        EXPECT_EQ(decompressed(odd, 8192), "refused");
    }
    EXPECT_EQ(decompressed(compressed(std::string(1 << 20, 'x')), 4096), "refused");
    EXPECT_EQ(decompressed(packet, 4096), text) << "after all those failures";
    EXPECT_EQ(decompressed(empty, 0), "");
}

}  // namespace
}  // namespace vyn_test
