#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <support/RecordingDestination.h>
#include <unordered_map>

#include <Velora_UserDefaults/XCGLogger/Level.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {
namespace {

using ::testing::ElementsAre;

static_assert(sizeof(Level) == 1);
static_assert(std::is_same_v<XCGLogger::Level, Level>);

TEST(Level, IsMadeFromItsRawValue) {
    EXPECT_EQ(fromRawValue<Level>(0), Level::verbose);
    EXPECT_EQ(fromRawValue<Level>(1), Level::debug);
    EXPECT_EQ(fromRawValue<Level>(2), Level::info);
    EXPECT_EQ(fromRawValue<Level>(3), Level::notice);
    EXPECT_EQ(fromRawValue<Level>(4), Level::warning);
    EXPECT_EQ(fromRawValue<Level>(5), Level::error);
    EXPECT_EQ(fromRawValue<Level>(6), Level::severe);
    EXPECT_EQ(fromRawValue<Level>(7), Level::alert);
    EXPECT_EQ(fromRawValue<Level>(8), Level::emergency);
    EXPECT_EQ(fromRawValue<Level>(9), Level::none);
}

TEST(Level, IsNotMadeFromAnyOtherInteger) {
    EXPECT_EQ(fromRawValue<Level>(10), std::nullopt);
    EXPECT_EQ(fromRawValue<Level>(-1), std::nullopt);
    EXPECT_EQ(fromRawValue<Level>(256), std::nullopt);
    EXPECT_EQ(fromRawValue<Level>(265), std::nullopt);
}

TEST(Level, HasItsPositionAsRawValue) {
    for (std::int64_t raw = 0; raw <= 9; ++raw) {
        EXPECT_EQ(rawValue(fromRawValue<Level>(raw).value()), raw);
    }
}

TEST(Level, ListsTenCasesThatEndWithNone) {
    EXPECT_THAT(Levels::allCases,
                ElementsAre(Level::verbose, Level::debug, Level::info, Level::notice, Level::warning, Level::error,
                            Level::severe, Level::alert, Level::emergency, Level::none));
}

TEST(Level, ListsNineLevelsThatACallCanBeMadeAt) {
    EXPECT_THAT(Levels::all, ElementsAre(Level::verbose, Level::debug, Level::info, Level::notice, Level::warning,
                                         Level::error, Level::severe, Level::alert, Level::emergency));
}

TEST(Level, IsOrderedByItsRawValue) {
    for (const Level left : Levels::allCases) {
        for (const Level right : Levels::allCases) {
            EXPECT_EQ(left < right, rawValue(left) < rawValue(right));
            EXPECT_EQ(left <= right, rawValue(left) <= rawValue(right));
            EXPECT_EQ(left > right, rawValue(left) > rawValue(right));
            EXPECT_EQ(left >= right, rawValue(left) >= rawValue(right));
            EXPECT_EQ(left == right, rawValue(left) == rawValue(right));
        }
    }
}

TEST(Level, IsDescribedByItsWord) {
    std::vector<std::string> words;
    words.reserve(Levels::allCases.size());
    for (const Level level : Levels::allCases) {
        words.emplace_back(description(level));
    }
    EXPECT_THAT(words, ElementsAre("Verbose", "Debug", "Info", "Notice", "Warning", "Error", "Severe", "Alert",
                                   "Emergency", "None"));
}

TEST(Level, WritesItsWordToAStream) {
    std::ostringstream stream;
    stream << Level::warning << '/' << Level::none;
    EXPECT_EQ(stream.str(), "Warning/None");
}

TEST(Level, IsFormattedAsItsWord) {
    EXPECT_EQ(fmt::format("{} {}", Level::info, Level::none), "Info None");
    EXPECT_EQ(fmt::format("[{:>9}] [{:.3}]", Level::debug, Level::emergency), "[    Debug] [Eme]");
    EXPECT_EQ(fmt::format("{}", std::vector{Level::verbose, Level::alert}), "[Verbose, Alert]");
}

TEST(Level, FillsInTheFormatOfALogCall) {
    const RecordedLogger recorded;
    recorded.log->info("from {} up", Level::warning);
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> from Warning up"));
}

TEST(Level, CanBeTheKeyOfAHashTable) {
    std::unordered_map<Level, int> counts;
    for (const Level level : Levels::allCases) {
        ++counts[level];
    }
    EXPECT_EQ(counts.size(), 10U);
}

}  // namespace
}  // namespace velora::test
