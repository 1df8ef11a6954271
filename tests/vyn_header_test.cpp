// The envelope as record and as JSON text, and the message ids.
#include "vyn_header.h"

#include <gtest/gtest.h>
#include <json-c/json.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "logger.h"
#include "support/log_trap.h"

namespace vyn_test {
namespace {

// A text that the library returned as new.
std::string taken(char* text) {
    const std::unique_ptr<char, decltype(&free)> owned(text, free);
    return text != nullptr ? text : "(null)";
}

template <std::size_t Size>
void set(char (&member)[Size], const std::string& text) {
    ASSERT_LT(text.size(), Size);
    std::copy_n(text.c_str(), text.size() + 1, member);
}

msg_hdr filled_record() {
    msg_hdr hdr{};
    set(hdr.message_id, "m");
    set(hdr.correlation_id, "c");
    hdr.version = 7;
    set(hdr.system_id, "s");
    hdr.sub_system_id = 0x80000000U;
    set(hdr.device_id, "d/\"\\\n\xC3\xA4");
    set(hdr.target_id, "t");
    set(hdr.property_bag, R"({"error_code":5,"x":[1.50]})");
    hdr.encoding_type = 2;
    hdr.msg_type = 5;
    hdr.time = 1700000000000;
    hdr.ttl = -1;
    hdr.packet_status = 3;
    return hdr;
}

class VynHeader : public testing::Test {
protected:
    void SetUp() override { (void)take_log(); }
};

TEST_F(VynHeader, RecordToJson) {
    const auto plain = [](int word, const std::string& more = "") {
        return R"({ "system_id": "", "message_id": "", "version": 3, "message_type": )" +
               std::to_string(word) + R"(, "time": 0)" + more + " }";
    };
    struct Row {
        const char* bag;
        uint32_t msg_type, encoding_type;
        std::string json;
    };
    const Row rows[] = {
        {"", 0, 0, plain(0)},           {"{", 0, 0, plain(0)},
        {"null", 0, 0, plain(0)},       {"7 ", 0, 0, plain(0, R"(, "property_bag": 7)")},
        {"", 32773, 0, plain(32773)},  // packed already
        {"", 0xFFFFFFFF, 7, plain(-1)},
    };
    const auto check = [](msg_hdr hdr, const std::string& json) {
        const msg_hdr before = hdr;
        EXPECT_EQ(taken(convert_hdr_to_json(&hdr, 0, 0)), json);
        EXPECT_EQ(std::memcmp(&before, &hdr, sizeof hdr), 0);
        EXPECT_EQ(take_log(), LogLines{});
    };
    for (const Row& row : rows) {
        msg_hdr hdr{};
        set(hdr.property_bag, row.bag);
        hdr.msg_type = row.msg_type;
        hdr.encoding_type = row.encoding_type;
        check(hdr, row.json);
    }
    check(filled_record(),
          R"({ "system_id": "s", "message_id": "m", "correlation_id": "c", "version": 3, )"
          R"("sub_system_id": -2147483648, "device_id": "d\/\"\\\n)"
          "\xC3\xA4"
          R"(", "target_id": "t", "message_type": 32773, "time": 1700000000000, "ttl": -1, )"
          R"("property_bag": { "error_code": 5, "x": [ 1.50 ] } })");
    EXPECT_EQ(convert_hdr_to_json(nullptr, 0, 0), nullptr);
    EXPECT_EQ(take_log(), LogLines{debug_line("convert_hdr_to_json: Received NULL arguments")});
}

TEST_F(VynHeader, FreshIdAndClock) {
    msg_hdr hdr{};
    hdr.time = 5;
    const uint64_t before = get_current_timestamp_();
    const std::string json = taken(convert_hdr_to_json(&hdr, -1, -1));
    const uint64_t after = get_current_timestamp_();
    EXPECT_EQ(hdr.time, 5);

    msg_hdr read{};
    ASSERT_EQ(get_msg_hdr(json.c_str(), &read), 1);
    EXPECT_EQ(std::strlen(hdr.message_id), 36U);
    EXPECT_STREQ(read.message_id, hdr.message_id);
    EXPECT_GE(static_cast<uint64_t>(read.time), before);
    EXPECT_LE(static_cast<uint64_t>(read.time), after);
    (void)taken(convert_hdr_to_json(&hdr, 1, 1));
    EXPECT_STRNE(read.message_id, hdr.message_id);
}

// What get_msg_hdr() writes about the keys that an empty object lacks.
LogLines lines_of_empty() {
    const std::string not_found = "get_key_json_int64 failure:json_object_object_get_ex failed";
    return {debug_line("message_id expected to be int but got 0"),
            debug_line("message_type expected to be int but got 0"),
            debug_line("version expected to be int but got 0"),
            debug_line("system_id expected to be string but got 0"),
            debug_line(not_found),
            debug_line(not_found)};
}

TEST_F(VynHeader, JsonToRecord) {
    struct Row {
        const char* name;
        std::string json;
        LogLines lines;
        void (*change)(msg_hdr&);  // what becomes of the filled record
    };
    const auto cleared = [](msg_hdr& hdr) {
        hdr.correlation_id[0] = hdr.target_id[0] = hdr.device_id[0] = hdr.property_bag[0] = '\0';
        hdr.sub_system_id = 0;
    };
    const auto is_null = [](const char* key) {
        return debug_line(std::string("JSON has key ") + key + " with null value");
    };
    const std::string no_integer = "get_key_json_int64 :json value received not an integer";
    const Row rows[] = {
        {"empty object", "{}", lines_of_empty(), cleared},
        {"array", "[1]", lines_of_empty(), cleared},
        {"number", "42", lines_of_empty(), cleared},
        {"wrong types",
         R"({"message_id":42,"correlation_id":true,"message_type":5.0,"target_id":{},"version":true,)"
         R"("system_id":false,"sub_system_id":"3","device_id":3,"time":"1","ttl":null,)"
         R"("property_bag":"{}"})",
         {debug_line("message_id expected to be int but got 3"),
          debug_line("correlation_id expected to be int but got 1"),
          debug_line("message_type expected to be int but got 2"),
          debug_line("target_id expected to be string but got 4"),
          debug_line("version expected to be int but got 1"),
          debug_line("system_id expected to be string but got 1"),
          debug_line("sub_system_id expected to be int but got 6"),
          debug_line("device_id expected to be int but got 3"), error_line(no_integer),
          error_line(no_integer), debug_line("property_bag expected to be string but got 6")},
         [](msg_hdr&) {}},
        {"nulls and arrays",
         R"({"message_id":null,"correlation_id":null,"message_type":[],"target_id":null,)"
         R"("version":null,"system_id":null,"sub_system_id":null,"device_id":[],"time":1.5,)"
         R"("ttl":[],"property_bag":null})",
         {is_null("message_id"), debug_line("message_id expected to be int but got 0"),
          is_null("correlation_id"), debug_line("JSON has key message_type has unknown json type"),
          debug_line("message_type expected to be int but got 5"), is_null("target_id"),
          is_null("version"), debug_line("version expected to be int but got 0"),
          is_null("system_id"), debug_line("system_id expected to be string but got 0"),
          is_null("sub_system_id"), debug_line("JSON has key device_id has unknown json type"),
          debug_line("device_id expected to be int but got 5"), error_line(no_integer),
          error_line(no_integer), is_null("property_bag")},
         [](msg_hdr& hdr) {
             hdr.correlation_id[0] = hdr.target_id[0] = hdr.property_bag[0] = '\0';
             hdr.sub_system_id = 0;
         }},
        {"negative word, clamped numbers, long texts",
         R"({"message_id":")" + std::string(70, 'm') +
             R"(","correlation_id":"","message_type":-1,)" + R"("target_id":")" +
             std::string(127, 't') + R"(","version":9999999999,"system_id":"a\u0000b",)" +
             R"("sub_system_id":-9999999999,"device_id":")" + std::string(128, 'd') +
             R"(","time":-9223372036854775808,"ttl":9223372036854775807,"property_bag":{"k":")" +
             std::string(300, 'x') + R"("}})",
         {debug_line("Received type: -1"), debug_line("Message type: 16383 : Encoding type : 3 ")},
         [](msg_hdr& hdr) {
             hdr = msg_hdr{};
             set(hdr.message_id, std::string(63, 'm'));
             set(hdr.target_id, std::string(127, 't'));
             set(hdr.system_id, "a");
             set(hdr.device_id, std::string(127, 'd'));
             set(hdr.property_bag, R"({ "k": ")" + std::string(247, 'x'));
             hdr.msg_type = 16383;
             hdr.encoding_type = 3;
             hdr.version = 2147483647;
             hdr.sub_system_id = 0x80000000U;
             hdr.time = INT64_MIN;
             hdr.ttl = INT64_MAX;
             hdr.packet_status = 3;
         }},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        msg_hdr hdr = filled_record();
        EXPECT_EQ(get_msg_hdr(row.json.c_str(), &hdr), 1);
        EXPECT_EQ(take_log(), row.lines);
        msg_hdr expected = filled_record();
        row.change(expected);
        EXPECT_EQ(std::memcmp(&hdr, &expected, sizeof hdr), 0);
    }
}

