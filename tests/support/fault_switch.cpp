#include "support/fault_switch.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

namespace {

thread_local const vyn_test::Fault* armed = nullptr;
thread_local int seen = 0;
thread_local std::string calls;

template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

// Whether this call is one of those that fail.
bool strikes(const char* call, bool leaks = false) {
    const vyn_test::Fault* fault = armed;
    if (fault == nullptr) {
        return false;
    }
    calls += std::string(" ") + call + (leaks ? "-leaking" : "");
    if (fault->call != call) {
        return false;
    }
    ++seen;
    const bool struck = seen >= fault->first && seen - fault->first < fault->times;
    if (struck && fault->before) {
        fault->before();
        return false;
    }
    return struck;
}

// As strikes(), with the errno of the fault.
bool fails(const char* call, bool leaks = false) {
    const bool struck = strikes(call, leaks);
    if (struck) {
        errno = armed->error;
    }
    return struck;
}

int closing_error(const char* call) {
    if (strikes(call)) {
        return armed->error;
    }
    return armed != nullptr ? armed->closing : 0;
}

}  // namespace

// The C library calls its arguments __fd and the like.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" {

int open64(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return fails("open", (flags & O_CLOEXEC) == 0)
               ? -1
               : real<int(const char*, int, ...)>("open64")(path, flags, mode);
}
FILE* fopen64(const char* path, const char* mode) {
    return fails("fopen", std::strchr(mode, 'e') == nullptr)
               ? nullptr
               : real<decltype(fopen64)>("fopen64")(path, mode);
}
std::size_t fwrite(const void* data, std::size_t size, std::size_t count, FILE* stream) {
    if (strikes("fwrite")) {
        count = armed->is_short ? count / 2 : 0;
        constexpr int kErrorSeen = 0x20;  // what ferror() looks at
        stream->_flags |= armed->is_short && armed->error != 0 ? kErrorSeen : 0;
    }
    return count == 0 ? 0 : real<decltype(fwrite)>("fwrite")(data, size, count, stream);
}
// What cannot be closed is closed all the same.
int fclose(FILE* stream) {
    const int error = closing_error("fclose");
    const int result = real<decltype(fclose)>("fclose")(stream);
    errno = error != 0 ? error : errno;
    return error != 0 ? EOF : result;
}
int close(int fd) {
    const int error = closing_error("close");
    const int result = real<decltype(close)>("close")(fd);
    errno = error != 0 ? error : errno;
    return error != 0 ? -1 : result;
}
int posix_fallocate64(int fd, off64_t offset, off64_t size) {
    return strikes("posix_fallocate")
               ? armed->error
               : real<decltype(posix_fallocate64)>("posix_fallocate64")(fd, offset, size);
}

// clang-format off
// NOLINTBEGIN(bugprone-macro-parentheses)
#define FAILING(result, name, call, parameters, arguments, failure) \
    result name parameters { return fails(call) ? failure : real<decltype(name)>(#name) arguments; }
FAILING(int, fflush, "fflush", (FILE* stream), (stream), EOF)
FAILING(int, ftruncate64, "ftruncate", (int fd, off64_t size), (fd, size), -1)
FAILING(int, fallocate64, "fallocate", (int fd, int mode, off64_t at, off64_t size),
        (fd, mode, at, size), -1)
FAILING(void*, mmap64, "mmap", (void* at, std::size_t size, int access, int flags, int fd, off64_t from),
        (at, size, access, flags, fd, from), MAP_FAILED)
FAILING(int, msync, (flags & MS_SYNC) != 0 ? "msync" : "msync-async",
        (void* data, std::size_t size, int flags), (data, size, flags), -1)
FAILING(int, munmap, "munmap", (void* data, std::size_t size), (data, size), -1)
FAILING(int, fsync, "fsync", (int fd), (fd), -1)
FAILING(int, rename, "rename", (const char* from, const char* to) noexcept, (from, to), -1)
FAILING(int, unlink, "unlink", (const char* path) noexcept, (path), -1)
FAILING(int, fstat64, "fstat", (int fd, struct stat64* status) noexcept, (fd, status), -1)
// What fstat is where a time has 64 bits and a pointer 32.
FAILING(int, __fstat64_time64, "fstat", (int fd, void* status), (fd, status), -1)
FAILING(ssize_t, read, "read", (int fd, void* data, std::size_t size), (fd, data, size), -1)
#undef FAILING
// NOLINTEND(bugprone-macro-parentheses)
// clang-format on
ssize_t write(int fd, const void* data, std::size_t size) {
    const bool struck = strikes("write");
    if (struck && !armed->is_short) {
        errno = armed->error;
        return -1;
    }
    return real<decltype(write)>("write")(fd, data, struck ? size / 2 : size);
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)

namespace vyn_test {

std::string calls_of(const Fault& fault, const std::function<void()>& body) {
    seen = 0;
    calls.clear();
    armed = &fault;
    body();
    armed = nullptr;
    return std::exchange(calls, {});
}

}  // namespace vyn_test
