#include <array>
#include <gtest/gtest.h>
#include <limits>

#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIColor.h>

namespace velora::test {
namespace {

struct Expected {
    ANSIColor color;
    const char* foregroundCode;
    const char* backgroundCode;
    const char* description;
};

constexpr std::array<Expected, 19> plainColors = {{
    {ANSIColor::black, "30", "40", "Black"},
    {ANSIColor::red, "31", "41", "Red"},
    {ANSIColor::green, "32", "42", "Green"},
    {ANSIColor::yellow, "33", "43", "Yellow"},
    {ANSIColor::blue, "34", "44", "Blue"},
    {ANSIColor::magenta, "35", "45", "Magenta"},
    {ANSIColor::cyan, "36", "46", "Cyan"},
    {ANSIColor::lightGrey, "37", "47", "Light Grey"},
    {ANSIColor::lightGray, "37", "47", "Light Grey"},
    {ANSIColor::darkGrey, "90", "100", "Dark Grey"},
    {ANSIColor::darkGray, "90", "100", "Dark Grey"},
    {ANSIColor::lightRed, "91", "101", "Light Red"},
    {ANSIColor::lightGreen, "92", "102", "Light Green"},
    {ANSIColor::lightYellow, "93", "103", "Light Yellow"},
    {ANSIColor::lightBlue, "94", "104", "Light Blue"},
    {ANSIColor::lightMagenta, "95", "105", "Light Magenta"},
    {ANSIColor::lightCyan, "96", "106", "Light Cyan"},
    {ANSIColor::white, "97", "107", "White"},
    {ANSIColor::default_, "39", "49", "Default"},
}};

TEST(ANSIColor, NamesTheColorsOfTheTerminal) {
    for (const Expected& expected : plainColors) {
        EXPECT_EQ(expected.color.foregroundCode(), expected.foregroundCode);
        EXPECT_EQ(expected.color.backgroundCode(), expected.backgroundCode);
        EXPECT_EQ(expected.color.description(), expected.description);
    }
}

TEST(ANSIColor, HasNineteenPlainColorsThatDiffer) {
    for (std::size_t left = 0; left < plainColors.size(); ++left) {
        for (std::size_t right = 0; right < plainColors.size(); ++right) {
            EXPECT_EQ(plainColors.at(left).color == plainColors.at(right).color, left == right);
        }
    }
}

TEST(ANSIColor, MixesRedGreenAndBlue) {
    const ANSIColor color = ANSIColor::rgb(1, 20, 255);
    EXPECT_EQ(color.foregroundCode(), "38;2;1;20;255");
    EXPECT_EQ(color.backgroundCode(), "48;2;1;20;255");
    EXPECT_EQ(color.description(), "(r: 1, g: 20, b: 255) #0114FF");
}

TEST(ANSIColor, ClampsThePartsOfAMixInItsCodesOnly) {
    const ANSIColor color = ANSIColor::rgb(300, -5, 10);
    EXPECT_EQ(color.foregroundCode(), "38;2;255;0;10");
    EXPECT_EQ(color.backgroundCode(), "48;2;255;0;10");
    EXPECT_EQ(color.description(), "(r: 300, g: -5, b: 10) #12CFFFFFFFB0A");
}

TEST(ANSIColor, ClampsTheLargestAndSmallestNumbers) {
    const ANSIColor color = ANSIColor::rgb(std::numeric_limits<int>::max(), std::numeric_limits<int>::min(), 256);
    EXPECT_EQ(color.foregroundCode(), "38;2;255;0;255");
    EXPECT_EQ(color.description(), "(r: 2147483647, g: -2147483648, b: 256) #7FFFFFFF80000000100");
}

TEST(ANSIColor, TakesAnIndexedColor) {
    EXPECT_EQ(ANSIColor::colorIndex(42).foregroundCode(), "38;5;42");
    EXPECT_EQ(ANSIColor::colorIndex(42).backgroundCode(), "48;5;42");
    EXPECT_EQ(ANSIColor::colorIndex(42).description(), "ANSI color index: 42");
}

TEST(ANSIColor, ClampsAnIndexInItsCodesOnly) {
    EXPECT_EQ(ANSIColor::colorIndex(256).backgroundCode(), "48;5;255");
    EXPECT_EQ(ANSIColor::colorIndex(255).backgroundCode(), "48;5;255");
    EXPECT_EQ(ANSIColor::colorIndex(-1).foregroundCode(), "38;5;0");
    EXPECT_EQ(ANSIColor::colorIndex(256).description(), "ANSI color index: 256");
}

TEST(ANSIColor, ComparesByCaseAndNumbers) {
    EXPECT_EQ(ANSIColor::rgb(1, 2, 3), ANSIColor::rgb(1, 2, 3));
    EXPECT_FALSE(ANSIColor::rgb(1, 2, 3) == ANSIColor::rgb(1, 2, 4));
    EXPECT_FALSE(ANSIColor::rgb(0, 0, 0) == ANSIColor::black);
    EXPECT_EQ(ANSIColor::colorIndex(7), ANSIColor::colorIndex(7));
    EXPECT_FALSE(ANSIColor::colorIndex(7) == ANSIColor::colorIndex(8));
    EXPECT_FALSE(ANSIColor::colorIndex(7) == ANSIColor::rgb(7, 0, 0));
}

}  // namespace
}  // namespace velora::test
