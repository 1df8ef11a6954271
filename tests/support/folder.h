// A test in a folder of its own, with one file in it.
#ifndef VYN_TESTS_SUPPORT_FOLDER_H
#define VYN_TESTS_SUPPORT_FOLDER_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "proto_helper.h"
#include "support/log_trap.h"
#include "support/packets.h"

namespace vyn_test {

class Folder : public testing::Test {
protected:
    void SetUp() override {
        folder_ = testing::TempDir() + "vyn_test_XXXXXX";
        ASSERT_NE(mkdtemp(folder_.data()), nullptr);
        path_ = folder_ + "/target";
        (void)take_log();
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    void put(const std::string& bytes) const { std::ofstream(path_, std::ios::binary) << bytes; }
    [[nodiscard]] std::string get() const {
        std::ifstream in(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(in), {}};
    }
    [[nodiscard]] uint32_t store(const std::string& pkt) const {
        return store_proto_msg_to_file(bytes_of(pkt), static_cast<int32_t>(pkt.size()),
                                       path_.c_str());
    }

    std::string folder_, path_;
};

// A packet as it stands in a file.
inline std::string record(const std::string& pkt) {
    const std::size_t length = pkt.size();
    std::string prefix(1, static_cast<char>(length));
    if (length >= 0x80) {  // two bytes, up to 16383
        prefix = {static_cast<char>(length | 0x80), static_cast<char>(length >> 7)};
    }
    return prefix + pkt;
}

}  // namespace vyn_test

#endif  // VYN_TESTS_SUPPORT_FOLDER_H
