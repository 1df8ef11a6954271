#include "json_helper.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cmath>
#include <cstring>
#include <ctime>
#include <fstream>
#include <string>
#include <vector>

#include "support/log_trap.h"

namespace vyn_test {
namespace {

// The path of a file with these contents.
const char* file_of(const std::string& contents) {
    static const std::string path = testing::TempDir() + "vyn_json_" + std::to_string(getpid());
    std::ofstream(path) << contents;
    return path.c_str();
}

class JsonHelper : public testing::Test {
protected:
    void SetUp() override { (void)take_log(); }
    static void TearDownTestSuite() { (void)unlink(file_of("")); }
};

// A text, and canaries behind it.
struct Buffer : std::array<char, 256> {
    explicit Buffer(const std::string& text) {
        fill('#');
        (void)text.copy(data(), size());
        at(text.size()) = '\0';
    }
};

// A value at an odd address.
template <typename Value>
const char* odd(Value value) {
    alignas(8) static char room[1 + sizeof value];
    std::memcpy(room + 1, &value, sizeof value);
    return room + 1;
}

// A call that copies text, with its source for a name. Readers write to `to`, all others to `json`.
struct Args {
    char* json;
    const char* key;
    char* to;
    uint32_t size;
};
#define CALL(...)                                \
    [](const Args& args) -> int {                \
        const auto [json, key, to, size] = args; \
        return __VA_ARGS__;                      \
    },                                           \
        #__VA_ARGS__

struct Copy {
    int (*call)(const Args& args);
    const char* name;
    const char* document;
    const char* stored = nullptr;    // none: refused
    const char* rendered = nullptr;  // what has to fit; none: the same
};

const Copy copies[] = {
    {CALL(get_key_json(json, key, to, size)), R"({"k":"\/\"\u00e9\u0000b"})", "/\"\u00e9"},
    {CALL(get_key_json(json, key, to, size)), R"({"k":["/",1.50,{}]})", R"([ "\/", 1.50, { } ])"},
    {CALL(get_key_json(json, key, to, size)), R"({"K":{"k":1},"k":null})"},
    {CALL(get_generic_key_json(json, key, to, 6, size)), R"({"k":"[\"/"})", "[\"/"},
    {CALL(get_generic_key_json(json, key, to, 6, size)), R"({"k":null})"},
    {CALL(get_generic_key_json(json, key, to, 0, size)), R"({"k":"x"})"},
    {CALL(get_generic_key_json(json, key, to, 5, size)), R"({"k":[]})"},
    {CALL(set_generic_key_json(json, key, odd(INT_MIN), 1, size)), R"({"k":1,"b":[]})",
     R"({ "k": true, "b": [ ] })"},
    {CALL(set_generic_key_json(json, key, odd(0), 1, size)), "{}", R"({ "k": false })"},
    {CALL(set_generic_key_json(json, key, odd(0.1), 2, size)), "{}", R"({ "k": 0.100000 })"},
    {CALL(set_generic_key_json(json, key, odd(-0.0), 2, size)), "{}", R"({ "k": -0.000000 })"},
    {CALL(set_generic_key_json(json, key, odd(-9e20), 2, size)), "{}",
     R"({ "k": -900000000000000000000.000000 })"},
    {CALL(set_generic_key_json(json, key, odd(INT_MIN), 3, size)), "{}", R"({ "k": -2147483648 })"},
    {CALL(set_generic_key_json(json, key, "[1]\n\"/", 6, size)), "{}", R"({ "k": "[1]\n\"\/" })"},
    {CALL(set_generic_key_json(json, key, nullptr, 6, size)), "{}"},
    {CALL(set_generic_key_json(json, key, odd(0.0), 0, size)), "{}"},
    {CALL(set_generic_key_json(json, key, "[]", 5, size)), "{}"},
    {CALL(set_key_json(json, key, R"([1],"z":["/"])", size)), R"({"a":1})",
     R"({ "a": 1, "k": [1],"z":["/"] })", R"({ "a": 1, "k": "[1],\"z\":[\"\/\"]" })"},
    {CALL(set_key_json(json, key, R"({"x":"]"})", size)), "{}", R"({ "k": {"x":"]} })",
     R"({ "k": "{\"x\":\"]\"}" })"},
    {CALL(set_key_json(json, key, "\"[", size)), "{}", R"({ "k": "[" })", R"({ "k": "\"[" })"},
    {CALL(set_key_json(json, key, "]\"", size)), "{}", R"({ "k": "]" })", R"({ "k": "]\"" })"},
    {CALL(set_key_json(json, key, "say \"hi\"\\\t", size)), "{}", R"({ "k": "say "hi"t" })",
     R"({ "k": "say \"hi\"\\\t" })"},
    {CALL(set_key_json(json, key, nullptr, size)), "{}"},
    {CALL(set_array_key_json(json, key, nullptr, size)), R"({"k":1,"a":"{\/"})",
     R"({ "k": null, "a": "{\/" })"},
    {CALL(del_json_key(json, key, to, size)), R"({"a":"{}","k":1})", R"({ "a": {} })",
     R"({ "a": "{}" })"},
    {CALL(del_json_key(json, key, to, size)), R"({"a":1})", R"({ "a": 1 })"},
    {CALL(copy_array_json(json, 1, to, size)), R"([0,"\"[]\"\\"])", "[]", R"("[]"\)"},
    {CALL(copy_array_json(json, 1, to, size)), "[0,null]"},
    {CALL(copy_array_json(json, 1, to, size)), "[0]"},
    {CALL(copy_array_json(json, -1, to, size)), "[0]"},
    {CALL(array_add_json("\"/\"", json, size)), "[0]", R"([ 0, "/" ])", R"([ 0, "\/" ])"},
    {CALL(array_add_json("null", json, size)), "[0]"},
    {CALL(array_add_json(nullptr, json, size)), "[0]"},
    {CALL(replace_array_index_json(json, 0, "[2]", size)), R"([1,"\n"])", R"([ [ 2 ], "n" ])",
     R"([ [ 2 ], "\n" ])"},
    {CALL(replace_array_index_json(json, 1, "{}", size)), "[0]", "[ 0, { } ]"},
    {CALL(replace_array_index_json(json, 3, "1", size)), "[]", "[ null, null, null, 1 ]"},
    {CALL(replace_array_index_json(json, 7, "1", size)), "[]",
     "[ null, null, null, null, null, null, null, 1 ]"},
    {CALL(replace_array_index_json(json, -1, "1", size)), "[0]"},
    {CALL(replace_array_index_json(json, 0, "null", size)), "[0]"},
    {CALL(replace_array_index_json(json, 0, nullptr, size)), "[0]"},
    {CALL(get_json_file(file_of(json), to, size)), R"({"a":"[\"/\"]"})", R"({ "a": ["/"] })",
     R"({ "a": "[\"\/\"]" })"},
    {CALL(get_json_file(file_of(json), to, size)), "17", "17"},
    {CALL(get_json_file(file_of(json), to, size)), R"("[x\"\u0000y")", "[x\""},
};

