// Reads packet files: one entry after another, which is a packet behind its length.
#ifndef VYN_COMMON_PROTOBUF_PACKET_READER_H
#define VYN_COMMON_PROTOBUF_PACKET_READER_H

#include <climits>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

namespace vyn {

// A packet without any field is legal and takes one zero byte in a file, but a power cut leaves
// blocks of zeros. More zeros than these between an entry with contents and the end of the file are
// damage. A file of nothing but zeros holds so many empty packets.
constexpr uint64_t kMaxEmptyAtEnd = 8;

// Why bytes are no entry.
enum class Damage {
    kNone,
    kLengthCut,       // the file ends within the length
    kLengthOverlong,  // the length takes more than five bytes
    kTooLarge,        // the length is beyond what the reader takes
    kPacketCut,       // the file ends within the packet
    kZeros            // a block of zeros at the end
};

// The length in front of a packet.
struct LengthPrefix {
    uint64_t length = 0;
    std::size_t size = 0;  // bytes that the length itself takes; 0 when it is damaged
    Damage damage = Damage::kNone;
};

// Reads the length with which these bytes begin.
[[nodiscard]] LengthPrefix read_length(std::string_view bytes, uint32_t max_length);

// Takes a file apart in memory that grows with the largest entry, not with the file. The reader
// checks the framing itself, since releases of protobuf disagree about entries that are cut. It
// never waits for more bytes than the next entry needs, so it serves a pipe that stays open.
class PacketReader {
public:
    enum class Outcome { kEntry, kEnd, kDamaged, kFailed };

    static constexpr uint64_t kUntilEnd = UINT64_MAX;

    // Reads the first size bytes of the file, whatever is appended meanwhile; or all there is.
    // An entry of more than max_length bytes counts as damage.
    explicit PacketReader(int fd, uint64_t size = kUntilEnd, uint32_t max_length = INT_MAX)
        : fd_(fd), unread_(size), max_length_(max_length) {}

    [[nodiscard]] Outcome next();

    // The packet of the entry that next() found. Valid until next() or hold().
    [[nodiscard]] const uint8_t* data() const { return buffer_.get() + begin_ - length_; }
    [[nodiscard]] uint32_t length() const { return length_; }
    // The entry itself, which is the packet behind its length. Valid as long as data().
    [[nodiscard]] std::string_view entry() const;
    // Whether next() finds an entry without reading, and so without waiting for it.
    [[nodiscard]] bool next_is_held() const;

    // Where the entry begins that next() found, or the damage.
    [[nodiscard]] uint64_t offset() const { return offset_; }
    // How many bytes the entries so far take.
    [[nodiscard]] uint64_t position() const { return position_ - empty_; }

    // Why next() gave kDamaged, and the errno with which it gave kFailed.
    [[nodiscard]] Damage damage() const { return damage_; }
    [[nodiscard]] int error() const { return error_; }

    // Goes on behind the entries so far, after kEnd or a cut entry: the file may have grown. What was
    // read of the cut entry is kept.
    void resume() { unread_ = kUntilEnd - (end_ - begin_); }

    // The caller found that the entry holds no packet: the damage begins at offset().
    void reject();
    // What was read so far of the file from offset() on; hold() asks for this many bytes of it, and
    // says whether there are so many.
    [[nodiscard]] std::string_view held() const;
    [[nodiscard]] bool hold(std::size_t count);

private:
    [[nodiscard]] bool size_is_known() const { return unread_ <= INT64_MAX; }
    // Upper bound of the bytes that are not taken yet.
    [[nodiscard]] uint64_t left() const { return unread_ + (end_ - begin_); }
    [[nodiscard]] bool have(std::size_t count);
    void make_room(std::size_t count);
    [[nodiscard]] Outcome take_entry();
    [[nodiscard]] Outcome take_empty_run();
    [[nodiscard]] Outcome damaged(Damage damage);

    int fd_;
    uint64_t unread_;  // bytes of the file that are not in the buffer yet
    uint32_t max_length_;
    std::unique_ptr<uint8_t[]> buffer_;
    std::size_t capacity_ = 0;
    std::size_t begin_ = 0;  // what of the buffer is not taken yet
    std::size_t end_ = 0;
    std::size_t taken_ = 0;  // bytes of the last entry, in front of begin_
    uint64_t position_ = 0;  // of begin_ in the file
    uint64_t offset_ = 0;
    uint64_t empty_ = 0;  // empty entries that were read and not handed out yet
    uint32_t length_ = 0;
    bool has_contents_ = false;  // whether an entry with contents came
    Damage damage_ = Damage::kNone;
    int error_ = 0;
};

}  // namespace vyn

#endif  // VYN_COMMON_PROTOBUF_PACKET_READER_H
