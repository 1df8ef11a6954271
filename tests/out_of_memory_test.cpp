// Every allocation of every exported function fails in turn, alone or with all behind it, in a child
// process each time. What json-c, protobuf and the C library then do inside themselves is counted
// as theirs, and not held against us.
#include <dlfcn.h>
#include <execinfo.h>
#include <gtest/gtest.h>
#include <json-c/json.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "json_helper.h"
#include "logger.h"
#include "proto_helper.h"
#include "support/packets.h"
#include "vyn_header.h"

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);
}

namespace {

bool has(std::string_view text, const char* word) {
    return text.find(word) != std::string_view::npos;
}

// The innermost code that is not the C or C++ runtime's or this program's, the outermost function
// of other libraries that ours had called, and where.
struct Place {
    std::string_view library;
    const char* function = "";
    std::string_view entry;
    const void* site = nullptr;
};

Place here() {
    void* frames[64];
    const int depth = backtrace(frames, 64);
    Place place;
    for (int i = 0; i < depth && place.site == nullptr; ++i) {
        Dl_info info;
        const bool known = dladdr(frames[i], &info) != 0;
        const std::string_view library(known ? info.dli_fname : "");
        if (!has(library, ".so") || has(library, "/libc.so") || has(library, "libstdc++") ||
            has(library, "libgcc_s")) {
            continue;
        }
        const char* function = info.dli_sname != nullptr ? info.dli_sname : "?";
        if (place.library.empty()) {
            place.library = library.substr(library.rfind('/') + 1);
            place.function = function;
        }
        if (has(library, "libvyn")) {
            place.site = frames[i];
        } else {
            place.entry = function;
        }
    }
    return place;
}

struct Block {
    const void* address;
    const void* site;
};
struct Heap {
    bool tracking;     // counts, fails and keeps a list
    bool all_behind;   // the one that fails
    bool with_places;  // slow
    std::size_t fail_at;
    std::size_t count;
    Place failed;
    std::size_t live;
    Block blocks[4096];
} heap;

bool must_fail() {
    if (!heap.tracking) {
        return false;
    }
    ++heap.count;
    if (heap.count == heap.fail_at) {
        heap.failed = here();
    }
    errno = ENOMEM;
    return heap.count == heap.fail_at || (heap.all_behind && heap.count > heap.fail_at);
}

void* keep(void* block) {
    if (heap.tracking && block != nullptr && heap.live < std::size(heap.blocks)) {
        heap.blocks[heap.live++] = {block, heap.with_places ? here().site : nullptr};
    }
    return block;
}

void forget(const void* block) {
    Block* end = heap.blocks + heap.live;
    Block* at = std::find_if(heap.blocks, end, [&](auto& each) { return each.address == block; });
    if (at != end) {
        *at = heap.blocks[--heap.live];
    }
}

}  // namespace

extern "C" {
void* malloc(std::size_t size) { return must_fail() ? nullptr : keep(__libc_malloc(size)); }
void* calloc(std::size_t nmemb, std::size_t size) {
    return must_fail() ? nullptr : keep(__libc_calloc(nmemb, size));
}
void* realloc(void* ptr, std::size_t size) {
    if (must_fail()) {
        return nullptr;
    }
    forget(ptr);
    return keep(__libc_realloc(ptr, size));
}
void free(void* ptr) {
    forget(ptr);
    __libc_free(ptr);
}
void syslog(int /*pri*/, const char* /*fmt*/, ...) {}
void __syslog_chk(int /*pri*/, int /*flag*/, const char* /*fmt*/, ...) {}
}