LogLines too_long(const std::string& name, std::size_t length, uint32_t size) {
    const auto is = [&](const char* function) { return name.rfind(function, 0) == 0; };
    const std::string numbers[] = {std::to_string(length), std::to_string(int64_t{size} - 1)};
    return {debug_line(
        is("get_key_json(")         ? "data " + numbers[0] + " is longerthan length " + numbers[1]
        : is("set_array_key_json(") ? "set_array_key_json failure : data is longer than length "
        : is("replace_array_index_json(") ? "data is longer than array length "
        : is("copy_array_json(") || is("array_add_json(") || is("del_json_key(")
            ? "data is longer than length "
            : "data " + numbers[0] + " is longer than length " + numbers[1])};
}

TEST_F(JsonHelper, TextIsCopiedWholeOrNotAtAll) {
    for (const Copy& c : copies) {
        const std::string rendered = c.rendered ? c.rendered : c.stored ? c.stored : "";
        const bool reads = std::strstr(c.name, " to,") != nullptr;
        for (uint32_t size = 0; size <= rendered.size() + 2; ++size) {
            for (const bool in_place : {true, !reads}) {
                SCOPED_TRACE(c.name + (" of size " + std::to_string(size)) + " on " + c.document);
                Buffer document(c.document);
                Buffer other("old");
                Buffer& dest = in_place ? document : other;
                const Buffer before = dest;
                const bool fits = size > rendered.size();
                const bool done = fits && c.stored != nullptr;
                EXPECT_EQ(c.call({document.data(), "k", dest.data(), size}), done);
                EXPECT_EQ(take_log(), fits || c.stored == nullptr
                                          ? LogLines{}
                                          : too_long(c.name, rendered.size(), size));
                EXPECT_STREQ(dest.data(), done ? c.stored : before.data());
                const std::size_t free = done ? size : 0;  // nothing from here on is written
                EXPECT_EQ(std::memcmp(&dest[free], &before[free], dest.size() - free), 0);
                EXPECT_TRUE(in_place || document == Buffer(c.document));
            }
        }
    }
}

