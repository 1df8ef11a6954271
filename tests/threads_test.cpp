// Eight threads at once on the ids, LOG() with a threshold that changes, the conversions, JSON
// documents and files: each gets what it would get alone, and the thread sanitizer finds nothing.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "json_helper.h"
#include "logger.h"
#include "proto_helper.h"
#include "support/log_trap.h"
#include "support/packets.h"
#include "vyn_header.h"

using vyn_test::bytes_of;
using vyn_test::compressed;
using vyn_test::full_header;
using vyn_test::length_of;

namespace {

constexpr uint32_t kThreads = 8;
constexpr uint32_t kRounds = 300;

std::string received(const std::string& pkt) {
    std::string json(4096, '#');
    EXPECT_EQ(cnvrt_protobuf_to_json_hdr(bytes_of(pkt), json.data(), length_of(pkt), 4096), 0U);
    return json.substr(0, json.find('\0'));
}

std::string sent(const std::string& json) {
    std::string wire(4096, '#');
    uint32_t length = 0;
    EXPECT_EQ(cnvrt_json_hdr_to_protobuf(json.c_str(), bytes_of(wire), 4096, &length), 0U);
    return wire.substr(0, length);
}

// Of what every thread does on documents and files of its own; empty when all went well.
std::string misdone(const std::string& path, const std::string& pkt) {
    char doc[256] = R"({"a":[1]})";
    char dest[256];
    std::string json;
    Header header;
    uint8_t record[2048];
    uint8_t* bufs[] = {record, nullptr};
    uint32_t count = 0;
    uint32_t length = 0;
    const char* file = path.c_str();
    (void)std::remove(file);
    const bool packets =
        store_proto_msg_to_file(bytes_of(pkt), static_cast<int>(pkt.size()), file) == 0 &&
        read_proto_msg_from_file(bufs, &count, &length, file) == 0 &&
        std::string(bufs[0], bufs[0] + length) == pkt;
    const bool texts = header.ParseFromString(pkt) && ProtoToJson(json, header) &&
                       JsonToProto(json, header) && header.SerializeAsString() == pkt &&
                       set_key_json(doc, "k", path.c_str(), sizeof doc) == 1 &&
                       get_key_json(doc, "k", dest, sizeof dest) == 1 && path == dest &&
                       find_key_regex(dest, "[0-9]$") == 1;
    const bool files = write_to_file(file, doc) == 1 && fsync_parent_dir(file) == 0 &&
                       write_to_file_using_fop(file, doc, 9) == 1 &&
                       write_to_file_using_mmap_atomic(file, R"({"b":2})", 7) == 1 &&
                       get_json_file(file, dest, sizeof dest) == 1;
    (void)std::remove(file);
    return std::string(packets ? "" : "packets ") + (texts ? "" : "texts ") +
           (files ? "" : "files");
}

TEST(Threads, DoNotDisturbEachOther) {
    std::string folder = testing::TempDir() + "vyn_threads_XXXXXX";
    ASSERT_NE(mkdtemp(folder.data()), nullptr);
    folder += '/';
    std::mutex lock;
    std::set<uint32_t> message_ids;
    std::set<uint32_t> transaction_ids;
    const auto work = [&](uint32_t number) {
        Header header = full_header();
        header.set_device_id(std::to_string(number));
        header.set_body(vyn_test::times(1000, static_cast<char>('a' + number)));
        const std::string pkt = compressed(header.SerializeAsString());
        const std::string json = received(pkt);
        const std::string wire = sent(json);
        EXPECT_NE(json.find(R"("device_id": ")" + std::to_string(number)), std::string::npos);
        for (uint32_t round = 0; round < kRounds; ++round) {
            LOG(LOG_LEVEL_INFO, "thread %u round %u", number, round);
            update_log_level(round % 4);
            const uint32_t message_id = get_new_message_id();
            const uint32_t transaction_id = generate_unique_trans_id();
            char uuid[MSG_UUID_SIZE];
            get_new_message_uuid(uuid, sizeof uuid);
            ASSERT_EQ(received(pkt), json);
            ASSERT_EQ(sent(json), wire);
            if (round % 10 == 0) {
                ASSERT_EQ(misdone(folder + std::to_string(number), header.SerializeAsString()), "");
            }
            const std::lock_guard<std::mutex> hold(lock);
            message_ids.insert(message_id);
            transaction_ids.insert(transaction_id);
        }
    };
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (uint32_t number = 0; number < kThreads; ++number) {
        threads.emplace_back(work, number);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    (void)rmdir(folder.c_str());
    update_log_level(LOG_LEVEL_INFO);
    (void)vyn_test::take_log();
    EXPECT_EQ(message_ids.size(), kThreads * kRounds);
    EXPECT_EQ(transaction_ids.size(), kThreads * kRounds);
    EXPECT_EQ(*transaction_ids.rbegin() - *transaction_ids.begin() + 1, kThreads * kRounds);
}

}  // namespace
