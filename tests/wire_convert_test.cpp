// Packets: the three conversions, by table, at every capacity and against the plain chain of steps;
// their checksum and status.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "bench/plain_chain.h"
#include "logger.h"
#include "proto_helper.h"
#include "support/log_trap.h"
#include "support/packets.h"

namespace vyn_test {
namespace {

constexpr std::size_t kRoom = 65536;

Outcome json_to_wire(const std::string& json, std::size_t capacity = kRoom) {
    return into_buffer(capacity, [&](uint8_t* out, uint32_t size, uint32_t* length) {
        return cnvrt_json_hdr_to_protobuf(json.c_str(), out, size, length);
    });
}

Outcome wire_to_json(const std::string& pkt, std::size_t capacity = kRoom) {
    return into_buffer(capacity, [&](uint8_t* out, uint32_t size, uint32_t*) {
        return cnvrt_protobuf_to_json_hdr(bytes_of(pkt), reinterpret_cast<char*>(out),
                                          length_of(pkt), size);
    });
}

Header parsed(const Outcome& outcome) {
    Header header;
    EXPECT_TRUE(header.ParseFromArray(outcome.buffer.data(), static_cast<int>(outcome.length)));
    return header;
}

std::string text_of(const Outcome& outcome) {
    return outcome.buffer.substr(0, outcome.buffer.find('\0'));
}

bool untouched(const Outcome& outcome) {
    return outcome.buffer.find_first_not_of('#') == std::string::npos;
}

// A conversion is a call of (capacity). Where its output does not fit there is none, and never a
// byte behind it.
template <typename Convert>
void expect_all_or_nothing(const Convert& convert, std::size_t needed, uint32_t too_small) {
    const Outcome whole = convert(kRoom);
    for (std::size_t capacity = needed > 1000 ? needed - 50 : 0; capacity < needed + 2;
         ++capacity) {
        SCOPED_TRACE("capacity " + std::to_string(capacity));
        const Outcome small = convert(capacity);
        EXPECT_EQ(small.code, capacity < needed ? too_small : whole.code);
        EXPECT_EQ(small.length, whole.length);
        std::string expected = capacity < needed ? "" : whole.buffer.substr(0, needed);
        expected.resize(small.buffer.size(), '#');
        EXPECT_EQ(small.buffer, expected);
    }
    (void)take_log();
}

class WireConvert : public testing::Test {
protected:
    void SetUp() override { (void)take_log(); }
};

// ---- Record to wire -----------------------------------------------------------------------------

TEST_F(WireConvert, RecordToWire) {
    struct Row {
        const char* bag;
        uint32_t result;
        const char* expected;  // the property bag as text format, empty for none
    };
    const Row rows[] = {
        {"", 0, ""},
        {R"({"error_code":5,"checksum":"abc","file":"f"})", 0, R"(error_code: 5 checksum: "abc")"},
        {R"({"error_code":-1})", 0, "error_code: 4294967295"},
        {R"({"error_code":0})", 0, ""},
        {R"({"error_code":"5","checksum":7})", 0, ""},
        {R"({"error_code":5.0})", 0, ""},
        {R"({"checksum":"a\u0000b"})", 0, R"(checksum: "a")"},
        {"[1]", 0, ""},
        {"{\"error_code\":5", 9, ""},
        {"null", 9, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.bag);
        msg_hdr hdr{};
        std::strcpy(hdr.message_id, "id");
        std::strcpy(hdr.device_id, "device");
        std::strcpy(hdr.property_bag, row.bag);
        hdr.version = 9;
        hdr.msg_type = 5;
        hdr.encoding_type = 2;
        hdr.time = -1;
        hdr.ttl = INT64_MAX;
        hdr.packet_status = 77;
        const std::string body("\0raw\0", 5);
        const auto convert = [&](std::size_t capacity) {
            return into_buffer(capacity, [&](uint8_t* out, uint32_t size, uint32_t* length) {
                return cnvrt_hdr_to_protobuf(&hdr, out, size, length, bytes_of(body),
                                             length_of(body));
            });
        };
        const Outcome outcome = convert(kRoom);
        ASSERT_EQ(outcome.code, row.result);
        if (row.result != 0) {
            EXPECT_TRUE(untouched(outcome));
            EXPECT_EQ(outcome.length, kUntouched);
            continue;
        }
        const Header header = parsed(outcome);
        EXPECT_EQ(header.message_id(), "id");
        EXPECT_EQ(header.device_id(), "device");
        EXPECT_EQ(header.version(), 9U);
        EXPECT_EQ(header.message_type(), 32773U);
        EXPECT_EQ(header.time(), -1);
        EXPECT_EQ(header.ttl(), INT64_MAX);
        EXPECT_EQ(header.packet_status(), 77);
        EXPECT_EQ(header.body(), body);
        EXPECT_EQ(header.property_bag().ShortDebugString(), row.expected);
        expect_all_or_nothing(convert, outcome.length, 2);
    }
}

TEST_F(WireConvert, RecordWithoutABagHasNoneOnTheWire) {
    msg_hdr hdr{};
    std::strcpy(hdr.property_bag, R"({"error_code":"5","checksum":null})");
    uint8_t out[8];
    uint32_t length = 1;
    EXPECT_EQ(cnvrt_hdr_to_protobuf(&hdr, out, 0, &length, nullptr, 0), 0U);
    EXPECT_EQ(length, 0U);
}

TEST_F(WireConvert, BodyBeyondWhatProtobufCounts) {
    const msg_hdr hdr{};
    uint8_t out[8] = {};
    uint32_t length = 0;
    // Refused by its length alone: never read.
    EXPECT_EQ(cnvrt_hdr_to_protobuf(&hdr, out, 8, &length, out, 0x80000000U), 2U);
    EXPECT_EQ(length, 0x80000006U);
    EXPECT_EQ(cnvrt_hdr_to_protobuf(&hdr, out, 8, &length, out, UINT32_MAX), 2U);
    EXPECT_EQ(length, UINT32_MAX);
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

TEST_F(WireConvert, TextsThatDoNotEndAreCutAtTheirMember) {
    msg_hdr hdr;
    std::memset(&hdr, 'A', sizeof hdr);
    const auto convert = [&] {
        return into_buffer(kRoom, [&](uint8_t* out, uint32_t size, uint32_t* length) {
            return cnvrt_hdr_to_protobuf(&hdr, out, size, length, nullptr, 0);
        });
    };
    EXPECT_EQ(convert().code, 9U);
    hdr.property_bag[0] = '\0';
    const Header header = parsed(convert());
    EXPECT_EQ(header.message_id(), times(64, 'A'));
    EXPECT_EQ(header.target_id(), times(128, 'A'));
}

// ---- JSON to wire -------------------------------------------------------------------------------

TEST_F(WireConvert, JsonToWire) {
    struct Row {
        const char* name;
        std::string json;
        uint32_t result;
        std::string body;
        const char* bag;
    };
    const std::string bag = R"("property_bag":{"error_code":5,"checksum":"c"},)";
    const std::string long_bag =
        R"("property_bag":{"error_code":5,"x":")" + times(250, 'x') + "\"},";
    const std::string binary = R"("message_type":32769,)";
    const auto envelope = [](const std::string& keys, const std::string& body) {
        return "{" + keys + R"("body":")" + body + "\"}";
    };
    const Row rows[] = {
        {"text", envelope(bag, "aGVsbG8="), 0, "aGVsbG8=", "error_code: 5"},
        {"binary", envelope(binary, "aGVsbG8="), 0, "hello", ""},
        {"binary with NULs", envelope(binary, "AAAA"), 0, std::string(3, '\0'), ""},
        {"binary, bit 16 dropped", envelope(R"("message_type":98305,)", "AAAA"), 0,
         std::string(3, '\0'), ""},
        {"no body left", envelope("", ""), 0, "", ""},
        {"body is an object", R"({"body":{"a":1}})", 0, R"({ "a": 1 })", ""},
        {"not base64", envelope(binary, "QQ="), 11, "", ""},
        {"bag too long", envelope(long_bag, "b"), 9, "b", ""},
        {"bag too long, not base64", envelope(long_bag + binary, "!"), 11, "", ""},
        {"error code of another type", envelope(R"("property_bag":{"error_code":5.0},)", "b"), 0,
         "b", ""},
        {"longest body", envelope("", times(8191, 'b')), 0, times(8191, 'b'), ""},
        {"longest binary body", envelope(binary, times(8188, 'A')), 0, times(6141, '\0'), ""},
        {"deepest document",
         envelope(
             R"("property_bag":{"error_code":1e,"x":)" + times(29, '[') + times(29, ']') + "},",
             "b"),
         0, "b", "error_code: 1"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Outcome outcome = json_to_wire(row.json);
        ASSERT_EQ(outcome.code, row.result);
        const Header header = parsed(outcome);
        EXPECT_EQ(header.body(), row.body);
        EXPECT_EQ(header.property_bag().ShortDebugString(), row.bag);
        EXPECT_EQ(header.packet_status(), NONE);
        expect_all_or_nothing([&](std::size_t size) { return json_to_wire(row.json, size); },
                              outcome.length, 2);
    }
    for (const std::string& json :
         {std::string("nonsense"), std::string("{}"), std::string("{\"body\":[]}"),
          std::string("[]"), envelope("", times(8192, 'b'))}) {
        SCOPED_TRACE(json.substr(0, 20));
        const Outcome outcome = json_to_wire(json);
        EXPECT_EQ(outcome.code, json == "nonsense" ? 3U : 11U);
        EXPECT_TRUE(untouched(outcome));
        EXPECT_EQ(outcome.length, kUntouched);
    }
}

// ---- Wire to JSON -------------------------------------------------------------------------------

TEST_F(WireConvert, WireToJson) {
    const Outcome outcome = wire_to_json(compressed(full_header().SerializeAsString()));
    EXPECT_EQ(outcome.code, 0U);
    EXPECT_EQ(text_of(outcome),
              R"({ "system_id": "s", "message_id": "0123", "correlation_id": "c", "version": 3, )"
              R"("sub_system_id": -2147483647, "device_id": "d\/\")"
              "\xC3\xA4"
              R"(", "target_id": "t", "message_type": 32773, "time": 1700000000000, "ttl": -2, )"
              R"("property_bag": { "error_code": -2147483648, "ack_required": 1, "attempt": "a", )"
              R"("checksum": "abc", "error": "e\/\u0001", "target": "t", "file": "f" }, )"
              R"("body": "AAEv\/yBib2R5" })");
    EXPECT_EQ(take_log(),
              (LogLines{"7 PH:Received message :32773 : Message type: 5 : Encoding type : 2 \n"}));
}

// What a chain gives as well.
Outcome wire_to_json_as_chained(const Header& header, std::size_t capacity = 4 * kRoom) {
    const std::string pkt = compressed(header.SerializeAsString());
    Outcome fast = wire_to_json(pkt, capacity);
    const LogLines fast_lines = take_log();
    const Outcome chained = into_buffer(capacity, [&](uint8_t* out, uint32_t size, uint32_t*) {
        return plain_chain::wire_to_json(bytes_of(pkt), length_of(pkt),
                                         reinterpret_cast<char*>(out), size);
    });
    EXPECT_EQ(fast, chained) << header.ShortDebugString();
    EXPECT_EQ(fast_lines, take_log());
    return fast;
}

TEST_F(WireConvert, WireToJsonTellsWhatIsLost) {
    struct Row {
        void (*change)(Header&);
        uint32_t result;
        const char* there;  // in the envelope
    };
    const Row rows[] = {
        {[](Header& h) { h.set_device_id(times(127, 'd')); }, 0, R"("device_id": "ddd)"},
        {[](Header& h) { h.set_device_id(times(128, 'd')); }, 2, R"(-2147483647, "target_id")"},
        {[](Header& h) { h.set_message_id(times(64, 'd')); }, 2, R"("message_id": "",)"},
        // NULs count, and end the text.
        {[](Header& h) { h.set_target_id(times(128, '\0')); }, 2, "\xA4\", \"message_type\""},
        {[](Header& h) { h.set_target_id(std::string("a\0b", 3)); }, 0, R"("target_id": "a",)"},
        {[](Header& h) { h.mutable_property_bag()->set_attempt(times(64, 'a')); }, 2,
         R"("ack_required": 1, "checksum")"},
        {[](Header& h) { h.mutable_property_bag()->set_error(times(255, 'e')); }, 0,
         R"("ttl": -2, "body")"},
        {[](Header& h) { h.set_body(times(18429, 'b')); }, 0, R"("body": "YmJi)"},
        {[](Header& h) { h.set_body(times(18430, 'b')); }, 11, R"("body": "")"},
        // Of two losses the one that is found last.
        {[](Header& h) {
             h.set_body(times(18430, 'b'));
             h.mutable_property_bag()->set_target(times(64, 'a'));
         },
         2, R"("body": "")"},
        // Bit 16 of the word makes it a text, which ends at a NUL.
        {[](Header& h) { h.set_message_type(5 | 2 << 14 | 1 << 16); }, 0, R"("body": "")"},
        {[](Header& h) { h.set_message_type(5), h.set_body(std::string("text\0rest", 9)); }, 0,
         R"("body": "text")"},
        {[](Header& h) { h = Header(), h.set_body(times(24000, 't')); }, 0, R"("body": "ttt)"},
    };
    for (const Row& row : rows) {
        Header header = full_header();
        row.change(header);
        const Outcome outcome = wire_to_json_as_chained(header);
        EXPECT_EQ(outcome.code, row.result) << row.there;
        EXPECT_NE(text_of(outcome).find(row.there), std::string::npos) << text_of(outcome);
    }
}

TEST_F(WireConvert, WireToJsonRefuses) {
    const std::string good = full_header().SerializeAsString();
    struct Row {
        const char* name;
        std::string pkt;
        uint32_t result;
    };
    const Row rows[] = {
        {"nothing", "", 13},
        {"not compressed", good, 13},
        {"two frames", compressed(good) + compressed(good), 13},
        {"one byte behind", compressed(good) + "x", 13},
        {"skippable frame", std::string("\x50\x2A\x4D\x18\0\0\0\0", 8), 13},
        {"24577 bytes", compressed(times(24577, '\0')), 13},
        {"no header", compressed("\xFF\xFF"), 8},
        {"invalid UTF-8", compressed("\x0A\x01\xFF"), 8},
        {"cut header", compressed(good.substr(0, good.size() - 3)), 8},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Outcome outcome = wire_to_json(row.pkt);
        EXPECT_EQ(outcome.code, row.result);
        EXPECT_TRUE(untouched(outcome));
    }
    EXPECT_EQ(take_log(), LogLines{});
    const std::string pkt = compressed(good);
    for (std::size_t length = 0; length < pkt.size(); ++length) {
        EXPECT_EQ(wire_to_json(pkt.substr(0, length)).code, 13U) << length;
    }
    expect_all_or_nothing([&](std::size_t size) { return wire_to_json(pkt, size); },
                          text_of(wire_to_json(pkt)).size() + 1, 6);
}

// ---- Against the plain chain --------------------------------------------------------------------

using Random = std::mt19937;

std::size_t below(Random& random, std::size_t limit) { return random() % limit; }

// Compares a JSON to wire conversion with its chain, at a capacity.
void compare_json_to_wire(const std::string& json, std::size_t capacity) {
    const Outcome fast = json_to_wire(json, capacity);
    const LogLines fast_lines = take_log();
    const Outcome chained = into_buffer(capacity, [&](uint8_t* out, uint32_t size, uint32_t* len) {
        return plain_chain::json_to_wire(json.c_str(), out, size, len);
    });
    EXPECT_EQ(fast, chained) << json;
    EXPECT_EQ(fast_lines, take_log()) << json;
}

TEST_F(WireConvert, JsonToWireEqualsItsChain) {
    // Envelopes put together from values that fit their key and values that do not, with now and
    // then a byte changed.
    const std::string keys[] = {
        "message_id",    "correlation_id", "message_type", "target_id", "version",      "system_id",
        "sub_system_id", "device_id",      "time",         "ttl",       "property_bag", "body"};
    std::istringstream short_values(
        R"(null|true|7|-1|32773|99999999999999999999|1e|5.|1.5e3|NaN|""|"QUJD"|"a\u0000b"|)"
        R"("\ud83d\ude00 / \" \\ \n"|[1,{}]|{}|{"error_code":5}|{"error_code":5e}|)"
        R"({"error_code":-Infinity}|{"error_code":null}|{"error_code":[1]}|)"
        R"({"error_code":99999999999}|{"checksum":"c","error_code":1,"error_code":{}}|)"
        R"('single'|[[[[[[]]]]]])");
    std::vector<std::string> values;
    for (std::string value; std::getline(short_values, value, '|');) {
        values.push_back(value);
    }
    values.push_back("\"" + times(130, 'x') + "\"");
    values.push_back("\"" + times(8190, 'x') + "\\n\"");
    values.push_back("\"" + times(8192, 'x') + "\"");
    for (const std::size_t length : {222U, 223U, 224U, 225U, 226U, 300U}) {
        values.push_back(R"({"error_code":77,"x":")" + times(length, 'x') + "\"}");
    }
    Random random(1);
    for (int round = 0; round < 4000; ++round) {
        std::string json = "{";
        for (const std::string& key : keys) {
            if (below(random, 4) != 0) {
                json += (json.size() > 1 ? ",\"" : "\"") + key +
                        "\":" + values[below(random, values.size())];
            }
        }
        json += "}";
        if (below(random, 4) == 0) {
            json[below(random, json.size())] = static_cast<char>(1 + below(random, 255));
        }
        compare_json_to_wire(json, below(random, 3) == 0 ? below(random, 300) : kRoom);
        if (HasFailure()) {
            break;
        }
    }
}

