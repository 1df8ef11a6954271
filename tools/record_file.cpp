#include "record_file.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "packet.h"
#include "proto_helper.h"
#include "zstd_frame.h"

namespace vynpkt {
namespace {

constexpr std::size_t kBlockSize = std::size_t{64} << 10;
constexpr std::size_t kMaxVarint32 = 5;

}  // namespace

Prefix read_prefix(std::string_view bytes) {
    Prefix prefix;
    std::size_t size = 0;
    unsigned char byte = 0x80;
    while ((byte & 0x80) != 0) {
        if (size == kMaxVarint32 || size == bytes.size()) {
            prefix.reason = size == kMaxVarint32 ? "a length of more than 5 bytes"
                                                 : "the file ends within a length";
            return prefix;
        }
        byte = static_cast<unsigned char>(bytes[size]);
        prefix.length |= static_cast<uint64_t>(byte & 0x7F) << (7 * size);
        ++size;
    }
    if (prefix.length > INT_MAX) {
        prefix.reason = "a length of 2 GiB or more";
    } else if (prefix.length > kMaxInMemory) {
        prefix.reason = "a length of more than the 64 MiB that this command takes";
    } else {
        prefix.size = size;
    }
    return prefix;
}

std::string_view RecordReader::held() const { return {buffer_.data() + begin_, end_ - begin_}; }

void RecordReader::drop(std::size_t count) {
    begin_ += count;
    position_ += count;
}

// Gets at least this many bytes into the buffer; false when the input ends before. The buffer grows
// with what arrives, not with what a length promises.
bool RecordReader::have(std::size_t count) {
    while (end_ - begin_ < count) {
        if (begin_ > 0) {
            std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
            end_ -= begin_;
            begin_ = 0;
        }
        if (end_ == buffer_.size()) {
            buffer_.resize(std::max(2 * end_, kBlockSize));
        }
        const std::size_t got = input_.read_some(buffer_.data() + end_, buffer_.size() - end_);
        if (got == 0) {
            return false;
        }
        end_ += got;
    }
    return true;
}

// What people take for a packet file.
const char* RecordReader::mistaken() {
    constexpr std::size_t kFrameMagic = 4;
    const auto size = static_cast<std::size_t>(input_.size());
    if (offset_ > 0 || held().size() < kFrameMagic) {
        return "";
    }
    if (is_frame(held())) {
        return "; this is a zstd frame, which \"vynpkt decompress\" opens";
    }
    const bool is_packet = size <= VYN_PACKET_CAPACITY && have(size) && held().size() == size &&
                           parse_header(held(), header_);
    return is_packet ? "; this is one packet, which \"vynpkt unpack\" reads" : "";
}

RecordReader::Outcome RecordReader::damaged(const std::string& reason) {
    reason_ = reason + mistaken();
    return Outcome::kDamaged;
}

RecordReader::Outcome RecordReader::next() {
    packet_ = {};
    if (empty_ > 0) {
        --empty_;
        ++offset_;
        return Outcome::kRecord;
    }
    offset_ = position_;
    if (!have(1)) {
        return Outcome::kEnd;
    }
    return held().front() == '\0' ? take_empty_run() : take_record();
}

RecordReader::Outcome RecordReader::take_empty_run() {
    uint64_t count = 0;
    while (have(1) && held().front() == '\0') {
        const std::size_t zeros = std::min(held().find_first_not_of('\0'), held().size());
        drop(zeros);
        count += zeros;
    }
    if (count > kMaxEmptyAtEnd && !have(1)) {
        position_ -= count;
        return damaged("a block of zeros at the end");
    }
    empty_ = count - 1;
    return Outcome::kRecord;
}

RecordReader::Outcome RecordReader::take_record() {
    // No byte more than the length has: a pipe may hold a whole record and stay open.
    for (std::size_t size = 1; size <= kMaxVarint32 && have(size); ++size) {
        if ((static_cast<unsigned char>(held()[size - 1]) & 0x80) == 0) {
            break;
        }
    }
    const Prefix prefix = read_prefix(held());
    if (prefix.size == 0) {
        return damaged(prefix.reason);
    }
    const auto length = static_cast<std::size_t>(prefix.length);
    if (!have(prefix.size + length)) {
        return damaged("a record of " + std::to_string(length) + " bytes, of which " +
                       std::to_string(held().size() - prefix.size) + " are there");
    }
    packet_ = held().substr(prefix.size, length);
    if (!parse_header(packet_, header_)) {
        return damaged(kNotAHeader);
    }
    drop(prefix.size + length);
    return Outcome::kRecord;
}

}  // namespace vynpkt
