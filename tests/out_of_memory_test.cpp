// Memory runs out: every allocation that the library asks for fails in turn, alone or with all behind
// it. What json-c and the C library do when they run out of memory inside themselves is theirs, and is
// not tried. Needs GLIBC_TUNABLES=glibc.malloc.tcache_count=0 to count the bytes in use.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <malloc.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <new>
#include <set>
#include <string>
#include <string_view>

#include "json_helper.h"
#include "logger.h"
#include "proto_helper.h"
#include "support/packets.h"
#include "vyn_header.h"

extern "C" void* __libc_malloc(std::size_t size);

namespace {

struct Heap {
    bool armed = false;  // allocations of the library are counted, and fail
    std::size_t count = 0;
    std::size_t fail_at = 0;  // the first is 1; none: 0
    bool all_behind = false;  // the one that fails
} heap;

bool must_fail() {
    if (!heap.armed) {
        return false;
    }
    ++heap.count;
    errno = ENOMEM;
    return heap.count == heap.fail_at || (heap.all_behind && heap.count > heap.fail_at);
}

// Whether an allocation fails, by the code that asked for it: that of the library, or of this program
// where the library's ends in a jump to the allocation.
bool must_fail_for(const void* caller) {
    Dl_info info;
    if (!heap.armed || dladdr(caller, &info) == 0) {
        return false;
    }
    const std::string_view file(info.dli_fname);
    const bool is_ours = file.find("libvyn_proto") != std::string_view::npos ||
                         file.find("vyn_out_of_memory") != std::string_view::npos;
    return is_ours && must_fail();
}

template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// clang-format off
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name,bugprone-macro-parentheses)
#define FAILING(result, name, parameters, arguments, failure)              \
    result name parameters {                                               \
        return must_fail_for(__builtin_return_address(0)) ? failure                \
                                                  : real<decltype(name)>(#name) arguments; \
    }
extern "C" {
FAILING(json_tokener*, json_tokener_new, (), (), nullptr)
FAILING(json_object*, json_object_new_double_s, (double value, const char* text), (value, text), nullptr)
FAILING(json_object*, json_object_new_string, (const char* text), (text), nullptr)
FAILING(const char*, json_object_to_json_string, (json_object* value), (value), nullptr)
#if JSON_C_VERSION_NUM >= ((0 << 16) | (13 << 8))
FAILING(int, json_object_object_add, (json_object* to, const char* key, json_object* value),
        (to, key, value), -1)
FAILING(int, json_object_array_add, (json_object* to, json_object* value), (to, value), -1)
FAILING(int, json_object_array_put_idx, (json_object* to, std::size_t index, json_object* value),
        (to, index, value), -1)
#endif
FAILING(char*, strdup, (const char* text) noexcept, (text), nullptr)
FAILING(char*, strndup, (const char* text, std::size_t length) noexcept, (text, length), nullptr)
// clang-format on
#undef FAILING

// The text of a string is there already.
const char* json_object_get_string(json_object* value) {
    return json_object_is_type(value, json_type_string) == 0 &&
                   must_fail_for(__builtin_return_address(0))
               ? nullptr
               : real<decltype(json_object_get_string)>("json_object_get_string")(value);
}
void* malloc(std::size_t size) {
    return must_fail_for(__builtin_return_address(0)) ? nullptr : __libc_malloc(size);
}
void syslog(int /*priority*/, const char* /*format*/, ...) {}
void __syslog_chk(int /*priority*/, int /*flag*/, const char* /*format*/, ...) {}
}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name,bugprone-macro-parentheses)

void* operator new(std::size_t size) {
    void* block = must_fail() ? nullptr : __libc_malloc(size);
    return block != nullptr ? block : throw std::bad_alloc();
}
void operator delete(void* block) noexcept { free(block); }
void operator delete(void* block, std::size_t /*size*/) noexcept { free(block); }

