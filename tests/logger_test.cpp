#include "logger.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "support/log_trap.h"

static std::string connection;  // the arguments of the last openlog()

extern "C" void openlog(const char* ident, int option, int facility) {
    connection = (ident != nullptr ? ident : "(null)") + (" " + std::to_string(option)) + " " +
                 std::to_string(facility);
}

namespace vyn_test {
namespace {

class Logger : public testing::Test {
protected:
    void SetUp() override { (void)take_log(); }
    void TearDown() override { update_log_level(0); }
};

std::string repeat(int times, const std::string& text) {
    std::string all;
    for (int i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

std::string nested(int depth) { return repeat(depth, "\\(") + "a" + repeat(depth, "\\)"); }

const uint32_t level_at_load = get_log_level();

TEST_F(Logger, ThresholdAndPriorities) {
    EXPECT_EQ(level_at_load, 0U);
    constexpr uint32_t kHuge = 0xFFFFFFFF;
    const char* bad = "3 Incorrect log level";
    const struct {
        uint32_t threshold;
        uint32_t level;
        const char* line;  // empty: none
    } rows[] = {{0, 0, "6 text\n"}, {0, 1, "7 text\n"}, {0, 2, "3 text\n"}, {0, 3, ""},
                {0, 4, bad},        {2, 1, ""},         {2, 2, "3 text\n"}, {3, 2, ""},
                {3, 3, ""},         {8, 7, ""},         {0, kHuge, bad},    {kHuge, 2, ""}};
    for (const auto& row : rows) {
        update_log_level(row.threshold);
        EXPECT_EQ(get_log_level(), row.threshold);
        LOG(row.level, "%s", "text");
        EXPECT_EQ(take_log(), *row.line != '\0' ? LogLines{row.line} : LogLines{})
            << "level " << row.level << " under " << row.threshold;
    }
}

TEST_F(Logger, OnlyAMessageThatLeavesRoomEndsInANewline) {
    for (std::size_t length = 2045; length <= 2049; ++length) {
        const std::string text = std::string(length - 1, 'x') + "y";
        LOG(2, "%s", text.c_str());
        EXPECT_EQ(take_log(), LogLines{"3 " + text.substr(0, 2047) + (length < 2047 ? "\n" : "")});
    }
    LOG(2, "%ls", L"\x1234");  // no such character in the C locale: formatting fails
    EXPECT_EQ(take_log(), LogLines{error_line("")});
}

TEST_F(Logger, ArgumentsAreVerbatimAndErrnoIsKept) {
    errno = ENOENT;
    LOG(2, "%s", "100%s%n%d");
    EXPECT_EQ(errno, ENOENT);
    void (*const log)(uint32_t, const char*, ...) = LOG;  // the compiler does not know %m
    log(2, "%m");
    notify_IVI_("50% of %s", -7);
    notify_IVI_(nullptr, 0);
    EXPECT_EQ(take_log(), (LogLines{error_line("100%s%n%d"), error_line(std::strerror(ENOENT)),
                                    error_line("50% of %s"), error_line("Error Code : -7"),
                                    error_line("(null)"), error_line("Error Code : 0")}));
}

TEST_F(Logger, InitOpensTheConnectionAndSetsTheThreshold) {
    EXPECT_EQ(log_file_init("vynd", -1, 2), 1);
    EXPECT_EQ(connection, "vynd 1 8");
    EXPECT_EQ(get_log_level(), 2U);
    log_file_cleanup();
    EXPECT_EQ(log_file_init(nullptr, 0, 0), 1);
    EXPECT_EQ(connection, "(null) 1 8");
}

// As long as no test in front of it draws one.
TEST_F(Logger, TransactionIdsStartAtRandom) {
    const auto now = static_cast<unsigned>(std::time(nullptr));
    const uint32_t first = generate_unique_trans_id();
    const auto seeded = [](unsigned seconds) {
        srand(seconds);
        return static_cast<uint32_t>(rand());
    };
    EXPECT_TRUE(first == seeded(now) || first == seeded(now + 1)) << first;
}

TEST_F(Logger, TextPredicates) {
    EXPECT_EQ(is_param_not_empty(nullptr), 0);
    EXPECT_EQ(is_param_not_empty(""), 0);
    EXPECT_EQ(is_param_not_empty(" "), 1);
    const struct {
        const char* value;
        const char* allowed;
        int result;
    } rows[] = {{"b", "a|b|c", 1}, {"c", "a|b|c", 1}, {"bb", "a|b", 0}, {"b", "a|bb", 0},
                {"", "a||b", 0},   {"", "", 1},       {"b", "b", 1},    {"B", "b", 0},
                {nullptr, "a", 0}, {"a", nullptr, 0}, {"", "a", 0}};
    for (const auto& row : rows) {
        EXPECT_EQ(compare_config_data_values(row.value, row.allowed), row.result)
            << (row.value ? row.value : "NULL") << " in " << (row.allowed ? row.allowed : "NULL");
    }
}

TEST_F(Logger, RegularExpressions) {
    const std::string opened = repeat(60, "\\(");
    const struct {
        std::string text;
        std::string pattern;
        int result;
    } rows[] = {
        {"a\nb", "^b", 0},
        {"abc", "B", 0},
        {"abc", "[", 0},
        {"a+(b)", "a+(b)", 1},  // plain characters in the basic syntax
        {"a", nested(50), 1},
        {"a", nested(51), 0},
        {"a", "[]a]" + nested(800), 0},  // more than a small stack holds
        {"aaa", nested(50) + nested(50) + nested(50), 1},
        {repeat(60, "\\("), repeat(60, "\\\\("), 1},  // escaped backslashes, plain parentheses
        {"x", "[^]" + opened + "]", 1},
        {"(", "[[:digit:]" + opened + "]", 1},
        {"(", "[[.].]" + opened + "]", 1},
        {"(", "[[=]=]" + opened + "]", 1},
        {"[a", "\\[" + nested(51), 0},  // no bracket opens here
        {"ba", "[[:alpha:]]" + nested(51), 0},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(find_key_regex(row.text.c_str(), row.pattern.c_str()), row.result) << row.pattern;
    }
    EXPECT_EQ(find_key_regex(nullptr, "a"), 0);
    EXPECT_EQ(find_key_regex("a", nullptr), 0);
}

}  // namespace
}  // namespace vyn_test