TEST_F(JsonHelper, RefusesNullPointersAndOtherDocuments) {
    const LogLines set_array_note{
        error_line("set_array_key_json failure:json_tokener_parse returned NULL")};
    for (const Copy& c : copies) {
        const std::string name = c.name;
        if (c.stored == nullptr || name.rfind("get_json_file", 0) == 0) {
            continue;
        }
        const std::string document = c.document;
        const auto refuse = [&](const std::string& text, const char* absent) {
            SCOPED_TRACE(testing::Message() << name << " on " << text << absent);
            std::vector<char> json(text.c_str(), text.c_str() + text.size() + 1);  // just as long
            Buffer other("old");
            Args args{json.data(), "k", other.data(), 256};
            args.json = *absent == 'j' ? nullptr : args.json;
            args.key = *absent == 'k' ? nullptr : args.key;
            args.to = *absent == 't' ? nullptr : args.to;
            EXPECT_EQ(c.call(args), 0);
            EXPECT_TRUE(json.data() == text && other == Buffer("old"));
        };
        for (const char* absent : {"json,", "key,", "to,"}) {
            if (name.find(absent) != std::string::npos) {
                refuse(document, absent);
            }
        }
        for (const char* top : {document[0] == '[' ? R"({"k":7})" : "[7,8]", "7", "\"k\""}) {
            refuse(top, "");
        }
        EXPECT_EQ(take_log(), LogLines{});
        std::vector<std::string> not_json{"null", " ", "nope", "{'k' 7}"};
        for (std::size_t length = 0; length < document.size(); ++length) {
            not_json.push_back(document.substr(0, length));
        }
        for (const std::string& text : not_json) {
            refuse(text, "");
            EXPECT_EQ(take_log(), name.rfind("set_array", 0) == 0 ? set_array_note : LogLines{});
        }
    }
}

// Whether a double was stored; if so, it must read back.
bool stores(double value) {
    Buffer json(R"({"k":0})");
    if (set_generic_key_json(json.data(), "k", odd(value), 2, 256) == 0) {
        EXPECT_EQ(json, Buffer(R"({"k":0})"));
        return false;
    }
    double back = 0;
    int type = -1;
    EXPECT_EQ(get_generic_key_json(json.data(), "k", &back, 2, 0), 1);
    EXPECT_EQ(std::memcmp(&back, &value, sizeof value), 0) << json.data();
    EXPECT_TRUE(get_json_type(json.data(), "k", &type) == 1 && type == 2) << json.data();
    return true;
}

