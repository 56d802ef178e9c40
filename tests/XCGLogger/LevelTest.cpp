#include <fmt/format.h>
#include <fmt/ranges.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <unordered_map>

#include <Velora_UserDefaults/XCGLogger/Level.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {
namespace {

using ::testing::ElementsAre;

static_assert(sizeof(Level) == 1);
static_assert(std::is_same_v<XCGLogger::Level, Level>);

TEST(Level, ListsTenCasesThatEndWithNone) {
    EXPECT_THAT(Levels::allCases,
                ElementsAre(Level::verbose, Level::debug, Level::info, Level::notice, Level::warning, Level::error,
                            Level::severe, Level::alert, Level::emergency, Level::none));
}

TEST(Level, IsMadeFromItsPositionAndFromNoOtherInteger) {
    for (std::size_t position = 0; position < Levels::allCases.size(); ++position) {
        EXPECT_EQ(fromRawValue<Level>(static_cast<std::int64_t>(position)), Levels::allCases.at(position));
    }
    EXPECT_EQ(fromRawValue<Level>(10), std::nullopt);
    EXPECT_EQ(fromRawValue<Level>(-1), std::nullopt);
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

TEST(Level, CanBeTheKeyOfAHashTable) {
    std::unordered_map<Level, int> counts;
    for (const Level level : Levels::allCases) {
        ++counts[level];
    }
    EXPECT_EQ(counts.size(), 10U);
}

}  // namespace
}  // namespace velora::test
