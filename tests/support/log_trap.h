// Catches what the library writes to syslog: this program defines syslog() itself.
#ifndef VYN_TESTS_SUPPORT_LOG_TRAP_H
#define VYN_TESTS_SUPPORT_LOG_TRAP_H

#include <string>
#include <vector>

namespace vyn_test {

// Priority, blank, text as it reached syslog: "7 JSON has key a with null value\n".
using LogLines = std::vector<std::string>;

// The lines since the last call, in order; starts afresh.
LogLines take_log();

// Lines as LOG() should have written them.
std::string debug_line(const std::string& text);
std::string error_line(const std::string& text);

}  // namespace vyn_test

#endif  // VYN_TESTS_SUPPORT_LOG_TRAP_H