// In a locale with a decimal comma too, which the suite runs in once more.
TEST_F(JsonHelper, DoublesReadBackEqual) {
    Buffer json("{}");
    EXPECT_EQ(set_generic_key_json(json.data(), "k", odd(2.5), 2, 256), 1);
    EXPECT_STREQ(json.data(), R"({ "k": 2.500000 })");
    for (int exponent = 0; exponent <= 28; ++exponent) {
        const double power = std::pow(10.0, exponent);
        for (const double value : {power, 9 * power, -power, -9 * power}) {
            EXPECT_EQ(stores(value), value > -1e28) << value;
        }
    }
    for (const double value : {-0.0, std::nextafter(1e29, 0), std::nextafter(-1e28, 0)}) {
        EXPECT_TRUE(stores(value)) << value;
    }
    for (const double value : {1e29, -1e28, 1e300, HUGE_VAL, -HUGE_VAL, std::nan("")}) {
        EXPECT_FALSE(stores(value)) << value;
    }
}

template <typename Value>
void expect_read(const char* key, int type, uint32_t size, Value value) {
    constexpr char kDocument[] = R"({"s":"12","i":-5,"b":5000000000})";
    Buffer expected("");
    Buffer dest("");
    std::memcpy(&expected[1], &value, sizeof value);
    EXPECT_EQ(get_generic_key_json(kDocument, key, &dest[1], type, size), 1);
    EXPECT_EQ(dest, expected) << key << " as " << type << ", size " << size;
}

TEST_F(JsonHelper, ReadsIntegersOfEightBytesOrFour) {
    for (const uint32_t size : {0U, 3U, 4U, 7U, 9U, 16U}) {
        expect_read("s", 3, size, int32_t{12});
        expect_read("b", 3, size, INT32_MAX);
        expect_read("i", 2, size, -5.0);
        expect_read("i", 1, size, '\1');
    }
    expect_read("b", 3, 8, int64_t{5000000000});
    EXPECT_EQ(take_log(), LogLines{});
}

TEST_F(JsonHelper, ReadsValuesByTheirOwnType) {
    const LogLines null_pointer{debug_line("get_key_json_int64 failure : NULL argument received")};
    const LogLines not_json{
        error_line("get_key_json_int64 failure:json_tokener_parse returned NULL")};
    const LogLines no_key{
        debug_line("get_key_json_int64 failure:json_object_object_get_ex failed")};
    const LogLines no_int{error_line("get_key_json_int64 :json value received not an integer")};
    const LogLines null_value{debug_line("JSON has key k with null value")};
    const LogLines unknown{debug_line("JSON has key k has unknown json type")};
    const struct {
        const char* json;
        int type;
        int64_t number;
        LogLines number_log;
        json_val record;
        LogLines record_log;
    } cases[] = {
        {R"({"k":null})", 0, 42, no_int, {9.5, 9, "old"}, null_value},
        {R"({"k":true})", 1, 42, no_int, {9.5, 1, "old"}, {}},
        {R"({"k":1.5})", 2, 42, no_int, {1.5, 9, "old"}, {}},
        {R"({"k":-7})", 3, -7, {}, {9.5, -7, "old"}, {}},
        {R"({"k":9223372036854775807})", 3, INT64_MAX, {}, {9.5, INT32_MAX, "old"}, {}},
        {R"({"k":-9223372036854775808})", 3, INT64_MIN, {}, {9.5, INT32_MIN, "old"}, {}},
        {R"({"k":{"a":"/"}})", 4, 42, no_int, {9.5, 9, R"({ "a": "\/" })"}, {}},
        {R"({"k":[1]})", 5, 42, no_int, {9.5, 9, "old"}, unknown},
        {R"({"k":"12\u0000b"})", 6, 42, no_int, {9.5, 9, "12"}, {}},
        {R"({"a":{"k":1}})", -1, 42, no_key, {9.5, 9, "old"}, {}},
        {R"([{"k":1},[]])", -1, 42, no_key, {9.5, 9, "old"}, {}},
        {R"("k")", -1, 42, no_key, {9.5, 9, "old"}, {}},
        {R"({"k":1)", -1, 42, not_json, {9.5, 9, "old"}, {}},
        {"null", -1, 42, not_json, {9.5, 9, "old"}, {}},
        {"", -1, 42, not_json, {9.5, 9, "old"}, {}},
        {nullptr, -1, 42, null_pointer, {9.5, 9, "old"}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.json != nullptr ? c.json : "NULL");
        int type = -1;
        int64_t number = 42;
        json_val record{9.5, 9, "old"};
        json_object* root = c.json != nullptr ? json_tokener_parse(c.json) : nullptr;
        EXPECT_EQ(get_json_type(c.json, "k", &type), c.type >= 0);
        EXPECT_EQ(type, c.type);
        EXPECT_EQ(get_key_json_int64(c.json, "k", &number), c.type >= 0);
        EXPECT_EQ(number, c.number);
        EXPECT_EQ(take_log(), c.number_log);
        EXPECT_EQ(get_json_value(root, "k", &record), std::max(c.type, 0));
        EXPECT_TRUE(record.dbl_val == c.record.dbl_val && record.int_val == c.record.int_val);
        EXPECT_STREQ(record.str_val, c.record.str_val);
        EXPECT_EQ(take_log(), c.record_log);
        EXPECT_EQ(get_json_array_length(c.json), c.json != nullptr && *c.json == '[' ? 2 : 0);
        EXPECT_EQ(get_json_type(c.json, nullptr, &type) + get_json_type(c.json, "k", nullptr), 0);
        EXPECT_EQ(get_json_value(root, nullptr, &record) + get_json_value(root, "k", nullptr), 0);
        EXPECT_EQ(take_log(), LogLines{});
        EXPECT_EQ(get_key_json_int64(c.json, nullptr, &number), 0);
        EXPECT_EQ(get_key_json_int64(c.json, "k", nullptr), 0);
        EXPECT_EQ(take_log(), (LogLines{null_pointer[0], null_pointer[0]}));
        (void)json_object_put(root);
    }
}