namespace {

using vyn_test::bytes_of, vyn_test::length_of;

constexpr uint32_t kRoom = 2048;
constexpr char kDoc[] = R"({"t":"text","n":12,"d":2.5,"o":{"a":[1,"b\/"]},"l":[1,null],"b":true})";
constexpr char kArray[] = R"([{"a":"x"},"two",3])";
constexpr char kEnvelope[] =
    R"({"system_id":"s","message_id":"m","correlation_id":"c","version":3,"sub_system_id":1,)"
    R"("device_id":"d","target_id":"t","message_type":32773,"time":1,"ttl":2,)"
    R"("property_bag":{"error_code":1,"checksum":"c"},"body":"QUJD"})";
constexpr char kOddEnvelope[] = R"({"property_bag":{"error_code":1e},"body":{"a":[1,{"b":"c"}]}})";
constexpr double kReal = 2e7;
constexpr msg_property_bag kBag = {1, 0, 0, "c", "e", "t", "f", ""};

char written_path[] = "/tmp/vyn_oom_XXXXXX";
char packets_path[] = "/tmp/vyn_oom_XXXXXX";
Header header;
const std::string envelope = kEnvelope;
std::string packet, frame;
msg_hdr record;

// One reference is ours; of the one that set_array_key_json() is given it may have left us with.
struct TreeRelease {
    void operator()(json_object* tree) const {
        while (json_object_put(tree) == 0) {
        }
    }
};

// All that a call may write.
struct Output {
    explicit Output(std::string_view document) {
        std::memset(json, '#', sizeof json);
        std::memset(to, '#', sizeof to);
        json[document.copy(json, sizeof json - 1)] = '\0';
        std::ofstream(written_path) << R"({"old":[1,2]})";
        std::ofstream(packets_path) << "\3\x0A\1a\3\x0A\1b";
    }
    long take(char* text) {
        made.reset(text);
        return text != nullptr;
    }
    template <typename Code>
    static long take(Code code) {
        return static_cast<long>(code);
    }
    template <typename Value>
    Value* to_value() {
        return reinterpret_cast<Value*>(to);
    }
    [[nodiscard]] std::string all() const {
        std::string bytes(json, sizeof json);
        bytes.append(to, sizeof to).append(made != nullptr ? made.get() : "#");
        bytes += std::to_string(length) + ' ' + std::to_string(number);
        for (const char* path : {written_path, packets_path}) {
            std::ifstream file(path);
            bytes.append(std::istreambuf_iterator<char>(file), {}).append(1, '|');
        }
        return bytes;
    }

