#include "io/input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "utils/interrupted.h"

namespace vynpkt {
namespace {

int open_input(const std::string& path) {
    if (is_standard(path)) {
        return -1;
    }
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        file_failure(path, errno);
    }
    return fd;
}

}  // namespace

bool is_standard(const std::string& path) { return path == "-"; }

std::string input_name(const std::string& path) { return is_standard(path) ? "(stdin)" : path; }

Input::Input(const std::string& path)
    : name_(input_name(path)),
      file_(open_input(path)),
      fd_(is_standard(path) ? STDIN_FILENO : file_.get()) {}

uint64_t Input::size() const {
    struct stat status {};
    return ::fstat(fd_, &status) == 0 && S_ISREG(status.st_mode)
               ? static_cast<uint64_t>(status.st_size)
               : 0;
}

bool Input::is_regular() const {
    struct stat status {};
    return ::fstat(fd_, &status) == 0 && S_ISREG(status.st_mode);
}

std::size_t Input::read_some(char* data, std::size_t size) {
    ssize_t got = 0;
    const int error = vyn::uninterrupted([&] {
        got = ::read(fd_, data, size);
        return got >= 0;
    });
    if (error != 0) {
        file_failure(name_, error);
    }
    return static_cast<std::size_t>(got);
}

std::size_t Input::fill(std::vector<char>& buffer) {
    std::size_t filled = 0;
    while (filled < buffer.size()) {
        const std::size_t got = read_some(buffer.data() + filled, buffer.size() - filled);
        if (got == 0) {
            break;
        }
        filled += got;
    }
    return filled;
}

std::string read_whole(const std::string& path) {
    Input input(path);
    std::string bytes;
    std::vector<char> piece(kPieceSize);
    while (const std::size_t got = input.read_some(piece.data(), piece.size())) {
        append_limited(bytes, {piece.data(), got}, {input.name()});
    }
    return bytes;
}

void append_limited(std::string& bytes, std::string_view more, const Place& place) {
    if (more.size() > kMaxInMemory - bytes.size()) {
        throw Failure(ExitCode::kRefused, place,
                      "longer than the " + std::to_string(kMaxInMemory >> 20) +
                          " MiB that this command takes");
    }
    bytes.append(more);
}

}  // namespace vynpkt
