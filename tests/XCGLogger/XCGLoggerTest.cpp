#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/RecordingDestination.h"

namespace velora::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Loggers are made by `make` alone, also those of a class that inherits the constructors.
class InheritingLogger : public XCGLogger {
public:
    using XCGLogger::XCGLogger;
};
static_assert(!std::is_constructible_v<XCGLogger, std::string, bool>);
static_assert(!std::is_constructible_v<InheritingLogger> && !std::is_constructible_v<InheritingLogger, std::string>);
static_assert(!std::is_copy_constructible_v<XCGLogger>);

TEST(XCGLogger, StartsWithItsDefaults) {
    const auto log = make<XCGLogger>("name", false);
    EXPECT_EQ(log->identifier(), "name");
    EXPECT_EQ(log->outputLevel(), Level::debug);
    EXPECT_EQ(log->noMessageClosure()(), "");
    EXPECT_TRUE(log->levelDescriptions().empty());
    EXPECT_EQ(log->formatters(), std::nullopt);
    EXPECT_EQ(log->filters(), std::nullopt);
    EXPECT_EQ(log->_customDateFormatter(), nullptr);
    EXPECT_THAT(log->destinations(), IsEmpty());
}

TEST(XCGLogger, WithoutDestinationsEvaluatesNoMessage) {
    const auto log = make<XCGLogger>("name", false);
    int evaluations = 0;
    for (const Level level : Levels::all) {
        log->logln(level, [&] { return ++evaluations; });
    }
    log->emergency([&] { return ++evaluations; });
    EXPECT_EQ(evaluations, 0);
}

TEST(XCGLogger, SharesADefaultInstanceWithAConsole) {
    const auto& shared = XCGLogger::defaultInstance();
    EXPECT_EQ(shared, XCGLogger::defaultInstance());
    EXPECT_EQ(&DefaultLogger::logger(), shared.get());
    EXPECT_EQ(shared->identifier(), "tamberlo.xcglogger.defaultInstance");
    ASSERT_EQ(shared->destinations().size(), 1U);
    EXPECT_EQ(shared->destinations()[0]->identifier(), "tamberlo.xcglogger.logdestination.console");
}

TEST(XCGLogger, OffersASerialQueueToDestinations) {
    EXPECT_EQ(XCGLogger::logQueue(), XCGLogger::logQueue());
    std::optional<std::string> label;
    XCGLogger::logQueue()->sync([&] { label = DispatchQueue::currentLabel(); });
    EXPECT_EQ(label, "tamberlo.xcglogger.queue");
}

class OpenCounting : public RecordingDestination {
public:
    using RecordingDestination::RecordingDestination;
    void setOwner(std::shared_ptr<XCGLogger> owner) override {
        ++ownersSet;
        RecordingDestination::setOwner(std::move(owner));
    }
    int ownersSet = 0;
};

TEST(XCGLoggerDestinations, AreKeptInTheOrderOfTheirAdding) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    const auto third = recorded.addRecording("third");
    EXPECT_THAT(recorded.log->destinations(), ElementsAre(recorded.recording, second, third));
    EXPECT_EQ(second->owner(), recorded.log);
}

TEST(XCGLoggerDestinations, AreFoundByTheirExactIdentifier) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    EXPECT_EQ(recorded.log->destination("second"), second);
    EXPECT_EQ(recorded.log->destination("Second"), nullptr);
    EXPECT_EQ(recorded.log->destination("secon"), nullptr);
    EXPECT_EQ(recorded.log->destination(""), nullptr);
}

TEST(XCGLoggerDestinations, MayHaveAnEmptyIdentifier) {
    const RecordedLogger<> recorded;
    const auto unnamed = recorded.addRecording("");
    EXPECT_EQ(recorded.log->destination(""), unnamed);
    EXPECT_FALSE(recorded.log->add(make<RecordingDestination>(nullptr, "")));
    EXPECT_TRUE(recorded.log->remove(""));
    EXPECT_EQ(recorded.log->destination(""), nullptr);
}

TEST(XCGLoggerDestinations, AreNotAddedUnderATakenIdentifier) {
    const RecordedLogger<> recorded;
    const auto rival = make<OpenCounting>(nullptr, "recording");
    EXPECT_FALSE(recorded.log->add(rival));
    EXPECT_THAT(recorded.log->destinations(), ElementsAre(recorded.recording));
    EXPECT_EQ(recorded.recording->owner(), recorded.log);
    EXPECT_EQ(rival->owner(), nullptr);
    EXPECT_EQ(rival->ownersSet, 0);
}