TEST_F(WireConvert, WireToJsonEqualsItsChain) {
    Random random(2);
    const auto text = [&random](std::size_t slot) {
        const std::string pieces[] = {"a",    "/",    "\"",       "\\", "\n",
                                      "\x01", "\x7F", "\xC3\xA4", "{",  std::string(1, '\0')};
        std::string made;
        const std::size_t wish = below(random, 3) == 0 ? slot - 3 + below(random, 5) : 4;
        while (made.size() < wish) {
            made += pieces[below(random, below(random, 8) == 0 ? 10 : 9)];
        }
        return below(random, 4) == 0 ? "" : made;
    };
    for (int round = 0; round < 3000; ++round) {
        Header header;
        header.set_message_id(text(64));
        header.set_correlation_id(text(64));
        header.set_system_id(text(64));
        header.set_device_id(text(128));
        header.set_target_id(text(128));
        header.set_version(static_cast<uint32_t>(random()));
        header.set_sub_system_id(static_cast<uint32_t>(random()));
        header.set_message_type(static_cast<uint32_t>(below(random, 1 << 17)));
        header.set_time(static_cast<int64_t>(random()) << 20);
        header.set_ttl(static_cast<int64_t>(below(random, 3)) - 1);
        if (below(random, 2) == 0) {
            Header_Property_bag* bag = header.mutable_property_bag();
            bag->set_error_code(static_cast<uint32_t>(random()));
            bag->set_checksum(text(256));
            bag->set_error(text(40));
            bag->set_target(text(64));
            bag->set_file(text(40));
            bag->set_attempt(text(64));
        }
        header.set_body(text(below(random, 50) == 0 ? 24000 : 1000));
        (void)wire_to_json_as_chained(header,
                                      below(random, 3) == 0 ? below(random, 1500) : 4 * kRoom);
        if (HasFailure()) {
            break;
        }
    }
}

