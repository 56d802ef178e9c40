#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIColorLogFormatter.h>

#include "XCGLogger/LogFormatters/FormatterTestSupport.h"

namespace velora::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;

static_assert(!std::is_default_constructible_v<ANSIColorLogFormatter>);
static_assert(std::is_constructible_v<ANSIColorLogFormatter, Making>);

TEST(ANSIColorLogFormatter, HasTheControlSequencesOfATerminal) {
    EXPECT_EQ(ANSIColorLogFormatter::escape, std::string_view("\x1b\x5b"));
    EXPECT_EQ(ANSIColorLogFormatter::reset, std::string_view("\x1b\x5b\x6d"));
}

TEST(ANSIColorLogFormatter, StartsWithItsDefaultScheme) {
    const auto formatter = make<ANSIColorLogFormatter>();
    EXPECT_EQ(formatted(*formatter, Level::verbose), "\x1b[97;49;1mhi\x1b[m");
    EXPECT_EQ(formatted(*formatter, Level::debug), "\x1b[30;49mhi\x1b[m");
    EXPECT_EQ(formatted(*formatter, Level::info), "\x1b[34;49mhi\x1b[m");
    EXPECT_EQ(formatted(*formatter, Level::warning), "\x1b[33;49mhi\x1b[m");
    EXPECT_EQ(formatted(*formatter, Level::error), "\x1b[31;49;1mhi\x1b[m");
    EXPECT_EQ(formatted(*formatter, Level::severe), "\x1b[97;41mhi\x1b[m");
    EXPECT_EQ(formatted(*formatter, Level::none), "\x1b[39;49mhi\x1b[m");
}

TEST(ANSIColorLogFormatter, PutsALevelOutsideTheSchemeBetweenTwoResets) {
    const auto formatter = make<ANSIColorLogFormatter>();
    EXPECT_EQ(formatted(*formatter, Level::notice), "\x1b[mhi\x1b[m");
    EXPECT_EQ(formatted(*formatter, Level::alert), "\x1b[mhi\x1b[m");
    EXPECT_EQ(formatted(*formatter, Level::emergency, ""), "\x1b[m\x1b[m");
}

TEST(ANSIColorLogFormatter, DescribesItsDefaultScheme) {
    EXPECT_EQ(make<ANSIColorLogFormatter>()->debugDescription(),
              "ANSIColorLogFormatter: "
              "\n\t- Verbose > White on Default/Bold"
              "\n\t- Debug > Black on Default"
              "\n\t- Info > Blue on Default"
              "\n\t- Notice > None"
              "\n\t- Warning > Yellow on Default"
              "\n\t- Error > Red on Default/Bold"
              "\n\t- Severe > White on Red"
              "\n\t- Alert > None"
              "\n\t- Emergency > None"
              "\n\t- None > Default on Default");
}

TEST(ANSIColorLogFormatter, KeepsOptionsInOrderWithTheirDuplicates) {
    const auto formatter = make<ANSIColorLogFormatter>();
    formatter->colorize(Level::info, ANSIColor::green, ANSIColor::default_, {ANSIOption::underline, ANSIOption::bold});
    EXPECT_EQ(formatted(*formatter, Level::info), "\x1b[32;49;4;1mhi\x1b[m");
    EXPECT_THAT(formatter->debugDescription(), HasSubstr("\n\t- Info > Green on Default/Underline/Bold\n"));
    formatter->colorize(Level::info, ANSIColor::green, ANSIColor::default_, {ANSIOption::bold, ANSIOption::bold});
    EXPECT_EQ(formatted(*formatter, Level::info), "\x1b[32;49;1;1mhi\x1b[m");
}

TEST(ANSIColorLogFormatter, NeedsNoBackgroundAndNoOptions) {
    const auto formatter = make<ANSIColorLogFormatter>();
    formatter->colorize(Level::alert, ANSIColor::cyan);
    EXPECT_EQ(formatted(*formatter, Level::alert), "\x1b[36;49mhi\x1b[m");
    formatter->colorize(Level::alert, ANSIColor::cyan, ANSIColor::white);
    EXPECT_EQ(formatted(*formatter, Level::alert), "\x1b[36;107mhi\x1b[m");
}

