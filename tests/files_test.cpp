// Whole files on flash, and packet files, while the system's calls fail. A fuzz target and its seeds
// decide about what packet files hold, whole or damaged.
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <numeric>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "json_helper.h"
#include "proto_helper.h"
#include "support/log_trap.h"
#include "support/packets.h"
#include "vyn_header.h"

namespace fs = std::filesystem;

// ---- System calls that fail ---------------------------------------------------------------------

// This program defines the calls of the library itself and forwards them to the C library's.

namespace {

struct Fault {
    std::string call;  // "fsync", ...; those of large files without their 64
    int error = 0;
    int first = 1;          // the first of the calls that fails, counted from 1
    int times = 1;          // how many fail
    bool is_short = false;  // half of the bytes are written; fwrite notes an error if there is one
    int closing = 0;        // the error with which each close and munmap fails besides
    std::function<void()> before = {};  // runs in front of the call, which then does not fail
};

thread_local const Fault* armed = nullptr;
thread_local int seen = 0;
thread_local std::string calls;

template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Whether this call is one of those that fail; errno is then that of the fault.
bool fails(const std::string& call, const char* leaking = "") {
    if (armed == nullptr) {
        return false;
    }
    calls += " " + call + leaking;
    seen += armed->call == call ? 1 : 0;
    if (armed->call != call || seen < armed->first || seen - armed->first >= armed->times) {
        return false;
    }
    if (armed->before) {
        armed->before();
        return false;
    }
    errno = armed->error;
    return true;
}

// What cannot be closed is closed all the same.
template <typename Close>
int closing(const char* call, Close close) {
    const int other = armed != nullptr ? armed->closing : 0;
    const int error = fails(call) ? errno : other;
    const int result = close();
    errno = error != 0 ? error : errno;
    return error != 0 ? -1 : result;
}

// Runs the body with the fault, and returns the calls that it made, in order, each behind a blank.
// An open that leaks to child processes is "open-leaking", or "fopen-leaking".
std::string calls_of(const Fault& fault, const std::function<void()>& body) {
    seen = 0;
    calls.clear();
    armed = &fault;
    body();
    armed = nullptr;
    return std::exchange(calls, {});
}

}  // namespace

// The C library calls its arguments __fd and the like.
// clang-format off
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name,bugprone-macro-parentheses)
#define FAILING(result, name, call, parameters, arguments, failure) \
    result name parameters { return fails(call) ? failure : real<decltype(name)>(#name) arguments; }
extern "C" {
FAILING(int, fflush, "fflush", (FILE* stream), (stream), EOF)
FAILING(int, ftruncate64, "ftruncate", (int fd, off64_t size), (fd, size), -1)
FAILING(int, fallocate64, "fallocate", (int fd, int mode, off64_t at, off64_t size),
        (fd, mode, at, size), -1)
FAILING(int, posix_fallocate64, "posix_fallocate", (int fd, off64_t at, off64_t size),
        (fd, at, size), errno)
FAILING(void*, mmap64, "mmap", (void* at, std::size_t size, int access, int flags, int fd, off64_t from),
        (at, size, access, flags, fd, from), MAP_FAILED)
FAILING(int, msync, (flags & MS_SYNC) != 0 ? "msync" : "msync-async",
        (void* data, std::size_t size, int flags), (data, size, flags), -1)
FAILING(int, fsync, "fsync", (int fd), (fd), -1)
FAILING(int, rename, "rename", (const char* from, const char* to) noexcept, (from, to), -1)
FAILING(int, unlink, "unlink", (const char* path) noexcept, (path), -1)
FAILING(int, fstat64, "fstat", (int fd, struct stat64* status) noexcept, (fd, status), -1)
// What fstat is where a time has 64 bits and a pointer 32.
FAILING(int, __fstat64_time64, "fstat", (int fd, void* status), (fd, status), -1)
FAILING(ssize_t, read, "read", (int fd, void* data, std::size_t size), (fd, data, size), -1)
// clang-format on
#undef FAILING

int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return fails("open", (flags & O_CLOEXEC) == 0 ? "-leaking" : "")
               ? -1
               : real<int(const char*, int, ...)>("open64")(path, flags, mode);
}
FILE* fopen64(const char* path, const char* mode) {
    return fails("fopen", std::strchr(mode, 'e') == nullptr ? "-leaking" : "")
               ? nullptr
               : real<decltype(fopen64)>("fopen64")(path, mode);
}
std::size_t fwrite(const void* data, std::size_t size, std::size_t count, FILE* stream) {
    if (fails("fwrite")) {
        count = armed->is_short ? count / 2 : 0;
        constexpr int kErrorSeen = 0x20;  // what ferror() looks at
        stream->_flags |= armed->is_short && armed->error != 0 ? kErrorSeen : 0;
    }
    return count == 0 ? 0 : real<decltype(fwrite)>("fwrite")(data, size, count, stream);
}
ssize_t write(int fd, const void* data, std::size_t size) {
    const bool failed = fails("write");
    return failed && !armed->is_short
               ? -1
               : real<decltype(write)>("write")(fd, data, failed ? size / 2 : size);
}
int fclose(FILE* stream) {
    return closing("fclose", [&] { return real<decltype(fclose)>("fclose")(stream); });
}
int munmap(void* data, std::size_t size) {
    return closing("munmap", [&] { return real<decltype(munmap)>("munmap")(data, size); });
}
int close(int fd) {
    return closing("close", [&] { return real<decltype(close)>("close")(fd); });
}
}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name,bugprone-macro-parentheses)

