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
#include <fstream>
#include <iterator>
#include <map>
#include <string>

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

constexpr uint32_t kSize = 2048;
constexpr char kDoc[] = R"({"t":"text","n":12,"d":2.5,"o":{"a":[1,"b"]},"l":[1]})";
constexpr char kArray[] = R"([{"a":"x"},"two",3])";
constexpr char kEnvelope[] =
    R"({"system_id":"s","message_id":"m","correlation_id":"c","version":3,"sub_system_id":1,)"
    R"("device_id":"d","target_id":"t","message_type":32773,"time":1,"ttl":2,)"
    R"("property_bag":{"error_code":1},"body":"AAAA"})";
char path[] = "/tmp/vyn_oom_XXXXXX";
char records[] = "/tmp/vyn_oom_XXXXXX";
const Header header = vyn_test::full_header();
std::string packet, received, json_text;
msg_hdr record;
constexpr double kBig = 1e10;
const msg_property_bag bag = {1, 2, 3, "c", "e", "t", "f", "a"};

// All that a call may write, and the text that it returned as new.
struct Output {
    char object[kSize];
    char array[kSize];
    char file[kSize];
    uint32_t number;
    char* text;
};

long result(Output& out, char* text) {
    out.text = text;
    return text != nullptr;
}
long result(Output& /*out*/, int code) { return code; }
long result(Output& /*out*/, uint32_t code) { return code; }

json_object* parsed(const char* text) {
    heap.tracking = false;
    json_object* tree = json_tokener_parse(text);
    heap.tracking = true;
    return tree;
}
uint8_t* bytes(char* text) { return reinterpret_cast<uint8_t*>(text); }

struct Call {
    std::string names;
    uint32_t failures;  // bits of the codes that may tell of memory that ran out
    uint32_t loose;     // those that outputs are undefined after, or written for
    long (*run)(Output& out);
};

#define CALL(failures, loose, function, ...)                                        \
    {                                                                               \
#function, failures, loose,                                                 \
            [](Output & out) -> long { return result(out, function(__VA_ARGS__)); } \
    }