TEST(ANSIColorLogFormatter, PutsTheEscapeBeforeACustomSequenceThatDoesNotBeginWithIt) {
    struct Custom {
        const char* sequence;
        const char* formatString;
        const char* description;
    };
    const auto formatter = make<ANSIColorLogFormatter>();
    for (const Custom& custom :
         {Custom{"31m", "\x1b[31m", "Custom: 31m"}, Custom{"\x1b[31m", "\x1b[31m", "Custom: 31m"},
          Custom{"\x1b[\x1b[31m", "\x1b[\x1b[31m", "Custom: \x1b[31m"}, Custom{"", "\x1b[", "Custom: "},
          Custom{"\x1b", "\x1b[\x1b", "Custom: \x1b"}}) {
        formatter->colorize(Level::info, custom.sequence);
        EXPECT_EQ(*formatter->formatStrings().find(Level::info), custom.formatString);
        EXPECT_EQ(*formatter->descriptionStrings().find(Level::info), custom.description);
        EXPECT_EQ(formatted(*formatter, Level::info), std::string(custom.formatString) + "hi\x1b[m");
    }
}

void styleEveryLevel(ANSIColorLogFormatter& formatter) {
    for (const Level level : Levels::allCases) {
        formatter.colorize(level, ANSIColor::magenta);
    }
}

TEST(ANSIColorLogFormatter, KeepsTheStylesOutsideTheSchemeWhenReset) {
    const auto formatter = make<ANSIColorLogFormatter>();
    styleEveryLevel(*formatter);
    formatter->resetFormatting();
    for (const Level level : {Level::notice, Level::alert, Level::emergency}) {
        EXPECT_EQ(formatted(*formatter, level), "\x1b[35;49mhi\x1b[m");
    }
    EXPECT_EQ(formatted(*formatter, Level::error), "\x1b[31;49;1mhi\x1b[m");
}

TEST(ANSIColorLogFormatter, ClearsTheLevelsOfTheSchemeOnly) {
    const auto formatter = make<ANSIColorLogFormatter>();
    styleEveryLevel(*formatter);
    formatter->clearFormatting();
    EXPECT_EQ(formatter->debugDescription(),
              "ANSIColorLogFormatter: "
              "\n\t- Verbose > Default on Default"
              "\n\t- Debug > Default on Default"
              "\n\t- Info > Default on Default"
              "\n\t- Notice > Magenta on Default"
              "\n\t- Warning > Default on Default"
              "\n\t- Error > Default on Default"
              "\n\t- Severe > Default on Default"
              "\n\t- Alert > Magenta on Default"
              "\n\t- Emergency > Magenta on Default"
              "\n\t- None > Default on Default");
    EXPECT_EQ(formatted(*formatter, Level::severe), "\x1b[39;49mhi\x1b[m");
}

class PlainFormatter : public ANSIColorLogFormatter {
public:
    using ANSIColorLogFormatter::ANSIColorLogFormatter;
    void resetFormatting() override { colorize(Level::info, "7m"); }
};

TEST(ANSIColorLogFormatter, StartsWithTheSchemeOfASubclass) {
    const auto formatter = make<PlainFormatter>();
    EXPECT_EQ(formatted(*formatter, Level::info), "\x1b[7mhi\x1b[m");
    EXPECT_EQ(formatted(*formatter, Level::error), "\x1b[mhi\x1b[m");
    EXPECT_THAT(formatter->debugDescription(), StartsWith("PlainFormatter: \n\t- Verbose > None\n"));
}

class RecordingFormatter : public ANSIColorLogFormatter {
public:
    using ANSIColorLogFormatter::ANSIColorLogFormatter;
    using ANSIColorLogFormatter::colorize;
    void colorize(Level level, const ANSIColor& with, const ANSIColor& on,
                  const std::vector<ANSIOption>& options) override {
        levels.push_back(level);
        ANSIColorLogFormatter::colorize(level, with, on, options);
    }

    std::vector<Level> levels;
};

TEST(ANSIColorLogFormatter, ColorsTheSevenLevelsInOrderByAnOverride) {
    const auto formatter = make<RecordingFormatter>();
    const auto theSeven = ElementsAre(Level::verbose, Level::debug, Level::info, Level::warning, Level::error,
                                      Level::severe, Level::none);
    EXPECT_THAT(formatter->levels, theSeven);
    formatter->levels.clear();
    formatter->clearFormatting();
    EXPECT_THAT(formatter->levels, theSeven);
}

}  // namespace
}  // namespace velora::test
