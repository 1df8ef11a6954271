#include "io/output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "cli/report.h"
#include "io/input.h"
#include "io/process.h"

namespace vynpkt {
namespace {

constexpr mode_t kPermissions = 07777;
constexpr mode_t kNewFileMode = 0666;

// /dev/stdout may be a file that other processes write to as well, so it must not be replaced.
bool is_standard_output(const std::string& path) {
    return path.empty() || is_standard(path) || path == "/dev/stdout";
}

// Opens a device or a pipe, which cannot be replaced, for writing in place. A folder fails here.
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

// The file to which a symbolic link leads.
std::string link_target(const std::string& path) {
    std::error_code ignored;
    const std::filesystem::path target = std::filesystem::canonical(path, ignored);
    return ignored ? path : target.string();
}

std::string temporary_template(const std::string& target) {
    return std::filesystem::path(target).replace_filename(".vynpkt.XXXXXX").string();
}

}  // namespace

// A new file in the folder of the one that it shall replace. Removed unless replace_target()
// succeeds.
class Temporary {
public:
    explicit Temporary(const std::string& path)
        : target_(link_target(path)),
          path_(temporary_template(target_)),
          file_(::mkostemp(path_.data(), O_CLOEXEC)) {
        if (file_.get() < 0) {
            file_failure(path, errno);
        }
        remember_temporary(path_.c_str());
        (void)::fchmod(file_.get(), mode());
    }
    ~Temporary() {
        if (!moved_) {
            (void)::unlink(path_.c_str());
        }
        forget_temporary(path_.c_str());
    }
    Temporary(const Temporary&) = delete;
    Temporary& operator=(const Temporary&) = delete;
    Temporary(Temporary&&) = delete;
    Temporary& operator=(Temporary&&) = delete;

    [[nodiscard]] int fd() const { return file_.get(); }

    // Both give 0 or an errno.
    [[nodiscard]] int close() { return file_.close(); }
    [[nodiscard]] int replace_target() {
        if (::rename(path_.c_str(), target_.c_str()) != 0) {
            return errno;
        }
        moved_ = true;
        return 0;
    }

private:
    // The mode of the file to be replaced, or of a new file when there is none.
    [[nodiscard]] mode_t mode() const {
        struct stat status {};
        return ::stat(target_.c_str(), &status) == 0 ? status.st_mode & kPermissions
                                                     : kNewFileMode & ~current_umask();
    }

    std::string target_;
    std::string path_;
    vyn::UniqueFd file_;
    bool moved_ = false;
};

Output::Output(const std::string& path)
    : name_(is_standard_output(path) ? "(stdout)" : path),
      in_place_(open_in_place(path)),
      fd_(is_standard_output(path) ? STDOUT_FILENO : in_place_.get()),
      is_terminal_(false) {
    if (fd_ < 0) {
        temporary_ = std::make_unique<Temporary>(path);
        fd_ = temporary_->fd();
    }
    is_terminal_ = ::isatty(fd_) != 0;
}

// A run that fails has printed what it made before.
Output::~Output() {
    try {
        if (temporary_ == nullptr) {
            flush();
        }
    } catch (const Failure&) {
        gathered_.clear();  // the failure that ends the run is told instead
    }
}

void Output::fail(int error) const { file_failure(name_, error); }

void Output::refuse_terminal() const {
    if (is_terminal()) {
        throw Failure(ExitCode::kUsage, name_,
                      "binary data does not go to a terminal; give -o FILE, or a pipe");
    }
}

void Output::write_now(std::string_view bytes) const {
    while (!bytes.empty()) {
        const ssize_t written = ::write(fd_, bytes.data(), bytes.size());
        if (written >= 0) {
            bytes.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            fail(errno);
        }
    }
}

void Output::write(std::string_view bytes) {
    flush();
    write_now(bytes);
}

void Output::append(std::string_view bytes) {
    gathered_ += bytes;
    if (is_terminal_ || gathered_.size() >= kPieceSize) {
        flush();
    }
}

void Output::flush() {
    write_now(gathered_);
    gathered_.clear();
}

void Output::finish() {
    flush();
    const int error = temporary_ != nullptr ? temporary_->close() : in_place_.close();
    if (error != 0) {
        fail(error);
    }
}

void Output::commit() {
    finish();
    const int error = temporary_ != nullptr ? temporary_->replace_target() : 0;
    if (error != 0) {
        fail(error);
    }
}

bool same_file(const std::string& one, const std::string& other) {
    std::error_code ignored;
    using std::filesystem::absolute;
    using std::filesystem::weakly_canonical;
    return weakly_canonical(absolute(one), ignored) == weakly_canonical(absolute(other), ignored);
}

}  // namespace vynpkt