TEST_F(WireConvert, EveryCharacterAtEveryPlaceOfABlock) {
    for (std::size_t gap = 0; gap < 17; ++gap) {
        Header header;
        for (int c = 1; c < 256; ++c) {
            *header.mutable_body() += times(gap, 'x') + static_cast<char>(c);
        }
        (void)wire_to_json_as_chained(header);
    }
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

TEST_F(WireConvert, RestampChangesTheStatusAlone) {
    Header header = full_header();
    const std::string unknown("\xA2\x06\x03xyz", 6);  // field 100
    const std::string pkt = unknown + header.SerializeAsString();
    for (const uint32_t status : {0U, 1U, 4U, 77U, 0xFFFFFFFFU}) {
        header.set_packet_status(static_cast<PacketStatus>(status));
        const std::string expected = header.SerializeAsString() + unknown;
        uint32_t type = kUntouched;
        const auto restamped = [&](std::size_t capacity) {
            return into_buffer(capacity, [&](uint8_t* out, uint32_t size, uint32_t* length) {
                return deser_nd_alter_pkt_st(bytes_of(pkt), length_of(pkt), out, size, length,
                                             status, &type);
            });
        };
        const Outcome outcome = restamped(kRoom);
        EXPECT_EQ(outcome.code, 0U);
        EXPECT_EQ(outcome.buffer.substr(0, outcome.length), expected);
        EXPECT_EQ(type, 5U);
        EXPECT_EQ(
            take_log(),
            LogLines{"7 DPH:Received message :32773 : Message type: 5 : Encoding type : 2 \n"});
        expect_all_or_nothing(restamped, expected.size(), 2);
    }
}

TEST_F(WireConvert, RestampInPlaceAndRefusals) {
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
        EXPECT_EQ(deser_nd_alter_pkt_st(bytes_of(bad), length_of(bad), p, 64, &length, 1, &type),
                  8U);
    }
    EXPECT_EQ(take_log(), LogLines{});
    EXPECT_EQ(type, kUntouched);
    EXPECT_EQ(length, kUntouched);
}

}  // namespace
void expect_as_the_plain_chain(const std::string& pkt) {
    const Outcome outcome =
        into_buffer(2 * pkt.size() + 8, [&](uint8_t* out, uint32_t size, uint32_t* length) {
            uint32_t type = 0;
            return deser_nd_alter_pkt_st(bytes_of(pkt), length_of(pkt), out, size, length, HISTORY,
                                         &type);
        });
    const Outcome plain =
        into_buffer(2 * pkt.size() + 8, [&](uint8_t* out, uint32_t size, uint32_t* length) {
            return plain_chain::restamp(bytes_of(pkt), length_of(pkt), HISTORY, out, size, length);
        });
    ASSERT_EQ(outcome, plain) << testing::PrintToString(pkt);
}

// A packet in the form in which it would be written is not taken apart: this must never show.
TEST_F(WireConvert, RestampAfterEveryChangeOfAByte) {
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
                expect_as_the_plain_chain(pkt);
            }
        }
    }
}

}  // namespace vyn_test