// ---- Whole files --------------------------------------------------------------------------------

namespace vyn_test {
namespace {

using Errors = std::vector<int>;

const std::string kOld = "old contents, which are longer than the new ones";
const std::string kNew = "new contents";
const Fault kNone;
const Errors kAllErrors = {ENOSPC, EIO, EINTR, EDQUOT, EROFS, EOPNOTSUPP, ENOSYS};

// The errors with which the work goes on: when a call fails once, and when it fails each time.
struct Tolerance {
    Errors once, always;
};
const Tolerance kFatal = {};
const Tolerance kIgnored = {kAllErrors, kAllErrors};
const Tolerance kRetried = {{EINTR}, {}};
const Tolerance kInterruptIgnored = {{EINTR}, {EINTR}};
const Tolerance kReservation = {{EINTR, EOPNOTSUPP, ENOSYS}, {EOPNOTSUPP, ENOSYS}};

constexpr int kItsErrno = -1;

// A system call of a piece of work.
struct Step {
    std::string call;
    Tolerance tolerance = kFatal;
    int result = kItsErrno;        // of the work when it does not go on
    std::string log = {};          // then; ? stands for the errno
    std::string ignored_log = {};  // when it goes on
};

struct Work {
    std::string before, after;  // what is in the file
    std::function<int()> run;   // 0 for success
    std::vector<Step> steps;    // all calls, in order
    std::string log = {};       // of success
    bool cuts_file = false;     // when it fails

    [[nodiscard]] std::string calls() const {
        const auto append = [](const std::string& all, const Step& s) {
            return all + ' ' + s.call;
        };
        return std::accumulate(steps.begin(), steps.end(), std::string(), append);
    }
};

// A test in a folder of its own, with one file in it.
class Files : public testing::Test {
protected:
    void SetUp() override {
        folder_ = testing::TempDir() + "vyn_test_XXXXXX";
        ASSERT_NE(mkdtemp(folder_.data()), nullptr);
        path_ = folder_ + "/target";
        (void)take_log();
    }
    void TearDown() override { fs::remove_all(folder_); }

