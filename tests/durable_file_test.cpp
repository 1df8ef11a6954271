// Whole files on flash, and the packet file, while the system's calls fail.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <numeric>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "json_helper.h"
#include "proto_helper.h"
#include "support/fault_switch.h"
#include "support/folder.h"
#include "support/log_trap.h"
#include "support/packets.h"
#include "vyn_header.h"

namespace fs = std::filesystem;

namespace vyn_test {
namespace {

const std::string kOld = "old contents, which are longer than the new ones";
const std::string kNew = "new contents";
const Fault kNone{"", 0};

class Files : public Folder {
protected:
    // What is in the folder, in alphabetical order, each name behind a blank.
    [[nodiscard]] std::string names() const {
        std::set<std::string> found;
        for (const auto& entry : fs::directory_iterator(folder_)) {
            found.insert(" " + entry.path().filename().string());
        }
        return std::accumulate(found.begin(), found.end(), std::string());
    }
    [[nodiscard]] int replace(const std::string& bytes) const {
        return write_to_file_using_mmap_atomic(path_.c_str(), bytes.data(), length_of(bytes));
    }
    static int write_stream(const std::string& bytes, const std::string& path) {
        return write_to_file_using_fop(path.c_str(), bytes.data(), length_of(bytes));
    }
    static std::ptrdiff_t open_files() {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    }
};

TEST_F(Files, UnderFaults) {
    constexpr std::size_t kPage = 4096;  // space is reserved only for what reaches beyond one
    Header large = full_header();
    large.set_body(times(kPage, 'b'));
    const std::string packet = large.SerializeAsString();
    const std::string stored = record(packet);
    const auto dir = [&](const char* what) {
        return debug_line(std::string("fsync_parent_dir: ") + what + " for dir " + folder_);
    };
    // Each gives 0 for success.
    const auto do_atomic = [&] { return replace(kNew) == 1 ? 0 : errno; };
    const auto do_stream = [&] { return write_stream(kNew, path_) == 1 ? 0 : errno; };
    const auto do_parent = [&] { return fsync_parent_dir(path_.c_str()) == 0 ? 0 : errno; };
    const auto do_store = [&] { return static_cast<int>(store(packet)); };
    const auto do_read = [&] {
        uint8_t room[2 * kPage];
        uint8_t* bufs[] = {room, nullptr};
        uint32_t length = 0;
        uint32_t count = 0;
        const uint32_t code = read_proto_msg_from_file(bufs, &count, &length, path_.c_str());
        EXPECT_EQ(count, code == VYN_OK ? 1U : 0U);
        return static_cast<int>(code);
    };
    struct Work {
        std::string before, after;  // what is in the file
        std::string log;            // of success
        std::function<int()> result;
        const char* calls;
    };
    const Work atomic{kOld, kNew, "", do_atomic,
                      " open ftruncate posix_fallocate mmap msync munmap fsync close rename"};
    const Work stream{kOld, kNew, "", do_stream, " fopen fwrite fflush fsync fclose"};
    const Work parent{kOld, kOld, dir("started") + dir("success"), do_parent, " open fsync close"};
    const Work storing{stored, stored + stored, "", do_store, " open fstat fallocate write close"};
    const Work reading{stored, stored, "", do_read, " open fstat read close"};
    for (const Work* work : {&atomic, &stream, &parent, &storing, &reading}) {
        put(work->before);
        EXPECT_EQ(calls_of(kNone, [&] { EXPECT_EQ(work->result(), 0); }), work->calls);
        EXPECT_EQ(get(), work->after);
    }

    constexpr int kItsErrno = -1;
    const std::vector<int> never;
    const std::vector<int> always = {ENOSPC, EIO, EINTR, EDQUOT, EROFS, EOPNOTSUPP, ENOSYS};
    const std::vector<int> once = {EINTR};
    const std::vector<int> no_reserve = {EINTR, EOPNOTSUPP, ENOSYS};
    const std::string not_stored = "3 store_proto_msg_to_file: record not stored, errno ";
    const std::string not_read = "3 read_proto_msg_from_file: read failed, errno ";
    const std::string not_closed = debug_line("fclose error");
    struct Row {
        const Work& work;
        const char* call;
        const std::vector<int>& goes_on;  // with which errors it does
        int result;                       // of its failure
        std::string log;                  // before an errno, where it ends in a blank
    };
    const Row rows[] = {
        {atomic, "open", never, kItsErrno, ""},
        {atomic, "ftruncate", never, kItsErrno, ""},
        {atomic, "posix_fallocate", no_reserve, kItsErrno, ""},
        {atomic, "mmap", never, kItsErrno, ""},
        {atomic, "msync", never, kItsErrno, ""},
        {atomic, "munmap", always, 0, ""},
        {atomic, "fsync", never, kItsErrno, ""},
        {atomic, "close", always, 0, ""},
        {atomic, "rename", never, kItsErrno, ""},
        {stream, "fopen", never, kItsErrno, debug_line("fopen error")},
        {stream, "fwrite", never, EIO, debug_line("fwrite-short error") + not_closed},
        {stream, "fflush", never, kItsErrno, debug_line("fflush error") + not_closed},
        {stream, "fsync", never, kItsErrno, debug_line("fsync error") + not_closed},
        {stream, "fclose", always, 0, not_closed},
        {parent, "open", never, kItsErrno, dir("started")},
        {parent, "fsync", never, kItsErrno, dir("started") + dir("failed")},
        {parent, "close", always, 0, parent.log},
        {storing, "open", never, VYN_FILE_NOT_OPENED, ""},
        {storing, "fstat", never, VYN_FILE_NOT_OPENED, ""},
        {storing, "fallocate", no_reserve, VYN_NOT_SERIALIZED, not_stored},
        {storing, "write", once, VYN_NOT_SERIALIZED, not_stored},
        {storing, "close", once, VYN_NOT_SERIALIZED, not_stored},
        {reading, "open", never, VYN_NULL_POINTER, ""},
        {reading, "fstat", never, VYN_NULL_POINTER, ""},
        {reading, "read", once, VYN_NOT_SERIALIZED, not_read},
        {reading, "close", always, 0, ""},
    };
    for (const Row& row : rows) {
        const std::string call = row.call;
        for (int n = 0; n < 2 * static_cast<int>(always.size()); ++n) {
            const int error = always[static_cast<std::size_t>(n) / 2];
            const int times = n % 2 == 0 ? 1 : 1000;
            SCOPED_TRACE(testing::Message() << call << " of" << row.work.calls << ", errno "
                                            << error << ", " << times);
            const bool listed = std::count(row.goes_on.begin(), row.goes_on.end(), error) != 0;
            const bool fails = !listed || (error == EINTR && times > 1 && call != "close" &&
                                           &row.goes_on != &always);
            const bool closes = call == "close" || call == "fclose";
            put(row.work.before);
            (void)take_log();
            const auto files = open_files();
            int result = -1;
            // The first failure is told, not that of the close.
            const Fault fault{call, error, 1, times, false, fails && !closes ? EBADF : 0};
            const std::string calls = calls_of(fault, [&] {
                errno = 0;
                result = row.work.result();
            });
            EXPECT_EQ(result, !fails ? 0 : row.result == kItsErrno ? error : row.result);
            std::string lines;
            for (const std::string& line : take_log()) {
                lines += line;
            }
            const bool with_errno = !row.log.empty() && row.log.back() == ' ';
            EXPECT_EQ(lines, !fails && &row.goes_on != &always ? row.work.log
                             : with_errno ? row.log + std::to_string(error) + "\n"
                                          : row.log);
            if (&row.work != &stream || !fails) {  // which leaves the file cut
                EXPECT_EQ(get(), fails && !closes ? row.work.before : row.work.after);
            }
            EXPECT_EQ(names(), " target");
            EXPECT_EQ(open_files(), files);
            EXPECT_EQ(calls.find("fsync"), calls.rfind("fsync"));  // never a second one
            EXPECT_LT(calls.size(), 400U);
        }
    }
}

// A thread that is cancelled ends as such, and leaves no descriptor behind.
TEST_F(Files, CancelledThreads) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer knows nothing of stacks that are unwound so";
#endif
    struct Row {
        const char* call;
        std::function<void()> work;
    };
    const auto do_atomic = [&] { (void)replace(kNew); };
    const auto do_stream = [&] { (void)write_stream(kNew, path_); };
    const auto do_parent = [&] { (void)fsync_parent_dir(path_.c_str()); };
    const auto do_store = [&] { (void)store(full_header().SerializeAsString()); };
    const auto do_read = [&] {
        uint8_t room[4096];
        uint8_t* bufs[] = {room, nullptr};
        uint32_t number = 0;
        (void)read_proto_msg_from_file(bufs, &number, &number, path_.c_str());
    };
    const auto do_json = [&] {
        char text[64];
        (void)get_json_file(path_.c_str(), text, sizeof text);
    };
    const Row rows[] = {
        {"open", do_atomic},   {"msync", do_atomic},  {"fsync", do_atomic},  {"close", do_atomic},
        {"fopen", do_stream},  {"fwrite", do_stream}, {"fflush", do_stream}, {"fsync", do_stream},
        {"fclose", do_stream}, {"open", do_parent},   {"fsync", do_parent},  {"close", do_parent},
        {"open", do_store},    {"write", do_store},   {"close", do_store},   {"open", do_read},
        {"read", do_read},     {"close", do_read},    {"open", do_json},     {"read", do_json},
        {"close", do_json},
    };
    for (const Row& row : rows) {
        for (const bool enabled : {true, false}) {
            SCOPED_TRACE(testing::Message() << row.call << ' ' << (&row - rows) << ' ' << enabled);
            put(record(full_header().SerializeAsString()));
            const auto files = open_files();
            Fault fault{row.call};
            fault.before = [] {
                (void)pthread_cancel(pthread_self());
                pthread_testcancel();
            };
            bool survived = false;
            std::thread thread([&] {
                int state = -1;
                (void)pthread_setcancelstate(
                    enabled ? PTHREAD_CANCEL_ENABLE : PTHREAD_CANCEL_DISABLE, nullptr);
                (void)calls_of(fault, row.work);
                survived = true;
                (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
                EXPECT_EQ(state, enabled ? PTHREAD_CANCEL_ENABLE : PTHREAD_CANCEL_DISABLE);
            });
            thread.join();
            const std::string call = row.call;
            EXPECT_EQ(survived, !enabled || call == "close" || call == "fclose");
            EXPECT_EQ(open_files(), files);
        }
    }
}

TEST_F(Files, OddFaultsAndPermissions) {
    const std::string packet = full_header().SerializeAsString();
    for (const std::size_t end : {4096U, 4097U}) {
        put(std::string(end - record(packet).size(), 'x'));
        EXPECT_EQ(calls_of(kNone, [&] { EXPECT_EQ(store(packet), 0U); }),
                  end == 4096 ? " open fstat write close" : " open fstat fallocate write close");
    }
    put("[1]");
    EXPECT_EQ(calls_of({"read", EINTR},
                       [&] {
                           char text[8];
                           EXPECT_EQ(get_json_file(path_.c_str(), text, sizeof text), 1);
                       }),
              " open fstat read read read close");
    // More than one block, of which the second cannot be read.
    Header large;
    large.set_body(times(16000, 'b'));
    const std::string block = record(large.SerializeAsString());
    put(block + block + block + block + block);
    std::vector<uint8_t> room(block.size());
    uint8_t* bufs[] = {room.data(), room.data(), room.data(), room.data(), room.data(), nullptr};
    uint32_t lens[5];
    uint32_t count = 0;
    const auto read = [&] { return read_proto_msg_from_file(bufs, &count, lens, path_.c_str()); };
    (void)calls_of({"read", EIO, 2}, [&] { EXPECT_EQ(read(), VYN_NOT_SERIALIZED); });
    EXPECT_EQ(count, 0U);
    (void)take_log();
    // An empty packet that is stored meanwhile is left for another time.
    put(record("") + record(""));
    Fault another{"read"};
    another.before = [&] { std::ofstream(path_, std::ios::app) << record(""); };
    (void)calls_of(another, [&] { EXPECT_EQ(read(), VYN_OK); });
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(take_log(), LogLines{});
    // A disk that fills up in the middle of a record, although it was reserved.
    (void)calls_of({"write", 0, 1, 1, true}, [&] { EXPECT_EQ(store(""), VYN_NOT_SERIALIZED); });
    // What failed is told, not what went wrong while cleaning up.
    put(kOld);
    fs::create_directory(path_ + ".tmp");
    (void)calls_of({"unlink", EROFS}, [&] {
        EXPECT_EQ(replace(kNew), 0);
        EXPECT_EQ(errno, EISDIR);
    });
    EXPECT_EQ(get(), kOld);
    fs::remove(path_ + ".tmp");
    const mode_t mask = umask(0);
    EXPECT_EQ(replace(kNew), 1);
    EXPECT_EQ(fs::status(path_).permissions(), static_cast<fs::perms>(0644));
    fs::remove(path_);
    EXPECT_EQ(store(""), VYN_OK);
    EXPECT_EQ(fs::status(path_).permissions(), static_cast<fs::perms>(0666));
    (void)umask(mask);
}

TEST_F(Files, AtomicWriterRefusals) {
    const std::string missing = folder_ + "/none/target";
    const std::string victim = folder_ + "/victim";
    const std::string long_path = folder_ + std::string(4092 - folder_.size(), '/');
    std::ofstream(victim) << kOld;
    put(kOld);
    struct Row {
        const char* path;
        const char* data;
        uint32_t length;
        int error;
    };
    const Row rows[] = {
        {nullptr, "a", 1, EINVAL},          {path_.c_str(), nullptr, 1, EINVAL},
        {path_.c_str(), "a", 0, EINVAL},    {missing.c_str(), "a", 1, ENOENT},
        {folder_.c_str(), "a", 1, EISDIR},  {long_path.c_str(), "a", 1, ENAMETOOLONG},
        {long_path.c_str() + 1, "a", 1, 0},  // its directory is another one: ENOENT, or the like
    };
    for (const Row& row : rows) {
        const std::string calls = calls_of(kNone, [&] {
            errno = 0;
            EXPECT_EQ(write_to_file_using_mmap_atomic(row.path, row.data, row.length), 0);
        });
        EXPECT_TRUE(row.error != ENAMETOOLONG || calls.empty()) << calls;
        EXPECT_TRUE(row.error == 0 ? errno != ENAMETOOLONG : errno == row.error) << errno;
    }
    fs::create_symlink(victim, path_ + ".tmp");
    EXPECT_EQ(replace(kNew), 0);
    EXPECT_EQ(errno, ELOOP);
    EXPECT_EQ(names(), " target victim");
    EXPECT_EQ(fs::file_size(victim), kOld.size());
    EXPECT_EQ(get(), kOld);
    EXPECT_FALSE(fs::exists(folder_ + ".tmp"));
    // What a killed process left behind is used again.
    std::ofstream(path_ + ".tmp") << kOld << kOld;
    EXPECT_EQ(replace(kNew), 1);
    EXPECT_EQ(get(), kNew);
    EXPECT_EQ(names(), " target victim");
}

TEST_F(Files, StreamWriter) {
    EXPECT_EQ(write_stream("", path_), 1);
    EXPECT_EQ(get(), "");
    const Fault halves{"fwrite", 0, 1, 3, true};
    EXPECT_EQ(calls_of(halves, [&] { EXPECT_EQ(write_stream(kNew, path_), 1); }),
              " fopen fwrite fwrite fwrite fwrite fflush fsync fclose");
    EXPECT_EQ(get(), kNew);
    // A part was written and then an error: room that comes back must not hide the gap.
    const Fault gap{"fwrite", ENOSPC, 1, 1, true};
    EXPECT_EQ(calls_of(gap, [&] { EXPECT_EQ(write_stream(kNew, path_), 0); }),
              " fopen fwrite fclose");
    EXPECT_EQ(take_log(), LogLines{debug_line("fwrite error")});
    EXPECT_EQ(write_stream(kNew, path_), 1);
    EXPECT_EQ(write_to_file_using_fop(nullptr, "a", 1), 0);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    EXPECT_EQ(write_to_file_using_fop(path_.c_str(), nullptr, 1), 0);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(take_log(), LogLines{});
    EXPECT_EQ(get(), kNew);

    EXPECT_EQ(write_stream(kNew, "/dev/full"), 0);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(take_log().front(), debug_line("fflush error"));
    EXPECT_EQ(write_stream(std::string(100000, 'x'), "/dev/full"), 0);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(take_log().front(), debug_line("fwrite error"));
}

TEST_F(Files, ParentDirectory) {
    const fs::path before = fs::current_path();
    fs::current_path(folder_);
    const std::string longest = std::string(253, '/') + "x";
    const std::string dir = folder_ + "/none";
    const std::string link = folder_ + "/link";
    fs::create_directory_symlink(folder_, link);
    struct Row {
        std::string path;
        std::string dir;  // empty: the directory is not come to
        int error;
    };
    const Row rows[] = {
        {"target", ".", 0},
        {path_, folder_, 0},
        {link + "/x", link, 0},
        {"/x", "/", 0},
        {folder_ + "//", fs::path(folder_).parent_path(), 0},
        {"/" + longest, "/", 0},
        {"//" + longest, "", ENAMETOOLONG},
        {dir + "/x", dir, ENOENT},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.path);
        LogLines expected;
        if (!row.dir.empty()) {
            expected.push_back(debug_line("fsync_parent_dir: started for dir " + row.dir));
        }
        if (row.error == 0) {
            expected.push_back(debug_line("fsync_parent_dir: success for dir " + row.dir));
        }
        const std::string calls = calls_of(kNone, [&] {
            errno = 0;
            EXPECT_EQ(fsync_parent_dir(row.path.c_str()), row.error == 0 ? 0 : -1);
            EXPECT_TRUE(row.error == 0 || errno == row.error) << errno;
        });
        EXPECT_TRUE(row.error != 0 || calls == " open fsync close") << calls;
        EXPECT_EQ(take_log(), expected);
    }
    fs::current_path(before);
    EXPECT_EQ(fsync_parent_dir(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(Files, JsonWriter) {
    EXPECT_EQ(write_to_file(path_.c_str(), "{ \"a\": [1, 2.5] }"), 1);
    EXPECT_EQ(get(), "{\"a\":[1,2.5]}");
    for (const char* text : {"{", "null", ""}) {
        EXPECT_EQ(write_to_file(path_.c_str(), text), 0) << text;
    }
    EXPECT_EQ(write_to_file(path_.c_str(), nullptr), 0);
    EXPECT_EQ(write_to_file(nullptr, "{}"), 0);
    EXPECT_EQ(get(), "{\"a\":[1,2.5]}");
    EXPECT_EQ(write_to_file(folder_.c_str(), "{}"), 0);
    EXPECT_EQ(errno, EISDIR);
    EXPECT_EQ(write_to_file("/dev/full", "{}"), 0);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(Files, BoundedCopy) {
    for (const uint32_t dest_size : {0U, 4U, 10U}) {
        for (const uint32_t src_size : {0U, 4U, 10U}) {
            std::string dest(10, '.');
            const uint32_t copied = std::min(dest_size, src_size);
            EXPECT_EQ(memscpy(dest.data(), dest_size, "abcdefghij", src_size), copied);
            EXPECT_EQ(dest, std::string("abcdefghij").substr(0, copied) + times(10 - copied, '.'));
        }
    }
}

}  // namespace
}  // namespace vyn_test
