// Runs each test in the locale that VYN_TEST_LOCALE names, as a service of the unit may run.
#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>

namespace {

class Locale : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo& /*test*/) override {
        const char* name = getenv("VYN_TEST_LOCALE");
        const char* folder = getenv("VYN_TEST_LOCALES");
        if (name != nullptr && folder != nullptr) {
            (void)setenv("LOCPATH", folder, 1);  // a test may have taken it away
            EXPECT_NE(setlocale(LC_ALL, name), nullptr) << name;
        }
    }
};

const bool appended = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new Locale);
    return true;
}();

}  // namespace
