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
namespace log_text {
constexpr char kNotOpened[] = "fopen error";
constexpr char kNotWritten[] = "fwrite error";
constexpr char kShort[] = "fwrite-short error";
constexpr char kNotFlushed[] = "fflush error";
constexpr char kNotSynced[] = "fsync error";
constexpr char kNotClosed[] = "fclose error";
constexpr char kDirStarted[] = "fsync_parent_dir: started for dir %s";
constexpr char kDirSynced[] = "fsync_parent_dir: success for dir %s";
constexpr char kDirNotSynced[] = "fsync_parent_dir: failed for dir %s";
}  // namespace log_text

static_assert(sizeof(off_t) == 8, "offsets of 64 bits, on 32-bit systems too");

constexpr std::size_t kTemporaryNameSize = 4096;
constexpr std::size_t kDirNameSize = 256;
constexpr mode_t kNewFileMode = 0644;

// The functions below return 0 or an errno, as those in the header do.

// The errno of the call that just failed. A failure stays one where the call left errno at 0.
[[nodiscard]] int last_error() { return errno != 0 ? errno : EIO; }

[[nodiscard]] int error_unless(bool done) { return done ? 0 : last_error(); }

// ---- By way of a stream -------------------------------------------------------------------------

struct StreamClose {
    void operator()(std::FILE* stream) const {
        const NoCancellation while_closing;
        (void)std::fclose(stream);
    }
};
using StreamPtr = std::unique_ptr<std::FILE, StreamClose>;

void close(StreamPtr& stream) {
    bool closed = false;
    {
        const NoCancellation while_closing;
        closed = std::fclose(stream.release()) == 0;
    }
    if (!closed) {
        LOG(LOG_LEVEL_DEBUG, log_text::kNotClosed);
    }
}

// Ends at the first error of the stream, although a part was written: what follows would stand
// behind a gap.
[[nodiscard]] int write_all(std::FILE* stream, const char* data, std::size_t length) {
    while (length > 0) {
        const std::size_t written = std::fwrite(data, 1, length, stream);
        const bool failed = std::ferror(stream) != 0;
        if (written == 0 || failed) {
            LOG(LOG_LEVEL_DEBUG, failed ? log_text::kNotWritten : log_text::kShort);
            return EIO;
        }
        data += written;
        length -= written;
    }
    return 0;
}

// Never tries a sync again that failed: the second one would report success for pages that the
// system has given up.
[[nodiscard]] int sync_stream(std::FILE* stream) {
    if (std::fflush(stream) != 0) {
        LOG(LOG_LEVEL_DEBUG, log_text::kNotFlushed);
        return last_error();
    }
    if (::fsync(::fileno(stream)) != 0) {
        LOG(LOG_LEVEL_DEBUG, log_text::kNotSynced);
        return last_error();
    }
    return 0;
}

// ---- By way of a mapping ------------------------------------------------------------------------

class Mapping {
public:
    Mapping(int fd, std::size_t length)
        : data_(::mmap(nullptr, length, PROT_WRITE, MAP_SHARED, fd, 0)), length_(length) {}
    ~Mapping() {
        if (valid()) {
            (void)::munmap(data_, length_);
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

// Reserves space on the disk, without which touching the mapping would end the process. Returns 0
// also where the file system cannot reserve.
[[nodiscard]] int reserve(int fd, std::size_t length) {
    const int error = uninterrupted([&] {
        errno = ::posix_fallocate(fd, 0, static_cast<off_t>(length));
        return errno == 0;
    });
    return error == EOPNOTSUPP || error == ENOSYS ? 0 : error;
}

[[nodiscard]] int write_mapping(int fd, const void* data, std::size_t length) {
    const Mapping mapping(fd, length);
    if (!mapping.valid()) {
        return last_error();
    }
    std::memcpy(mapping.data(), data, length);
    return error_unless(::msync(mapping.data(), length, MS_SYNC) == 0);
}

[[nodiscard]] int fill(int fd, const void* data, std::size_t length) {
    int error = error_unless(::ftruncate(fd, static_cast<off_t>(length)) == 0);
    if (error == 0) {
        error = reserve(fd, length);
    }
    if (error == 0) {
        error = write_mapping(fd, data, length);
    }
    return error != 0 ? error : error_unless(::fsync(fd) == 0);
}

[[nodiscard]] int write_temporary(const char* path, const void* data, std::size_t length) {
    // A link at this name would have another file overwritten.
    constexpr int kFlags = O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC;
    const UniqueFd file(::open(path, kFlags, kNewFileMode));
    return file.valid() ? fill(file.get(), data, length) : last_error();
}

}  // namespace

int write_synced(const char* path, const void* data, std::size_t length) {
    StreamPtr stream(std::fopen(path, "we"));
    if (stream == nullptr) {
        LOG(LOG_LEVEL_DEBUG, log_text::kNotOpened);
        return last_error();
    }
    int error = write_all(stream.get(), static_cast<const char*>(data), length);
    if (error == 0) {
        error = sync_stream(stream.get());
    }
    close(stream);  // whatever comes of it: the bytes are on the disk, or the error is known
    return error;
}

int replace_file(const char* path, const void* data, std::size_t length) {
    char temporary[kTemporaryNameSize];
    const std::size_t path_length = std::strlen(path);
    constexpr char kSuffix[] = ".tmp";
    if (!fits(path_length + sizeof kSuffix - 1, sizeof temporary)) {
        return ENAMETOOLONG;
    }
    std::memcpy(temporary, path, path_length);
    std::memcpy(temporary + path_length, kSuffix, sizeof kSuffix);
    int error = write_temporary(temporary, data, length);
    if (error == 0) {
        error = error_unless(::rename(temporary, path) == 0);
    }
    if (error != 0) {
        (void)::unlink(temporary);
    }
    return error;
}

int sync_parent_dir(const char* path) {
    char copy[kDirNameSize] = "";
    if (!copy_if_fits(copy, sizeof copy, path, std::strlen(path))) {
        return ENAMETOOLONG;
    }
    const char* dir = ::dirname(copy);
    LOG(LOG_LEVEL_DEBUG, log_text::kDirStarted, dir);
    const UniqueFd file(::open(dir, O_RDONLY | O_CLOEXEC));
    if (!file.valid()) {
        return last_error();
    }
    const int error = error_unless(::fsync(file.get()) == 0);
    LOG(LOG_LEVEL_DEBUG, error == 0 ? log_text::kDirSynced : log_text::kDirNotSynced, dir);
    return error;
}

}  // namespace vyn
