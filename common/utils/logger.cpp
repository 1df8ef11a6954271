#include "logger.h"

#include <glib.h>
#include <regex.h>
#include <sys/time.h>
#include <syslog.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string_view>

#include "utils/limits.h"

namespace {

// Monitoring searches the log for these texts: not to be corrected.
namespace log_text {
constexpr char kIncorrectLevel[] = "Incorrect log level";
constexpr char kErrorCode[] = "Error Code : %d";
}  // namespace log_text

// Set and read without a lock: another thread may see a change one message late.
std::atomic<uint32_t> log_level{0};

timeval wall_clock() {
    timeval now{};
    (void)gettimeofday(&now, nullptr);
    return now;
}

// Returns where the next element of a bracket expression begins: behind the character at this index,
// or behind the end of the class that begins there, such as [:alpha:].
std::size_t next_element(std::string_view pattern, std::size_t at) {
    const std::string_view opening = pattern.substr(at, 2);
    if (opening != "[:" && opening != "[." && opening != "[=") {
        return at + 1;
    }
    const char closing[] = {opening[1], ']'};
    const std::size_t end = pattern.find(std::string_view(closing, 2), at + 2);
    return end == std::string_view::npos ? pattern.size() : end + 2;
}

// Returns the index of the ']' that ends the bracket expression opened at pattern[open], or the length
// of the pattern. Inside, a backslash means itself, and so does a ']' that comes first.
std::size_t bracket_end(std::string_view pattern, std::size_t open) {
    std::size_t at = open + 1;
    if (pattern.substr(at, 1) == "^") {
        ++at;
    }
    if (pattern.substr(at, 1) == "]") {
        ++at;
    }
    while (at < pattern.size() && pattern[at] != ']') {
        at = next_element(pattern, at);
    }
    return at;
}

bool nested_too_deep(std::string_view pattern) {
    int depth = 0;
    for (std::size_t at = 0; at < pattern.size(); ++at) {
        if (pattern[at] == '[') {
            at = bracket_end(pattern, at);
        } else if (pattern[at] == '\\' && at + 1 < pattern.size()) {
            ++at;
            if (pattern[at] == '(' && ++depth > vyn::kMaxRegexDepth) {
                return true;
            }
            if (pattern[at] == ')') {
                --depth;
            }
        }
    }
    return false;
}

__attribute__((format(printf, 2, 0))) void write_message(uint32_t level, const char* format,
                                                         va_list arguments) {
    char message[LOG_MESSAGE_SIZE];
    message[0] = '\0';  // the message where formatting fails at once
    (void)vsnprintf(message, sizeof message, format, arguments);
    (void)g_strlcat(message, "\n", sizeof message);

    switch (level) {
        case LOG_LEVEL_INFO:
            syslog(LOG_INFO, "%s", message);
            break;
        case LOG_LEVEL_DEBUG:
            syslog(LOG_DEBUG, "%s", message);
            break;
        case LOG_LEVEL_ERROR:
            syslog(LOG_ERR, "%s", message);
            break;
        default:
            syslog(LOG_ERR, "%s", log_text::kIncorrectLevel);
            break;
    }
}

}  // namespace

int log_file_init(const char* ident, int32_t /*reserved*/, uint32_t level) {
    openlog(ident, LOG_PID, LOG_USER);
    update_log_level(level);
    return 1;
}

void log_file_cleanup(void) {}

void LOG(uint32_t level, const char* format, ...) {
    if (level < log_level.load(std::memory_order_relaxed) || level == LOG_LEVEL_NONE ||
        format == nullptr) {
        return;
    }
    const int caller_errno = errno;
    va_list arguments;
    va_start(arguments, format);
    write_message(level, format, arguments);
    va_end(arguments);
    errno = caller_errno;
}

void update_log_level(uint32_t level) { log_level.store(level, std::memory_order_relaxed); }

uint32_t get_log_level(void) { return log_level.load(std::memory_order_relaxed); }

void notify_IVI_(const char* message, int error_code) {
    LOG(LOG_LEVEL_ERROR, "%s", message != nullptr ? message : "(null)");
    LOG(LOG_LEVEL_ERROR, log_text::kErrorCode, error_code);
}

uint64_t get_current_timestamp_(void) {
    const timeval now = wall_clock();
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_usec) / 1000;
}

uint32_t generate_unique_trans_id(void) {
    static std::mutex trans_id_lock;
    static uint32_t count = 0;
    static uint32_t initial_trans_id_ = 0;

    const std::lock_guard<std::mutex> hold(trans_id_lock);
    if (count == 0) {
        srand(static_cast<unsigned>(wall_clock().tv_sec));
        initial_trans_id_ = static_cast<uint32_t>(rand());
        count = 1;
    } else {
        ++initial_trans_id_;
    }
    return initial_trans_id_;
}

int is_param_not_empty(const char* str) { return str != nullptr && *str != '\0'; }

int compare_config_data_values(const char* value, const char* allowed) {
    if (value == nullptr || allowed == nullptr) {
        return 0;
    }
    if (std::strchr(allowed, '|') == nullptr) {
        return std::strcmp(value, allowed) == 0;
    }
    if (*value == '\0') {
        return 0;  // empty alternatives do not count
    }
    const std::string_view wanted(value);
    std::string_view rest(allowed);
    for (;;) {
        const std::size_t bar = rest.find('|');
        if (rest.substr(0, bar) == wanted) {
            return 1;
        }
        if (bar == std::string_view::npos) {
            return 0;
        }
        rest.remove_prefix(bar + 1);
    }
}

int find_key_regex(const char* text, const char* pattern) {
    if (text == nullptr || pattern == nullptr || nested_too_deep(pattern)) {
        return 0;
    }
    regex_t compiled;
    if (regcomp(&compiled, pattern, 0) != 0) {
        return 0;
    }
    const bool matches = regexec(&compiled, text, 0, nullptr, 0) == 0;
    regfree(&compiled);
    return matches;
}
