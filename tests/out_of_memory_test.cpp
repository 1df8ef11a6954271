// Every allocation of every exported function fails in turn, alone or with all behind it, in a child
// process each time. What json-c, protobuf and the C library then do inside themselves is counted
// as theirs, and not held against us.
#include <dlfcn.h>
#include <execinfo.h>
#include <gtest/gtest.h>
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

#include "support/calls.h"
#include "support/packets.h"

using vyn_test::Call;
using vyn_test::Input;
using vyn_test::Output;

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

char json_path[] = "/tmp/vyn_oom_XXXXXX";
char packets_path[] = "/tmp/vyn_oom_XXXXXX";
std::string packet;

// A call with its sample, and all that it gave.
struct Attempt {
    explicit Attempt(const Call& tried) : call(tried), in(tried.sample, packet), out(in) {
        in.json_path = json_path;
        in.packets_path = packets_path;
        std::ofstream(json_path) << R"({"old":[1,2]})";
        std::ofstream(packets_path) << "\3\x0A\1a\3\x0A\1b";
    }
    void make() {
        heap.count = heap.live = 0;
        heap.tracking = true;
        code = call.run(in, out);
        heap.tracking = false;
    }
    [[nodiscard]] bool left_like(const Output& expected, const std::string& expected_files) const {
        return out == expected && files() == expected_files;
    }
    [[nodiscard]] static std::string files() {
        std::string all;
        for (const char* path : {json_path, packets_path}) {
            std::ifstream file(path);
            all.append(std::istreambuf_iterator<char>(file), {}).append(1, '|');
        }
        return all;
    }

    const Call& call;
    Input in;
    Output out;
    long code = 0;
};

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

// json-c says nothing of a member that it could not parse, nor of a text that did not grow.
bool silent(const Place& place) {
    return place.entry == "json_tokener_parse_ex" ||
           (has(place.entry, "json_object_to_") &&
            std::strcmp(place.function, "printbuf_new") != 0);
}

void judge(const Attempt& good, const std::string& good_files) {
    Attempt run(good.call);
    const std::string files = Attempt::files();
    try {
        run.make();
    } catch (...) {
        return blame("exception", true, heap.failed);
    }
    const auto is_among = [&run](uint32_t codes) { return (codes >> run.code & 1) != 0; };
    if (run.code == good.code ? !run.left_like(good.out, good_files)
                              : !is_among(good.call.failures)) {
        blame("wrong result", !silent(heap.failed), heap.failed);
    } else if (run.code != good.code && !is_among(good.call.loose) &&
               !run.left_like(Output(run.in), files)) {
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

void in_child(const Attempt& good, const std::string& good_files) {
    *verdict = {};
    if (fork() == 0) {
        for (const int number : {SIGSEGV, SIGABRT, SIGBUS, SIGFPE, SIGILL}) {
            (void)signal(number, crashed);
        }
        (void)alarm(10);
        judge(good, good_files);
        _exit(0);
    }
    int status = 0;
    (void)wait(&status);
    if (status != 0) {
        blame("end", true, {});
    }
}

TEST(OutOfMemory, EveryAllocationOfEveryFunction) {
    ASSERT_GE(close(mkstemp(json_path)), 0);
    ASSERT_GE(close(mkstemp(packets_path)), 0);
    Header header = vyn_test::full_header();
    header.clear_ttl();  // left out of the JSON, when it cannot be made
    packet = header.SerializeAsString();
    verdict = static_cast<Verdict*>(
        mmap(nullptr, sizeof(Verdict), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    ASSERT_NE(verdict, MAP_FAILED);
    (void)here();  // what it sets up once
    std::string covered = " ";
    for (const Call& call : vyn_test::kCalls) {
        covered += std::string(call.names) + ' ';
        Attempt(call).make();  // what the libraries set up once
        Attempt good(call);
        good.make();
        const std::string good_files = Attempt::files();
        std::map<std::string, int> seen;
        const std::size_t count = heap.count;
        for (std::size_t n = 0; n < 2 * count; ++n) {
            heap.fail_at = n / 2 + 1;
            heap.all_behind = n % 2 != 0;
            heap.with_places = false;
            in_child(good, good_files);
            if (verdict->problem != nullptr && verdict->ours) {
                heap.with_places = true;  // a leak's
                in_child(good, good_files);
            }
            if (verdict->problem != nullptr) {
                ++seen[verdict->problem + (" in " + std::string(verdict->library))];
                EXPECT_FALSE(verdict->ours)
                    << call.names << ": " << verdict->problem << " when allocation " << n / 2 + 1
                    << (heap.all_behind ? " and all behind it fail" : " fails");
            }
        }
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
    (void)unlink(json_path);
    (void)unlink(packets_path);
}

}  // namespace
