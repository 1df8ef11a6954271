#include "json_helper.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <climits>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "support/log_trap.h"

namespace vyn_test {
namespace {

// The locale that VYN_TEST_LOCALE names, for all tests, as a service of the unit may run in it.
const char* const locale_name = std::getenv("VYN_TEST_LOCALE");
const char* const locale = std::setlocale(LC_ALL, locale_name != nullptr ? locale_name : "C");

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

template <typename Value>
std::string bytes_in(Value value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

// ---- Helpers that copy text ---------------------------------------------------------------------

struct Args {
    char* json;
    const char* key;
    char* to;  // of a helper that edits, the document itself
    uint32_t size;
    int number;  // an index, or a type
    const char* value;
};
enum Pointers { kJson = 1, kKey = 2, kTo = 4, kValue = 8 };

struct Helper {
    int takes;             // which pointers
    std::string too_long;  // its line, or what stands in it between the length and the room
    int (*call)(Args a);
    std::string not_json = {};  // its line about a document that is not JSON
};

const std::string kLonger = " is longer than length ";
const std::string kLongerUnstated = "data is longer than length ";
const Helper get{kJson | kKey | kTo, " is longerthan length ",
                 [](Args a) { return get_key_json(a.json, a.key, a.to, a.size); }};
const Helper get_generic{kJson | kKey | kTo, kLonger, [](Args a) {
                             return get_generic_key_json(a.json, a.key, a.to, a.number, a.size);
                         }};
const Helper set_generic{kJson | kKey | kValue, kLonger, [](Args a) {
                             return set_generic_key_json(a.json, a.key, a.value, a.number, a.size);
                         }};
const Helper set{kJson | kKey | kValue, kLonger,
                 [](Args a) { return set_key_json(a.json, a.key, a.value, a.size); }};
const Helper set_null{kJson | kKey, "set_array_key_json failure : data is longer than length ",
                      [](Args a) { return set_array_key_json(a.json, a.key, nullptr, a.size); },
                      error_line("set_array_key_json failure:json_tokener_parse returned NULL")};
const Helper del{kJson | kKey | kTo, kLongerUnstated,
                 [](Args a) { return del_json_key(a.json, a.key, a.to, a.size); }};
const Helper copy{kJson | kTo, kLongerUnstated,
                  [](Args a) { return copy_array_json(a.json, a.number, a.to, a.size); }};
const Helper add{kJson | kValue, kLongerUnstated,
                 [](Args a) { return array_add_json(a.value, a.json, a.size); }};
const Helper replace{kJson | kValue, "data is longer than array length ", [](Args a) {
                         return replace_array_index_json(a.json, a.number, a.value, a.size);
                     }};
const Helper from_file{kTo, kLonger,
                       [](Args a) { return get_json_file(file_of(a.json), a.to, a.size); }};

constexpr int kNone = 0;
const struct Row {
    const Helper& helper;
    std::string document;
    int number;
    std::string value;
    const char* stored = nullptr;    // none: refused
    const char* rendered = nullptr;  // what has to fit; none: the same
} rows_of_text[] = {
    {get, R"({"k":"\/\"\u00e9\u0000b"})", kNone, "", "/\"\u00e9"},
    {get, R"({"K":{"k":1},"k":null})", kNone, ""},
    {get_generic, R"({"k":"[\"/"})", VYN_JSON_STRING, "", "[\"/"},
    {get_generic, R"({"k":[]})", VYN_JSON_ARRAY, ""},
    {set_generic, R"({"k":1,"b":[]})", VYN_JSON_BOOLEAN, bytes_in(INT_MIN),
     R"({ "k": true, "b": [ ] })"},
    {set_generic, "{}", VYN_JSON_BOOLEAN, bytes_in(0), R"({ "k": false })"},
    {set_generic, "{}", VYN_JSON_DOUBLE, bytes_in(0.1), R"({ "k": 0.100000 })"},
    {set_generic, "{}", VYN_JSON_DOUBLE, bytes_in(-0.0), R"({ "k": -0.000000 })"},
    {set_generic, "{}", VYN_JSON_STRING, "[1]\n\"/", R"({ "k": "[1]\n\"\/" })"},
    {set_generic, "{}", VYN_JSON_ARRAY, "[]"},
    {set, R"({"a":1})", kNone, R"([1],"z":["/"])", R"({ "a": 1, "k": [1],"z":["/"] })",
     R"({ "a": 1, "k": "[1],\"z\":[\"\/\"]" })"},
    {set, "{}", kNone, R"({"x":"]"})", R"({ "k": {"x":"]} })", R"({ "k": "{\"x\":\"]\"}" })"},
    {set, "{}", kNone, "\"[", R"({ "k": "[" })", R"({ "k": "\"[" })"},
    {set, "{}", kNone, "]\"", R"({ "k": "]" })", R"({ "k": "]\"" })"},
    {set, "{}", kNone, "hi\"\\\t", R"({ "k": "hi"t" })", R"({ "k": "hi\"\\\t" })"},
    {set_null, R"({"k":1,"a":"{\/"})", kNone, "", R"({ "k": null, "a": "{\/" })"},
    {del, R"({"a":"{}","k":1})", kNone, "", R"({ "a": {} })", R"({ "a": "{}" })"},
    {copy, R"(["\"[]\"\\"])", 0, "", "[]", R"("[]"\)"},
    {copy, "[0]", 1, ""},
    {copy, "[0]", -1, ""},
    {add, "[0]", kNone, "\"/\"", R"([ 0, "/" ])", R"([ 0, "\/" ])"},
    {add, "[0]", kNone, "null"},
    {replace, R"([1,"\n"])", 0, "[2]", R"([ [ 2 ], "n" ])", R"([ [ 2 ], "\n" ])"},
    {replace, "[]", 7, "1", "[ null, null, null, null, null, null, null, 1 ]"},
    {replace, "[0]", -1, "1"},
    {replace, "[0]", 0, "null"},
    {from_file, R"({"a":"[\"/\"]"})", kNone, "", R"({ "a": ["/"] })", R"({ "a": "[\"\/\"]" })"},
    {from_file, R"("[x\"\u0000y")", kNone, "", "[x\""},
};

std::string too_long(const std::string& line, std::size_t length, uint32_t size) {
    return debug_line(line[0] != ' ' ? line
                                     : "data " + std::to_string(length) + line +
                                           std::to_string(int64_t{size} - 1));
}

TEST_F(JsonHelper, TextIsCopiedWholeOrNotAtAll) {
    for (const Row& row : rows_of_text) {
        const std::string rendered = row.rendered ? row.rendered : row.stored ? row.stored : "";
        const auto length = static_cast<uint32_t>(rendered.size());
        for (const uint32_t size : {0U, length, length + 1}) {
            SCOPED_TRACE(testing::Message() << (&row - rows_of_text) << " of size " << size);
            Buffer document(row.document);
            Buffer other("old");
            Buffer& dest = (row.helper.takes & kTo) == 0 ? document : other;
            const Buffer before = dest;
            const std::string value = "#" + row.value;  // whose address is odd
            const bool fits = size > length;
            const bool done = fits && row.stored != nullptr;
            EXPECT_EQ(row.helper.call(
                          {document.data(), "k", dest.data(), size, row.number, value.c_str() + 1}),
                      done);
            EXPECT_EQ(take_log(), fits || row.stored == nullptr
                                      ? LogLines{}
                                      : LogLines{too_long(row.helper.too_long, length, size)});
            EXPECT_STREQ(dest.data(), done ? row.stored : before.data());
        }
    }
}

TEST_F(JsonHelper, RefusesNullPointersAndOtherDocuments) {
    for (const Row& row : rows_of_text) {
        const auto refuse = [&row](std::string document, int absent) {
            SCOPED_TRACE(testing::Message()
                         << (&row - rows_of_text) << " on " << document << absent);
            Buffer other("old");
            const auto given = [absent](int pointer, auto* address) {
                return absent == pointer ? nullptr : address;
            };
            const std::string before = document;
            EXPECT_EQ(row.helper.call({given(kJson, document.data()), given(kKey, "k"),
                                       given(kTo, other.data()), 256, row.number,
                                       given(kValue, row.value.c_str())}),
                      0);
            EXPECT_TRUE(document == before && other == Buffer("old"));
        };
        for (const int pointer : {kJson, kKey, kTo, kValue}) {
            if ((row.helper.takes & pointer) != 0) {
                refuse(row.document, pointer);
            }
        }
        if ((row.helper.takes & kJson) == 0) {
            continue;
        }
        for (const char* top : {row.document[0] == '[' ? R"({"k":7})" : "[7,8]", "7", "\"k\""}) {
            refuse(top, kNone);
        }
        EXPECT_EQ(take_log(), LogLines{});
        const std::string& line = row.helper.not_json;
        for (const char* text : {"null", " ", "{'k' 7}", "{\"k\":7", "[1", "\"\\u00"}) {
            refuse(text, kNone);
            EXPECT_EQ(take_log(), line.empty() ? LogLines{} : LogLines{line});
        }
    }
}

// ---- Values -------------------------------------------------------------------------------------

// Whether a double was stored; if so, it must read back.
bool stores(double value) {
    Buffer json(R"({"k":0})");
    if (set_generic_key_json(json.data(), "k", &value, VYN_JSON_DOUBLE, 256) == 0) {
        EXPECT_EQ(json, Buffer(R"({"k":0})"));
        return false;
    }
    double back = 0;
    int type = -1;
    EXPECT_EQ(get_generic_key_json(json.data(), "k", &back, VYN_JSON_DOUBLE, 0), 1);
    EXPECT_EQ(std::memcmp(&back, &value, sizeof value), 0) << json.data();
    EXPECT_TRUE(get_json_type(json.data(), "k", &type) == 1 && type == 2) << json.data();
    EXPECT_EQ(std::strstr(json.data(), ". "), nullptr) << json.data();  // digits behind the point
    return true;
}

TEST_F(JsonHelper, DoublesReadBackEqual) {
    ASSERT_NE(locale, nullptr) << locale_name;
    for (int exponent = 0; exponent <= 28; ++exponent) {
        const double power = std::pow(10.0, exponent);
        for (const double value : {power, 9 * power, -power, -9 * power}) {
            EXPECT_EQ(stores(value), value > -1e28) << value;
        }
    }
    for (const double value : {-0.0, std::nextafter(1e29, 0), std::nextafter(-1e28, 0)}) {
        EXPECT_TRUE(stores(value)) << value;
    }
    for (const double value : {1e29, -1e28, HUGE_VAL, -HUGE_VAL, std::nan("")}) {
        EXPECT_FALSE(stores(value)) << value;
    }
}

TEST_F(JsonHelper, ReadersRefuseNullPointersAndOtherTexts) {
    int type = 0;
    int64_t number = 0;
    json_val value{};
    json_object* root = json_tokener_parse(R"({"k":1})");
    EXPECT_EQ(get_json_value(root, nullptr, &value) + get_json_value(root, "k", nullptr), 0);
    (void)json_object_put(root);
    EXPECT_EQ(get_json_type("{}", nullptr, &type) + get_json_type(R"({"k":1})", "k", nullptr), 0);
    EXPECT_EQ(get_json_file(nullptr, nullptr, 6) + write_to_file(nullptr, "{}"), 0);
    EXPECT_EQ(take_log(), LogLines{});
    EXPECT_EQ(get_key_json_int64("{}", nullptr, &number), 0);
    EXPECT_EQ(get_key_json_int64(R"({"k":1})", "k", nullptr), 0);
    EXPECT_EQ(take_log(),
              LogLines(2, debug_line("get_key_json_int64 failure : NULL argument received")));
    EXPECT_EQ(get_key_json_int64("null", "k", &number), 0);
    EXPECT_EQ(take_log(),
              LogLines{error_line("get_key_json_int64 failure:json_tokener_parse returned NULL")});
}

TEST_F(JsonHelper, RefusesWhatIsNoDocumentFile) {
    const std::size_t limit = std::size_t{16} * 1024 * 1024;
    Buffer dest("old");
    EXPECT_EQ(get_json_file(file_of("7" + std::string(limit, ' ')), dest.data(), 6), 0);
    const std::string fifo = file_of("[1") + std::string(".fifo");
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    const int reader = open(fifo.c_str(), O_RDONLY | O_NONBLOCK);  // keeps what is written
    std::ofstream(fifo) << "1";
    (void)alarm(30);  // a call that hangs ends the program
    for (const char* path : {fifo.c_str(), file_of("[1"), "/tmp", "/dev/zero", "/none"}) {
        EXPECT_EQ(get_json_file(path, dest.data(), 6), 0) << path;
    }
    (void)alarm(0);
    (void)close(reader);
    (void)unlink(fifo.c_str());
    EXPECT_EQ(dest, Buffer("old"));
    EXPECT_EQ(take_log(), LogLines{});
    EXPECT_EQ(get_json_file(file_of("7" + std::string(limit - 1, ' ')), dest.data(), 2), 1);
}

}  // namespace
}  // namespace vyn_test
