// The boundary to C: no exception leaves an exported function.
#ifndef VYN_COMMON_UTILS_GUARD_H
#define VYN_COMMON_UTILS_GUARD_H

#include <cxxabi.h>

namespace vyn {

// Runs the body and turns an exception, which means that memory ran out, into the given failure.
// The cancellation of a thread inside syslog() unwinds through here. It must pass, or the process is
// terminated; for the same reason no function that logs is noexcept.
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
