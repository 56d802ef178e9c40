// Log calls with a format: what {fmt} makes of it, made in a shorter way.

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <string>
#include <string_view>
#include <support/RecordingDestination.h>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/LogCalls.h>

namespace velora::test {
namespace {

using testing::ElementsAre;

/// Logs a format and checks that the line is what {fmt} makes of it.
#define EXPECT_LOGGED_AS_FORMATTED(...)                                                         \
    do {                                                                                        \
        recorded.recording->clear();                                                            \
        recorded.log->info(__VA_ARGS__);                                                        \
        EXPECT_THAT(recorded.recording->lines(), ElementsAre("> " + fmt::format(__VA_ARGS__))); \
    } while (false)

TEST(FormattedLogCall, FillsInEveryKindOfArgument) {
    const RecordedLogger<> recorded;
    const std::string text = "a text that is longer than what fits into a string itself";
    const std::string_view view = "view";
    const char* const pointer = "pointer";
    char array[] = "array";
    const void* const address = &recorded;
    EXPECT_LOGGED_AS_FORMATTED("{}", text);
    EXPECT_LOGGED_AS_FORMATTED("a {} b {} c {} d", view, pointer, array);
    EXPECT_LOGGED_AS_FORMATTED("{}{}{}", "literal", std::string(), text);
    EXPECT_LOGGED_AS_FORMATTED("{} {} {} {}", true, false, 'c', '\0');
    EXPECT_LOGGED_AS_FORMATTED("{} {}", std::numeric_limits<int>::min(), std::numeric_limits<unsigned>::max());
    EXPECT_LOGGED_AS_FORMATTED("{} {}", std::numeric_limits<long>::min(), std::numeric_limits<unsigned long>::max());
    EXPECT_LOGGED_AS_FORMATTED("{} {}", std::numeric_limits<long long>::min(),
                               std::numeric_limits<unsigned long long>::max());
    EXPECT_LOGGED_AS_FORMATTED("{} {}", std::numeric_limits<short>::min(), std::numeric_limits<unsigned short>::max());
    EXPECT_LOGGED_AS_FORMATTED("{} {}", static_cast<signed char>(-7), static_cast<unsigned char>(200));
    EXPECT_LOGGED_AS_FORMATTED("{} {} {}", 1.5, 0.1F, -1e300);
    EXPECT_LOGGED_AS_FORMATTED("{}", address);
    EXPECT_LOGGED_AS_FORMATTED("{} of {}", 3, std::vector<int>{1, 2, 3});
    EXPECT_LOGGED_AS_FORMATTED("{} at {}", 1, Level::error);
}

TEST(FormattedLogCall, UnderstandsEveryFormat) {
    const RecordedLogger<> recorded;
    EXPECT_LOGGED_AS_FORMATTED("{:>5}|{:<5}|{:^5}", 1, "two", 'c');
    EXPECT_LOGGED_AS_FORMATTED("{:#x} {:.2f}", 255, 3.14159);
    EXPECT_LOGGED_AS_FORMATTED("{1} {0}", 1, "two");
    EXPECT_LOGGED_AS_FORMATTED("{{}} {}", 1);
    EXPECT_LOGGED_AS_FORMATTED("{} {{", 1);
    EXPECT_LOGGED_AS_FORMATTED("}} {}", 1);
    EXPECT_LOGGED_AS_FORMATTED("only the first: {}", 1, "two");
    EXPECT_LOGGED_AS_FORMATTED("none", 1);
    EXPECT_LOGGED_AS_FORMATTED("{}{}{}{}{}", 1, 2, 3, 4, 5);
    EXPECT_LOGGED_AS_FORMATTED("{} {} {} {} {} {}", 1, 2, 3, 4, 5, 6);
}

#define FIVE_HUNDRED_TWELVE                                            \
    "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef" \
    "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef" \
    "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef" \
    "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef" \
    "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef" \
    "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef" \
    "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef" \
    "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef"

TEST(FormattedLogCall, FillsInArgumentsFarFromTheBeginning) {
    const RecordedLogger<> recorded;
    EXPECT_LOGGED_AS_FORMATTED(FIVE_HUNDRED_TWELVE FIVE_HUNDRED_TWELVE FIVE_HUNDRED_TWELVE FIVE_HUNDRED_TWELVE
                                   FIVE_HUNDRED_TWELVE FIVE_HUNDRED_TWELVE FIVE_HUNDRED_TWELVE "{} end",
                               1);
    EXPECT_LOGGED_AS_FORMATTED(FIVE_HUNDRED_TWELVE FIVE_HUNDRED_TWELVE FIVE_HUNDRED_TWELVE FIVE_HUNDRED_TWELVE
                                   FIVE_HUNDRED_TWELVE FIVE_HUNDRED_TWELVE FIVE_HUNDRED_TWELVE FIVE_HUNDRED_TWELVE
                               "{} end",
                               1);
}

TEST(FormattedLogCall, ShowsANullTextAsSuch) {
    const RecordedLogger<> recorded;
    const char* const none = nullptr;
    recorded.log->info("name: {}", none);
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> name: (null)"));
}

}  // namespace
}  // namespace velora::test
