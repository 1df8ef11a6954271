// Packet files: what is stored comes back. Damage is up to a fuzz target and its seeds.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "proto_helper.h"
#include "support/folder.h"
#include "support/guarded.h"
#include "support/log_trap.h"
#include "support/packets.h"

namespace vyn_test {
namespace {

class PacketFile : public Folder {
protected:
    struct Records {
        uint32_t code;
        uint32_t count;
        std::vector<std::string> packets;
    };
    // Reads into slots of this many bytes, with nothing behind the last of them.
    [[nodiscard]] Records read(std::size_t slots = 8, std::size_t size = 200) const {
        std::vector<std::string> buffers(slots, times(size, '#'));
        const Guarded room(slots * sizeof(uint8_t*));
        auto* bufs = reinterpret_cast<uint8_t**>(room.get());
        const std::unique_ptr<uint32_t[]> lens(new uint32_t[slots]);
        for (std::size_t i = 0; i < slots; ++i) {
            bufs[i] = bytes_of(buffers[i]);
        }
        Records records{0, kUntouched, {}};
        records.code = read_proto_msg_from_file(bufs, &records.count, lens.get(), path_.c_str());
        for (uint32_t i = 0; i < records.count && records.count != kUntouched; ++i) {
            records.packets.push_back(buffers[i].substr(0, lens[i]));
            EXPECT_EQ(buffers[i].find_first_not_of('#', lens[i]), std::string::npos);
        }
        return records;
    }
};

std::string packet(const std::string& id) {
    Header header;
    header.set_message_id(id);
    return header.SerializeAsString();
}

TEST_F(PacketFile, StoresAndReadsInOrder) {
    const std::string full = full_header().SerializeAsString();
    const std::string unknown("\xA2\x06\x03xyz", 6);
    EXPECT_EQ(store(unknown + full), 0U);
    EXPECT_EQ(store(packet("second")), 0U);
    EXPECT_EQ(store(""), 0U);
    EXPECT_EQ(get(), record(full + unknown) + record(packet("second")) + record(""));
    const Records records = read(3);
    EXPECT_EQ(records.code, 0U);
    EXPECT_EQ(records.packets, (std::vector<std::string>{full + unknown, packet("second"), ""}));
    EXPECT_EQ(take_log(), LogLines{});
}

TEST_F(PacketFile, Refusals) {
    uint8_t byte = 0;
    uint8_t* bufs[] = {&byte, nullptr};
    uint8_t* none[] = {nullptr};
    uint32_t count = kUntouched;
    uint32_t lens[2] = {};
    const char* path = path_.c_str();
    EXPECT_EQ(store_proto_msg_to_file(nullptr, 0, path), 1U);
    EXPECT_EQ(store_proto_msg_to_file(&byte, 0, nullptr), 1U);
    EXPECT_EQ(read_proto_msg_from_file(nullptr, &count, lens, path), 1U);
    EXPECT_EQ(read_proto_msg_from_file(bufs, nullptr, lens, path), 1U);
    EXPECT_EQ(read_proto_msg_from_file(bufs, &count, nullptr, path), 1U);
    EXPECT_EQ(read_proto_msg_from_file(bufs, &count, lens, nullptr), 1U);
    EXPECT_EQ(read_proto_msg_from_file(none, &count, lens, path), 1U);
    EXPECT_EQ(count, kUntouched);

    EXPECT_EQ(read().code, 1U);  // no such file
    EXPECT_EQ(store("\xFF"), 11U);
    EXPECT_EQ(store_proto_msg_to_file(&byte, -1, path), 11U);
    EXPECT_NE(access(path, F_OK), 0) << "made for a packet that is none";
    put("");
    EXPECT_EQ(read().code, 7U);
    EXPECT_EQ(read().count, 0U);
    (void)unlink(path);
    ASSERT_EQ(mkfifo(path, 0600), 0);
    EXPECT_EQ(store(""), 12U);
    EXPECT_EQ(read().code, 1U);
    for (const char* other : {"/dev/null", "/tmp", "/none/packets"}) {
        EXPECT_EQ(store_proto_msg_to_file(&byte, 0, other), 12U) << other;
        EXPECT_EQ(read_proto_msg_from_file(bufs, &count, lens, other), 1U) << other;
    }
    EXPECT_EQ(take_log(), LogLines{});
}

TEST_F(PacketFile, ReadsAtMostSoMany) {
    std::string bytes;
    for (int i = 0; i < 13001; ++i) {
        bytes += record(packet(std::to_string(i)));
    }
    put(bytes);
    EXPECT_EQ(read(13001).count, 13000U);
    uint8_t buffer[100];
    uint8_t* bufs[] = {buffer, buffer, nullptr};
    uint32_t lens[2];
    uint32_t count = 0;
    EXPECT_EQ(read_proto_msg_from_file(bufs, &count, lens, path_.c_str()), 0U);
    EXPECT_EQ(count, 2U);
    const std::string large = packet(times(3000000, 'l'));  // its length takes four bytes
    (void)unlink(path_.c_str());
    EXPECT_EQ(store(large) + store(large), 0U);
    EXPECT_EQ(read(2, large.size()).packets, std::vector<std::string>(2, large));
}

// Records of 30 KB from four processes at once: none is lost, none is mixed.
TEST_F(PacketFile, ManyWriters) {
    constexpr int kWriters = 4;
    constexpr int kEach = 50;
    for (int writer = 0; writer < kWriters; ++writer) {
        if (fork() == 0) {
            uint32_t failures = 0;
            for (int i = 0; i < kEach; ++i) {
                failures += store(packet(times(30000, static_cast<char>('a' + writer))));
            }
            _exit(failures == 0 ? 0 : 1);
        }
    }
    int status = 0;
    for (int writer = 0; writer < kWriters; ++writer) {
        ASSERT_GT(wait(&status), 0);
        EXPECT_EQ(status, 0);
    }
    const Records records = read(kWriters * kEach, 31000);
    EXPECT_EQ(records.count, static_cast<uint32_t>(kWriters * kEach));
    for (const std::string& pkt : records.packets) {
        EXPECT_EQ(pkt, packet(times(30000, pkt.back())));
    }
}

// A file system that is full, by way of the limit that every user can set.
TEST_F(PacketFile, WhatDoesNotFitIsNotCalledStored) {
    const std::string pkt = packet(times(100, 'x'));
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{9 * record(pkt).size(), before.rlim_max};  // nine, and no byte more
    ASSERT_NE(signal(SIGXFSZ, SIG_IGN), SIG_ERR);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    uint32_t stored = 0;
    uint32_t refused = 0;
    for (int i = 0; i < 12; ++i) {
        const uint32_t code = store(pkt);
        EXPECT_TRUE(code == 0 || code == 7) << code;
        ++(code == 0 ? stored : refused);
    }
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_EQ(take_log(),
              LogLines(refused, error_line("store_proto_msg_to_file: record not stored, "
                                           "errno 27")));
    EXPECT_EQ(stored, 9U);
    EXPECT_EQ(store(pkt), 0U);  // behind no tear
    EXPECT_EQ(read(12).packets, std::vector<std::string>(stored + 1, pkt));
}

}  // namespace
}  // namespace vyn_test