TEST(XCGLoggerDestinations, StayWithTheirLoggerWhenAnotherOneHasTheIdentifier) {
    const RecordedLogger<> recorded;
    const RecordedLogger<> other;
    const auto rival = other.addRecording<OpenCounting>("rival");
    const auto holder = recorded.addRecording("rival");
    const int ownersSet = rival->ownersSet;
    EXPECT_FALSE(recorded.log->add(rival));
    EXPECT_EQ(rival->owner(), other.log);
    EXPECT_EQ(rival->ownersSet, ownersSet);
    EXPECT_THAT(other.log->destinations(), ElementsAre(other.recording, rival));
    EXPECT_THAT(recorded.log->destinations(), ElementsAre(recorded.recording, holder));
}

TEST(XCGLoggerDestinations, AreNotAddedTwice) {
    const RecordedLogger<> recorded;
    EXPECT_FALSE(recorded.log->add(recorded.recording));
    EXPECT_THAT(recorded.log->destinations(), ElementsAre(recorded.recording));
    EXPECT_EQ(recorded.recording->owner(), recorded.log);
}

TEST(XCGLoggerDestinations, LeaveTheLoggerThatTheyAreTakenFrom) {
    const RecordedLogger<> first;
    const RecordedLogger<> second;
    const auto moving = first.addRecording("moving");
    EXPECT_TRUE(second.log->add(moving));
    EXPECT_THAT(first.log->destinations(), ElementsAre(first.recording));
    EXPECT_THAT(second.log->destinations(), ElementsAre(second.recording, moving));
    EXPECT_EQ(moving->owner(), second.log);
    first.log->info("from the first");
    second.log->info("from the second");
    EXPECT_THAT(moving->lines(), ElementsAre("> from the second"));
}

TEST(XCGLoggerDestinations, WithAnOwnerThatNeverAddedThemCanBeAddedToIt) {
    const auto log = make<XCGLogger>("name", false);
    const auto destination = make<RecordingDestination>(log, "recording");
    EXPECT_TRUE(log->add(destination));
    EXPECT_THAT(log->destinations(), ElementsAre(destination));
    EXPECT_EQ(destination->owner(), log);
    removeDestinations(*log);
}

TEST(XCGLoggerDestinations, AreRemovedByIdentifier) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    EXPECT_TRUE(recorded.log->remove("second"));
    EXPECT_EQ(second->owner(), nullptr);
    EXPECT_THAT(recorded.log->destinations(), ElementsAre(recorded.recording));
    EXPECT_FALSE(recorded.log->remove("second"));
    EXPECT_FALSE(recorded.log->remove("never added"));
}

TEST(XCGLoggerDestinations, AreRemovedByAnotherOneWithTheSameIdentifier) {
    const RecordedLogger<> recorded;
    const auto twin = make<RecordingDestination>(nullptr, "recording");
    EXPECT_TRUE(recorded.log->remove(twin));
    EXPECT_EQ(recorded.recording->owner(), nullptr);
    EXPECT_THAT(recorded.log->destinations(), IsEmpty());
    EXPECT_FALSE(recorded.log->remove(twin));
}

TEST(XCGLoggerDestinations, AreNeverNull) {
    const RecordedLogger<> recorded;
    EXPECT_FALSE(recorded.log->add(nullptr));
    EXPECT_FALSE(recorded.log->remove(std::shared_ptr<DestinationProtocol>()));
    EXPECT_THAT(recorded.log->destinations(), ElementsAre(recorded.recording));
}

TEST(XCGLoggerDestinations, MayHoldTheLastReferenceToTheirLogger) {
    auto log = make<XCGLogger>("name", false);
    const auto destination = make<RecordingDestination>(nullptr, "recording");
    log->add(destination);
    const std::weak_ptr<XCGLogger> watched = log;
    log.reset();
    ASSERT_FALSE(watched.expired());
    EXPECT_TRUE(destination->owner()->remove(destination));
    EXPECT_TRUE(watched.expired());
    EXPECT_EQ(destination->owner(), nullptr);
}

TEST(XCGLoggerDestinations, GetTheLevelThatTheLoggerIsSetToWhileTheyArePresent) {
    const RecordedLogger<> recorded;
    recorded.log->setOutputLevel(Level::warning);
    EXPECT_EQ(recorded.log->outputLevel(), Level::warning);
    EXPECT_EQ(recorded.recording->outputLevel(), Level::warning);
    const auto later = make<RecordingDestination>(nullptr, "later");
    hideColumns(*later);
    recorded.log->add(later);
    EXPECT_EQ(later->outputLevel(), Level::debug);

    recorded.log->info("information");
    EXPECT_THAT(recorded.recording->lines(), IsEmpty());
    EXPECT_THAT(later->lines(), ElementsAre("> information"));

    recorded.log->setOutputLevel(Level::verbose);
    recorded.log->verbose("detail");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> detail"));
    EXPECT_THAT(later->lines(), ElementsAre("> information", "> detail"));
}