TEST_F(JsonHelper, GapThatCannotFitIsRefusedAtOnce) {
    for (const int index : {20000000, 715827883, INT_MAX}) {
        Buffer json("[]");
        const std::clock_t start = std::clock();
        EXPECT_EQ(replace_array_index_json(json.data(), index, "1", 256), 0);
        EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC / 4);
        EXPECT_EQ(take_log(), LogLines{debug_line("data is longer than array length ")});
        EXPECT_EQ(json, Buffer("[]"));
    }
}

TEST_F(JsonHelper, RefusesWhatIsNoDocumentFile) {
    constexpr std::size_t kLimit = 16 * 1024 * 1024;
    Buffer dest("old");
    EXPECT_EQ(get_json_file(file_of("7" + std::string(kLimit - 1, ' ')), dest.data(), 2), 1);
    dest = Buffer("old");
    for (const auto& text : {"7" + std::string(kLimit, ' '), std::string(), std::string("[1")}) {
        EXPECT_EQ(get_json_file(file_of(text), dest.data(), 6), 0) << text.size();
    }
    const std::string fifo = file_of("null") + std::string(".fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);  // keeps what is written
    std::ofstream(fifo) << "1";
    (void)alarm(30);  // a call that hangs ends the program
    for (const char* path : {fifo.c_str(), file_of("null"), "/tmp", "/dev/zero", "/none", ""}) {
        EXPECT_EQ(get_json_file(path, dest.data(), 6), 0) << path;
    }
    (void)alarm(0);
    (void)close(reader);
    (void)unlink(fifo.c_str());
    EXPECT_EQ(get_json_file(nullptr, dest.data(), 6), 0);
    EXPECT_EQ(get_json_file(file_of("1"), nullptr, 6), 0);
    EXPECT_EQ(dest, Buffer("old"));
    EXPECT_EQ(take_log(), LogLines{});
}

}  // namespace
}  // namespace vyn_test