// Where the contract lets a function go on without a part, that counts as its failure here.
const Call kCalls[] = {
    CALL(1, 0, get_key_json, kDoc, "o", out.object, kSize),
    CALL(1, 0, get_generic_key_json, kDoc, "o", out.object, VYN_JSON_STRING, kSize),
    CALL(1, 0, get_key_json_int64, kDoc, "n", reinterpret_cast<int64_t*>(out.object)),
    CALL(1, 0, get_json_type, kDoc, "d", reinterpret_cast<int*>(out.object)),
    {"get_json_value", 1, 0,
     [](Output& out) -> long {
         json_object* tree = parsed(kDoc);
         json_val value{};
         const int type = get_json_value(tree, "o", &value);
         const bool got = type == VYN_JSON_OBJECT && value.str_val != nullptr;
         std::strcpy(out.object, got ? value.str_val : out.object);
         json_object_put(tree);
         return got;
     }},
    CALL(1, 0, set_generic_key_json, out.object, "new", &kBig, VYN_JSON_DOUBLE, kSize),
    CALL(1, 0, set_key_json, out.object, "new", "[1]", kSize),
    CALL(1, 0, set_array_key_json, out.object, "new", parsed("[1]"), kSize),
    {"del_json_key", 1, 0,
     [](Output& out) -> long {
         return del_json_key(kDoc, "t", out.object, kSize) == 1 && !has(out.object, "text");
     }},
    CALL(1, 0, get_json_array_length, kArray),
    CALL(1, 0, copy_array_json, kArray, 0, out.object, kSize),
    CALL(1, 0, array_add_json, R"({"k":1})", out.array, kSize),
    CALL(1, 0, replace_array_index_json, out.array, 40, R"("v")", kSize),
    CALL(1, 0, get_json_file, path, out.object, kSize),
    CALL(1, 1, write_to_file, path, kArray),
    CALL(1, 1, write_to_file_using_fop, path, "new", 3),
    CALL(1, 0, write_to_file_using_mmap_atomic, path, "new", 3),
    CALL(0, 0, fsync_parent_dir, path),
    {"convert_hdr_to_json", 1, 1,
     [](Output& out) -> long {
         out.text = convert_hdr_to_json(&record, 0, 0);
         return out.text != nullptr && has(out.text, "ttl") && has(out.text, "error_code");
     }},
    CALL(1, 0, get_msg_hdr, kEnvelope, reinterpret_cast<msg_hdr*>(out.object)),
    CALL(1, 0, add_body_to_message, kEnvelope, "b/"),
    CALL(1, 0, get_body_from_message, R"({"body":{"a":[1]}})", out.object, kSize),
    CALL(1, 0, construct_property_bag, &bag),
    CALL(1 << 7 | 1 << 9, 1 << 7, cnvrt_hdr_to_protobuf, &record, bytes(out.object), kSize,
         &out.number, bytes(packet.data()), 20),
    CALL(1 << 3 | 1 << 7 | 1 << 9 | 1 << 11, 1 << 7 | 1 << 9 | 1 << 11, cnvrt_json_hdr_to_protobuf,
         kEnvelope, bytes(out.object), kSize, &out.number),
    CALL(1 << 5 | 1 << 6 | 1 << 8 | 1 << 13, 0, cnvrt_protobuf_to_json_hdr, bytes(received.data()),
         out.object, vyn_test::length_of(received), kSize),
    CALL(1 << 7 | 1 << 8, 1 << 7, deser_nd_alter_pkt_st, bytes(packet.data()),
         vyn_test::length_of(packet), bytes(out.object), kSize, &out.number, 3,
         reinterpret_cast<uint32_t*>(out.array)),
    CALL(1 << 7, 0, store_proto_msg_to_file, bytes(packet.data()),
         static_cast<int32_t>(packet.size()), path),
    {"read_proto_msg_from_file", 1 << 7, 1 << 7,
     [](Output& out) -> long {
         uint8_t* bufs[] = {bytes(out.object), bytes(out.array), nullptr};
         uint32_t lens[2];
         const uint32_t code = read_proto_msg_from_file(bufs, &out.number, lens, records);
         return out.number == 2 ? code : 7;
     }},
    {"ProtoToJson", 1, 0,
     [](Output& out) -> long {
         std::string json(kDoc, 8);
         const bool good = ProtoToJson(json, header);
         std::memcpy(out.object, json.data(), json.size());
         return good;
     }},
    {"JsonToProto", 1, 1,
     [](Output& out) -> long {
         Header message;
         const bool good = JsonToProto(json_text, message);
         return good && message.SerializeToArray(out.object, kSize);
     }},
    CALL(1, 0, find_key_regex, "some text", "t[e]*xt"),
    {"LOG calculate_checksum combine_msg_type_encoding_type compare_config_data_values "
     "generate_unique_trans_id get_current_message_id get_current_timestamp_ get_log_level "
     "get_new_message_id get_new_message_uuid is_param_not_empty log_file_cleanup log_file_init "
     "memscpy notify_IVI_ update_log_level",
     0, 0,
     [](Output& out) -> long {
         const uint32_t id = generate_unique_trans_id();
         char uuid[MSG_UUID_SIZE];
         get_new_message_uuid(uuid, sizeof uuid);
         notify_IVI_("message", log_file_init("test", 0, LOG_LEVEL_INFO));
         update_log_level(get_log_level());
         log_file_cleanup();
         return is_param_not_empty(uuid) + compare_config_data_values("a", "b|a") +
                (get_new_message_id() == get_current_message_id()) +
                (generate_unique_trans_id() > id ? 1 : 0) +
                (get_current_timestamp_() > combine_msg_type_encoding_type(1, 2)) +
                (memscpy(out.file, kSize, "x", 1) ==
                 calculate_checksum(bytes(uuid), 0, out.array, kSize));
     }},
};

Output fresh() {
    Output out{};
    std::strcpy(out.object, kDoc);
    std::strcpy(out.array, kArray);
    std::strcpy(out.file, kDoc);
    return out;
}

bool same(const Output& one, const Output& other) {
    return std::memcmp(&one, &other, offsetof(Output, text)) == 0 &&
           std::string(one.text != nullptr ? one.text : "-") ==
               (other.text != nullptr ? other.text : "-");
}

struct Verdict {
    const char* problem;  // null: none
    bool ours;
    char library[64];
} * verdict;

void blame(const char* problem, bool ours, const Place& place) {
    *verdict = {problem, ours, ""};
    const std::string_view library = ours || !has(place.library, "libvyn") ? place.library : "libc";
    (void)library.copy(verdict->library, sizeof verdict->library - 1);
}