TEST_F(VynHeader, TextThatIsNotJson) {
    const msg_hdr before = filled_record();
    msg_hdr hdr = before;
    for (const std::string json : {"", "{", "null", "{\"message_id\":\"x\"", "nonsense %s %n"}) {
        SCOPED_TRACE(json);
        char body[8] = "kept";
        const std::string line = debug_line("Unable to parse json\n" + json + "\n");
        EXPECT_EQ(get_msg_hdr(json.c_str(), &hdr), 0);
        EXPECT_EQ(get_body_from_message(json.c_str(), body, sizeof body), 0);
        EXPECT_EQ(take_log(), (LogLines{line, line}));
        EXPECT_STREQ(body, "kept");
        EXPECT_EQ(add_body_to_message(json.c_str(), "b"), nullptr);
    }
    EXPECT_EQ(get_msg_hdr(nullptr, &hdr), 0);
    EXPECT_EQ(get_msg_hdr("{}", nullptr), 0);
    EXPECT_EQ(std::memcmp(&before, &hdr, sizeof hdr), 0);
    EXPECT_EQ(take_log(), LogLines{});
}

TEST_F(VynHeader, BodyOutOfEnvelope) {
    struct Row {
        std::string json;
        std::string body;  // empty: none comes out
        LogLines lines;
    };
    const auto unexpected = [](int type) {
        return debug_line("body expected to be string but got " + std::to_string(type));
    };
    const Row rows[] = {
        {R"({"body":"text \"\/\n"})", "text \"/\n", {}},
        {R"({"body":{"a":[1,2],"b":"/"}})", R"({ "a": [ 1, 2 ], "b": "\/" })", {}},
        {R"({"body":"cut\u0000off"})", "cut", {}},
        {"{}", "", {unexpected(0)}},
        {"[]", "", {unexpected(0)}},
        {R"({"body":7})", "", {unexpected(3)}},
        {R"({"body":true})", "", {unexpected(1)}},
        {R"({"body":null})", "", {debug_line("JSON has key body with null value"), unexpected(0)}},
        {R"({"body":[]})",
         "",
         {debug_line("JSON has key body has unknown json type"), unexpected(5)}},
    };
    const LogLines too_small{
        error_line("get_body_from_message: body extracted is greater than given length")};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.json);
        for (const std::size_t size : {row.body.size(), row.body.size() + 1}) {
            std::string body(size + 1, '#');
            const bool fits = !row.body.empty() && row.body.size() < size;
            EXPECT_EQ(
                get_body_from_message(row.json.c_str(), body.data(), static_cast<uint32_t>(size)),
                fits ? 1 : 0);
            EXPECT_EQ(body, fits ? row.body + std::string("\0#", 2) : std::string(size + 1, '#'));
            EXPECT_EQ(take_log(), fits || row.body.empty() ? row.lines : too_small);
        }
    }
    char body[4];
    const LogLines invalid(2, error_line("get_body_from_message: Recevied invalid arguments"));
    EXPECT_EQ(get_body_from_message(nullptr, body, sizeof body), 0);
    EXPECT_EQ(get_body_from_message("{}", nullptr, 4), 0);
    EXPECT_EQ(take_log(), invalid);
}

