// Makes system calls of the library fail: this program defines them itself and forwards to the C
// library's.
#ifndef VYN_TESTS_SUPPORT_FAULT_SWITCH_H
#define VYN_TESTS_SUPPORT_FAULT_SWITCH_H

#include <functional>
#include <string>

namespace vyn_test {

struct Fault {
    std::string call;  // "fsync", ...; those of large files without their 64
    int error = 0;
    int first = 1;  // the first of the calls that fails, counted from 1
    int times = 1;  // how many fail
    bool is_short =
        false;        // write and fwrite: half of the bytes instead; fwrite notes an error if any
    int closing = 0;  // with which each close fails besides
    std::function<void()> before = {};  // what happens in front of the call; it does not fail
};

// Runs the body with the fault, and returns the calls that it made, in order, each behind a blank.
// An open that leaks to child processes is "open-leaking", or "fopen-leaking".
std::string calls_of(const Fault& fault, const std::function<void()>& body);

}  // namespace vyn_test

#endif  // VYN_TESTS_SUPPORT_FAULT_SWITCH_H