    alignas(8) char json[kRoom];  // a document, to be edited in place
    alignas(8) char to[kRoom];
    uint32_t length = 0;
    uint32_t number = 0;
    std::unique_ptr<char, decltype(&free)> made{nullptr, free};
    std::unique_ptr<json_object, TreeRelease> tree{json_tokener_parse(kDoc)};
};

long value_of_tree(Output& o) {
    json_val value{};
    const int type = get_json_value(o.tree.get(), "o", &value);
    return type == VYN_JSON_OBJECT && value.str_val == nullptr ? VYN_JSON_NULL : type;
}

// Says 1 also when it had no memory for the text without the key: 2 here.
long delete_key(Output& o) {
    return del_json_key(kDoc, "t", o.to, kRoom) == 0 ? 0 : o.to[0] != '#' ? 1 : 2;
}

// Leaves out the bag and the time to live that there is no memory for.
long whole_envelope(Output& o) {
    const auto has_key = [&](const char* key) { return std::strstr(o.made.get(), key) != nullptr; };
    return o.take(convert_hdr_to_json(&record, 0, 0)) != 0 && has_key("\"ttl\"") &&
           has_key("\"property_bag\"");
}

// A record that there is no memory for ends the reading: 20 and the number of records.
long read_packets(Output& o) {
    uint8_t* bufs[] = {o.to_value<uint8_t>(), o.to_value<uint8_t>() + 100, nullptr};
    uint32_t lens[2];
    const uint32_t code = read_proto_msg_from_file(bufs, &o.number, lens, packets_path);
    return code == VYN_OK ? 20 + static_cast<long>(o.number) : static_cast<long>(code);
}

long to_json(Output& o) {
    std::string json = "#";  // what o.to holds already
    const bool good = ProtoToJson(json, header);
    (void)json.copy(o.to, sizeof o.to);
    o.length = length_of(json) - 1;
    return good;
}

long from_json(Output& o) {
    Header message;
    return JsonToProto(envelope, message) && message.SerializeToArray(o.to, kRoom);
}

long ids_and_log(Output& o) {
    get_new_message_uuid(o.to, MSG_UUID_SIZE);
    const bool good = std::strlen(o.to) == 36 && get_new_message_id() != 0 &&
                      get_current_message_id() != 0 && generate_unique_trans_id() != 0 &&
                      log_file_init("calls", 0, LOG_LEVEL_INFO) == 1 &&
                      get_current_timestamp_() > combine_msg_type_encoding_type(1, 2) &&
                      is_param_not_empty(o.to) == 1;
    std::memset(o.to, '#', MSG_UUID_SIZE);  // never the same twice
    update_log_level(LOG_LEVEL_DEBUG);
    LOG(LOG_LEVEL_ERROR, "%s %u", kDoc, get_log_level());
    notify_IVI_(kDoc, 1);
    log_file_cleanup();
    return good;
}

template <int... Number>
constexpr uint32_t kBits = (0U | ... | (1U << Number));

struct Call {
    const char* names;  // of the functions, with blanks between
    long (*run)(Output& o);
    // Bits of the results that may tell of memory that ran out; and those of them that outputs are
    // undefined after, or written for. Where the contract lets a function go on without a part,
    // that counts as its failure here.
    uint32_t failures = 1;
    uint32_t loose = 0;
    const char* document = kDoc;
    uint32_t certain = 0;  // those that come up
};

// clang-format off
#define CALL(function, ...) \
    #function, []([[maybe_unused]] Output& o) -> long { return o.take(function(__VA_ARGS__)); }
// clang-format on

const Call kCalls[] = {
    {CALL(get_key_json, kDoc, "o", o.to, kRoom)},
    {CALL(get_generic_key_json, kDoc, "o", o.to, VYN_JSON_STRING, kRoom)},
    {CALL(get_key_json_int64, kDoc, "n", o.to_value<int64_t>())},
    {CALL(get_json_type, kDoc, "d", o.to_value<int>())},
    {"get_json_value", value_of_tree},
    {CALL(set_generic_key_json, o.json, "new", &kReal, VYN_JSON_DOUBLE, kRoom)},
    {CALL(set_key_json, o.json, "new", "[1]", kRoom)},
    {CALL(set_array_key_json, o.json, "new", json_object_get(o.tree.get()), kRoom)},
    {"del_json_key", delete_key, kBits<0, 2>, 0, kDoc, kBits<2>},
    {CALL(get_json_array_length, kArray)},
    {CALL(copy_array_json, kArray, 0, o.to, kRoom)},
    {CALL(array_add_json, R"({"k":1})", o.json, kRoom), 1, 0, kArray},
    {CALL(replace_array_index_json, o.json, 40, R"("v")", kRoom), 1, 0, kArray},
    {CALL(get_json_file, written_path, o.to, kRoom)},
    {CALL(write_to_file, written_path, kArray), 1, 1},
    {CALL(write_to_file_using_fop, written_path, kDoc, sizeof kDoc), 1, 1},
    {CALL(write_to_file_using_mmap_atomic, written_path, kDoc, sizeof kDoc)},
    {CALL(fsync_parent_dir, written_path), 0},
    {"convert_hdr_to_json", whole_envelope, 1, 1},
    {CALL(get_msg_hdr, kEnvelope, o.to_value<msg_hdr>())},
    {CALL(add_body_to_message, kEnvelope, "b/")},
    {CALL(get_body_from_message, kOddEnvelope, o.to, kRoom)},
    {CALL(construct_property_bag, &kBag)},
    {CALL(cnvrt_hdr_to_protobuf, &record, o.to_value<uint8_t>(), kRoom, &o.length, bytes_of(packet),
          length_of(packet)),
     kBits<7, 9>, kBits<7>},
    {CALL(cnvrt_json_hdr_to_protobuf, kEnvelope, o.to_value<uint8_t>(), kRoom, &o.length),
     kBits<3, 7, 9, 11>, kBits<7, 9, 11>},
    {CALL(cnvrt_json_hdr_to_protobuf, kOddEnvelope, o.to_value<uint8_t>(), kRoom, &o.length),
     kBits<3, 7, 9, 11>, kBits<7, 9, 11>},
    {CALL(cnvrt_protobuf_to_json_hdr, bytes_of(frame), o.to, length_of(frame), kRoom),
     kBits<6, 8, 13>},
    {CALL(deser_nd_alter_pkt_st, bytes_of(packet), length_of(packet), o.to_value<uint8_t>(), kRoom,
          &o.length, 3, &o.number),
     kBits<8>},
    {CALL(store_proto_msg_to_file, bytes_of(packet), static_cast<int32_t>(packet.size()),
          packets_path),
     kBits<7>},
    {"read_proto_msg_from_file", read_packets, kBits<7, 20, 21>, kBits<7, 20, 21>},
    {"ProtoToJson", to_json},
    {"JsonToProto", from_json, 1, 1},
    {CALL(find_key_regex, "some text", "t[e]*xt")},
    {CALL(compare_config_data_values, "n", "t|n|text")},
    {CALL(calculate_checksum, bytes_of(packet), length_of(packet), o.json, kRoom)},
    {CALL(memscpy, o.to, kRoom, kDoc, sizeof kDoc)},
    {"LOG combine_msg_type_encoding_type generate_unique_trans_id get_current_message_id "
     "get_current_timestamp_ get_log_level get_new_message_id get_new_message_uuid "
     "is_param_not_empty log_file_cleanup log_file_init notify_IVI_ update_log_level",
     ids_and_log},
};

// A call, and all that it gave.
struct Attempt {
    explicit Attempt(const Call& tried) : call(tried), out(tried.document) {}
    void make() {
        heap.count = heap.live = 0;
        heap.tracking = true;
        code = call.run(out);
        heap.tracking = false;
    }

