// The three conversions: by table, at every capacity, and against the plain chain of steps.
#include <gtest/gtest.h>
#include <pthread.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "bench/plain_chain.h"
#include "logger.h"
#include "proto_helper.h"
#include "support/log_trap.h"
#include "support/packets.h"

using vyn_test::bytes_of;
using vyn_test::compressed;
using vyn_test::full_header;
using vyn_test::into_buffer;
using vyn_test::kUntouched;
using vyn_test::length_of;
using vyn_test::LogLines;
using vyn_test::Outcome;
using vyn_test::take_log;
using vyn_test::times;

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
        for (std::size_t capacity = 0; capacity <= outcome.length + 1; ++capacity) {
            const Outcome small = convert(capacity);
            EXPECT_EQ(small.code, capacity < outcome.length ? 2U : 0U);
            EXPECT_EQ(small.length, outcome.length);
            EXPECT_TRUE(capacity >= outcome.length || untouched(small));
            EXPECT_EQ(small.buffer.substr(capacity), times(16, '#'));
        }
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
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Outcome outcome = json_to_wire(row.json);
        ASSERT_EQ(outcome.code, row.result);
        const Header header = parsed(outcome);
        EXPECT_EQ(header.body(), row.body);
        EXPECT_EQ(header.property_bag().ShortDebugString(), row.bag);
        EXPECT_EQ(header.packet_status(), NONE);
        for (std::size_t capacity = 0; capacity < 100; ++capacity) {
            const Outcome small = json_to_wire(row.json, capacity);
            EXPECT_EQ(small.code, capacity < outcome.length ? 2U : row.result);
            EXPECT_TRUE(capacity >= outcome.length || untouched(small));
            EXPECT_EQ(small.length, outcome.length);
        }
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