TEST_F(VynHeader, BodyIntoEnvelope) {
    EXPECT_EQ(taken(add_body_to_message(R"({"a":1})", "x/\"")), R"({ "a": 1, "body": "x\/\"" })");
    EXPECT_EQ(taken(add_body_to_message(R"({"body":{},"a":1})", "")), R"({ "body": "", "a": 1 })");
    EXPECT_EQ(add_body_to_message("[1]", "x"), nullptr);
    EXPECT_EQ(add_body_to_message("1", "x"), nullptr);
    EXPECT_EQ(add_body_to_message(nullptr, "x"), nullptr);
    EXPECT_EQ(add_body_to_message("{}", nullptr), nullptr);
    EXPECT_EQ(take_log(), LogLines{});
}

TEST_F(VynHeader, PropertyBag) {
    msg_property_bag bag{};
    EXPECT_EQ(construct_property_bag(&bag), nullptr);
    EXPECT_EQ(construct_property_bag(nullptr), nullptr);
    bag.OTT = 7;
    EXPECT_EQ(taken(construct_property_bag(&bag)), R"({ "OTT": 7 })");
    bag.error_code = 0xFFFFFFFF;
    bag.ack_required = 1;
    set(bag.checksum, std::string(255, 'c'));
    set(bag.error, "e");
    set(bag.target, "t");
    set(bag.file, "f/g");
    set(bag.attempt, "a");
    EXPECT_EQ(taken(construct_property_bag(&bag)),
              R"({ "error_code": -1, "OTT": 7, "ack_required": 1, "attempt": "a", "checksum": ")" +
                  std::string(255, 'c') + R"(", "error": "e", "target": "t", "file": "f\/g" })");
}