    const Call& call;
    Output out;
    long code = 0;
};

struct Verdict {
    const char* problem;  // null: none
    bool ours;
    char library[64];
    uint32_t codes;  // all that a call gave
} * verdict;

void blame(const char* problem, bool ours, const Place& place) {
    *verdict = {problem, ours, "", verdict->codes};
    const std::string_view library = ours || !has(place.library, "libvyn") ? place.library : "libc";
    (void)library.copy(verdict->library, sizeof verdict->library - 1);
}

void crashed(int /*signal*/) {
    heap.tracking = false;
    const Place place = here();
    blame("crash", place.library.empty() || has(place.library, "libvyn"), place);
    _exit(0);
}

// json-c says nothing of a member that it could not parse, nor of a text that did not grow.
bool silent(const Place& place) {
    return place.entry == "json_tokener_parse_ex" ||
           (has(place.entry, "json_object_to_") &&
            std::strcmp(place.function, "printbuf_new") != 0);
}

void judge(const Call& call, long good, const std::string& written) {
    Attempt run(call);
    const std::string before = run.out.all();
    try {
        run.make();
    } catch (...) {
        return blame("exception", true, heap.failed);
    }
    verdict->codes |= 1U << run.code;
    const auto is_among = [&run](uint32_t codes) { return (codes >> run.code & 1) != 0; };
    const std::string after = run.out.all();
    if (run.code == good ? after != written : !is_among(call.failures)) {
        blame("wrong result", !silent(heap.failed), heap.failed);
    } else if (run.code != good && !is_among(call.loose) && after != before) {
        blame("output of a failure", true, heap.failed);
    }
    run.out.made.reset();
    // What the call that failed allocated itself, in another library, it has lost itself.
    const bool ours = std::any_of(heap.blocks, heap.blocks + heap.live,
                                  [](auto& each) { return each.site != heap.failed.site; });
    if (verdict->problem == nullptr && heap.live > 0) {
        blame("leak", ours, heap.failed);
    }
}

void in_child(const Call& call, long good, const std::string& written) {
    *verdict = {nullptr, false, "", verdict->codes};
    if (fork() == 0) {
        for (const int number : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL}) {
            (void)signal(number, crashed);
        }
        (void)alarm(10);
        judge(call, good, written);
        _exit(0);
    }
    int status = 0;
    (void)wait(&status);
    if (status != 0) {
        blame("end", true, {});
    }
}

TEST(OutOfMemory, EveryAllocationOfEveryFunction) {
    ASSERT_GE(close(mkstemp(written_path)), 0);
    ASSERT_GE(close(mkstemp(packets_path)), 0);
    header = vyn_test::full_header();
    header.clear_ttl();  // left out of the JSON, when it cannot be made
    packet = header.SerializeAsString();
    frame = vyn_test::compressed(packet);
    ASSERT_EQ(get_msg_hdr(kEnvelope, &record), 1);
    verdict = static_cast<Verdict*>(
        mmap(nullptr, sizeof(Verdict), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(verdict, MAP_FAILED);
    (void)here();  // what it sets up once
    std::string covered = " ";
    for (const Call& call : kCalls) {
        covered += std::string(call.names) + ' ';
        Attempt(call).make();  // what the libraries set up once
        Attempt good(call);
        good.make();
        const std::string written = good.out.all();
        std::map<std::string, int> seen;
        const std::size_t count = heap.count;
        for (std::size_t n = 0; n < 2 * count; ++n) {
            heap.fail_at = n / 2 + 1;
            heap.all_behind = n % 2 != 0;
            heap.with_places = false;
            in_child(call, good.code, written);
            if (verdict->problem != nullptr && verdict->ours) {
                heap.with_places = true;  // a leak's
                in_child(call, good.code, written);
            }
            if (verdict->problem != nullptr) {
                ++seen[verdict->problem + (" in " + std::string(verdict->library))];
                EXPECT_FALSE(verdict->ours)
                    << call.names << ": " << verdict->problem << " when allocation " << n / 2 + 1
                    << (heap.all_behind ? " and all behind it fail" : " fails");
            }
        }
        EXPECT_EQ(verdict->codes & call.certain, call.certain) << call.names;
        verdict->codes = 0;
        heap.fail_at = 0;
        heap.all_behind = false;
        printf("%-32.32s %3zu allocations", call.names, count);
        for (const auto& [what, times] : seen) {
            printf("  %d %s", times, what.c_str());
        }
        printf("\n");
    }
    std::ifstream exports(VYN_EXPORTS);
    for (std::string name; exports >> name;) {
        EXPECT_NE(covered.find(' ' + name + ' '), std::string::npos) << name;
    }
    (void)unlink(written_path);
    (void)unlink(packets_path);
}

}  // namespace
