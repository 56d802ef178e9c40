#include <fmt/format.h>
#include <gtest/gtest.h>
#include <limits>

#include <Velora_UserDefaults/XCGLogger/LogFormatters/XcodeColor.h>

namespace velora::test {
namespace {

// No colour turns into another kind by itself.
static_assert(!std::is_convertible_v<Color, XcodeColor>);

TEST(XcodeColor, StoresTheNumbersItIsMadeOf) {
    const XcodeColor color(300, -5, 10);
    EXPECT_EQ(color.red(), 300);
    EXPECT_EQ(color.green(), -5);
    EXPECT_EQ(color.blue(), 10);
}

TEST(XcodeColor, TurnsANumberSetOutOfRangeIntoZero) {
    XcodeColor color(10, 20, 30);
    color.setRed(256);
    EXPECT_EQ(color, XcodeColor(0, 20, 30));
    color.setRed(255);
    EXPECT_EQ(color.red(), 255);
    color.setRed(-1);
    EXPECT_EQ(color.red(), 0);
    color.setGreen(256);
    EXPECT_EQ(color, XcodeColor(0, 0, 30));
    color.setGreen(1);
    EXPECT_EQ(color.green(), 1);
    color.setBlue(-1);
    EXPECT_EQ(color, XcodeColor(0, 1, 0));
    color.setBlue(std::numeric_limits<int>::max());
    EXPECT_EQ(color.blue(), 0);
    color.setBlue(0);
    EXPECT_EQ(color.blue(), 0);
}

TEST(XcodeColor, KeepsTheOtherNumbersWhenOneIsSet) {
    XcodeColor color(300, -5, 999);
    color.setRed(7);
    EXPECT_EQ(color, XcodeColor(7, -5, 999));
}

TEST(XcodeColor, WritesItsCodes) {
    EXPECT_EQ(XcodeColor(255, 165, 0).foregroundCode(), "fg255,165,0");
    EXPECT_EQ(XcodeColor(255, 165, 0).backgroundCode(), "bg255,165,0");
    EXPECT_EQ(XcodeColor(300, -5, 0).foregroundCode(), "fg300,-5,0");
}

TEST(XcodeColor, DescribesItself) {
    EXPECT_EQ(XcodeColor(255, 165, 0).description(), "(r: 255, g: 165, b: 0) #FFA500");
    EXPECT_EQ(XcodeColor(1, 2, 11).description(), "(r: 1, g: 2, b: 11) #01020B");
    EXPECT_EQ(XcodeColor(256, -1, 0).description(), "(r: 256, g: -1, b: 0) #100FFFFFFFF00");
}

TEST(XcodeColor, HasColorsWithAName) {
    EXPECT_EQ(XcodeColor::Named::red, XcodeColor(255, 0, 0));
    EXPECT_EQ(XcodeColor::Named::green, XcodeColor(0, 255, 0));
    EXPECT_EQ(XcodeColor::Named::blue, XcodeColor(0, 0, 255));
    EXPECT_EQ(XcodeColor::Named::black, XcodeColor(0, 0, 0));
    EXPECT_EQ(XcodeColor::Named::white, XcodeColor(255, 255, 255));
    EXPECT_EQ(XcodeColor::Named::lightGrey, XcodeColor(211, 211, 211));
    EXPECT_EQ(XcodeColor::Named::darkGrey, XcodeColor(169, 169, 169));
    EXPECT_EQ(XcodeColor::Named::orange, XcodeColor(255, 165, 0));
    EXPECT_EQ(XcodeColor::Named::purple, XcodeColor(170, 0, 170));
    EXPECT_EQ(XcodeColor::Named::darkGreen, XcodeColor(0, 128, 0));
    EXPECT_EQ(XcodeColor::Named::cyan, XcodeColor(0, 170, 170));
}

TEST(XcodeColor, DropsTheFractionOfAComponent) {
    EXPECT_EQ(XcodeColor(Color::fromRGB(0.5, 0.999, 0.003)), XcodeColor(127, 254, 0));
    EXPECT_EQ(XcodeColor(Color::fromGrey(1)), XcodeColor(255, 255, 255));
    EXPECT_EQ(XcodeColor(Color::fromRGB(1, 1, 1, 0)), XcodeColor(255, 255, 255));
}

TEST(XcodeColor, TakesEveryNumberOfHexadecimalNotation) {
    for (int number = 0; number <= 255; ++number) {
        EXPECT_EQ(XcodeColor(Color::fromHex(fmt::format("#{0:02X}{0:02x}{0:02X}", number))),
                  XcodeColor(number, number, number));
    }
}

TEST(XcodeColor, IsBlackWithoutAColor) {
    EXPECT_EQ(XcodeColor(std::nullopt), XcodeColor(0, 0, 0));
    EXPECT_EQ(XcodeColor(Color::fromHex("no color")), XcodeColor(0, 0, 0));
}

}  // namespace
}  // namespace velora::test
