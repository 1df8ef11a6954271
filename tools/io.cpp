#include "io.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace vynpkt {
namespace {

constexpr std::size_t kPieceSize = std::size_t{64} << 10;
constexpr mode_t kPermissions = 07777;
constexpr mode_t kNewFileMode = 0666;

// The temporaries of the moment, where a signal handler may look. No command writes more files.
std::array<std::atomic<const char*>, 2> g_temporaries{};

extern "C" void remove_temporaries(int signal) {
    for (const auto& temporary : g_temporaries) {
        if (const char* path = temporary.load()) {
            (void)::unlink(path);
        }
    }
    (void)::raise(signal);  // ends the process: the handler was good for one time
}

void replace_in_list(const char* old_entry, const char* new_entry) {
    for (auto& temporary : g_temporaries) {
        const char* expected = old_entry;
        if (temporary.compare_exchange_strong(expected, new_entry)) {
            return;
        }
    }
}

[[noreturn]] void file_failure(const std::string& name, int error) {
    throw Failure(ExitCode::kFileError, name, std::generic_category().message(error));
}

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

void append_limited(std::string& bytes, std::string_view more, const Place& place) {
    if (more.size() > kMaxInMemory - bytes.size()) {
        throw Failure(ExitCode::kRefused, place,
                      "longer than the " + std::to_string(kMaxInMemory >> 20) +
                          " MiB that this command takes");
    }
    bytes.append(more);
}

// Behind /dev/stdout may stand a file that others write to as well, which must not be replaced.
bool is_standard_output(const std::string& path) {
    return path.empty() || is_standard(path) || path == "/dev/stdout";
}

// A device, a pipe or a folder cannot be replaced: opening it works, or tells why not.
int open_in_place(const std::string& path) {
    struct stat status {};
    if (is_standard_output(path) || ::stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode)) {
        return -1;
    }
    const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) {
        file_failure(path, errno);
    }
    return fd;
}

mode_t current_umask() {
    const mode_t mask = ::umask(0);
    (void)::umask(mask);
    return mask;
}

// Behind a symbolic link stands the file that is meant.
std::string link_target(const std::string& path) {
    std::error_code ignored;
    const std::filesystem::path target = std::filesystem::canonical(path, ignored);
    return ignored ? path : target.string();
}

std::string temporary_template(const std::string& target) {
    return std::filesystem::path(target).replace_filename(".vynpkt.XXXXXX").string();
}

}  // namespace

bool is_standard(const std::string& path) { return path == "-"; }

std::string input_name(const std::string& path) { return is_standard(path) ? "(stdin)" : path; }

int UniqueFd::close() {
    const int fd = fd_;
    fd_ = -1;
    return fd < 0 || ::close(fd) == 0 ? 0 : errno;
}

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

std::size_t Input::read_some(char* data, std::size_t size) {
    ssize_t got = 0;
    do {
        got = ::read(fd_, data, size);
    } while (got < 0 && errno == EINTR);
    if (got < 0) {
        file_failure(name_, errno);
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

// Opened without waiting: a pipe without a writer would never open.
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

LineReader::LineReader(const std::string& path) : input_(path), piece_(kPieceSize) {}

bool LineReader::read_more() {
    unread_ = {piece_.data(), input_.read_some(piece_.data(), piece_.size())};
    return !unread_.empty();
}

bool LineReader::next(std::string& line) {
    line.clear();
    ++number_;
    bool any = false;
    while (!unread_.empty() || read_more()) {
        any = true;
        const std::size_t newline = unread_.find('\n');
        append_limited(line, unread_.substr(0, newline), place());
        if (newline != std::string_view::npos) {
            unread_.remove_prefix(newline + 1);
            return true;
        }
        unread_ = {};
    }
    return any;
}

Place LineReader::place() const { return {input_.name(), "line " + std::to_string(number_)}; }

// A file beside the one that it shall replace; removed unless it did.
class Temporary {
public:
    explicit Temporary(const std::string& path)
        : target_(link_target(path)),
          path_(temporary_template(target_)),
          file_(::mkostemp(path_.data(), O_CLOEXEC)) {
        if (file_.get() < 0) {
            file_failure(path, errno);
        }
        replace_in_list(nullptr, path_.c_str());
        (void)::fchmod(file_.get(), mode());
    }
    ~Temporary() {
        if (!moved_) {
            (void)::unlink(path_.c_str());
        }
        replace_in_list(path_.c_str(), nullptr);
    }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;
    Temporary(Temporary&&) = delete;
    Temporary& operator=(Temporary&&) = delete;

    [[nodiscard]] int fd() const { return file_.get(); }

    // 0 or an errno.
    [[nodiscard]] int replace_target() {
        if (const int error = file_.close()) {
            return error;
        }
        if (::rename(path_.c_str(), target_.c_str()) != 0) {
            return errno;
        }
        moved_ = true;
        return 0;
    }

private:
    // That of the file to be replaced, or that of any new file.
    [[nodiscard]] mode_t mode() const {
        struct stat status {};
        return ::stat(target_.c_str(), &status) == 0 ? status.st_mode & kPermissions
                                                     : kNewFileMode & ~current_umask();
    }

    std::string target_;
    std::string path_;
    UniqueFd file_;
    bool moved_ = false;
};

Output::Output(const std::string& path)
    : name_(is_standard_output(path) ? "(stdout)" : path),
      in_place_(open_in_place(path)),
      fd_(is_standard_output(path) ? STDOUT_FILENO : in_place_.get()) {
    if (fd_ < 0) {
        temporary_ = std::make_unique<Temporary>(path);
        fd_ = temporary_->fd();
    }
}

Output::~Output() = default;

void Output::fail(int error) const { file_failure(name_, error); }

bool Output::is_terminal() const { return ::isatty(fd_) != 0; }

void Output::refuse_terminal() const {
    if (is_terminal()) {
        throw Failure(ExitCode::kUsage, name_,
                      "binary data does not go to a terminal; give -o FILE, or a pipe");
    }
}

void Output::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd_, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            fail(errno);
        }
    }
}

void Output::commit() {
    const int error = temporary_ != nullptr ? temporary_->replace_target() : in_place_.close();
    if (error != 0) {
        fail(error);
    }
}

void occupy_standard_streams() {
    int fd = 0;
    do {
        fd = ::open("/dev/null", O_RDWR);  // the lowest number that is free
    } while (fd >= 0 && fd <= STDERR_FILENO);
    (void)::close(fd);
}

bool same_file(const std::string& one, const std::string& other) {
    std::error_code ignored;
    using std::filesystem::absolute;
    using std::filesystem::weakly_canonical;
    return weakly_canonical(absolute(one), ignored) == weakly_canonical(absolute(other), ignored);
}

void end_cleanly_on_signals() {
    struct sigaction action {};
    action.sa_handler = remove_temporaries;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    (void)::sigemptyset(&action.sa_mask);
    (void)::sigaction(SIGPIPE, &action, nullptr);
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGBUS, SIGXFSZ}) {
        struct sigaction before {};
        (void)::sigaction(signal, nullptr, &before);
        if (before.sa_handler != SIG_IGN) {  // as under nohup, which stays so
            (void)::sigaction(signal, &action, nullptr);
        }
    }
}

}  // namespace vynpkt
