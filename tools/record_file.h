// Packet files: records, each the length of a packet as a varint and the packet.
#ifndef VYN_TOOLS_RECORD_FILE_H
#define VYN_TOOLS_RECORD_FILE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "io.h"
#include "vyn_header_v3.pb.h"

namespace vynpkt {

// Packets without any field are legal and take one byte of zero each, but a power cut leaves blocks
// of zeros. More than these at the end of a file are no packets.
constexpr std::size_t kMaxEmptyAtEnd = 8;

// What a record's first bytes say.
struct Prefix {
    std::size_t size = 0;  // 0: no length
    uint64_t length = 0;   // of the packet
    const char* reason = nullptr;
};

[[nodiscard]] Prefix read_prefix(std::string_view bytes);

// The records of an input of any length, one after the other, by the rules of
// read_proto_msg_from_file(). Holds one record in memory.
class RecordReader {
public:
    enum class Outcome { kRecord, kEnd, kDamaged };

    explicit RecordReader(const std::string& path) : input_(path) {}

    [[nodiscard]] Outcome next();
    [[nodiscard]] const std::string& name() const { return input_.name(); }
    [[nodiscard]] uint64_t size() const { return input_.size(); }
    // Where the record begins, or the damage.
    [[nodiscard]] uint64_t offset() const { return offset_; }
    // The packet in the record; good until next().
    [[nodiscard]] std::string_view packet() const { return packet_; }
    // How many bytes the records so far take; at the end, all.
    [[nodiscard]] uint64_t position() const { return position_ - empty_; }
    // Why kDamaged.
    [[nodiscard]] const std::string& reason() const { return reason_; }

private:
    [[nodiscard]] bool have(std::size_t count);
    [[nodiscard]] std::string_view held() const;
    void drop(std::size_t count);
    [[nodiscard]] Outcome take_empty_run();
    [[nodiscard]] Outcome take_record();
    [[nodiscard]] const char* mistaken();
    [[nodiscard]] Outcome damaged(const std::string& reason);

    Input input_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    uint64_t position_ = 0;
    uint64_t offset_ = 0;
    uint64_t empty_ = 0;  // empty records that were read and not yet given out
    std::string_view packet_;
    std::string reason_;
    Header header_;
};

}  // namespace vynpkt

#endif  // VYN_TOOLS_RECORD_FILE_H
