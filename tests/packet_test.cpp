// Checksum and status of packets.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "bench/plain_chain.h"
#include "proto_helper.h"
#include "support/log_trap.h"
#include "support/packets.h"

using vyn_test::bytes_of;
using vyn_test::full_header;
using vyn_test::into_buffer;
using vyn_test::kUntouched;
using vyn_test::length_of;
using vyn_test::LogLines;
using vyn_test::Outcome;
using vyn_test::take_log;
using vyn_test::times;

namespace {

constexpr char kOfNothing[] = "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr char kOfAbc[] = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

TEST(Checksum, IsAppendedAsFarAsItFits) {
    const uint8_t abc[] = {'a', 'b', 'c'};
    const std::string appended = std::string("x:") + kOfAbc;
    for (uint32_t size = 0; size <= 68; ++size) {
        std::string dest = times(80, '#');
        std::memcpy(dest.data(), "x:", 3);
        EXPECT_EQ(calculate_checksum(abc, 3, dest.data(), size), 1U);
        // A text that does not end inside its size is left alone.
        const std::string expected = size < 3 ? "x:" : appended.substr(0, size - 1);
        EXPECT_EQ(dest.c_str(), expected);
        EXPECT_EQ(dest[std::max<std::size_t>(expected.size() + 1, 3)], '#');
    }
    char dest[129] = "";
    EXPECT_EQ(calculate_checksum(nullptr, 0, dest, sizeof dest), 1U);
    EXPECT_EQ(calculate_checksum(abc, 3, dest, sizeof dest), 1U);
    EXPECT_EQ(dest, std::string(kOfNothing) + kOfAbc);
    EXPECT_EQ(calculate_checksum(nullptr, 1, dest, sizeof dest), 0U);
    EXPECT_EQ(calculate_checksum(abc, 3, nullptr, 65), 0U);
    EXPECT_EQ(std::strlen(dest), 128U);
}

Outcome restamp(const std::string& pkt, uint32_t status, std::size_t capacity, uint32_t* type) {
    return into_buffer(capacity, [&](uint8_t* out, uint32_t size, uint32_t* length) {
        return deser_nd_alter_pkt_st(bytes_of(pkt), length_of(pkt), out, size, length, status,
                                     type);
    });
}

TEST(Restamp, ChangesTheStatusAlone) {
    (void)take_log();
    Header header = full_header();
    const std::string unknown("\xA2\x06\x03xyz", 6);  // field 100
    const std::string pkt = unknown + header.SerializeAsString();
    for (const uint32_t status : {0U, 1U, 4U, 77U, 0xFFFFFFFFU}) {
        header.set_packet_status(static_cast<PacketStatus>(status));
        const std::string expected = header.SerializeAsString() + unknown;
        for (std::size_t capacity = 0; capacity <= expected.size() + 1; ++capacity) {
            uint32_t type = kUntouched;
            const Outcome outcome = restamp(pkt, status, capacity, &type);
            const bool fits = capacity >= expected.size();
            EXPECT_EQ(outcome.code, fits ? 0U : 2U);
            EXPECT_EQ(outcome.length, expected.size());
            EXPECT_EQ(type, 5U);
            EXPECT_EQ(outcome.buffer.substr(0, expected.size()),
                      fits ? expected : outcome.buffer.substr(0, expected.size()));
            EXPECT_EQ(outcome.buffer.find_first_not_of('#', fits ? expected.size() : 0),
                      std::string::npos);
            EXPECT_EQ(take_log(),
                      (LogLines{"7 DPH:Received message :32773 : Message type: 5 : Encoding type "
                                ": 2 \n"}));
        }
    }
}

TEST(Restamp, InPlaceAndRefusals) {
    std::string pkt = full_header().SerializeAsString();
    uint32_t type = kUntouched;
    uint32_t length = kUntouched;
    EXPECT_EQ(deser_nd_alter_pkt_st(bytes_of(pkt), length_of(pkt), bytes_of(pkt), length_of(pkt),
                                    &length, HISTORY, &type),
              0U);
    Header header;
    ASSERT_TRUE(header.ParseFromArray(pkt.data(), static_cast<int>(length)));
    EXPECT_EQ(header.packet_status(), HISTORY);
    EXPECT_EQ(type, 5U);

    uint8_t* p = bytes_of(pkt);
    type = length = kUntouched;
    EXPECT_EQ(deser_nd_alter_pkt_st(nullptr, 1, p, 1, &length, 1, &type), 1U);
    EXPECT_EQ(deser_nd_alter_pkt_st(p, 1, nullptr, 1, &length, 1, &type), 1U);
    EXPECT_EQ(deser_nd_alter_pkt_st(p, 1, p, 1, nullptr, 1, &type), 1U);
    EXPECT_EQ(deser_nd_alter_pkt_st(p, 1, p, 1, &length, 1, nullptr), 1U);
    EXPECT_EQ(deser_nd_alter_pkt_st(p, 0x80000000U, p, 1, &length, 1, &type), 8U);
    (void)take_log();
    for (const std::string bad : {"\xFF", "\x0A\x01\xFF", "\x0A\x05xx"}) {
        EXPECT_EQ(restamp(bad, 1, 64, &type).code, 8U);
    }
    EXPECT_EQ(take_log(), LogLines{});
    EXPECT_EQ(type, kUntouched);
    EXPECT_EQ(length, kUntouched);
}

void expect_as_the_plain_chain(const std::string& pkt) {
    uint32_t type = 0;
    Outcome outcome = restamp(pkt, HISTORY, 2 * pkt.size() + 8, &type);
    const Outcome plain =
        into_buffer(2 * pkt.size() + 8, [&](uint8_t* out, uint32_t size, uint32_t* length) {
            return plain_chain::restamp(bytes_of(pkt), length_of(pkt), HISTORY, out, size, length);
        });
    ASSERT_EQ(outcome, plain) << testing::PrintToString(pkt);
}

// A packet in the form in which it would be written is not taken apart: this must never show.
TEST(Restamp, EveryChangeOfAByte) {
    const std::string pkt = full_header().SerializeAsString();
    for (std::size_t at = 0; at <= pkt.size(); ++at) {
        for (int byte = 0; byte < 256; ++byte) {
            std::string changed = pkt;
            changed.replace(at, 1, 1, static_cast<char>(byte));
            expect_as_the_plain_chain(changed);
        }
        expect_as_the_plain_chain(pkt.substr(0, at));
    }
}

TEST(Restamp, FieldsInAnyOrderAndForm) {
    using namespace std::string_literals;
    const std::string most = times(8, '\xFF');
    const std::string fields[] = {
        "\x0A\x01i",                 // a text
        "\x0A\x00"s,                 // at its default
        "\x0A\x81\x00i"s,            // its length too long
        "\x0A\x02\xC3\xA4",          // not ASCII
        "\x0A\x01\x80",              // nor UTF-8
        "\x18\x05",                  // a number
        "\x18\x00"s,                 // at its default
        "\x18\x85\x00"s,             // too long
        "\x18\xFF\xFF\xFF\xFF\x0F",  // the largest
        "\x18\x80\x80\x80\x80\x10",  // more than 32 bits
        "\x48" + most + "\xFF\x01",  // of 64 bits, -1
        "\x48" + most + "\xFF\x03",  // more than 64
        "\x5A\x00"s,                 // a property bag, empty
        "\x5A\x03\x1A\x01"
        "c",                                                     // with a text
        "\x5A\x04\x08\x05\x08\x06",                              // a field twice
        "\x5A\x02\x40\x01",                                      // one that is not known
        "\x62\x02\xFF\x00"s,                                     // a body
        "\x68\x01",                                              // the status
        "\x68\x80\x80\x80\x80\xF8" + times(4, '\xFF') + "\x01",  // the least
        "\x68\x80\x80\x80\x80\x08",                              // not one of 32 bits
        "\x6D"
        "abcd",      // of another wire type
        "\x70\x01",  // one that is not known
    };
    for (const std::string& first : fields) {
        for (const std::string& second : fields) {
            for (const std::string& third : fields) {
                expect_as_the_plain_chain(first + second + third);
            }
        }
    }
}

}  // namespace
