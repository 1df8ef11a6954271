// The boundary to C: no exception leaves an exported function.
#ifndef VYN_COMMON_UTILS_GUARD_H
#define VYN_COMMON_UTILS_GUARD_H

#include <cxxabi.h>

namespace vyn {

// Runs the body; an exception, which is memory that ran out, becomes the function's failure.
// Cancellation of the thread must pass, or the process is terminated: it unwinds through here
// when it strikes inside syslog(). For the same reason nothing that logs is noexcept.
template <typename Result, typename Body>
Result guarded(Result failure, Body&& body) {
    try {
        return body();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return failure;
    }
}

}  // namespace vyn

#endif  // VYN_COMMON_UTILS_GUARD_H
