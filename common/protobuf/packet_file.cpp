#include "protobuf/packet_file.h"

#include <fcntl.h>
#include <google/protobuf/io/coded_stream.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#include "logger.h"
#include "protobuf/packet.h"
#include "utils/interrupted.h"
#include "utils/limits.h"
#include "utils/owned.h"

namespace vyn {
namespace {

// Monitoring searches the log for these texts: not to be corrected.
namespace text {
constexpr char kNotStored[] = "store_proto_msg_to_file: record not stored, errno %d";
constexpr char kDamaged[] = "read_proto_msg_from_file: damaged record at offset %llu";
constexpr char kNotRead[] = "read_proto_msg_from_file: read failed, errno %d";
}  // namespace text

using google::protobuf::io::CodedOutputStream;

static_assert(sizeof(off_t) == 8, "packet files of 2 GiB and more, on 32 bits too");

constexpr std::size_t kBlockCapacity = std::size_t{64} * 1024;

// A length takes at most this many bytes.
constexpr std::size_t kMaxVarint32 = 5;

// Packets without any field are legal and take one byte of zero each, but a power cut leaves blocks
// of zeros. More than these at the end of a file are no packets.
constexpr uint64_t kMaxEmptyAtEnd = 8;

[[nodiscard]] bool is_regular(const UniqueFd& file, struct stat& status) {
    return file.valid() && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
}

// A length and a packet of that length.
struct Record {
    std::unique_ptr<uint8_t[]> data;
    std::size_t length = 0;
};

[[nodiscard]] bool make_record(const Packet& packet, Record& record) {
    const auto length = static_cast<uint32_t>(packet.length());
    record.length = CodedOutputStream::VarintSize32(length) + length;
    record.data.reset(new uint8_t[record.length]);
    return packet.write(CodedOutputStream::WriteVarint32ToArray(length, record.data.get()));
}

// What would be written in part only: beyond the process's limit for files, or more than one call
// takes. 0, or the errno.
[[nodiscard]] int refuse_partial(off_t end, std::size_t length) {
    constexpr std::size_t kMaxWrite = 0x7FFFF000;
    struct rlimit limit {};
    const bool beyond = ::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
                        static_cast<uint64_t>(end) + length > limit.rlim_cur;
    return beyond || length > kMaxWrite ? EFBIG : 0;
}

// A full disk takes bytes of one page all or not at all.
[[nodiscard]] bool is_in_one_page(off_t end, std::size_t length) {
    constexpr off_t kPage = 4096;
    return end / kPage == (end + static_cast<off_t>(length) - 1) / kPage;
}

// Space for the record, so that a full disk does not take half of it. 0 also where the file system
// cannot reserve; the write tells then.
[[nodiscard]] int reserve(int fd, off_t end, std::size_t length) {
    if (is_in_one_page(end, length)) {
        return 0;  // the call costs as much as the write
    }
    const int error = uninterrupted(
        [&] { return ::fallocate(fd, FALLOC_FL_KEEP_SIZE, end, static_cast<off_t>(length)) == 0; });
    return error == EOPNOTSUPP || error == ENOSYS ? 0 : error;
}

// In one call, which no other writer's can come into. 0, or the errno; a short write is a disk that
// filled up all the same.
[[nodiscard]] int append(int fd, const Record& record) {
    ssize_t written = 0;
    const int error = uninterrupted([&] {
        written = ::write(fd, record.data.get(), record.length);
        return written >= 0;
    });
    return error == 0 && static_cast<std::size_t>(written) < record.length ? ENOSPC : error;
}

[[nodiscard]] int append_and_close(UniqueFd& file, off_t end, const Record& record) {
    int error = refuse_partial(end, record.length);
    if (error == 0) {
        error = reserve(file.get(), end, record.length);
    }
    if (error == 0) {
        error = append(file.get(), record);
    }
    const int close_error = file.close();
    if (error == 0 && close_error != EINTR) {
        error = close_error;
    }
    return error;
}

}  // namespace

// ---- Reading ------------------------------------------------------------------------------------

// Moves what is not taken yet to the front of a buffer that holds this many bytes.
void RecordReader::make_room(std::size_t count) {
    const std::size_t kept = end_ - begin_;
    if (capacity_ < count) {
        const std::size_t capacity = std::max(count, kBlockCapacity);
        std::unique_ptr<uint8_t[]> larger(new uint8_t[capacity]);
        std::copy_n(buffer_.get() + begin_, kept, larger.get());
        buffer_ = std::move(larger);
        capacity_ = capacity;
    } else {
        std::memmove(buffer_.get(), buffer_.get() + begin_, kept);
    }
    begin_ = 0;
    end_ = kept;
}

// Gets at least this many bytes of what is left into the buffer. False when reading failed, or the
// file was cut meanwhile.
bool RecordReader::have(std::size_t count) {
    if (end_ - begin_ >= count) {
        return true;
    }
    make_room(count);
    while (end_ < count) {
        const auto room = static_cast<std::size_t>(std::min<uint64_t>(capacity_ - end_, unread_));
        ssize_t got = 0;
        const int error = uninterrupted([&] {
            got = ::read(fd_, buffer_.get() + end_, room);
            return got >= 0;
        });
        if (error != 0) {
            LOG(LOG_LEVEL_ERROR, text::kNotRead, error);
            failed_ = true;
            return false;
        }
        if (got == 0) {
            return false;
        }
        end_ += static_cast<std::size_t>(got);
        unread_ -= static_cast<uint64_t>(got);
    }
    return true;
}

RecordReader::Outcome RecordReader::next() {
    length_ = 0;
    if (empty_ > 0) {
        --empty_;
        ++offset_;
        return Outcome::kRecord;
    }
    offset_ = position_;
    if (left() == 0) {
        return Outcome::kEnd;
    }
    if (!have(1)) {
        return why_not();
    }
    return buffer_[begin_] == 0 ? take_empty_run() : take_record();
}

RecordReader::Outcome RecordReader::why_not() const {
    return failed_ ? Outcome::kFailed : Outcome::kDamaged;
}

RecordReader::Outcome RecordReader::take_record() {
    uint64_t length = 0;
    std::size_t prefix = 0;
    uint8_t byte = 0x80;
    while ((byte & 0x80) != 0) {
        if (prefix == kMaxVarint32 || left() <= prefix) {
            return Outcome::kDamaged;
        }
        if (!have(prefix + 1)) {
            return why_not();
        }
        byte = buffer_[begin_ + prefix];
        length |= static_cast<uint64_t>(byte & 0x7F) << (7 * prefix);
        ++prefix;
    }
    // Held against the file before anything is allocated for it.
    if (length > kMaxInt || length > left() - prefix) {
        return Outcome::kDamaged;
    }
    const std::size_t whole = prefix + static_cast<std::size_t>(length);
    if (!have(whole)) {
        return why_not();
    }
    begin_ += whole;
    position_ += whole;
    length_ = static_cast<uint32_t>(length);
    return Outcome::kRecord;
}

RecordReader::Outcome RecordReader::take_empty_run() {
    uint64_t count = 0;
    while (left() > 0) {
        if (!have(1)) {
            return why_not();
        }
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
    position_ += count;
    if (left() == 0 && count > kMaxEmptyAtEnd) {
        return Outcome::kDamaged;
    }
    empty_ = count - 1;
    return Outcome::kRecord;
}

// The caller's buffer is large enough.
[[nodiscard]] static vyn_result hand_out(const Packet& packet, uint8_t* buf, uint32_t& len) {
    len = static_cast<uint32_t>(packet.length());
    return packet.write(buf) ? VYN_OK : VYN_NOT_SERIALIZED;
}

vyn_result read_packets(uint8_t** bufs, uint32_t& record_count, uint32_t* lens, const char* path) {
    record_count = 0;
    const UniqueFd file(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (!is_regular(file, status)) {
        return VYN_NULL_POINTER;
    }
    RecordReader reader(file.get(), static_cast<uint64_t>(status.st_size));
    Packet packet;
    uint32_t count = 0;
    vyn_result last = VYN_NOT_SERIALIZED;
    while (count < VYN_MAX_RECORDS) {
        RecordReader::Outcome outcome = reader.next();
        if (outcome == RecordReader::Outcome::kFailed) {
            return VYN_NOT_SERIALIZED;
        }
        if (outcome == RecordReader::Outcome::kRecord &&
            !packet.read(reader.data(), reader.length())) {
            outcome = RecordReader::Outcome::kDamaged;
        }
        if (outcome == RecordReader::Outcome::kDamaged) {
            LOG(LOG_LEVEL_ERROR, text::kDamaged, static_cast<unsigned long long>(reader.offset()));
        }
        // A buffer is asked for only once there is a record for it: there may be no further slot.
        if (outcome != RecordReader::Outcome::kRecord || bufs[count] == nullptr) {
            break;
        }
        last = hand_out(packet, bufs[count], lens[count]);
        ++count;
    }
    if (last == VYN_OK) {
        record_count = count;
    }
    return last == VYN_OK ? VYN_OK : VYN_NOT_SERIALIZED;
}

// ---- Storing ------------------------------------------------------------------------------------

vyn_result store_packet(const uint8_t* pkt, int32_t pkt_len, const char* path) {
    Packet packet;
    if (pkt_len < 0 || !packet.read(pkt, static_cast<uint32_t>(pkt_len))) {
        return VYN_BAD_BODY;
    }
    Record record;
    if (!make_record(packet, record)) {
        return VYN_NOT_SERIALIZED;
    }
    // Not to wait for a FIFO's reader, nor to become a terminal's process.
    constexpr int kFlags = O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    constexpr mode_t kMode = 0666;
    UniqueFd file(::open(path, kFlags, kMode));
    struct stat status {};
    if (!is_regular(file, status)) {
        return VYN_FILE_NOT_OPENED;
    }
    const int error = append_and_close(file, status.st_size, record);
    if (error != 0) {
        LOG(LOG_LEVEL_ERROR, text::kNotStored, error);
        return VYN_NOT_SERIALIZED;
    }
    return VYN_OK;
}

}  // namespace vyn