TEST(XCGLoggerDestinations, DecideByTheirOwnLevelNotTheLoggers) {
    const RecordedLogger<> recorded;
    recorded.log->setOutputLevel(Level::none);
    EXPECT_FALSE(recorded.log->isEnabledFor(Level::emergency));
    recorded.recording->setOutputLevel(Level::verbose);
    recorded.log->verbose("accepted");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> accepted"));
}

TEST(XCGLogger, IsEnabledFromItsLevelUp) {
    const auto log = make<XCGLogger>("name", false);
    for (const Level threshold : Levels::allCases) {
        log->setOutputLevel(threshold);
        for (const Level level : Levels::allCases) {
            EXPECT_EQ(log->isEnabledFor(level), threshold <= level);
        }
    }
}

TEST(XCGLogger, DescribesItselfAndItsDestinationsInLinesThatEndInCarriageReturns) {
    const auto log = make<XCGLogger>("the log", false);
    EXPECT_EQ(log->debugDescription(), "XCGLogger: the log - destinations: \r");
    log->add(make<RecordingDestination>(nullptr, "one"));
    const auto two = make<RecordingDestination>(nullptr, "two");
    hideColumns(*two);
    two->setOutputLevel(Level::none);
    log->add(two);
    EXPECT_EQ(log->debugDescription(),
              "XCGLogger: the log - destinations: \r"
              "\t RecordingDestination: one - Level: Debug showLogIdentifier: false showFunctionName: true "
              "showThreadName: false showLevel: true showFileName: true showLineNumber: true showDate: true\r"
              "\t RecordingDestination: two - Level: None showLogIdentifier: false showFunctionName: false "
              "showThreadName: false showLevel: false showFileName: false showLineNumber: false showDate: false\r");
    removeDestinations(*log);
}

TEST(XCGLogger, IsDescribedByTheNameOfItsOwnClass) {
    EXPECT_EQ(make<InheritingLogger>("x", false)->debugDescription(), "InheritingLogger: x - destinations: \r");
}

TEST(XCGLoggerDate, IsFormattedByOneFormatterForAllLoggers) {
    const auto one = make<XCGLogger>("one", false);
    const auto other = make<XCGLogger>("other", false);
    ASSERT_NE(one->dateFormatter(), nullptr);
    EXPECT_EQ(one->dateFormatter(), other->dateFormatter());
    EXPECT_EQ(one->dateFormatter()->pattern(), "yyyy-MM-dd HH:mm:ss.SSS");
    EXPECT_EQ(one->_customDateFormatter(), nullptr);
}

TEST(XCGLoggerDate, IsFormattedByTheLoggersOwnFormatterUntilThatIsTakenAway) {
    const RecordedLogger<> recorded;
    recorded.recording->setShowDate(true);
    const auto standard = recorded.log->dateFormatter();
    const auto year = std::make_shared<const DateFormatter>("'year' yyyy", "en_US_POSIX", "UTC");
    recorded.log->setDateFormatter(year);
    EXPECT_EQ(recorded.log->dateFormatter(), year);
    EXPECT_EQ(recorded.log->_customDateFormatter(), year);
    recorded.log->info("text");
    recorded.log->setDateFormatter(nullptr);
    EXPECT_EQ(recorded.log->dateFormatter(), standard);
    recorded.log->info("text");
    const std::vector<LogDetails> records = recorded.recording->records();
    EXPECT_THAT(recorded.recording->lines(),
                ElementsAre(year->string(records[0].date) + " > text", standard->string(records[1].date) + " > text"));
}

TEST(XCGLogger, CanBeRenamed) {
    const RecordedLogger<> recorded;
    recorded.recording->setShowLogIdentifier(true);
    recorded.log->setIdentifier("new name");
    recorded.log->info("text");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("[new name] > text"));
}

TEST(XCGLogger, LendsItsListsAndWordsToDestinationsWithoutTheirOwn) {
    const RecordedLogger<> recorded;
    const auto own = recorded.addRecording("own");
    for (const auto& destination : {recorded.recording, own}) {
        destination->setShowLevel(true);
    }
    recorded.log->setLevelDescriptions({{Level::info, "Hinweis"}, {Level::error, "Fehler"}});
    recorded.log->setFormatters(formatters([](LogDetails&, std::string& line) { line += " (logger's)"; }));
    recorded.log->setFilters(filters([](LogDetails& details, std::string&) { return details.message == "drop"; }));
    own->setLevelDescriptions({{Level::info, "Info!"}});
    own->setFormatters(Formatters(std::in_place));
    own->setFilters(Filters(std::in_place));
    recorded.log->info("drop");
    recorded.log->error("keep");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("[Fehler] > keep (logger's)"));
    EXPECT_THAT(own->lines(), ElementsAre("[Info!] > drop", "[Fehler] > keep"));
}

}  // namespace
}  // namespace velora::test
