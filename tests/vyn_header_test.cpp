// The envelope as header and as JSON text, and the message ids.
#include "vyn_header.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
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

msg_hdr filled() {
    msg_hdr hdr = {"m", "c", 7, "s", 0x80000000U, "", "t", "", 2, 5, 1700000000000, -1, 3};
    set(hdr.device_id, "d/\"\\\n\xC3\xA4");
    set(hdr.property_bag, R"({"error_code":5,"x":[1.50]})");
    return hdr;
}

class VynHeader : public testing::Test {
protected:
    void SetUp() override { (void)take_log(); }
};

TEST_F(VynHeader, HeaderToJson) {
    for (const char* bag : {"", "{", "null", "7 "}) {
        msg_hdr hdr{};
        set(hdr.property_bag, bag);
        hdr.msg_type = 0xFFFFFFFF;
        const std::string more = *bag == '7' ? R"(, "property_bag": 7)" : "";
        EXPECT_EQ(taken(convert_hdr_to_json(&hdr, 0, 0)),
                  R"({ "system_id": "", "message_id": "", "version": 3, "message_type": -1, )"
                  R"("time": 0)" +
                      more + " }");
    }
    EXPECT_EQ(take_log(), LogLines{});
    EXPECT_EQ(convert_hdr_to_json(nullptr, 0, 0), nullptr);
    EXPECT_EQ(take_log(), LogLines{debug_line("convert_hdr_to_json: Received NULL arguments")});
}

TEST_F(VynHeader, HeaderToJsonWithFreshIdAndClock) {
    msg_hdr hdr{};
    const auto clock = [] {
        using namespace std::chrono;
        return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    };
    const int64_t before = clock();
    const std::string json = taken(convert_hdr_to_json(&hdr, -1, -1));
    msg_hdr read{};
    ASSERT_EQ(get_msg_hdr(json.c_str(), &read), 1);
    EXPECT_EQ(std::strlen(hdr.message_id), 36U);
    EXPECT_STREQ(read.message_id, hdr.message_id);
    EXPECT_TRUE(before <= read.time && read.time <= clock()) << read.time;
    EXPECT_EQ(hdr.time, 0);
}

// Texts that do not end inside their members, each character as long as it can become.
TEST_F(VynHeader, LongestTexts) {
    msg_hdr hdr;
    std::memset(&hdr, 1, sizeof hdr);
    std::memset(hdr.property_bag, '7', sizeof hdr.property_bag);
    const auto escapes_in = [](const std::string& text) {
        return std::count(text.begin(), text.end(), '\\');
    };
    EXPECT_EQ(escapes_in(taken(convert_hdr_to_json(&hdr, 0, 0))), 3 * 64 + 2 * 128);
    msg_property_bag bag;
    std::memset(&bag, 1, sizeof bag);
    bag.OTT = 0x80000000U;
    const std::string text = taken(construct_property_bag(&bag));
    EXPECT_EQ(escapes_in(text), 2 * 64 + 3 * 256);
    EXPECT_EQ(text.substr(0, text.find("\"attempt\"")),
              R"({ "error_code": 16843009, "OTT": -2147483648, "ack_required": 16843009, )");
}

TEST_F(VynHeader, PropertyBagWithoutWhatIsNotSet) {
    const msg_property_bag empty{};
    const msg_property_bag bag{0, 0, 0, "", "", "", "f/g", ""};
    EXPECT_EQ(construct_property_bag(&empty), nullptr);
    EXPECT_EQ(construct_property_bag(nullptr), nullptr);
    EXPECT_EQ(taken(construct_property_bag(&bag)), R"({ "file": "f\/g" })");
}

