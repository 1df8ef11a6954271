// Packet files: one `Header` after another, each behind its length.
#ifndef VYN_COMMON_PROTOBUF_PACKET_FILE_H
#define VYN_COMMON_PROTOBUF_PACKET_FILE_H

#include <cstddef>
#include <cstdint>
#include <memory>

#include "proto_helper.h"
#include "vyn_header_v3.pb.h"

namespace vyn {

// Takes a file apart into its records, in memory that does not grow with the file. The framing is
// checked here, since releases of protobuf disagree about records that are cut.
class RecordReader {
public:
    enum class Outcome { kRecord, kEnd, kDamaged, kFailed };

    // The first size bytes of the file; what is appended meanwhile is left for another time.
    RecordReader(int fd, uint64_t size) : fd_(fd), unread_(size) {}

    // The next record's bytes are valid until the next call.
    [[nodiscard]] Outcome next();
    [[nodiscard]] const uint8_t* data() const { return buffer_.get() + begin_ - length_; }
    [[nodiscard]] uint32_t length() const { return length_; }
    // Where the record starts that next() met last.
    [[nodiscard]] uint64_t offset() const { return offset_; }

private:
    [[nodiscard]] uint64_t left() const { return unread_ + (end_ - begin_); }
    [[nodiscard]] bool have(std::size_t count);
    void make_room(std::size_t count);
    [[nodiscard]] Outcome take_record();
    [[nodiscard]] Outcome take_empty_run();
    [[nodiscard]] Outcome why_not() const;

    int fd_;
    uint64_t unread_;  // bytes of the file that are not in the buffer yet
    std::unique_ptr<uint8_t[]> buffer_;
    std::size_t capacity_ = 0;
    std::size_t begin_ = 0;  // what of the buffer is not taken yet
    std::size_t end_ = 0;
    uint64_t position_ = 0;  // of begin_ in the file
    uint64_t offset_ = 0;
    uint64_t empty_ = 0;  // empty records that were met and not returned yet
    uint32_t length_ = 0;
    bool failed_ = false;
};

[[nodiscard]] vyn_result store_packet(const uint8_t* pkt, int32_t pkt_len, const char* path);
[[nodiscard]] vyn_result read_packets(uint8_t** bufs, uint32_t& record_count, uint32_t* lens,
                                      const char* path);

}  // namespace vyn

#endif  // VYN_COMMON_PROTOBUF_PACKET_FILE_H
