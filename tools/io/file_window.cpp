#include "io/file_window.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "cli/report.h"
#include "io/input.h"

namespace vynpkt {

// O_NONBLOCK: to open a pipe that has no writer would block forever.
FileWindow::FileWindow(const std::string& path)
    : name_(path), file_(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)) {
    struct stat status {};
    if (file_.get() < 0 || ::fstat(file_.get(), &status) != 0) {
        file_failure(path, errno);
    }
    if (!S_ISREG(status.st_mode)) {
        throw Failure(ExitCode::kFileError, path, "not a regular file");
    }
    size_ = static_cast<uint64_t>(status.st_size);
}

std::string_view FileWindow::bytes_at(uint64_t offset, std::size_t length) {
    if (offset >= size_) {
        return {};
    }
    length = static_cast<std::size_t>(std::min<uint64_t>(length, size_ - offset));
    if (offset < begin_ || offset + length > begin_ + held_) {
        load(offset, length);
    }
    const auto skipped = static_cast<std::size_t>(offset - begin_);
    return std::string_view(buffer_.data(), held_).substr(skipped, length);
}

void FileWindow::load(uint64_t offset, std::size_t length) {
    const bool overlaps = offset >= begin_ && offset - begin_ < held_;
    const std::size_t dropped = overlaps ? static_cast<std::size_t>(offset - begin_) : held_;
    held_ -= dropped;
    if (held_ > 0) {
        std::memmove(buffer_.data(), buffer_.data() + dropped, held_);
    }
    begin_ = offset;
    const std::size_t room = length + kPieceSize;
    if (buffer_.size() < room) {
        buffer_.resize(room);
    }
    while (held_ < length) {
        const ssize_t got = ::pread(file_.get(), buffer_.data() + held_, room - held_,
                                    static_cast<off_t>(begin_ + held_));
        if (got > 0) {
            held_ += static_cast<std::size_t>(got);
            bytes_read_ += static_cast<uint64_t>(got);
        } else if (got == 0) {
            size_ = begin_ + held_;
            break;
        } else if (errno != EINTR) {
            file_failure(name_, errno);
        }
    }
}

}  // namespace vynpkt