TEST_F(VynHeader, JsonToHeader) {
    const auto not_a = [](const std::string& kind, const std::string& key, int type) {
        return debug_line(key + " expected to be " + kind + " but got " + std::to_string(type));
    };
    const auto has = [](const std::string& key, const std::string& what) {
        return debug_line("JSON has key " + key + what);
    };
    const std::string null = " with null value";
    const std::string no_key =
        debug_line("get_key_json_int64 failure:json_object_object_get_ex failed");
    const std::string no_int = error_line("get_key_json_int64 :json value received not an integer");
    const struct {
        std::string json;
        LogLines lines;
        void (*change)(msg_hdr&);  // what becomes of the filled header
    } rows[] = {
        {R"({"message_id":42,"correlation_id":true,"message_type":5.0,"target_id":{},)"
         R"("version":true,"system_id":false,"sub_system_id":"3","device_id":3,"time":"1",)"
         R"("ttl":null,"property_bag":"{}"})",
         {not_a("int", "message_id", 3), not_a("int", "correlation_id", 1),
          not_a("int", "message_type", 2), not_a("string", "target_id", 4),
          not_a("int", "version", 1), not_a("string", "system_id", 1),
          not_a("int", "sub_system_id", 6), not_a("int", "device_id", 3), no_int, no_int,
          not_a("string", "property_bag", 6)},
         [](msg_hdr& /*as it was*/) {}},
        {R"({"message_id":null,"correlation_id":null,"message_type":[],"target_id":null,)"
         R"("version":null,"system_id":null,"sub_system_id":null,"device_id":null,"time":1.5,)"
         R"("property_bag":null})",
         {has("message_id", null), not_a("int", "message_id", 0), has("correlation_id", null),
          has("message_type", " has unknown json type"), not_a("int", "message_type", 5),
          has("target_id", null), has("version", null), not_a("int", "version", 0),
          has("system_id", null), not_a("string", "system_id", 0), has("sub_system_id", null),
          has("device_id", null), no_int, no_key, has("property_bag", null)},
         [](msg_hdr& hdr) {
             hdr.correlation_id[0] = hdr.target_id[0] = hdr.device_id[0] = hdr.property_bag[0] = 0;
             hdr.sub_system_id = 0;
         }},
        {R"({"message_id":")" + std::string(70, 'm') +
             R"(","correlation_id":"","message_type":-1,)" + R"("target_id":")" +
             std::string(127, 't') + R"(","version":9999999999,"system_id":"a\u0000b",)" +
             R"("sub_system_id":-9999999999,"device_id":")" + std::string(128, 'd') +
             R"(","time":-9223372036854775808,"ttl":9223372036854775807,"property_bag":{"k":")" +
             std::string(300, 'x') + R"("}})",
         {debug_line("Received type: -1"), debug_line("Message type: 16383 : Encoding type : 3 ")},
         [](msg_hdr& hdr) {
             hdr = {"", "", 2147483647, "a",       0x80000000U, "", "",
                    "", 3,  16383,      INT64_MIN, INT64_MAX,   3};
             set(hdr.message_id, std::string(63, 'm'));
             set(hdr.target_id, std::string(127, 't'));
             set(hdr.device_id, std::string(127, 'd'));
             set(hdr.property_bag, R"({ "k": ")" + std::string(247, 'x'));
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.json);
        msg_hdr hdr = filled();
        EXPECT_EQ(get_msg_hdr(row.json.c_str(), &hdr), 1);
        EXPECT_EQ(take_log(), row.lines);
        msg_hdr expected = filled();
        row.change(expected);
        EXPECT_EQ(std::memcmp(&hdr, &expected, sizeof hdr), 0);
    }
}

