#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/LogFormatters/PrePostFixLogFormatter.h>

#include "XCGLogger/LogFormatters/FormatterTestSupport.h"

namespace velora::test {
namespace {

using ::testing::ElementsAreArray;
using ::testing::StartsWith;

static_assert(!std::is_default_constructible_v<PrePostFixLogFormatter>);

TEST(PrePostFixLogFormatter, StartsWithoutTexts) {
    const auto formatter = make<PrePostFixLogFormatter>();
    for (const Level level : Levels::allCases) {
        EXPECT_EQ(formatted(*formatter, level), "hi");
    }
}

TEST(PrePostFixLogFormatter, PutsTheTextsOfALevelAroundItsMessages) {
    const auto formatter = make<PrePostFixLogFormatter>();
    formatter->apply("<", ">", Level::info);
    EXPECT_EQ(formatted(*formatter, Level::info), "<hi>");
    EXPECT_EQ(formatted(*formatter, Level::info, ""), "<>");
    EXPECT_EQ(formatted(*formatter, Level::error), "hi");
}

TEST(PrePostFixLogFormatter, SetsOneTextAndRemovesTheOther) {
    const auto formatter = make<PrePostFixLogFormatter>();
    formatter->apply("<", ">", Level::info);
    formatter->apply(std::nullopt, "!", Level::info);
    EXPECT_EQ(formatted(*formatter, Level::info), "hi!");
    formatter->apply("?", std::nullopt, Level::info);
    EXPECT_EQ(formatted(*formatter, Level::info), "?hi");
}

TEST(PrePostFixLogFormatter, RemovesBothTextsOfOneLevelOnly) {
    const auto formatter = make<PrePostFixLogFormatter>();
    formatter->apply("<", ">");
    formatter->apply(std::nullopt, std::nullopt, Level::info);
    EXPECT_EQ(formatted(*formatter, Level::info), "hi");
    EXPECT_EQ(formatted(*formatter, Level::debug), "<hi>");
}

TEST(PrePostFixLogFormatter, SetsBothTextsForEveryLevel) {
    const auto formatter = make<PrePostFixLogFormatter>();
    formatter->apply("<", ">");
    for (const Level level : Levels::allCases) {
        EXPECT_EQ(formatted(*formatter, level), "<hi>");
    }
}

TEST(PrePostFixLogFormatter, RemovesAllTextsIfThereIsNeitherTextNorLevel) {
    const auto formatter = make<PrePostFixLogFormatter>();
    formatter->apply("<", ">");
    formatter->apply(std::nullopt);
    for (const Level level : Levels::allCases) {
        EXPECT_EQ(formatted(*formatter, level), "hi");
    }
}

TEST(PrePostFixLogFormatter, DescribesTheTextsOfEachLevel) {
    const auto formatter = make<PrePostFixLogFormatter>();
    formatter->apply("", std::nullopt, Level::verbose);
    formatter->apply(">>> ", " <<<", Level::error);
    formatter->apply("!", std::nullopt, Level::alert);
    formatter->apply(std::nullopt, ".", Level::none);
    EXPECT_EQ(formatter->debugDescription(),
              "PrePostFixLogFormatter: "
              "\n\t- Verbose >  | None"
              "\n\t- Debug > None | None"
              "\n\t- Info > None | None"
              "\n\t- Notice > None | None"
              "\n\t- Warning > None | None"
              "\n\t- Error > >>>  |  <<<"
              "\n\t- Severe > None | None"
              "\n\t- Alert > ! | None"
              "\n\t- Emergency > None | None"
              "\n\t- None > None | .");
}

class RecordingFormatter : public PrePostFixLogFormatter {
public:
    using PrePostFixLogFormatter::PrePostFixLogFormatter;
    void apply(const std::optional<std::string>& prefix, const std::optional<std::string>& postfix,
               std::optional<Level> to) override {
        if (to) {
            levels.push_back(*to);
        }
        PrePostFixLogFormatter::apply(prefix, postfix, to);
    }
    void clearFormatting() override { ++timesCleared; }

    std::vector<Level> levels;
    int timesCleared = 0;
};

TEST(PrePostFixLogFormatter, AppliesToEachLevelInOrderByAnOverride) {
    const auto formatter = make<RecordingFormatter>();
    formatter->apply("<", std::nullopt, std::nullopt);
    EXPECT_THAT(formatter->levels, ElementsAreArray(Levels::allCases));
    EXPECT_EQ(formatter->timesCleared, 0);
    EXPECT_THAT(formatter->debugDescription(), StartsWith("RecordingFormatter: \n\t- Verbose > < | None\n"));
}

TEST(PrePostFixLogFormatter, ClearsByAnOverride) {
    const auto formatter = make<RecordingFormatter>();
    formatter->apply("<", ">", Level::info);
    formatter->apply(std::nullopt, std::nullopt, std::nullopt);
    EXPECT_EQ(formatter->timesCleared, 1);
    EXPECT_EQ(formatted(*formatter, Level::info), "<hi>");
}

}  // namespace
}  // namespace velora::test