namespace {

using vyn_test::bytes_of, vyn_test::length_of;

constexpr uint32_t kRoom = 2048;
constexpr char kDoc[] = R"({"t":"text","n":12,"d":2.5,"o":{"a":[1,"b\/"]},"l":[1,null],"b":true})";
constexpr char kArray[] = R"([{"a":"x"},"two",3])";
constexpr char kPackets[] = "\3\x0A\1a\3\x0A\1b";
constexpr char kEnvelope[] = R"({"property_bag":{"error_code":1e},"body":{"a":[1,{"b":"c"}]}})";
constexpr double kReal = 2e7;
constexpr msg_property_bag kBag = {1, 0, 0, "c", "e", "t", "f", ""};

char path[] = "/tmp/vyn_oom_XXXXXX";
const Header header = vyn_test::full_header();
std::string packet = header.SerializeAsString();
const std::string frame = vyn_test::compressed(packet);
msg_hdr hdr;

// All that a call may write.
struct Output {
    template <typename Value>
    Value* to_value() {
        return reinterpret_cast<Value*>(to);
    }
    alignas(8) char json[kRoom];  // a document, to be edited in place
    alignas(8) char to[kRoom];
    uint32_t length;
    uint32_t number;
};

template <typename Code>
long take(Code code) {
    return static_cast<long>(code);
}
long take(char* text) {
    free(text);
    return text != nullptr;
}

// The helper releases the array, unless the document is not JSON; nor is it one without a tokener.
long set_array(Output& o) {
    json_object* array = json_object_get(json_tokener_parse(kArray));
    const int done = set_array_key_json(o.json, "new", array, kRoom);
    while (json_object_put(array) == 0) {
    }
    return done;
}

// Also 1 without memory for the text that is left: 2 here.
long delete_key(Output& o) {
    return del_json_key(kDoc, "t", o.to, kRoom) == 0 ? 0 : o.to[0] != '#' ? 1 : 2;
}

long read_packets(Output& o) {
    uint8_t* bufs[] = {o.to_value<uint8_t>(), nullptr};
    return static_cast<long>(read_proto_msg_from_file(bufs, &o.number, &o.length, path));
}

struct Call {
    const char* name;
    long (*run)(Output& o);
    std::set<long> refusals = {};  // results of a call that wrote nothing
    std::set<long> losses = {};    // of one that left something out; what it wrote is not looked at
    const char* document = kDoc;   // in memory and in the file
};

// clang-format off
#define CALL(function, ...) \
    #function, []([[maybe_unused]] Output& o) -> long { return take(function(__VA_ARGS__)); }
// clang-format on

// Those that only parse are not here: without a tokener a document reads like one that is not JSON.
const Call kCalls[] = {
    {CALL(get_key_json, kDoc, "o", o.to, kRoom), {0}},
    {CALL(set_generic_key_json, o.json, "new", &kReal, VYN_JSON_DOUBLE, kRoom), {0}},
    {CALL(set_key_json, o.json, "new", "[1]", kRoom), {0}},
    {"set_array_key_json", set_array, {0}},
    {"del_json_key", delete_key, {0, 2}},
    {CALL(copy_array_json, kArray, 0, o.to, kRoom), {0}},
    {CALL(array_add_json, R"({"k":1})", o.json, kRoom), {0}, {}, kArray},
    {CALL(replace_array_index_json, o.json, 40, R"("v")", kRoom), {0}, {}, kArray},
    {CALL(get_json_file, path, o.to, kRoom), {0}},
    {CALL(convert_hdr_to_json, &hdr, 0, 0), {0}, {1}},  // without the bag
    {CALL(get_msg_hdr, kEnvelope, o.to_value<msg_hdr>()), {0}},
    {CALL(add_body_to_message, kEnvelope, "b/"), {0}},
    {CALL(get_body_from_message, kEnvelope, o.to, kRoom), {0}},
    {CALL(construct_property_bag, &kBag), {0}},
    {CALL(cnvrt_json_hdr_to_protobuf, kEnvelope, o.to_value<uint8_t>(), kRoom, &o.length),
     {3, 7, 11},
     {9}},
    {CALL(cnvrt_protobuf_to_json_hdr, bytes_of(frame), o.to, length_of(frame), kRoom), {8}},
    {CALL(deser_nd_alter_pkt_st, bytes_of(packet), length_of(packet), o.to_value<uint8_t>(), kRoom,
          &o.length, 3, &o.number),
     {8}},
    {CALL(store_proto_msg_to_file, bytes_of(packet), static_cast<int32_t>(packet.size()), path),
     {7}},
    {"read_proto_msg_from_file", read_packets, {7}, {}, kPackets},
};

// Makes a call and returns its result.
long attempt(const Call& call, std::size_t fail_at, bool all_behind, Output& out) {
    out = {};
    std::memset(out.to, '#', sizeof out.to);
    std::strcpy(out.json, call.document);
    std::ofstream(path) << call.document;
    const Output before = out;
    long code = -1;
    const std::size_t in_use = mallinfo2().uordblks;
    heap = {true, 0, fail_at, all_behind};
    EXPECT_NO_THROW(code = call.run(out));
    heap.armed = false;
    EXPECT_EQ(mallinfo2().uordblks, in_use) << "bytes in use";
    EXPECT_TRUE(call.refusals.count(code) == 0 || std::memcmp(&before, &out, sizeof out) == 0);
    return code;
}

TEST(OutOfMemory, EveryAllocationOfEveryFunction) {
    ASSERT_GE(close(mkstemp(path)), 0);
    ASSERT_EQ(get_msg_hdr(kEnvelope, &hdr), 1);
    for (const Call& call : kCalls) {
        Output out{};
        (void)call.run(out);  // what the libraries set up once
        (void)attempt(call, 0, false, out);
        const std::size_t allocations = heap.count;
        std::set<long> expected = call.refusals;
        expected.insert(call.losses.begin(), call.losses.end());
        std::set<long> results;
        for (std::size_t n = 0; n < 2 * allocations; ++n) {
            SCOPED_TRACE(testing::Message() << call.name << ' ' << n);
            results.insert(attempt(call, n / 2 + 1, n % 2 != 0, out));
        }
        EXPECT_EQ(results, expected) << call.name;
    }
    (void)unlink(path);
}

// What protobuf allocates itself: each allocation fails alone.
TEST(OutOfMemory, TranscodersFailAndAppendNothing) {
    Header message;
    std::string first;  // what protobuf makes once and keeps
    EXPECT_TRUE(ProtoToJson(first, header) && JsonToProto(first, message));
    for (const bool to_json : {true, false}) {
        std::size_t n = 0;
        for (bool done = false; !done;) {
            std::string json = "kept";
            heap = {true, 0, ++n, false};
            done = to_json ? ProtoToJson(json, header) : JsonToProto(R"({"ttl":"2"})", message);
            heap.armed = false;
            EXPECT_TRUE(done || json == "kept") << n;
        }
        EXPECT_GT(n, 50U) << to_json;
    }
}

}  // namespace
