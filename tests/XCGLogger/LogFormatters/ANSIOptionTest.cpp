#include <gtest/gtest.h>
#include <unordered_set>

#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIOption.h>

namespace velora::test {
namespace {

TEST(ANSIOption, HasACodeAndWords) {
    EXPECT_EQ(code(ANSIOption::bold), "1");
    EXPECT_EQ(description(ANSIOption::bold), "Bold");
    EXPECT_EQ(code(ANSIOption::faint), "2");
    EXPECT_EQ(description(ANSIOption::faint), "Faint");
    EXPECT_EQ(code(ANSIOption::italic), "3");
    EXPECT_EQ(description(ANSIOption::italic), "Italic");
    EXPECT_EQ(code(ANSIOption::underline), "4");
    EXPECT_EQ(description(ANSIOption::underline), "Underline");
    EXPECT_EQ(code(ANSIOption::blink), "5");
    EXPECT_EQ(description(ANSIOption::blink), "Blink");
    EXPECT_EQ(code(ANSIOption::blinkFast), "6");
    EXPECT_EQ(description(ANSIOption::blinkFast), "Blink Fast");
    EXPECT_EQ(code(ANSIOption::strikethrough), "9");
    EXPECT_EQ(description(ANSIOption::strikethrough), "Strikethrough");
}

TEST(ANSIOption, CanBeHashed) {
    const std::unordered_set<ANSIOption> options{ANSIOption::bold, ANSIOption::blink, ANSIOption::bold};
    EXPECT_EQ(options.size(), 2U);
    EXPECT_TRUE(options.contains(ANSIOption::blink));
    EXPECT_FALSE(options.contains(ANSIOption::faint));
}

}  // namespace
}  // namespace velora::test
