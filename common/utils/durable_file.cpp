#include "utils/durable_file.h"

#include <fcntl.h>
#include <libgen.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "logger.h"
#include "utils/bounded.h"
#include "utils/interrupted.h"
#include "utils/owned.h"

namespace vyn {
namespace {

// Monitoring searches the log for these texts: not to be corrected.
namespace text {
constexpr char kNotOpened[] = "fopen error";
constexpr char kNotWritten[] = "fwrite error";
constexpr char kShort[] = "fwrite-short error";
constexpr char kNotFlushed[] = "fflush error";
constexpr char kNotSynced[] = "fsync error";
constexpr char kNotClosed[] = "fclose error";
constexpr char kDirStarted[] = "fsync_parent_dir: started for dir %s";
constexpr char kDirSynced[] = "fsync_parent_dir: success for dir %s";
constexpr char kDirNotSynced[] = "fsync_parent_dir: failed for dir %s";
}  // namespace text

static_assert(sizeof(off_t) == 8, "offsets of 64 bits, on 32-bit systems too");

constexpr std::size_t kTemporaryNameSize = 4096;
constexpr std::size_t kDirNameSize = 256;
constexpr mode_t kNewFileMode = 0644;

// Cleans up and leaves the errno of what went wrong.
template <typename Call>
void keep_errno(Call call) {
    const int error = errno;
    call();
    if (error != 0) {
        errno = error;
    }
}

// ---- By way of a stream -------------------------------------------------------------------------

struct StreamClose {
    void operator()(std::FILE* stream) const {
        const NoCancellation in_a_destructor;
        (void)std::fclose(stream);
    }
};
using StreamPtr = std::unique_ptr<std::FILE, StreamClose>;

void close(StreamPtr& stream) {
    bool closed = false;
    {
        const NoCancellation which_would_leak_it;
        closed = std::fclose(stream.release()) == 0;
    }
    if (!closed) {
        LOG(LOG_LEVEL_DEBUG, text::kNotClosed);
    }
}

// A stream that had an error is given up at once, although a part was written: what follows would
// stand behind a gap.
[[nodiscard]] bool write_all(std::FILE* stream, const char* data, std::size_t length) {
    while (length > 0) {
        const std::size_t written = std::fwrite(data, 1, length, stream);
        const bool failed = std::ferror(stream) != 0;
        if (written == 0 || failed) {
            LOG(LOG_LEVEL_DEBUG, failed ? text::kNotWritten : text::kShort);
            errno = EIO;
            return false;
        }
        data += written;
        length -= written;
    }
    return true;
}

// A sync that failed is never tried again: the second one would report success for pages that the
// system has given up.
[[nodiscard]] bool sync_stream(std::FILE* stream) {
    if (std::fflush(stream) != 0) {
        LOG(LOG_LEVEL_DEBUG, text::kNotFlushed);
        return false;
    }
    if (::fsync(::fileno(stream)) != 0) {
        LOG(LOG_LEVEL_DEBUG, text::kNotSynced);
        return false;
    }
    return true;
}

// ---- By way of a mapping ------------------------------------------------------------------------

class Mapping {
public:
    Mapping(int fd, std::size_t length)
        : data_(::mmap(nullptr, length, PROT_WRITE, MAP_SHARED, fd, 0)), length_(length) {}
    ~Mapping() {
        if (valid()) {
            keep_errno([this] { (void)::munmap(data_, length_); });
        }
    }
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;
    Mapping(Mapping&&) = delete;
    Mapping& operator=(Mapping&&) = delete;

    [[nodiscard]] bool valid() const { return data_ != MAP_FAILED; }
    [[nodiscard]] void* data() const { return data_; }

private:
    void* data_;
    std::size_t length_;
};

// Space on the disk, without which touching the mapping would end the process. True also where the
// file system cannot reserve.
[[nodiscard]] bool reserve(int fd, std::size_t length) {
    const int error = uninterrupted([&] {
        errno = ::posix_fallocate(fd, 0, static_cast<off_t>(length));
        return errno == 0;
    });
    errno = error;
    return error == 0 || error == EOPNOTSUPP || error == ENOSYS;
}

[[nodiscard]] bool write_mapping(int fd, const void* data, std::size_t length) {
    const Mapping mapping(fd, length);
    if (!mapping.valid()) {
        return false;
    }
    std::memcpy(mapping.data(), data, length);
    return ::msync(mapping.data(), length, MS_SYNC) == 0;
}

[[nodiscard]] bool fill(int fd, const void* data, std::size_t length) {
    return ::ftruncate(fd, static_cast<off_t>(length)) == 0 && reserve(fd, length) &&
           write_mapping(fd, data, length) && ::fsync(fd) == 0;
}

[[nodiscard]] bool write_temporary(const char* path, const void* data, std::size_t length) {
    // A link at this name would have another file overwritten.
    constexpr int kFlags = O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC;
    UniqueFd file(::open(path, kFlags, kNewFileMode));
    const bool written = file.valid() && fill(file.get(), data, length);
    keep_errno([&] { (void)file.close(); });
    return written;
}

}  // namespace

bool write_synced(const char* path, const void* data, std::size_t length) {
    StreamPtr stream(std::fopen(path, "we"));
    if (stream == nullptr) {
        LOG(LOG_LEVEL_DEBUG, text::kNotOpened);
        return false;
    }
    if (write_all(stream.get(), static_cast<const char*>(data), length) &&
        sync_stream(stream.get())) {
        close(stream);  // whatever it says: the bytes are on the disk
        return true;
    }
    keep_errno([&] { close(stream); });
    return false;
}

bool replace_file(const char* path, const void* data, std::size_t length) {
    char temporary[kTemporaryNameSize];
    const std::size_t path_length = std::strlen(path);
    constexpr char kSuffix[] = ".tmp";
    if (!fits(path_length + sizeof kSuffix - 1, sizeof temporary)) {
        errno = ENAMETOOLONG;
        return false;
    }
    std::memcpy(temporary, path, path_length);
    std::memcpy(temporary + path_length, kSuffix, sizeof kSuffix);
    if (write_temporary(temporary, data, length) && ::rename(temporary, path) == 0) {
        return true;
    }
    keep_errno([&] { (void)::unlink(temporary); });
    return false;
}

bool sync_parent_dir(const char* path) {
    char copy[kDirNameSize] = "";
    if (!copy_if_fits(copy, sizeof copy, path, std::strlen(path))) {
        errno = ENAMETOOLONG;
        return false;
    }
    const char* dir = ::dirname(copy);
    LOG(LOG_LEVEL_DEBUG, text::kDirStarted, dir);
    UniqueFd file(::open(dir, O_RDONLY | O_CLOEXEC));
    if (!file.valid()) {
        return false;
    }
    const bool synced = ::fsync(file.get()) == 0;
    LOG(LOG_LEVEL_DEBUG, synced ? text::kDirSynced : text::kDirNotSynced, dir);
    const int error = errno;
    (void)file.close();
    errno = error;
    return synced;
}

}  // namespace vyn
