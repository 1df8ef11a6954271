// System calls that a signal may interrupt.
#ifndef VYN_COMMON_UTILS_INTERRUPTED_H
#define VYN_COMMON_UTILS_INTERRUPTED_H

#include <cerrno>

namespace vyn {

// How often a call may be interrupted before that counts as its failure.
constexpr int kMaxInterrupts = 10;

// Calls again as long as a signal interrupts, up to that limit. Returns 0 or an errno.
template <typename Call>
[[nodiscard]] int uninterrupted(Call call) {
    int error = EINTR;
    for (int tries = 0; error == EINTR && tries < kMaxInterrupts; ++tries) {
        error = call() ? 0 : errno;
    }
    return error;
}

}  // namespace vyn

#endif  // VYN_COMMON_UTILS_INTERRUPTED_H
