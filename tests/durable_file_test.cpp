// Whole files on flash, and the packet file, while the system's calls fail.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#include "json_helper.h"
#include "proto_helper.h"
#include "support/fault_switch.h"
#include "support/log_trap.h"
#include "support/packets.h"
#include "vyn_header.h"

namespace fs = std::filesystem;
using vyn_test::bytes_of;
using vyn_test::calls_of;
using vyn_test::debug_line;
using vyn_test::Fault;
using vyn_test::LogLines;
using vyn_test::take_log;

namespace {

constexpr int kErrors[] = {ENOSPC, EIO, EINTR, EDQUOT, EROFS};
const std::string kOld = "old contents, which are longer than the new ones";
const std::string kNew = "new contents";
const Fault kNone{"", 0};

class Files : public testing::Test {
protected:
    void SetUp() override {
        std::string folder = testing::TempDir() + "vyn_files_XXXXXX";
        ASSERT_NE(mkdtemp(folder.data()), nullptr);
        folder_ = folder;
        path_ = folder + "/target";
        before_ = fs::current_path();
        (void)take_log();
    }
    void TearDown() override {
        fs::current_path(before_);
        fs::remove_all(folder_);
    }

    void put(const std::string& bytes) const { std::ofstream(path_, std::ios::binary) << bytes; }
    [[nodiscard]] std::string get() const {
        std::ifstream in(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    // What is in the folder, in alphabetical order, each name behind a blank.
    [[nodiscard]] std::string names() const {
        std::vector<std::string> found;
        for (const auto& entry : fs::directory_iterator(folder_)) {
            found.push_back(entry.path().filename().string());
        }
        std::sort(found.begin(), found.end());
        std::string all;
        for (const std::string& name : found) {
            all += " " + name;
        }
        return all;
    }
    [[nodiscard]] int replace(const std::string& bytes) const {
        return write_to_file_using_mmap_atomic(path_.c_str(), bytes.data(),
                                               static_cast<uint32_t>(bytes.size()));
    }
    static int write_stream(const std::string& bytes, const std::string& path) {
        return write_to_file_using_fop(path.c_str(), bytes.data(),
                                       static_cast<uint32_t>(bytes.size()));
    }
    [[nodiscard]] uint32_t store(const std::string& packet) const {
        return store_proto_msg_to_file(bytes_of(packet), static_cast<int32_t>(packet.size()),
                                       path_.c_str());
    }
    [[nodiscard]] uint32_t read_back(uint32_t& count) const {
        uint8_t room[4][256];
        uint8_t* slots[] = {room[0], room[1], room[2], room[3], nullptr};
        uint32_t lengths[4];
        return read_proto_msg_from_file(slots, &count, lengths, path_.c_str());
    }
    static std::ptrdiff_t open_files() {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    }

    std::string folder_;
    std::string path_;
    fs::path before_;
};

TEST_F(Files, AtomicWriterMakesItsCallsInOrder) {
    const mode_t mask = umask(0);
    EXPECT_EQ(calls_of(kNone, [&] { EXPECT_EQ(replace(kNew), 1); }),
              " open ftruncate posix_fallocate mmap msync munmap fsync close rename");
    (void)umask(mask);
    EXPECT_EQ(get(), kNew);
    EXPECT_EQ(names(), " target");
    EXPECT_EQ(fs::status(path_).permissions(), static_cast<fs::perms>(0644));
}

TEST_F(Files, AtomicWriterUnderFaults) {
    struct Row {
        const char* call;
        bool fatal;
        bool retries;  // an interruption, that is
    };
    constexpr Row kRows[] = {
        {"open", true, false},  {"ftruncate", true, false}, {"posix_fallocate", true, true},
        {"mmap", true, false},  {"msync", true, false},     {"munmap", false, false},
        {"fsync", true, false}, {"close", false, false},    {"rename", true, false},
    };
    for (const Row& row : kRows) {
        for (const int error : kErrors) {
            SCOPED_TRACE(std::string(row.call) + ", errno " + std::to_string(error));
            put(kOld);
            const auto files = open_files();
            const bool fails = row.fatal && !(row.retries && error == EINTR);
            int result = -1;
            int left = 0;
            (void)calls_of({row.call, error, 1, 1, false, EBADF}, [&] {
                errno = 0;
                result = replace(kNew);
                left = errno;
            });
            EXPECT_EQ(result, fails ? 0 : 1);
            EXPECT_EQ(get(), fails ? kOld : kNew);
            EXPECT_TRUE(!fails || left == error) << left;
            EXPECT_EQ(names(), " target");
            EXPECT_EQ(open_files(), files);
            EXPECT_EQ(take_log(), LogLines{});
        }
    }
}

TEST_F(Files, AtomicWriterReservesWhereItCan) {
    for (const int error : {EOPNOTSUPP, ENOSYS}) {
        (void)calls_of({"posix_fallocate", error}, [&] { EXPECT_EQ(replace(kNew), 1); });
        EXPECT_EQ(get(), kNew);
    }
    const std::string calls = calls_of({"posix_fallocate", EINTR, 1, 1000}, [&] {
        EXPECT_EQ(replace(kOld), 0);
        EXPECT_EQ(errno, EINTR);
    });
    EXPECT_LT(calls.size(), 400U);
    EXPECT_EQ(get(), kNew);
    // What failed is told, not what went wrong while cleaning up.
    Fault failing{"unlink", EROFS};
    fs::create_directory(path_ + ".tmp");
    (void)calls_of(failing, [&] {
        EXPECT_EQ(replace(kOld), 0);
        EXPECT_EQ(errno, EISDIR);
    });
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
    EXPECT_EQ(calls_of(kNone, [&] { EXPECT_EQ(write_stream(kNew, path_), 1); }),
              " fopen fwrite fflush fsync fclose");
    EXPECT_EQ(get(), kNew);
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

TEST_F(Files, StreamWriterUnderFaults) {
    struct Row {
        const char* call;
        const char* line;
        int result;
        int error;  // 0: that of the fault
    };
    constexpr Row kRows[] = {
        {"fopen", "fopen error", 0, 0},   {"fwrite", "fwrite-short error", 0, EIO},
        {"fflush", "fflush error", 0, 0}, {"fsync", "fsync error", 0, 0},
        {"fclose", "fclose error", 1, 0},
    };
    for (const Row& row : kRows) {
        for (const int error : kErrors) {
            SCOPED_TRACE(std::string(row.call) + ", errno " + std::to_string(error));
            const auto files = open_files();
            const std::string calls = calls_of({row.call, error}, [&] {
                errno = 0;
                EXPECT_EQ(write_stream(kNew, path_), row.result);
                EXPECT_EQ(errno, row.error != 0 ? row.error : error);
            });
            EXPECT_EQ(calls.find("fsync"), calls.rfind("fsync"));  // not twice
            EXPECT_EQ(take_log(), LogLines{debug_line(row.line)});
            EXPECT_EQ(open_files(), files);
            if (row.result == 0) {  // the first failure is told, not that of the close
                (void)calls_of({row.call, error, 1, 1, false, EBADF}, [&] {
                    EXPECT_EQ(write_stream(kNew, path_), 0);
                    EXPECT_EQ(errno, row.error != 0 ? row.error : error);
                });
                const LogLines lines = take_log();
                EXPECT_EQ(lines.size(), std::string(row.call) == "fopen" ? 1U : 2U);
                EXPECT_EQ(lines.front(), debug_line(row.line));
            }
        }
    }
}

TEST_F(Files, ParentDirectory) {
    fs::current_path(folder_);
    const std::string longest = std::string(253, '/') + "x";
    const std::string dir = folder_ + "/none";
    struct Row {
        std::string path;
        std::string dir;  // empty: the directory is not come to
        int error;
    };
    const Row rows[] = {
        {"target", ".", 0},
        {path_, folder_, 0},
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
    EXPECT_EQ(fsync_parent_dir(nullptr), -1);
    EXPECT_EQ(errno, EINVAL);
    for (const int error : kErrors) {
        for (const char* call : {"open", "fsync", "close"}) {
            const bool fails = std::string(call) != "close";
            const auto files = open_files();
            (void)calls_of({call, error, 1, 1, false, fails ? EBADF : 0}, [&] {
                EXPECT_EQ(fsync_parent_dir("/x"), fails ? -1 : 0);
                EXPECT_TRUE(!fails || errno == error) << errno;
            });
            EXPECT_EQ(open_files(), files);
        }
        const LogLines lines = take_log();  // open: 1, fsync and close: 2
        ASSERT_EQ(lines.size(), 5U);
        EXPECT_EQ(lines[2], debug_line("fsync_parent_dir: failed for dir /"));
    }
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
    struct Row {
        uint32_t dest_size;
        uint32_t src_size;
        const char* result;
    };
    constexpr Row kRows[] = {{4, 10, "abcd......"},
                             {10, 4, "abcd......"},
                             {0, 10, ".........."},
                             {10, 0, ".........."},
                             {10, 10, "abcdefghij"}};
    for (const Row& row : kRows) {
        std::string dest(10, '.');
        EXPECT_EQ(memscpy(dest.data(), row.dest_size, "abcdefghij", row.src_size),
                  std::min(row.dest_size, row.src_size));
        EXPECT_EQ(dest, row.result);
    }
}

// ---- The packet file ----------------------------------------------------------------------------

TEST_F(Files, PacketFileUnderFaults) {
    const std::string packet = vyn_test::full_header().SerializeAsString();
    EXPECT_EQ(calls_of(kNone, [&] { EXPECT_EQ(store(packet), VYN_OK); }),
              " open fstat fallocate write close");
    uint32_t count = 0;
    EXPECT_EQ(calls_of(kNone, [&] { EXPECT_EQ(read_back(count), VYN_OK); }),
              " open fstat read close");
    struct Row {
        bool storing;
        Fault fault;
        uint32_t code;
        uint32_t stored;  // whole records afterwards
    };
    std::vector<Row> rows = {
        {true, {"fallocate", EINTR}, VYN_OK, 2},
        {true, {"fallocate", EINTR, 1, 1000}, VYN_NOT_SERIALIZED, 1},
        {true, {"fallocate", EOPNOTSUPP}, VYN_OK, 2},
        {true, {"fallocate", ENOSYS}, VYN_OK, 2},
        {true, {"write", EINTR}, VYN_OK, 2},
        {true, {"write", EINTR, 1, 1000}, VYN_NOT_SERIALIZED, 1},
        {true, {"write", 0, 1, 1, true}, VYN_NOT_SERIALIZED, 1},
        {true, {"close", EINTR}, VYN_OK, 2},
        {false, {"read", EINTR}, VYN_OK, 1},
        {false, {"read", EINTR, 1, 1000}, VYN_NOT_SERIALIZED, 0},
        {false, {"close", EIO}, VYN_OK, 1},
    };
    for (const int error : {ENOSPC, EIO, EDQUOT, EROFS}) {
        rows.push_back({true, {"open", error}, VYN_FILE_NOT_OPENED, 1});
        rows.push_back({true, {"fstat", error}, VYN_FILE_NOT_OPENED, 1});
        rows.push_back({true, {"fallocate", error}, VYN_NOT_SERIALIZED, 1});
        rows.push_back({true, {"write", error}, VYN_NOT_SERIALIZED, 1});
        rows.push_back({true, {"close", error}, VYN_NOT_SERIALIZED, 2});
        rows.push_back({false, {"open", error}, VYN_NULL_POINTER, 0});
        rows.push_back({false, {"read", error}, VYN_NOT_SERIALIZED, 0});
    }
    for (const Row& row : rows) {
        SCOPED_TRACE((row.storing ? "store: " : "read: ") + row.fault.call + ", errno " +
                     std::to_string(row.fault.error) + ", " + std::to_string(row.fault.times));
        fs::remove(path_);
        ASSERT_EQ(store(packet), VYN_OK);
        (void)take_log();
        const auto files = open_files();
        count = 0;
        (void)calls_of(row.fault, [&] {
            EXPECT_EQ(row.storing ? store(packet) : read_back(count), row.code);
        });
        EXPECT_EQ(open_files(), files);
        EXPECT_EQ(take_log().size(), row.code == VYN_NOT_SERIALIZED ? 1U : 0U);
        if (row.storing) {
            EXPECT_EQ(read_back(count), VYN_OK);
        }
        EXPECT_EQ(count, row.stored);
    }
}

}  // namespace