TEST_F(VynHeader, TextThatIsNoEnvelope) {
    const msg_hdr before = filled();
    msg_hdr hdr = before;
    char body[8] = "kept";
    for (const std::string json : {"", "null", "{\"message_id\":\"x\"", "nonsense %s %n"}) {
        EXPECT_EQ(add_body_to_message(json.c_str(), "b"), nullptr);
        EXPECT_EQ(get_msg_hdr(json.c_str(), &hdr), 0);
        EXPECT_EQ(get_body_from_message(json.c_str(), body, sizeof body), 0);
        EXPECT_EQ(take_log(), LogLines(2, debug_line("Unable to parse json\n" + json + "\n")));
    }
    EXPECT_EQ(add_body_to_message("[1]", "b"), nullptr);
    EXPECT_EQ(add_body_to_message(nullptr, "b"), nullptr);
    EXPECT_EQ(add_body_to_message("{}", nullptr), nullptr);
    EXPECT_EQ(get_msg_hdr(nullptr, &hdr) + get_msg_hdr("{}", nullptr), 0);
    EXPECT_EQ(get_body_from_message(nullptr, body, sizeof body), 0);
    EXPECT_EQ(get_body_from_message("{}", nullptr, 4), 0);
    EXPECT_EQ(take_log(),
              LogLines(2, error_line("get_body_from_message: Recevied invalid arguments")));
    EXPECT_EQ(std::memcmp(&before, &hdr, sizeof hdr), 0);
    EXPECT_STREQ(body, "kept");
}

TEST_F(VynHeader, BodyOutOfEnvelope) {
    const std::string unexpected = "body expected to be string but got ";
    const struct {
        const char* json;
        uint32_t size;
        const char* body;  // none: refused
        LogLines lines;
    } rows[] = {
        {R"({"body":{"a":"/"}})", 15, R"({ "a": "\/" })", {}},
        {R"({"body":"cut \"\/\u0000off"})", 7, "cut \"/", {}},
        {R"({"body":"cut"})",
         3,
         nullptr,
         {error_line("get_body_from_message: body extracted is greater than given length")}},
        {"[]", 9, nullptr, {debug_line(unexpected + "0")}},
        {R"({"body":7})", 9, nullptr, {debug_line(unexpected + "3")}},
        {R"({"body":[]})",
         9,
         nullptr,
         {debug_line("JSON has key body has unknown json type"), debug_line(unexpected + "5")}},
    };
    for (const auto& row : rows) {
        char body[16] = "kept";
        const bool done = get_body_from_message(row.json, body, row.size) == 1;
        EXPECT_EQ(done, row.body != nullptr) << row.json;
        EXPECT_STREQ(body, done ? row.body : "kept");
        EXPECT_EQ(take_log(), row.lines);
    }
}

TEST_F(VynHeader, BoundedCopy) {
    char dest[] = "..........";
    EXPECT_EQ(memscpy(dest, 4, "abcdefghij", 10), 4U);
    EXPECT_EQ(memscpy(dest + 5, 5, "xyz", 2), 2U);
    EXPECT_STREQ(dest, "abcd.xy...");
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
    constexpr std::size_t kEach = 500000;
    for (uint32_t (*new_id)() : {get_new_message_id, generate_unique_trans_id}) {
        const uint32_t before = new_id();
        std::vector<uint32_t> ids(4 * kEach);
        std::vector<std::thread> threads;
        for (uint32_t* own = ids.data(); own != ids.data() + ids.size(); own += kEach) {
            threads.emplace_back([own, new_id] { std::generate_n(own, kEach, new_id); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        std::sort(ids.begin(), ids.end());
        for (uint32_t i = 0; i < ids.size(); ++i) {
            ASSERT_EQ(ids[i], before + 1 + i);
        }
    }
}

// A thousand million steps: seconds in a plain build, too long in an instrumented one.
TEST_F(VynHeader, MessageIdsStartAgainAtOne) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "too slow under a sanitizer";
#endif
    uint32_t id = 0;
    for (uint32_t n = get_current_message_id(); n < 1073741824; ++n) {
        id = get_new_message_id();
    }
    EXPECT_EQ(id, 1073741824U);
    EXPECT_EQ(get_new_message_id(), 1U);
    EXPECT_EQ(get_current_message_id(), 1U);
}

}  // namespace
}  // namespace vyn_test
