// Packet files: any bytes read as one, and what was read stored again. The input: a line of the
// number of buffers, a line of a number by which the bytes are repeated, then the bytes.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "fuzz.h"
#include "proto_helper.h"

using vyn_fuzz::Buffer, vyn_fuzz::require;
using Records = std::vector<std::string>;

constexpr uint32_t kLimit = 2 * VYN_MAX_RECORDS;
constexpr std::size_t kFew = 8;  // so many empty ones are no damage
static const int file = memfd_create("packets", MFD_CLOEXEC);
static const std::string path = "/proc/self/fd/" + std::to_string(file);

// Reads with so many buffers, each for any record of this file. More than a few are shared.
static Records read_file(std::size_t count) {
    const std::size_t largest = static_cast<std::size_t>(::lseek(file, 0, SEEK_END)) + 5;
    std::vector<Buffer> buffers;
    for (std::size_t i = 0; i < kFew; ++i) {
        buffers.emplace_back(largest);
    }
    std::vector<uint8_t*> slots(std::min<std::size_t>(count + 1, VYN_MAX_RECORDS), nullptr);
    for (std::size_t i = 0; i < std::min(count, slots.size()); ++i) {
        slots[i] = buffers[i % kFew].bytes();
    }
    std::vector<uint32_t> lengths(std::min(count, slots.size()));
    uint32_t read = vyn_test::kUntouched;
    const uint32_t code =
        read_proto_msg_from_file(slots.data(), &read, lengths.data(), path.c_str());
    require(code == (read > 0 ? VYN_OK : VYN_NOT_SERIALIZED) && read <= lengths.size(), "a count");
    Records records;
    for (std::size_t i = 0; i < read; ++i) {
        const uint8_t* record = buffers[i % kFew].bytes();
        records.emplace_back(record, record + lengths[i]);
    }
    return records;
}

// Whether a packet can be.
static bool store(const std::string& pkt) {
    const Buffer in(pkt);
    const uint32_t code =
        store_proto_msg_to_file(in.bytes(), static_cast<int32_t>(in.size), path.c_str());
    require(code == (Header().ParseFromString(pkt) ? VYN_OK : VYN_BAD_BODY),
            "any packet is stored");
    return code == VYN_OK;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)vyn_test::take_log();
    std::string input(reinterpret_cast<const char*>(data), size);
    const uint32_t count = 1 + vyn_fuzz::take_number(input) % kLimit;
    const uint32_t times = vyn_fuzz::take_number(input) % kLimit;
    std::string bytes = input;
    for (uint32_t i = 1; i < times && bytes.size() < kLimit; ++i) {
        bytes += input;
    }
    require(::ftruncate(file, 0) == 0 && ::pwrite(file, bytes.data(), bytes.size(), 0) >= 0,
            "a file");
    const std::size_t all = read_file(count).size();
    Records records = read_file(kFew);
    require(std::min<std::size_t>(count, records.size()) == std::min(all, kFew),
            "the same records");

    require(::ftruncate(file, 0) == 0, "a new file");
    for (const std::string& record : records) {
        require(store(record), "what was read is stored");
    }
    require(read_file(kFew) == records, "what was stored is read");
    if (store(input) && records.size() < kFew) {
        Header header;
        (void)header.ParseFromString(input);
        records.push_back(header.SerializeAsString());
    }
    require(read_file(kFew) == records, "a packet that was stored is read");
    return 0;
}
