#include "support/log_trap.h"

#include <syslog.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <utility>

namespace {

// Of each thread its own.
thread_local vyn_test::LogLines lines;

__attribute__((format(printf, 2, 0))) void catch_line(int priority, const char* format,
                                                      va_list arguments) {
    char text[4096];
    (void)vsnprintf(text, sizeof text, format, arguments);
    lines.push_back(std::to_string(priority) + " " + text);
    errno = EBADF;  // the real one may leave anything here
}

}  // namespace

extern "C" {

void syslog(int pri, const char* fmt, ...) {
    va_list arguments;
    va_start(arguments, fmt);
    catch_line(pri, fmt, arguments);
    va_end(arguments);
}

// What syslog() becomes in a fortified build.
__attribute__((format(printf, 3, 4))) void __syslog_chk(int priority, int /*flag*/,
                                                        const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    catch_line(priority, format, arguments);
    va_end(arguments);
}
}

namespace vyn_test {

LogLines take_log() { return std::exchange(lines, {}); }

std::string debug_line(const std::string& text) { return "7 " + text + "\n"; }
std::string error_line(const std::string& text) { return "3 " + text + "\n"; }

}  // namespace vyn_test
