// Packets: an example of each conversion, what is refused, checksum and status. All else is held
// against the plain chain of steps when the seeds of the fuzz targets are replayed.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>

#include "bench/plain_chain.h"
#include "proto_helper.h"
#include "support/log_trap.h"
#include "support/packets.h"

namespace vyn_test {
namespace {

class WireConvert : public testing::Test {
protected:
    void SetUp() override { (void)take_log(); }
};

TEST_F(WireConvert, RecordToWire) {
    msg_hdr hdr;
    std::memset(&hdr, 'A', sizeof hdr);  // texts that do not end are cut at their member
    const auto convert = [&] {
        return into_buffer(1024, [&](uint8_t* out, uint32_t size, uint32_t* length) {
            return cnvrt_hdr_to_protobuf(&hdr, out, size, length, bytes_of("\1/"), 2);
        });
    };
    EXPECT_EQ(convert().code, 9U);
    std::strcpy(
        hdr.property_bag,
        (R"({"error_code":-1,"checksum":")" + times(200, 'a') + R"(\u0000b","file":"f"})").c_str());
    hdr.msg_type = 5;
    hdr.encoding_type = 2;
    hdr.version = 9;
    hdr.sub_system_id = 0;
    hdr.time = INT64_MIN;
    hdr.ttl = INT64_MAX;
    hdr.packet_status = 0x80000000U;
    const Outcome outcome = convert();
    EXPECT_EQ(outcome.code, 0U);
    Header header;
    ASSERT_TRUE(header.ParseFromString(outcome.buffer.substr(0, outcome.length)));
    const auto letters = [](const char* field, std::size_t count) {
        return field + (": \"" + times(count, 'A') + "\" ");
    };
    EXPECT_EQ(header.ShortDebugString(),
              letters("message_id", 64) + letters("correlation_id", 64) + "version: 9 " +
                  letters("system_id", 64) + letters("device_id", 128) + "message_type: 32773 " +
                  letters("target_id", 128) +
                  "ttl: 9223372036854775807 time: -9223372036854775808 property_bag { "
                  "error_code: 4294967295 checksum: \"" +
                  times(200, 'a') + "\" } body: \"\\001/\" packet_status: -2147483648");
    hdr = {};
    std::strcpy(hdr.property_bag, R"({"error_code":"5","checksum":null})");
    uint32_t length = 1;
    uint8_t out[8];
    EXPECT_EQ(cnvrt_hdr_to_protobuf(&hdr, out, 0, &length, nullptr, 0), 0U);
    EXPECT_EQ(length, 0U);
    for (const char* bag : {R"({"error_code":0})", R"({"checksum":""})"}) {
        std::strcpy(hdr.property_bag, bag);
        EXPECT_EQ(cnvrt_hdr_to_protobuf(&hdr, out, 2, &length, nullptr, 0), 0U);
        EXPECT_EQ(length, 2U);  // it is there, with nothing in it
    }
    hdr = {};
    // Refused by its length alone: never read.
    EXPECT_EQ(cnvrt_hdr_to_protobuf(&hdr, out, UINT32_MAX, &length, out, 0x80000000U), 2U);
    EXPECT_EQ(length, 0x80000006U);
    EXPECT_EQ(cnvrt_hdr_to_protobuf(&hdr, out, 8, &length, out, UINT32_MAX), 2U);
    EXPECT_EQ(length, UINT32_MAX);
}

TEST_F(WireConvert, JsonToWire) {
    struct Row {
        std::string json;
        uint32_t result;
        const char* packet;  // as text format
    };
    const std::string long_bag = R"({"property_bag":{"error_code":5,"x":")" + times(250, 'x');
    const Row rows[] = {
        {R"({"property_bag":{"error_code":5,"checksum":"c"},"body":"QQ=="})", 0,
         "property_bag { error_code: 5 } body: \"QQ==\""},
        {R"({"property_bag":{"error_code":0},"body":""})", 0, "property_bag { }"},
        {R"({"message_type":32769,"body":"QQ=="})", 0, "message_type: 32769 body: \"A\""},
        {R"({"message_type":98305,"body":"QQ=="})", 0, "message_type: 32769 body: \"A\""},
        {R"({"body":{"a":1}})", 0, R"(body: "{ \"a\": 1 }")"},
        {R"({"message_type":32769,"body":"QQ="})", 11, "message_type: 32769"},
        {long_bag + R"("},"body":"b"})", 9, "body: \"b\""},
        {long_bag + R"("},"message_type":32769,"body":"!"})", 11, "message_type: 32769"},
        {R"({"body":")" + times(8192, 'b') + "\"}", 11, nullptr},
        {"[]", 11, nullptr},
        {"nonsense", 3, nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.json.substr(0, 60));
        const Outcome outcome =
            into_buffer(9000, [&](uint8_t* out, uint32_t size, uint32_t* length) {
                return cnvrt_json_hdr_to_protobuf(row.json.c_str(), out, size, length);
            });
        EXPECT_EQ(outcome.code, row.result);
        if (row.packet == nullptr) {
            EXPECT_EQ(outcome.length, kUntouched);
            continue;
        }
        Header header;
        ASSERT_TRUE(header.ParseFromString(outcome.buffer.substr(0, outcome.length)));
        EXPECT_EQ(header.ShortDebugString(), row.packet);
    }
}

