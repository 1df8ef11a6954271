// Owners: a variable of one of these types releases what it holds when its scope ends.
#ifndef VYN_COMMON_UTILS_OWNED_H
#define VYN_COMMON_UTILS_OWNED_H

#include <json-c/json.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

namespace vyn {

struct JsonRelease {
    void operator()(json_object* object) const { (void)json_object_put(object); }
};
// One reference to a json-c value. Where json-c takes the reference over, release() follows the call.
using JsonPtr = std::unique_ptr<json_object, JsonRelease>;

struct TokenerRelease {
    void operator()(json_tokener* tokener) const { json_tokener_free(tokener); }
};
using TokenerPtr = std::unique_ptr<json_tokener, TokenerRelease>;

// Holds off the cancellation of the thread while it is in scope. close() is a cancellation point, and
// a cancellation in a destructor would end the process.
class NoCancellation {
public:
    NoCancellation() { (void)pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~NoCancellation() { (void)pthread_setcancelstate(before_, nullptr); }
    NoCancellation(const NoCancellation&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;
    NoCancellation(NoCancellation&&) = delete;
    NoCancellation& operator=(NoCancellation&&) = delete;

private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

// A file descriptor, or -1.
class UniqueFd {
public:
    explicit UniqueFd(int fd) : fd_(fd) {}
    ~UniqueFd() { (void)close(); }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    UniqueFd(UniqueFd&&) = delete;
    UniqueFd& operator=(UniqueFd&&) = delete;

    [[nodiscard]] int get() const { return fd_; }
    [[nodiscard]] bool valid() const { return fd_ >= 0; }

    // 0, or the errno of the close. The descriptor is gone either way.
    int close() {
        const NoCancellation while_closing;
        const int fd = fd_;
        fd_ = -1;
        return fd < 0 || ::close(fd) == 0 ? 0 : errno;
    }

private:
    int fd_;
};

}  // namespace vyn

#endif  // VYN_COMMON_UTILS_OWNED_H
