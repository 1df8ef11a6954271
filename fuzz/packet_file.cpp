// Packet files: reads any bytes as one, and stores the packets that were read. The input: a line of
// the number of buffers, a line which tells how often the bytes repeat, then the bytes.
#include <google/protobuf/io/coded_stream.h>

#include <algorithm>
#include <vector>

#include "fuzz.h"
#include "proto_helper.h"
#include "reference/plain_chain.h"

using vyn_fuzz::Buffer, vyn_fuzz::require;
using Packets = std::vector<std::string>;

constexpr uint32_t kMostBytes = 6 * VYN_MAX_RECORDS;  // more than one block of the reader
constexpr std::size_t kFew = 8;                       // so many zeros at the end are no damage
constexpr int kMaxPrefix = 5;                         // a length takes no more bytes

// The model: the packets of the first entries of a file up to the damage, and where that is. One
// entry more is looked at.
static Packets packets_in(const std::string& bytes, std::size_t count, std::size_t& damaged) {
    Packets packets;
    Header header;
    bool any_contents = false;  // without any, the file holds empty packets and is whole
    damaged = std::string::npos;
    for (std::size_t at = 0; at < bytes.size() && packets.size() < VYN_MAX_RECORDS;) {
        google::protobuf::io::CodedInputStream rest(vyn_test::bytes_of(bytes) + at,
                                                    static_cast<int>(bytes.size() - at));
        uint64_t length = 0;
        std::string packet;
        const bool only_zeros = bytes.find_first_not_of('\0', at) == std::string::npos;
        if ((only_zeros && any_contents && bytes.size() - at > kFew) ||
            !rest.ReadVarint64(&length) || rest.CurrentPosition() > kMaxPrefix ||
            length > bytes.size() || !rest.ReadString(&packet, static_cast<int>(length)) ||
            !plain_chain::parse(vyn_test::bytes_of(packet), packet.size(), header)) {
            damaged = at;
            break;
        }
        if (packets.size() == count) {
            break;
        }
        any_contents = any_contents || !packet.empty();
        packets.push_back(header.SerializeAsString());
        at += static_cast<std::size_t>(rest.CurrentPosition());
    }
    return packets;
}

// Reads a file of these bytes into so many buffers, each of its packet's size. Gives what it holds.
static Packets read_back(const std::string& path, const std::string& bytes, std::size_t count) {
    std::ofstream(path) << bytes;
    std::size_t damaged = 0;
    Packets packets = packets_in(bytes, count, damaged);
    std::vector<Buffer> buffers;
    std::vector<uint8_t*> slots;
    for (const std::string& packet : packets) {
        slots.push_back(buffers.emplace_back(packet.size()).bytes());
    }
    const Buffer none(0);
    slots.resize(count, none.bytes());
    slots.resize(std::min<std::size_t>(count + 1, VYN_MAX_RECORDS), nullptr);
    std::vector<uint32_t> lengths(count);
    uint32_t read = vyn_test::kUntouched;
    (void)vyn_test::take_log();
    const uint32_t code =
        read_proto_msg_from_file(slots.data(), &read, lengths.data(), path.c_str());
    require(code == (read > 0 ? VYN_OK : VYN_NOT_SERIALIZED) && read == packets.size(),
            "all packets up to the damage");
    const std::string line = "read_proto_msg_from_file: damaged record at offset ";
    require(vyn_test::take_log() ==
                vyn_test::LogLines(damaged == std::string::npos ? 0 : 1,
                                   vyn_test::error_line(line + std::to_string(damaged))),
            "a line where the damage is");
    for (std::size_t i = 0; i < read; ++i) {
        require(lengths[i] == packets[i].size() && buffers[i].contents() == packets[i], "a packet");
    }
    return packets;
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string input(reinterpret_cast<const char*>(data), size);
    const uint32_t count = 1 + vyn_fuzz::take_number(input) % VYN_MAX_RECORDS;
    const uint32_t times = vyn_fuzz::take_number(input) % kMostBytes;
    std::string bytes = input;
    for (uint32_t i = 1; i < times && bytes.size() < kMostBytes; ++i) {
        bytes += input;
    }
    const vyn_fuzz::File file;
    const char* path = file.path.c_str();
    Packets stored = read_back(path, bytes, count);
    stored.resize(std::min(stored.size(), kFew - 1));
    (void)std::remove(path);

    const auto store = [&](const std::string& packet) {
        const Buffer in(packet);
        return store_proto_msg_to_file(in.bytes(), static_cast<int>(in.size), path);
    };
    for (const std::string& packet : stored) {
        require(store(packet) == VYN_OK, "any packet is stored");
    }
    Header header;
    const bool is_packet = plain_chain::parse(vyn_test::bytes_of(input), input.size(), header);
    require(store(input) == (is_packet ? VYN_OK : VYN_BAD_BODY), "nothing else is");
    if (is_packet) {
        stored.push_back(header.SerializeAsString());
    }
    std::size_t damaged = 0;
    require(packets_in(vyn_fuzz::contents_of(path), kFew, damaged) == stored &&
                damaged == std::string::npos,
            "what was stored is there");
    return 0;
}