TEST_F(WireConvert, WireToJson) {
    const std::string pkt = compressed(full_header().SerializeAsString());
    char json[1024];
    EXPECT_EQ(cnvrt_protobuf_to_json_hdr(bytes_of(pkt), json, length_of(pkt), sizeof json), 0U);
    EXPECT_STREQ(json,
                 R"({ "system_id": "s", "message_id": "0123", "correlation_id": "c", )"
                 R"("version": 3, "sub_system_id": -2147483647, "device_id": "d\/\")"
                 "\xC3\xA4"
                 R"(", "target_id": "t", "message_type": 32773, "time": 1700000000000, "ttl": -2, )"
                 R"("property_bag": { "error_code": -2147483648, "ack_required": 1, )"
                 R"("attempt": "a", "checksum": "abc", "error": "e\/\u0001", "target": "t", )"
                 R"("file": "f" }, "body": "AAEv\/yBib2R5" })");
    EXPECT_EQ(take_log(),
              (LogLines{"7 PH:Received message :32773 : Message type: 5 : Encoding type : 2 \n"}));
    // A text that is longer than its member is left out, and so is a body that becomes too long.
    Header header;
    header.set_message_type(2 << 14);
    header.set_body(times(18430, 'b'));
    for (const uint32_t result : {11U, 2U}) {
        const std::string lossy = compressed(header.SerializeAsString());
        EXPECT_EQ(cnvrt_protobuf_to_json_hdr(bytes_of(lossy), json, length_of(lossy), sizeof json),
                  result);
        EXPECT_STREQ(json,
                     R"({ "system_id": "", "message_id": "", "version": 3, "message_type": 32768, )"
                     R"("time": 0, "body": "" })");
        header.mutable_property_bag()->set_target(times(64, 't'));
    }
}

TEST_F(WireConvert, NullPointers) {
    const msg_hdr hdr{};
    uint8_t out[64];
    char json[64];
    uint32_t length = kUntouched;
    EXPECT_EQ(cnvrt_hdr_to_protobuf(nullptr, out, 64, &length, nullptr, 0), 1U);
    EXPECT_EQ(cnvrt_hdr_to_protobuf(&hdr, nullptr, 64, &length, nullptr, 0), 1U);
    EXPECT_EQ(cnvrt_hdr_to_protobuf(&hdr, out, 64, nullptr, nullptr, 0), 1U);
    EXPECT_EQ(cnvrt_hdr_to_protobuf(&hdr, out, 64, &length, nullptr, 1), 1U);
    EXPECT_EQ(cnvrt_json_hdr_to_protobuf(nullptr, out, 64, &length), 1U);
    EXPECT_EQ(cnvrt_json_hdr_to_protobuf("{}", nullptr, 64, &length), 1U);
    EXPECT_EQ(cnvrt_json_hdr_to_protobuf("{}", out, 64, nullptr), 1U);
    EXPECT_EQ(cnvrt_protobuf_to_json_hdr(nullptr, json, 1, 64), 1U);
    EXPECT_EQ(cnvrt_protobuf_to_json_hdr(out, nullptr, 1, 64), 1U);
    EXPECT_EQ(length, kUntouched);
    EXPECT_EQ(take_log(), LogLines{});
}

// ---- Checksum and status ------------------------------------------------------------------------

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