void crashed(int /*signal*/) {
    heap.tracking = false;
    const Place place = here();
    blame("crash", place.library.empty() || has(place.library, "libvyn"), place);
    _exit(0);
}

long run(const Call& call, Output& out) {
    std::ofstream(path) << kDoc;
    heap.count = heap.live = 0;
    heap.tracking = true;
    const long code = call.run(out);
    heap.tracking = false;
    std::ifstream(path).read(out.file, kSize);
    return code;
}

// json-c says nothing of a member that it could not parse, nor of a text that did not grow.
bool silent(const Place& place) {
    return place.entry == "json_tokener_parse_ex" ||
           (has(place.entry, "json_object_to_") &&
            std::strcmp(place.function, "printbuf_new") != 0);
}

void judge(const Call& call, const Output& good, long good_code) {
    Output out = fresh();
    long code = 0;
    try {
        code = run(call, out);
    } catch (...) {
        return blame("exception", true, heap.failed);
    }
    if (code == good_code ? !same(out, good) : (call.failures >> code & 1) == 0) {
        blame("wrong result", !silent(heap.failed), heap.failed);
    } else if (code != good_code && (call.loose >> code & 1) == 0 && !same(out, fresh())) {
        blame("output of a failure", true, heap.failed);
    }
    free(out.text);
    // What the call that failed allocated itself, in another library, it has lost itself.
    const bool ours = std::any_of(heap.blocks, heap.blocks + heap.live,
                                  [](auto& each) { return each.site != heap.failed.site; });
    if (verdict->problem == nullptr && heap.live > 0) {
        blame("leak", ours, heap.failed);
    }
}

void in_child(const Call& call, const Output& good, long good_code) {
    *verdict = {};
    if (fork() == 0) {
        for (const int number : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL}) {
            (void)signal(number, crashed);
        }
        (void)alarm(10);
        judge(call, good, good_code);
        _exit(0);
    }
    int status = 0;
    (void)wait(&status);
    if (status != 0) {
        blame("end", true, {});
    }
}

TEST(OutOfMemory, EveryAllocationOfEveryFunction) {
    ASSERT_GE(close(mkstemp(path)), 0);
    ASSERT_GE(close(mkstemp(records)), 0);
    std::ofstream(records) << "\3\x0A\1a\3\x0A\1b";
    packet = header.SerializeAsString();
    Header without_ttl = header;  // left out, when it cannot be made
    without_ttl.clear_ttl();
    received = vyn_test::compressed(without_ttl.SerializeAsString());
    ASSERT_TRUE(ProtoToJson(json_text, header));
    ASSERT_EQ(get_msg_hdr(kEnvelope, &record), 1);
    verdict = static_cast<Verdict*>(
        mmap(nullptr, sizeof(Verdict), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(verdict, MAP_FAILED);
    (void)here();  // what it sets up once
    std::string covered;
    for (const Call& call : kCalls) {
        covered += call.names + ' ';
        Output good = fresh();
        long good_code = run(call, good);  // what the libraries set up once
        good = fresh();
        good_code = run(call, good);
        std::map<std::string, int> seen;
        const std::size_t count = heap.count;
        for (std::size_t n = 0; n < 2 * count; ++n) {
            heap.fail_at = n / 2 + 1;
            heap.all_behind = n % 2 != 0;
            heap.with_places = false;
            in_child(call, good, good_code);
            if (verdict->problem != nullptr && verdict->ours) {
                heap.with_places = true;  // a leak's
                in_child(call, good, good_code);
            }
            if (verdict->problem != nullptr) {
                ++seen[verdict->problem + (" in " + std::string(verdict->library))];
                EXPECT_FALSE(verdict->ours)
                    << call.names << ": " << verdict->problem << " when allocation " << n / 2 + 1
                    << (n % 2 != 0 ? " and all behind it fail" : " fails");
            }
        }
        heap.fail_at = 0;
        heap.all_behind = false;
        printf("%-32s %3zu allocations", call.names.substr(0, 32).c_str(), count);
        for (const auto& [what, times] : seen) {
            printf("  %d %s", times, what.c_str());
        }
        printf("\n");
    }
    std::ifstream exports(VYN_EXPORTS);
    for (std::string name; exports >> name;) {
        EXPECT_NE((' ' + covered).find(' ' + name + ' '), std::string::npos) << name;
    }
    (void)unlink(path);
    (void)unlink(records);
}

}  // namespace
