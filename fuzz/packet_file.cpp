// Packet files: any bytes read as one, what was read stored, and that damaged. The input: a line of
// the number of buffers, a line of how often the bytes repeat or where the damage is, then the bytes.
#include <google/protobuf/io/coded_stream.h>

#include <algorithm>
#include <fstream>
#include <vector>

#include "fuzz.h"
#include "proto_helper.h"

using vyn_fuzz::Buffer, vyn_fuzz::require;
using Records = std::vector<std::string>;

constexpr uint32_t kMostBytes = 6 * VYN_MAX_RECORDS;  // more than one block of the reader
constexpr std::size_t kFew = 8;                       // so many empty ones are no damage
constexpr int kMaxPrefix = 5;                         // bytes of a length

// The first records of a file of these bytes, up to the first damage, and where that is.
static Records records_in(const std::string& bytes, std::size_t count, std::size_t* damaged) {
    Records records;
    Header header;
    *damaged = std::string::npos;
    for (std::size_t at = 0; at < bytes.size() && records.size() < VYN_MAX_RECORDS;) {
        google::protobuf::io::CodedInputStream rest(vyn_test::bytes_of(bytes) + at,
                                                    static_cast<int>(bytes.size() - at));
        uint64_t length = 0;
        std::string record;
        if ((bytes.size() - at > kFew && bytes.find_first_not_of('\0', at) == std::string::npos) ||
            !rest.ReadVarint64(&length) || rest.CurrentPosition() > kMaxPrefix ||
            length > bytes.size() || !rest.ReadString(&record, static_cast<int>(length)) ||
            !header.ParseFromString(record)) {
            *damaged = at;
            break;
        }
        if (records.size() == count) {  // is looked at, too
            break;
        }
        records.push_back(header.SerializeAsString());
        at += static_cast<std::size_t>(rest.CurrentPosition());
    }
    return records;
}

// What a file of these bytes holds; it is read with so many buffers, each of its record's size.
static Records read_as_they_are(const std::string& path, const std::string& bytes,
                                std::size_t count = kFew) {
    std::ofstream(path) << bytes;
    std::size_t damaged = 0;
    Records records = records_in(bytes, count, &damaged);
    std::vector<Buffer> buffers;
    std::vector<uint8_t*> slots;
    for (std::size_t i = 0; i <= records.size(); ++i) {
        buffers.emplace_back(i < records.size() ? records[i].size() : 0);
    }
    for (std::size_t i = 0; i < count; ++i) {
        slots.push_back(buffers[std::min(i, records.size())].bytes());
    }
    slots.resize(std::min<std::size_t>(count + 1, VYN_MAX_RECORDS), nullptr);
    std::vector<uint32_t> lengths(count);
    uint32_t read = vyn_test::kUntouched;
    const uint32_t code =
        read_proto_msg_from_file(slots.data(), &read, lengths.data(), path.c_str());
    require(code == (read > 0 ? VYN_OK : VYN_NOT_SERIALIZED) && read == records.size(),
            "all records up to the damage");
    require(
        vyn_test::take_log() == (damaged == std::string::npos
                                     ? vyn_test::LogLines{}
                                     : vyn_test::LogLines{vyn_test::error_line(
                                           "read_proto_msg_from_file: damaged record at offset " +
                                           std::to_string(damaged))}),
        "a line where the damage is");
    for (std::size_t i = 0; i < read; ++i) {
        require(lengths[i] == records[i].size() && buffers[i].contents() == records[i], "a record");
    }
    return records;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    (void)vyn_test::take_log();
    std::string input(reinterpret_cast<const char*>(data), size);
    const uint32_t count = 1 + vyn_fuzz::take_number(input) % VYN_MAX_RECORDS;
    const uint32_t times = vyn_fuzz::take_number(input) % kMostBytes;
    std::string bytes = input;
    for (uint32_t i = 1; i < times && bytes.size() < kMostBytes; ++i) {
        bytes += input;
    }
    const vyn_fuzz::File packets;
    const std::string& path = packets.path;
    Records records = read_as_they_are(path, bytes, count);

    const std::ofstream emptied(path);
    Header last;
    const bool read = last.ParseFromString(input);
    records.resize(std::min(records.size(), kFew - 1));
    records.push_back(input);
    for (const std::string& record : records) {
        const Buffer in(record);
        require(store_proto_msg_to_file(in.bytes(), static_cast<int>(in.size), path.c_str()) ==
                    (&record != &records.back() || read ? VYN_OK : VYN_BAD_BODY),
                "any packet is stored");
    }
    records.back() = last.SerializeAsString();
    records.resize(records.size() - (read ? 0 : 1));
    std::ifstream file(path);
    std::string whole(std::istreambuf_iterator<char>(file), {});
    std::size_t damaged = 0;
    require(records_in(whole, kFew, &damaged) == records && damaged == std::string::npos,
            "what was stored is there");

    const std::size_t at = times % (whole.size() + 1);
    (void)read_as_they_are(path, whole.substr(0, at));
    (void)read_as_they_are(path, std::string(whole).replace(at, 1, 1, static_cast<char>(count)));
    (void)read_as_they_are(path, whole.insert(at, input, 0, kFew));
    return 0;
}
