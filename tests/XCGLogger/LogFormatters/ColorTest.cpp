#include <gtest/gtest.h>
#include <limits>
#include <string>

#include <Velora_UserDefaults/XCGLogger/LogFormatters/Color.h>

namespace velora::test {
namespace {

void expectComponents(const Color& color, double red, double green, double blue, double alpha = 1) {
    EXPECT_NEAR(color.redComponent(), red, 1e-12);
    EXPECT_NEAR(color.greenComponent(), green, 1e-12);
    EXPECT_NEAR(color.blueComponent(), blue, 1e-12);
    EXPECT_NEAR(color.alphaComponent(), alpha, 1e-12);
}

TEST(Color, HoldsTheComponentsOfAMix) {
    expectComponents(Color::fromRGB(0.1, 0.2, 0.3), 0.1, 0.2, 0.3);
    expectComponents(Color::fromRGB(0.1, 0.2, 0.3, 0.4), 0.1, 0.2, 0.3, 0.4);
}

TEST(Color, TurnsAGreyIntoThreeEqualComponents) {
    expectComponents(Color::fromGrey(0.25), 0.25, 0.25, 0.25);
    expectComponents(Color::fromGrey(1, 0.5), 1, 1, 1, 0.5);
}

TEST(Color, MovesComponentsIntoTheRange) {
    const double infinity = std::numeric_limits<double>::infinity();
    expectComponents(Color::fromRGB(-1, 2, std::numeric_limits<double>::quiet_NaN(), 7), 0, 1, 0, 1);
    expectComponents(Color::fromRGB(-infinity, infinity, 0.5, -infinity), 0, 1, 0.5, 0);
    expectComponents(Color::fromGrey(1e300), 1, 1, 1);
    expectComponents(Color::fromHSB(-1, 9, 9), 1, 0, 0);
}

TEST(Color, GoesAroundTheCircleOfHues) {
    expectComponents(Color::fromHSB(0.0, 1, 1), 1, 0, 0);
    expectComponents(Color::fromHSB(1 / 12.0, 1, 1), 1, 0.5, 0);
    expectComponents(Color::fromHSB(1 / 6.0, 1, 1), 1, 1, 0);
    expectComponents(Color::fromHSB(2 / 6.0, 1, 1), 0, 1, 0);
    expectComponents(Color::fromHSB(3 / 6.0, 1, 1), 0, 1, 1);
    expectComponents(Color::fromHSB(4 / 6.0, 1, 1), 0, 0, 1);
    expectComponents(Color::fromHSB(5 / 6.0, 1, 1), 1, 0, 1);
    expectComponents(Color::fromHSB(11 / 12.0, 1, 1), 1, 0, 0.5);
    expectComponents(Color::fromHSB(1.0, 1, 1), 1, 0, 0);
}

TEST(Color, FadesWithItsSaturationAndBrightness) {
    expectComponents(Color::fromHSB(0, 0, 0.7), 0.7, 0.7, 0.7);
    expectComponents(Color::fromHSB(0, 0.5, 0.8, 0.3), 0.8, 0.4, 0.4, 0.3);
    expectComponents(Color::fromHSB(0.4, 1, 0), 0, 0, 0);
}

TEST(Color, ReadsHexadecimalNotation) {
    expectComponents(*Color::fromHex("#FFA500"), 1, 165 / 255.0, 0);
    expectComponents(*Color::fromHex("ffa500"), 1, 165 / 255.0, 0);
    expectComponents(*Color::fromHex("#fA0"), 1, 170 / 255.0, 0);
    expectComponents(*Color::fromHex("123"), 17 / 255.0, 34 / 255.0, 51 / 255.0);
    expectComponents(*Color::fromHex("#FFA50080"), 1, 165 / 255.0, 0, 128 / 255.0);
    expectComponents(*Color::fromHex("#FA08"), 1, 170 / 255.0, 0, 136 / 255.0);
    EXPECT_EQ(Color::fromHex("#000000"), Color::fromGrey(0));
}

TEST(Color, RefusesAnythingElse) {
    for (const char* text : {"", "#", "#F", "#FF", "#FFFFF", "#FFFFFFF", "#FFFFFFFFF", "##FFF", "#GGG", "#FF A00",
                             "orange", "#-1-1-1", "0x1122", "#+1+1+1", "FFF#", " FFF", "\xc3\xa9\xc3"}) {
        EXPECT_EQ(Color::fromHex(text), std::nullopt) << text;
    }
    EXPECT_EQ(Color::fromHex(std::string_view("\0\0\0", 3)), std::nullopt);
}

}  // namespace
}  // namespace velora::test
