#include "protobuf/packet_reader.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "utils/interrupted.h"

namespace vyn {
namespace {

constexpr std::size_t kBlockCapacity = std::size_t{64} * 1024;

// A length takes at most this many bytes.
constexpr std::size_t kMaxLengthSize = 5;

}  // namespace

LengthPrefix read_length(std::string_view bytes, uint32_t max_length) {
    LengthPrefix prefix;
    std::size_t size = 0;
    uint8_t byte = 0x80;
    while ((byte & 0x80) != 0) {
        if (size == kMaxLengthSize || size == bytes.size()) {
            prefix.damage = size == kMaxLengthSize ? Damage::kLengthOverlong : Damage::kLengthCut;
            return prefix;
        }
        byte = static_cast<uint8_t>(bytes[size]);
        prefix.length |= static_cast<uint64_t>(byte & 0x7F) << (7 * size);
        ++size;
    }
    if (prefix.length > max_length) {
        prefix.damage = Damage::kTooLarge;
    } else {
        prefix.size = size;
    }
    return prefix;
}

// Moves what is not taken yet to the front of the buffer, which gets room for more bytes. Where the
// size of the file is not known, the buffer grows with what arrives, not with what a length claims.
void PacketReader::make_room(std::size_t count) {
    const std::size_t kept = end_ - begin_;
    if (capacity_ < count && (size_is_known() || kept == capacity_)) {
        const std::size_t wanted = size_is_known() ? count : std::min(count, 2 * capacity_);
        const std::size_t capacity = std::max(wanted, kBlockCapacity);
        std::unique_ptr<uint8_t[]> larger(new uint8_t[capacity]);
        std::copy_n(buffer_.get() + begin_, kept, larger.get());
        buffer_ = std::move(larger);
        capacity_ = capacity;
    } else if (begin_ > 0) {
        std::memmove(buffer_.get(), buffer_.get() + begin_, kept);
    }
    begin_ = 0;
    end_ = kept;
    taken_ = 0;
}

// Gets at least this many bytes of what is left into the buffer. False when the file ends before,
// or reading failed, which error_ tells.
bool PacketReader::have(std::size_t count) {
    while (end_ - begin_ < count) {
        if (unread_ == 0) {
            return false;
        }
        if (capacity_ - begin_ < count || end_ == capacity_) {
            make_room(count);
        }
        const auto room = static_cast<std::size_t>(std::min<uint64_t>(capacity_ - end_, unread_));
        ssize_t got = 0;
        error_ = uninterrupted([&] {
            got = ::read(fd_, buffer_.get() + end_, room);
            return got >= 0;
        });
        if (error_ != 0) {
            return false;
        }
        if (got == 0) {
            // A file of known size was cut meanwhile: bytes remain unread, which is damage.
            unread_ = size_is_known() ? unread_ : 0;
            return false;
        }
        end_ += static_cast<std::size_t>(got);
        unread_ -= static_cast<uint64_t>(got);
    }
    return true;
}

PacketReader::Outcome PacketReader::damaged(Damage damage) {
    if (error_ != 0) {
        return Outcome::kFailed;
    }
    damage_ = damage;
    return Outcome::kDamaged;
}

PacketReader::Outcome PacketReader::next() {
    length_ = 0;
    if (empty_ > 0) {
        --empty_;
        ++offset_;
        return Outcome::kEntry;
    }
    offset_ = position_;
    taken_ = 0;
    if (!have(1)) {
        return unread_ == 0 ? Outcome::kEnd : damaged(Damage::kLengthCut);
    }
    return buffer_[begin_] == 0 ? take_empty_run() : take_entry();
}

PacketReader::Outcome PacketReader::take_entry() {
    std::size_t size = 1;
    while (size <= kMaxLengthSize && have(size) && (buffer_[begin_ + size - 1] & 0x80) != 0) {
        ++size;
    }
    const LengthPrefix prefix = read_length(held(), max_length_);
    if (prefix.damage != Damage::kNone) {
        return damaged(prefix.damage);
    }
    // Held against the file before anything is allocated for it.
    if (prefix.length > left() - prefix.size) {
        return damaged(Damage::kPacketCut);
    }
    const std::size_t whole = prefix.size + static_cast<std::size_t>(prefix.length);
    if (!have(whole)) {
        return damaged(Damage::kPacketCut);
    }
    begin_ += whole;
    position_ += whole;
    taken_ = whole;
    length_ = static_cast<uint32_t>(prefix.length);
    has_contents_ = has_contents_ || length_ > 0;
    return Outcome::kEntry;
}

PacketReader::Outcome PacketReader::take_empty_run() {
    uint64_t count = 0;
    while (have(1)) {
        const uint8_t* from = buffer_.get() + begin_;
        const uint8_t* to = buffer_.get() + end_;
        const auto zeros = static_cast<std::size_t>(
            std::find_if(from, to, [](uint8_t byte) { return byte != 0; }) - from);
        begin_ += zeros;
        count += zeros;
        if (begin_ < end_) {
            break;
        }
    }
    const bool at_end = begin_ == end_;
    if (at_end && unread_ > 0) {
        return damaged(Damage::kLengthCut);
    }
    if (at_end && has_contents_ && count > kMaxEmptyAtEnd) {
        return damaged(Damage::kZeros);
    }
    position_ += count;
    empty_ = count - 1;
    return Outcome::kEntry;
}

std::string_view PacketReader::entry() const {
    constexpr std::string_view kEmpty("\0", 1);  // one of a run, which is not kept
    return taken_ == 0 ? kEmpty : held().substr(0, taken_);
}

bool PacketReader::next_is_held() const {
    const std::string_view next = held().substr(taken_);
    const LengthPrefix prefix = read_length(next, max_length_);
    return empty_ > 0 ||
           (prefix.length > 0 && prefix.size > 0 && prefix.length <= next.size() - prefix.size);
}

void PacketReader::reject() {
    begin_ -= taken_;
    position_ -= taken_;
    taken_ = 0;
    length_ = 0;
}

std::string_view PacketReader::held() const {
    return {reinterpret_cast<const char*>(buffer_.get()) + begin_ - taken_, end_ - begin_ + taken_};
}

bool PacketReader::hold(std::size_t count) { return have(count); }

}  // namespace vyn