    static std::ptrdiff_t count_in(const fs::path& folder) {
        return std::distance(fs::directory_iterator(folder), fs::directory_iterator());
    }
    void put(const std::string& bytes) const { std::ofstream(path_, std::ios::binary) << bytes; }
    [[nodiscard]] std::string get() const {
        std::ifstream in(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    [[nodiscard]] int replace(const std::string& bytes) const {
        return write_to_file_using_mmap_atomic(path_.c_str(), bytes.data(), length_of(bytes));
    }
    [[nodiscard]] int write_stream(const std::string& bytes) const {
        return write_to_file_using_fop(path_.c_str(), bytes.data(), length_of(bytes));
    }
    [[nodiscard]] uint32_t store(const std::string& pkt) const {
        return store_proto_msg_to_file(bytes_of(pkt), static_cast<int32_t>(pkt.size()),
                                       path_.c_str());
    }
    // Reads packets into one buffer, each over the one before; there must be so many.
    uint32_t read(std::size_t expected) {
        std::vector<uint8_t*> bufs(expected + 1, bytes_of(room_));
        std::vector<uint32_t> lens(expected + 1);
        bufs.push_back(nullptr);
        uint32_t count = kUntouched;
        const uint32_t code =
            read_proto_msg_from_file(bufs.data(), &count, lens.data(), path_.c_str());
        EXPECT_EQ(count, code == VYN_OK ? expected : 0);
        return code;
    }
    std::vector<Work> works();

    // More than a page, so that space is reserved for it; in a file its length stands in front.
    const std::string packet_ = "\x62\x80\x20" + times(4096, 'b');
    const std::string entry_ = "\x83\x20" + packet_;
    std::string folder_, path_, room_ = times(5000, '#');
};

std::vector<Work> Files::works() {
    const std::string not_closed = debug_line("fclose error");
    const std::string not_stored =
        error_line("store_proto_msg_to_file: record not stored, errno ?");
    const std::string not_read = error_line("read_proto_msg_from_file: read failed, errno ?");
    const auto dir = [&](const char* what) {
        return debug_line(std::string("fsync_parent_dir: ") + what + " for dir " + folder_);
    };
    return {
        {kOld,
         kNew,
         [this] { return replace(kNew) == 1 ? 0 : errno; },
         {{"open"},
          {"ftruncate"},
          {"posix_fallocate", kReservation},
          {"mmap"},
          {"msync"},
          {"munmap", kIgnored},
          {"fsync"},
          {"close", kIgnored},
          {"rename"}}},
        {kOld,
         kNew,
         [this] { return write_stream(kNew) == 1 ? 0 : errno; },
         {{"fopen", kFatal, kItsErrno, debug_line("fopen error")},
          {"fwrite", kFatal, EIO, debug_line("fwrite-short error") + not_closed},
          {"fflush", kFatal, kItsErrno, debug_line("fflush error") + not_closed},
          {"fsync", kFatal, kItsErrno, debug_line("fsync error") + not_closed},
          {"fclose", kIgnored, 0, "", not_closed}},
         "",
         true},
        {kOld,
         kOld,
         [this] { return fsync_parent_dir(path_.c_str()) == 0 ? 0 : errno; },
         {{"open", kFatal, kItsErrno, dir("started")},
          {"fsync", kFatal, kItsErrno, dir("started") + dir("failed")},
          {"close", kIgnored}},
         dir("started") + dir("success")},
        {entry_,
         entry_ + entry_,
         [this] { return static_cast<int>(store(packet_)); },
         {{"open", kFatal, VYN_FILE_NOT_OPENED},
          {"fstat", kFatal, VYN_FILE_NOT_OPENED},
          {"fallocate", kReservation, VYN_NOT_SERIALIZED, not_stored},
          {"write", kRetried, VYN_NOT_SERIALIZED, not_stored},
          {"close", kInterruptIgnored, VYN_NOT_SERIALIZED, not_stored}}},
        {entry_,
         entry_,
         [this] { return static_cast<int>(read(1)); },
         {{"open", kFatal, VYN_NULL_POINTER},
          {"fstat", kFatal, VYN_NULL_POINTER},
          {"read", kRetried, VYN_NOT_SERIALIZED, not_read},
          {"close", kIgnored}}},
    };
}

TEST_F(Files, EachCallFailsOnceOrEachTime) {
    for (const Work& work : works()) {
        put(work.before);
        EXPECT_EQ(calls_of(kNone, [&] { EXPECT_EQ(work.run(), 0); }), work.calls());
        EXPECT_EQ(get(), work.after);
        for (const Step& step : work.steps) {
            for (std::size_t n = 0; n < 2 * kAllErrors.size(); ++n) {
                const int error = kAllErrors[n / 2];
                const bool each_time = n % 2 != 0;
                SCOPED_TRACE(testing::Message() << step.call << " of" << work.calls() << ", errno "
                                                << error << (each_time ? ", each time" : ""));
                const Errors& tolerated = each_time ? step.tolerance.always : step.tolerance.once;
                const bool fails = std::count(tolerated.begin(), tolerated.end(), error) == 0;
                const bool closes = step.call == "close" || step.call == "fclose";
                put(work.before);
                (void)take_log();
                const auto descriptors = count_in("/proc/self/fd");
                int result = -1;
                Fault fault{step.call, error};
                fault.times = each_time ? 50 : 1;
                // The first failure is told, not that of the close.
                fault.closing = fails && !closes ? EBADF : 0;
                const std::string calls = calls_of(fault, [&] {
                    errno = 0;
                    result = work.run();
                });
                EXPECT_EQ(result, !fails ? 0 : step.result == kItsErrno ? error : step.result);
                std::string log = fails ? step.log : work.log + step.ignored_log;
                if (log.find('?') != std::string::npos) {
                    log.replace(log.find('?'), 1, std::to_string(error));
                }
                const LogLines lines = take_log();
                EXPECT_EQ(std::accumulate(lines.begin(), lines.end(), std::string()), log);
                if (!fails || !work.cuts_file) {
                    EXPECT_EQ(get(), fails && !closes ? work.before : work.after);
                }
                EXPECT_EQ(count_in(folder_), 1);
                EXPECT_EQ(count_in("/proc/self/fd"), descriptors);
                EXPECT_EQ(calls.find("fsync"), calls.rfind("fsync"));  // never a second one
                EXPECT_LT(calls.size(), 400U);
            }
        }
    }
}

// A thread that is cancelled in a call ends there, unless it is closing a file, and leaves no
// descriptor behind.
TEST_F(Files, CancelledThreadsCloseTheirFiles) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer knows nothing of stacks that are unwound so";
#endif
    const std::set<std::string> not_cancelled = {"ftruncate", "mmap", "munmap", "rename", "fstat"};
    for (const Work& work : works()) {
        for (const Step& step : work.steps) {
            if (not_cancelled.count(step.call) != 0) {
                continue;
            }
            SCOPED_TRACE(step.call + " of" + work.calls());
            put(work.before);
            const auto descriptors = count_in("/proc/self/fd");
            Fault fault{step.call};
            fault.before = [] {
                (void)pthread_cancel(pthread_self());
                pthread_testcancel();
            };
            bool survived = false;
            std::thread([&] {
                (void)calls_of(fault, work.run);
                survived = true;
            }).join();
            EXPECT_EQ(survived, step.call == "close" || step.call == "fclose");
            EXPECT_EQ(count_in("/proc/self/fd"), descriptors);
        }
    }
}

TEST_F(Files, JsonFileIsReadAfterAnInterrupt) {
    put("[1]");
    char text[8];
    EXPECT_EQ(calls_of({"read", EINTR}, [&] { (void)get_json_file(path_.c_str(), text, 8); }),
              " open fstat read read read close");
}

TEST_F(Files, SpaceIsReservedOnlyBeyondThePage) {
    for (const std::size_t end : {4096U, 4097U}) {
        put(std::string(end - 4, 'x'));
        EXPECT_EQ(calls_of(kNone, [&] { EXPECT_EQ(store("\x62\x01z"), 0U); }),
                  end == 4096 ? " open fstat write close" : " open fstat fallocate write close");
    }
}

TEST_F(Files, SecondBlockThatCannotBeRead) {
    std::string entries;
    while (entries.size() < 70000) {
        entries += entry_;
    }
    put(entries);
    (void)calls_of({"read", EIO, 2}, [&] { EXPECT_EQ(read(20), VYN_NOT_SERIALIZED); });
}

TEST_F(Files, FileThatGrowsOrIsCutWhileItIsRead) {
    const std::string damaged = error_line("read_proto_msg_from_file: damaged record at offset 0");
    for (const bool grows : {true, false}) {
        put(entry_ + '\0');
        Fault meanwhile{"read"};
        meanwhile.before = [&] { fs::resize_file(path_, grows ? 5000 : 100); };
        (void)calls_of(meanwhile, [&] { EXPECT_EQ(read(2), grows ? VYN_OK : VYN_NOT_SERIALIZED); });
        EXPECT_EQ(take_log(), grows ? LogLines{} : LogLines{damaged});
    }
}

TEST_F(Files, PacketWrittenInPartIsNotStored) {
    Fault half{"write"};
    half.is_short = true;
    (void)calls_of(half, [&] { EXPECT_EQ(store(packet_), VYN_NOT_SERIALIZED); });
}

TEST_F(Files, PermissionsOfNewFiles) {
    const mode_t mask = umask(0);
    EXPECT_EQ(replace(kNew), 1);
    EXPECT_EQ(fs::status(path_).permissions(), static_cast<fs::perms>(0644));
    fs::remove(path_);
    EXPECT_EQ(store(""), VYN_OK);
    EXPECT_EQ(fs::status(path_).permissions(), static_cast<fs::perms>(0666));
    (void)umask(mask);
}

TEST_F(Files, WritersRefuseNullPointersEmptyDataAndLongPaths) {
    const std::string longest = folder_ + std::string(4091 - folder_.size(), '/');
    put(kOld);
    const auto error_of = [](auto* write, const std::string& path, const char* data,
                             uint32_t length) {
        errno = 0;
        EXPECT_EQ(write(path.empty() ? nullptr : path.c_str(), data, length), 0);
        return errno;
    };
    auto* const stream = write_to_file_using_fop;
    auto* const atomic = write_to_file_using_mmap_atomic;
    EXPECT_EQ(error_of(stream, "", "a", 1), EINVAL);
    EXPECT_EQ(error_of(stream, path_, nullptr, 1), EINVAL);
    EXPECT_EQ(error_of(atomic, "", "a", 1), EINVAL);
    EXPECT_EQ(error_of(atomic, path_, nullptr, 1), EINVAL);
    EXPECT_EQ(error_of(atomic, path_, "a", 0), EINVAL);
    EXPECT_EQ(error_of(atomic, longest + "/", "a", 1), ENAMETOOLONG);
    EXPECT_NE(error_of(atomic, longest, "a", 1), ENAMETOOLONG);  // a directory
    EXPECT_EQ(get(), kOld);
    EXPECT_EQ(count_in(folder_), 1);
    EXPECT_EQ(take_log(), LogLines{});
}

TEST_F(Files, AtomicWriterAndWhatIsAtItsTemporaryName) {
    put(kOld);
    const std::string temporary = path_ + ".tmp";
    fs::create_symlink(path_, temporary);
    EXPECT_EQ(replace(kNew), 0);
    EXPECT_EQ(errno, ELOOP);
    EXPECT_EQ(get(), kOld);
    fs::create_directory(temporary);
    // What failed is told, not what went wrong while cleaning up.
    (void)calls_of({"unlink", EROFS}, [&] {
        EXPECT_EQ(replace(kNew), 0);
        EXPECT_EQ(errno, EISDIR);
    });
    fs::remove(temporary);
    std::ofstream(temporary) << kOld << kOld;  // as a killed process leaves it
    EXPECT_EQ(replace(kNew), 1);
    EXPECT_EQ(get(), kNew);
    EXPECT_EQ(count_in(folder_), 1);
}

TEST_F(Files, StreamWriterGoesOnAfterShortWritesButNotAfterErrors) {
    Fault halves{"fwrite", 0, 1, 3};
    halves.is_short = true;
    EXPECT_EQ(calls_of(halves, [&] { EXPECT_EQ(write_stream(kNew), 1); }),
              " fopen fwrite fwrite fwrite fwrite fflush fsync fclose");
    EXPECT_EQ(get(), kNew);
    Fault gap{"fwrite", ENOSPC};
    gap.is_short = true;
    EXPECT_EQ(calls_of(gap, [&] { EXPECT_EQ(write_stream(kNew), 0); }), " fopen fwrite fclose");
    EXPECT_EQ(take_log(), LogLines{debug_line("fwrite error")});
    EXPECT_EQ(write_stream(""), 1);
    EXPECT_EQ(get(), "");
}

TEST_F(Files, LongestPathWhoseDirectoryIsSynced) {
    const std::string longest = std::string(254, '/') + "x";
    EXPECT_EQ(fsync_parent_dir(longest.c_str()), 0);
    EXPECT_EQ(take_log().front(), debug_line("fsync_parent_dir: started for dir /"));
    EXPECT_EQ(fsync_parent_dir(("/" + longest).c_str()), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
    EXPECT_EQ(fsync_parent_dir(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(take_log(), LogLines{});
}

// ---- Packet files -------------------------------------------------------------------------------

TEST_F(Files, BytesThatAreNoPacketMakeNoFile) {
    uint8_t byte = 0;
    EXPECT_EQ(store("\xFF"), VYN_BAD_BODY);
    EXPECT_EQ(store_proto_msg_to_file(&byte, -1, path_.c_str()), VYN_BAD_BODY);
    EXPECT_NE(access(path_.c_str(), F_OK), 0);
}

TEST_F(Files, PacketFilesAreRegularFiles) {
    const std::string fifo = folder_ + "/fifo";
    ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
    for (const std::string& other : {fifo, folder_, std::string("/dev/null"), fifo + "/none"}) {
        path_ = other;
        EXPECT_EQ(store(""), VYN_FILE_NOT_OPENED) << other;
        EXPECT_EQ(read(1), VYN_NULL_POINTER) << other;
    }
    EXPECT_EQ(take_log(), LogLines{});
}

TEST_F(Files, PacketsBeyondTheLimitForFilesAreNotStored) {
    const std::string pkt = "\x62\x01z";
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{9 * 4, before.rlim_max};  // nine with their lengths, and no byte more
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    for (int i = 0; i < 12; ++i) {
        EXPECT_EQ(store(pkt), i < 9 ? VYN_OK : VYN_NOT_SERIALIZED);
    }
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_EQ(take_log(),
              LogLines(3, error_line("store_proto_msg_to_file: record not stored, errno 27")));
    EXPECT_EQ(store(pkt), VYN_OK);  // behind no tear
    EXPECT_EQ(read(10), VYN_OK);
}

}  // namespace
}  // namespace vyn_test
