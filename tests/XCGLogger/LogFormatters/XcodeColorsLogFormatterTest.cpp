#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/LogFormatters/XcodeColorsLogFormatter.h>

#include "XCGLogger/LogFormatters/FormatterTestSupport.h"

namespace velora::test {
namespace {

using ::testing::ElementsAre;

static_assert(!std::is_default_constructible_v<XcodeColorsLogFormatter>);

TEST(XcodeColorsLogFormatter, HasItsControlSequences) {
    EXPECT_EQ(XcodeColorsLogFormatter::escape, std::string_view("\x1b\x5b"));
    EXPECT_EQ(XcodeColorsLogFormatter::resetForeground, std::string_view("\x1b\x5b\x66\x67\x3b"));
    EXPECT_EQ(XcodeColorsLogFormatter::resetBackground, std::string_view("\x1b\x5b\x62\x67\x3b"));
    EXPECT_EQ(XcodeColorsLogFormatter::reset, std::string_view("\x1b\x5b\x3b"));
}

TEST(XcodeColorsLogFormatter, StartsWithItsDefaultScheme) {
    const auto formatter = make<XcodeColorsLogFormatter>();
    EXPECT_EQ(formatted(*formatter, Level::verbose), "\x1b[fg211,211,211;\x1b[bg;hi\x1b[;");
    EXPECT_EQ(formatted(*formatter, Level::debug), "\x1b[fg169,169,169;\x1b[bg;hi\x1b[;");
    EXPECT_EQ(formatted(*formatter, Level::info), "\x1b[fg0,0,255;\x1b[bg;hi\x1b[;");
    EXPECT_EQ(formatted(*formatter, Level::warning), "\x1b[fg255,165,0;\x1b[bg;hi\x1b[;");
    EXPECT_EQ(formatted(*formatter, Level::error), "\x1b[fg255,0,0;\x1b[bg;hi\x1b[;");
    EXPECT_EQ(formatted(*formatter, Level::severe), "\x1b[fg255,255,255;\x1b[bg255,0,0;hi\x1b[;");
    EXPECT_EQ(formatted(*formatter, Level::none), "\x1b[;hi\x1b[;");
}

TEST(XcodeColorsLogFormatter, PutsALevelOutsideTheSchemeBetweenTwoResets) {
    const auto formatter = make<XcodeColorsLogFormatter>();
    EXPECT_EQ(formatted(*formatter, Level::notice), "\x1b[;hi\x1b[;");
    EXPECT_EQ(formatted(*formatter, Level::alert), "\x1b[;hi\x1b[;");
    EXPECT_EQ(formatted(*formatter, Level::emergency, ""), "\x1b[;\x1b[;");
    EXPECT_EQ(formatter->formatStrings().find(Level::notice), nullptr);
    EXPECT_EQ(*formatter->formatStrings().find(Level::none), "\x1b[;");
}

TEST(XcodeColorsLogFormatter, DescribesItsDefaultScheme) {
    EXPECT_EQ(make<XcodeColorsLogFormatter>()->debugDescription(),
              "XcodeColorsLogFormatter: "
              "\n\t- Verbose > (r: 211, g: 211, b: 211) #D3D3D3 on Default"
              "\n\t- Debug > (r: 169, g: 169, b: 169) #A9A9A9 on Default"
              "\n\t- Info > (r: 0, g: 0, b: 255) #0000FF on Default"
              "\n\t- Notice > None"
              "\n\t- Warning > (r: 255, g: 165, b: 0) #FFA500 on Default"
              "\n\t- Error > (r: 255, g: 0, b: 0) #FF0000 on Default"
              "\n\t- Severe > (r: 255, g: 255, b: 255) #FFFFFF on (r: 255, g: 0, b: 0) #FF0000"
              "\n\t- Alert > None"
              "\n\t- Emergency > None"
              "\n\t- None > None");
}

TEST(XcodeColorsLogFormatter, ColorsTheTextOnly) {
    const auto formatter = make<XcodeColorsLogFormatter>();
    formatter->colorize(Level::notice, XcodeColor::Named::orange);
    EXPECT_EQ(*formatter->formatStrings().find(Level::notice), "\x1b[fg255,165,0;\x1b[bg;");
    EXPECT_EQ(*formatter->descriptionStrings().find(Level::notice), "(r: 255, g: 165, b: 0) #FFA500 on Default");
}

TEST(XcodeColorsLogFormatter, ColorsTheBackgroundOnly) {
    const auto formatter = make<XcodeColorsLogFormatter>();
    formatter->colorize(Level::notice, std::nullopt, XcodeColor(1, 2, 3));
    EXPECT_EQ(*formatter->formatStrings().find(Level::notice), "\x1b[fg;\x1b[bg1,2,3;");
    EXPECT_EQ(*formatter->descriptionStrings().find(Level::notice), "Default on (r: 1, g: 2, b: 3) #010203");
}

TEST(XcodeColorsLogFormatter, ResetsALevelWithoutColors) {
    const auto formatter = make<XcodeColorsLogFormatter>();
    formatter->colorize(Level::error, std::nullopt);
    EXPECT_EQ(*formatter->formatStrings().find(Level::error), "\x1b[;");
    EXPECT_EQ(*formatter->descriptionStrings().find(Level::error), "None");
}

void colorEveryLevel(XcodeColorsLogFormatter& formatter) {
    for (const Level level : Levels::allCases) {
        formatter.colorize(level, XcodeColor::Named::cyan);
    }
}

TEST(XcodeColorsLogFormatter, KeepsTheColorsOutsideTheSchemeWhenReset) {
    const auto formatter = make<XcodeColorsLogFormatter>();
    colorEveryLevel(*formatter);
    formatter->resetFormatting();
    for (const Level level : {Level::notice, Level::alert, Level::emergency}) {
        EXPECT_EQ(formatted(*formatter, level), "\x1b[fg0,170,170;\x1b[bg;hi\x1b[;");
    }
    EXPECT_EQ(formatted(*formatter, Level::error), "\x1b[fg255,0,0;\x1b[bg;hi\x1b[;");
}

TEST(XcodeColorsLogFormatter, ClearsTheLevelsOfTheSchemeOnly) {
    const auto formatter = make<XcodeColorsLogFormatter>();
    colorEveryLevel(*formatter);
    formatter->clearFormatting();
    for (const Level level : Levels::allCases) {
        const bool isInScheme = level != Level::notice && level != Level::alert && level != Level::emergency;
        EXPECT_EQ(*formatter->formatStrings().find(level), isInScheme ? "\x1b[;" : "\x1b[fg0,170,170;\x1b[bg;");
        EXPECT_EQ(*formatter->descriptionStrings().find(level),
                  isInScheme ? "None" : "(r: 0, g: 170, b: 170) #00AAAA on Default");
    }
}

class RecordingXcodeColors : public XcodeColorsLogFormatter {
public:
    using XcodeColorsLogFormatter::XcodeColorsLogFormatter;
    void colorize(Level level, const std::optional<XcodeColor>& with, const std::optional<XcodeColor>& on) override {
        levels.push_back(level);
        XcodeColorsLogFormatter::colorize(level, with, on);
    }

    std::vector<Level> levels;
};

TEST(XcodeColorsLogFormatter, ColorsTheSevenLevelsInOrderByAnOverride) {
    const auto formatter = make<RecordingXcodeColors>();
    const auto theSeven = ElementsAre(Level::verbose, Level::debug, Level::info, Level::warning, Level::error,
                                      Level::severe, Level::none);
    EXPECT_THAT(formatter->levels, theSeven);
    formatter->levels.clear();
    formatter->clearFormatting();
    EXPECT_THAT(formatter->levels, theSeven);
}

}  // namespace
}  // namespace velora::test