TEST_F(WireConvert, RestampInPlaceAndRefusals) {
    std::string pkt = full_header().SerializeAsString();
    uint32_t type = kUntouched;
    uint32_t length = kUntouched;
    EXPECT_EQ(deser_nd_alter_pkt_st(bytes_of(pkt), length_of(pkt), bytes_of(pkt), 1, &length,
                                    HISTORY, &type),
              2U);
    EXPECT_EQ(length, pkt.size());
    EXPECT_EQ(type, 5U);
    (void)take_log();
    EXPECT_EQ(deser_nd_alter_pkt_st(bytes_of(pkt), length_of(pkt), bytes_of(pkt), length_of(pkt),
                                    &length, HISTORY, &type),
              0U);
    Header header;
    ASSERT_TRUE(header.ParseFromArray(pkt.data(), static_cast<int>(length)));
    EXPECT_EQ(header.packet_status(), HISTORY);
    EXPECT_EQ(type, 5U);
    EXPECT_EQ(take_log(),
              LogLines{"7 DPH:Received message :32773 : Message type: 5 : Encoding type : 2 \n"});

    uint8_t* p = bytes_of(pkt);
    type = length = kUntouched;
    EXPECT_EQ(deser_nd_alter_pkt_st(nullptr, 1, p, 1, &length, 1, &type), 1U);
    EXPECT_EQ(deser_nd_alter_pkt_st(p, 1, nullptr, 1, &length, 1, &type), 1U);
    EXPECT_EQ(deser_nd_alter_pkt_st(p, 1, p, 1, nullptr, 1, &type), 1U);
    EXPECT_EQ(deser_nd_alter_pkt_st(p, 1, p, 1, &length, 1, nullptr), 1U);
    std::string huge = "b\x80\x80\x80\x80\x08";  // a body that is refused by its length alone
    EXPECT_EQ(deser_nd_alter_pkt_st(bytes_of(huge), 0x80000006U, p, 1, &length, 1, &type), 8U);
    (void)take_log();
    for (const std::string bad : {"\xFF", "\x0A\x01\xFF", "\x0A\x05xx"}) {
        EXPECT_EQ(deser_nd_alter_pkt_st(bytes_of(bad), length_of(bad), p, 64, &length, 1, &type),
                  8U);
    }
    EXPECT_EQ(take_log(), LogLines{});
    EXPECT_EQ(type, kUntouched);
    EXPECT_EQ(length, kUntouched);
}

// A packet in the form in which it would be written is not taken apart: this must never show.
TEST_F(WireConvert, RestampOfFieldsInAnyOrderAndForm) {
    using namespace std::string_literals;
    const std::string most = times(8, '\xFF');
    const std::string fields[] = {
        "\x0A\x01i",                                             // a text
        "\x0A\x00"s,                                             // at its default
        "\x0A\x81\x00i"s,                                        // its length too long
        "\x0A\x02\xC3\xA4",                                      // not ASCII
        "\x0A\x01\x80",                                          // nor UTF-8
        "\x18\x05",                                              // a number
        "\x18\x00"s,                                             // at its default
        "\x18\x85\x00"s,                                         // too long
        "\x18\xFF\xFF\xFF\xFF\x0F",                              // the largest
        "\x18\x80\x80\x80\x80\x10",                              // more than 32 bits
        "\x48" + most + "\xFF\x01",                              // of 64 bits, -1
        "\x48" + most + "\xFF\x03",                              // more than 64
        "\x5A\x00"s,                                             // a property bag, empty
        "\x5A\x03\x1A\x01x",                                     // with a text
        "\x5A\x04\x08\x05\x08\x06",                              // a field twice
        "\x5A\x02\x40\x01",                                      // one that is not known
        "\x62\x02\xFF\x00"s,                                     // a body
        "\x62\x00"s,                                             // at its default
        "\x68\x01",                                              // the status
        "\x68\x80\x80\x80\x80\xF8" + times(4, '\xFF') + "\x01",  // the least
        "\x68\x80\x80\x80\x80\x08",                              // not one of 32 bits
        "\x6Dwxyz",                                              // of another wire type
        "\x70\x01",                                              // one that is not known
    };
    for (const std::string& first : fields) {
        for (const std::string& second : fields) {
            for (const std::string& third : fields) {
                std::string pkt = first;
                pkt += second;
                pkt += third;
                const auto restamped = [&](uint8_t* out, uint32_t size, uint32_t* length) {
                    uint32_t type = 0;
                    return deser_nd_alter_pkt_st(bytes_of(pkt), length_of(pkt), out, size, length,
                                                 HISTORY, &type);
                };
                const auto plain = [&](uint8_t* out, uint32_t size, uint32_t* length) {
                    return plain_chain::restamp(bytes_of(pkt), length_of(pkt), HISTORY, out, size,
                                                length);
                };
                ASSERT_EQ(into_buffer(100, restamped), into_buffer(100, plain))
                    << testing::PrintToString(pkt);
            }
        }
    }
}

}  // namespace
}  // namespace vyn_test
