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
#include "protobuf/packet_reader.h"
#include "utils/interrupted.h"
#include "utils/limits.h"
#include "utils/owned.h"

namespace vyn {
namespace {

// Monitoring searches the log for these texts: not to be corrected.
namespace log_text {
constexpr char kNotStored[] = "store_proto_msg_to_file: record not stored, errno %d";
constexpr char kDamaged[] = "read_proto_msg_from_file: damaged record at offset %llu";
constexpr char kNotRead[] = "read_proto_msg_from_file: read failed, errno %d";
}  // namespace log_text

using google::protobuf::io::CodedOutputStream;

static_assert(sizeof(off_t) == 8, "packet files of 2 GiB and more, on 32 bits too");

[[nodiscard]] bool is_regular(const UniqueFd& file, struct stat& status) {
    return file.valid() && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode);
}

// An entry of a packet file: a length and a packet of that length.
struct Entry {
    std::unique_ptr<uint8_t[]> data;
    std::size_t length = 0;
};

[[nodiscard]] bool make_entry(const Packet& packet, Entry& entry) {
    const auto length = static_cast<uint32_t>(packet.length());
    entry.length = CodedOutputStream::VarintSize32(length) + length;
    entry.data.reset(new uint8_t[entry.length]);
    return packet.write(CodedOutputStream::WriteVarint32ToArray(length, entry.data.get()));
}

// Refuses an entry of which only a part would be written: one beyond the process's limit for files,
// or larger than one call takes. Returns 0 or an errno.
[[nodiscard]] int refuse_partial(off_t end, std::size_t length) {
    constexpr std::size_t kMaxWrite = 0x7FFFF000;
    struct rlimit limit {};
    const bool beyond = ::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY &&
                        static_cast<uint64_t>(end) + length > limit.rlim_cur;
    return beyond || length > kMaxWrite ? EFBIG : 0;
}

// A full disk takes all bytes of one page or none.
[[nodiscard]] bool is_in_one_page(off_t end, std::size_t length) {
    constexpr off_t kPage = 4096;
    return end / kPage == (end + static_cast<off_t>(length) - 1) / kPage;
}

// Reserves space for the entry, so that a full disk does not take half of it. Returns 0 or an errno;
// 0 also where the file system cannot reserve, and then only the write can tell.
[[nodiscard]] int reserve(int fd, off_t end, std::size_t length) {
    if (is_in_one_page(end, length)) {
        return 0;  // the call costs as much as the write
    }
    const int error = uninterrupted(
        [&] { return ::fallocate(fd, FALLOC_FL_KEEP_SIZE, end, static_cast<off_t>(length)) == 0; });
    return error == EOPNOTSUPP || error == ENOSYS ? 0 : error;
}

// Writes the entry in one call, so that no other writer's bytes come in between. Returns 0 or an
// errno. After a short write the disk is full in spite of the reservation.
[[nodiscard]] int append(int fd, const Entry& entry) {
    ssize_t written = 0;
    const int error = uninterrupted([&] {
        written = ::write(fd, entry.data.get(), entry.length);
        return written >= 0;
    });
    return error == 0 && static_cast<std::size_t>(written) < entry.length ? ENOSPC : error;
}

[[nodiscard]] int append_and_close(UniqueFd& file, off_t end, const Entry& entry) {
    int error = refuse_partial(end, entry.length);
    if (error == 0) {
        error = reserve(file.get(), end, entry.length);
    }
    if (error == 0) {
        error = append(file.get(), entry);
    }
    const int close_error = file.close();
    if (error == 0 && close_error != EINTR) {
        error = close_error;
    }
    return error;
}

// Writes the packet into the caller's buffer, which is large enough by contract.
[[nodiscard]] vyn_result hand_out(const Packet& packet, uint8_t* buf, uint32_t& len) {
    len = static_cast<uint32_t>(packet.length());
    return packet.write(buf) ? VYN_OK : VYN_NOT_SERIALIZED;
}

}  // namespace

vyn_result store_packet(const uint8_t* pkt, int32_t pkt_len, const char* path) {
    Packet packet;
    if (pkt_len < 0 || !packet.read(pkt, static_cast<uint32_t>(pkt_len))) {
        return VYN_BAD_BODY;
    }
    Entry entry;
    if (!make_entry(packet, entry)) {
        return VYN_NOT_SERIALIZED;
    }
    // Never block on a FIFO or adopt a terminal.
    constexpr int kFlags = O_WRONLY | O_CREAT | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    constexpr mode_t kMode = 0666;
    UniqueFd file(::open(path, kFlags, kMode));
    struct stat status {};
    if (!is_regular(file, status)) {
        return VYN_FILE_NOT_OPENED;
    }
    const int error = append_and_close(file, status.st_size, entry);
    if (error != 0) {
        LOG(LOG_LEVEL_ERROR, log_text::kNotStored, error);
        return VYN_NOT_SERIALIZED;
    }
    return VYN_OK;
}

vyn_result read_packets(uint8_t** bufs, uint32_t& record_count, uint32_t* lens, const char* path) {
    record_count = 0;
    const UniqueFd file(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (!is_regular(file, status)) {
        return VYN_NULL_POINTER;
    }
    using Outcome = PacketReader::Outcome;
    // What is appended meanwhile is left for another call.
    PacketReader reader(file.get(), static_cast<uint64_t>(status.st_size));
    Packet packet;
    uint32_t count = 0;
    vyn_result last = VYN_NOT_SERIALIZED;
    while (count < VYN_MAX_RECORDS) {
        Outcome outcome = reader.next();
        if (outcome == Outcome::kFailed) {
            LOG(LOG_LEVEL_ERROR, log_text::kNotRead, reader.error());
            return VYN_NOT_SERIALIZED;
        }
        if (outcome == Outcome::kEntry && !packet.read(reader.data(), reader.length())) {
            outcome = Outcome::kDamaged;
        }
        if (outcome == Outcome::kDamaged) {
            LOG(LOG_LEVEL_ERROR, log_text::kDamaged,
                static_cast<unsigned long long>(reader.offset()));
        }
        // bufs is looked at only once there is an entry for it: there may be no further element.
        if (outcome != Outcome::kEntry || bufs[count] == nullptr) {
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

}  // namespace vyn