TEST_F(WireConvert, WireToJsonTellsWhatIsLost) {
    struct Row {
        const char* name;
        void (*change)(Header&);
        uint32_t result;
        const char* gone;  // no such key in the envelope
        const char* there;
    };
    const Row rows[] = {
        {"device id of 127", [](Header& h) { h.set_device_id(times(127, 'd')); }, 0, "#", "device"},
        {"device id of 128", [](Header& h) { h.set_device_id(times(128, 'd')); }, 2, "device_id",
         "target_id"},
        {"message id of 64", [](Header& h) { h.set_message_id(times(64, 'd')); }, 2, "dd",
         R"("message_id": "",)"},
        {"NULs count", [](Header& h) { h.set_target_id(std::string(128, '\0')); }, 2, "target_id",
         "device_id"},
        {"NUL ends", [](Header& h) { h.set_target_id(std::string("a\0b", 3)); }, 0, "a\\u0000b",
         R"("target_id": "a",)"},
        {"bag member too long",
         [](Header& h) { h.mutable_property_bag()->set_attempt(times(64, 'a')); }, 2, "attempt",
         R"("file": "f")"},
        {"bag text too long",
         [](Header& h) { h.mutable_property_bag()->set_error(times(255, 'e')); }, 0, "property_bag",
         R"("body")"},
        {"longest binary body", [](Header& h) { h.set_body(times(18429, 'b')); }, 0, "#", "YmJi"},
        {"binary body too long", [](Header& h) { h.set_body(times(18430, 'b')); }, 11, "YmJi",
         R"("body": "")"},
        {"bag after body",
         [](Header& h) {
             h.set_body(times(18430, 'b'));
             h.mutable_property_bag()->set_target(times(64, 'a'));
         },
         2, "YmJi", R"("body": "")"},
        {"text with bit 16", [](Header& h) { h.set_message_type(5 | 2 << 14 | 1 << 16); }, 0,
         "AAEv", R"("body": "")"},
        {"text ends at NUL",
         [](Header& h) {
             h.set_message_type(5);
             h.set_body(std::string("text\0rest", 9));
         },
         0, "rest", R"("body": "text")"},
        {"longest text",
         [](Header& h) {
             h = Header();
             h.set_body(times(24000, 't'));
         },
         0, "#", "ttt"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        Header header = full_header();
        row.change(header);
        const Outcome outcome = wire_to_json(compressed(header.SerializeAsString()));
        EXPECT_EQ(outcome.code, row.result);
        EXPECT_EQ(text_of(outcome).find(row.gone), std::string::npos) << text_of(outcome);
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
    const std::size_t needed = text_of(wire_to_json(pkt)).size() + 1;
    for (std::size_t capacity = 0; capacity <= needed + 1; ++capacity) {
        const Outcome outcome = wire_to_json(pkt, capacity);
        EXPECT_EQ(outcome.code, capacity < needed ? 6U : 0U);
        EXPECT_TRUE(capacity >= needed || untouched(outcome));
        EXPECT_EQ(outcome.buffer.substr(capacity), times(16, '#'));
    }
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
    std::vector<std::string> values = {"null",
                                       "true",
                                       "7",
                                       "-1",
                                       "32773",
                                       "99999999999999999999",
                                       "1e",
                                       "5.",
                                       "1.5e3",
                                       "NaN",
                                       R"("")",
                                       R"("QUJD")",
                                       R"("a\u0000b")",
                                       R"("\ud83d\ude00 / \" \\ \n")",
                                       "[1,{}]",
                                       "{}",
                                       R"({"error_code":5})",
                                       R"({"error_code":5e})",
                                       R"({"error_code":-Infinity})",
                                       R"({"error_code":null})",
                                       R"({"error_code":[1]})",
                                       R"({"error_code":99999999999})",
                                       R"({"checksum":"c","error_code":1,"error_code":{}})",
                                       R"('single')",
                                       "[[[[[[]]]]]]"};
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

Outcome plain_wire_to_json(const std::string& pkt, std::size_t capacity) {
    return into_buffer(capacity, [&](uint8_t* out, uint32_t size, uint32_t* /*unused*/) {
        return plain_chain::wire_to_json(bytes_of(pkt), length_of(pkt),
                                         reinterpret_cast<char*>(out), size);
    });
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
        const std::string pkt = compressed(header.SerializeAsString());
        const std::size_t capacity = below(random, 3) == 0 ? below(random, 1500) : 4 * kRoom;

        const Outcome fast = wire_to_json(pkt, capacity);
        const LogLines fast_lines = take_log();
        ASSERT_EQ(fast, plain_wire_to_json(pkt, capacity)) << header.ShortDebugString();
        ASSERT_EQ(fast_lines, take_log());
    }
}

TEST_F(WireConvert, EveryCharacterAtEveryPlaceOfABlock) {
    for (std::size_t gap = 0; gap < 17; ++gap) {
        std::string body;
        for (int c = 1; c < 256; ++c) {
            body += times(gap, 'x') + static_cast<char>(c);
        }
        Header header;
        header.set_body(body);
        const std::string pkt = compressed(header.SerializeAsString());
        EXPECT_EQ(wire_to_json(pkt, kRoom), plain_wire_to_json(pkt, kRoom)) << gap;
    }
}

// ---- Threads ------------------------------------------------------------------------------------

// The largest body and the deepest document, there and back. Returns null when all went well.
void* convert_largest(void* /*unused*/) {
    static const char* const kFailed = "a conversion failed";
    Header header = full_header();
    header.set_body(times(18429, '\xFF'));
    const std::string pkt = compressed(header.SerializeAsString());
    std::vector<char> json(kRoom);
    if (cnvrt_protobuf_to_json_hdr(bytes_of(pkt), json.data(), length_of(pkt), kRoom) != 0) {
        return const_cast<char*>(kFailed);
    }
    const std::string deep = times(29, '[') + times(29, ']');
    const std::string envelope = R"({"message_type":32769,"property_bag":{"error_code":1e,"x":)" +
                                 deep + R"(},"body":")" + times(8188, 'A') + "\"}";
    std::vector<uint8_t> wire(kRoom);
    uint32_t length = 0;
    const uint32_t code = cnvrt_json_hdr_to_protobuf(envelope.c_str(), wire.data(), kRoom, &length);
    return code == 0 ? nullptr : const_cast<char*>(kFailed);
}

TEST_F(WireConvert, RunsInASmallStack) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, std::size_t{128} * 1024), 0);
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, &attributes, convert_largest, nullptr), 0);
    void* failure = nullptr;
    ASSERT_EQ(pthread_join(thread, &failure), 0);
    EXPECT_EQ(failure, nullptr);
    (void)pthread_attr_destroy(&attributes);
}

}  // namespace