TEST_F(VynHeader, MessageTypeWord) {
    EXPECT_EQ(combine_msg_type_encoding_type(5, 2), 32773U);
    EXPECT_EQ(combine_msg_type_encoding_type(16383, 3), 65535U);
    EXPECT_EQ(combine_msg_type_encoding_type(0x10005, 0x40001), 0x10005U | 0x4000U);
}

TEST_F(VynHeader, UuidNeedsItsRoom) {
    char uuid[MSG_UUID_SIZE + 1];
    std::memset(uuid, '#', sizeof uuid);
    get_new_message_uuid(uuid, MSG_UUID_SIZE - 1);
    get_new_message_uuid(nullptr, MSG_UUID_SIZE);
    EXPECT_EQ(uuid[0], '#');
    EXPECT_EQ(take_log(), LogLines(2, error_line("get_new_message_uuid: Invalid size")));
    get_new_message_uuid(uuid, MSG_UUID_SIZE);
    EXPECT_EQ(std::strlen(uuid), 36U);
    EXPECT_EQ(uuid[MSG_UUID_SIZE], '#');
}

TEST_F(VynHeader, IdsAreConsecutiveAcrossThreads) {
    constexpr std::size_t kEach = 1000000;
    for (uint32_t (*new_id)() : {get_new_message_id, generate_unique_trans_id}) {
        const uint32_t first = new_id() + 1;
        std::vector<std::vector<uint32_t>> ids(4, std::vector<uint32_t>(kEach));
        std::vector<std::thread> threads;
        threads.reserve(ids.size());
        std::atomic<std::size_t> started{0};
        for (std::vector<uint32_t>& own : ids) {
            threads.emplace_back([&own, &started, &ids, new_id] {
                for (++started; started < ids.size();) {
                    std::this_thread::yield();
                }
                std::generate(own.begin(), own.end(), new_id);
            });
        }
        std::vector<uint32_t> all;
        for (std::size_t i = 0; i < ids.size(); ++i) {
            threads[i].join();
            all.insert(all.end(), ids[i].begin(), ids[i].end());
        }
        std::sort(all.begin(), all.end());
        for (uint32_t i = 0; i < all.size(); ++i) {
            ASSERT_EQ(all[i], first + i);
        }
    }
}

TEST_F(VynHeader, TextsThatDoNotEndAreCutAtTheirMember) {
    msg_hdr hdr;
    std::memset(&hdr, 1, sizeof hdr);
    std::memset(hdr.property_bag, '7', sizeof hdr.property_bag);
    hdr.encoding_type = 1;
    hdr.sub_system_id = hdr.msg_type = 0x80000000U;
    hdr.time = hdr.ttl = INT64_MIN;
    const auto member = [](const std::string& key, std::size_t count) {
        std::string text = ", \"" + key + "\": \"";
        for (; count > 0; --count) {
            text += "\\u0001";
        }
        return text + "\"";
    };
    EXPECT_EQ(taken(convert_hdr_to_json(&hdr, 0, 0)),
              "{ " + member("system_id", 64).substr(2) + member("message_id", 64) +
                  member("correlation_id", 64) + R"(, "version": 3, "sub_system_id": -2147483648)" +
                  member("device_id", 128) + member("target_id", 128) +
                  R"(, "message_type": -2147467264, "time": -9223372036854775808, )"
                  R"("ttl": -9223372036854775808 })");
    msg_property_bag bag;
    std::memset(&bag, 1, sizeof bag);
    bag.OTT = 0x80000000U;
    EXPECT_EQ(taken(construct_property_bag(&bag)),
              R"({ "error_code": 16843009, "OTT": -2147483648, "ack_required": 16843009)" +
                  member("attempt", 64) + member("checksum", 256) + member("error", 256) +
                  member("target", 64) + member("file", 256) + " }");
}

// A thousand million steps: seconds in a plain build, too long in an instrumented one.
TEST_F(VynHeader, MessageIdsStartAgainAtOne) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "too slow under a sanitizer";
#endif
    uint32_t id = get_current_message_id();
    for (uint32_t expected = id + 1; expected <= 1073741824; ++expected) {
        id = get_new_message_id();
        if (id != expected) {
            break;
        }
    }
    EXPECT_EQ(id, 1073741824U);
    EXPECT_EQ(get_new_message_id(), 1U);
    EXPECT_EQ(get_current_message_id(), 1U);
}

}  // namespace
}  // namespace vyn_test
