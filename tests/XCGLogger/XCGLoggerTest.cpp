#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <support/RecordingDestination.h>
#include <vector>

#include <Velora_UserDefaults/Platform/Bundle.h>
#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/ProcessInfo.h>
#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

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

/// Lets the work of a test be a filter.
class FilterBy : public FilterProtocol, public MadeInTwoSteps {
public:
    using Work = std::function<bool(LogDetails&, std::string&)>;
    FilterBy(Making key, Work work) : MadeInTwoSteps(key), work_(std::move(work)) {}
    bool shouldExclude(LogDetails& logDetails, std::string& message) override { return work_(logDetails, message); }
    std::string debugDescription() const override { return "FilterBy"; }

private:
    Work work_;
};

/// Lets the work of a test be a formatter.
class FormatBy : public LogFormatterProtocol, public MadeInTwoSteps {
public:
    using Work = std::function<void(LogDetails&, std::string&)>;
    FormatBy(Making key, Work work) : MadeInTwoSteps(key), work_(std::move(work)) {}
    const std::string& format(LogDetails& logDetails, std::string& message) override {
        work_(logDetails, message);
        return message;
    }
    std::string debugDescription() const override { return "FormatBy"; }

private:
    Work work_;
};

std::vector<std::shared_ptr<FilterProtocol>> filters(FilterBy::Work work) {
    return {make<FilterBy>(std::move(work))};
}
std::vector<std::shared_ptr<LogFormatterProtocol>> formatters(FormatBy::Work work) {
    return {make<FormatBy>(std::move(work))};
}

template <typename Work>
std::string printedBy(Work work) {
    testing::internal::CaptureStdout();
    work();
    return testing::internal::GetCapturedStdout();
}

struct OddException {};

// --- A new logger -------------------------------------------------------------------------------------

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

// --- Destinations -------------------------------------------------------------------------------------

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

// --- A log call ---------------------------------------------------------------------------------------

TEST(XCGLoggerCall, EvaluatesTheMessageOnceForAllDestinations) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    const auto third = recorded.addRecording("third");
    int evaluations = 0;
    recorded.log->info([&] { return ++evaluations; });
    EXPECT_EQ(evaluations, 1);
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> 1"));
    EXPECT_THAT(second->lines(), ElementsAre("> 1"));
    EXPECT_THAT(third->lines(), ElementsAre("> 1"));
}

TEST(XCGLoggerCall, ReachesTheAcceptingDestinationsInOrder) {
    const RecordedLogger<> recorded;
    std::vector<std::string> order;
    for (const std::string name : {"a", "b", "c", "d"}) {
        const auto destination = recorded.addRecording(name);
        destination->setFormatters(formatters([&order, name](LogDetails&, std::string&) { order.push_back(name); }));
        destination->setOutputLevel(name == "c" ? Level::error : Level::info);
    }
    recorded.log->info("text");
    EXPECT_THAT(order, ElementsAre("a", "b", "d"));
    recorded.log->error("text");
    EXPECT_THAT(order, ElementsAre("a", "b", "d", "a", "b", "c", "d"));
}

TEST(XCGLoggerCall, GivesEachDestinationTheSameRecordToChangeAtWill) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    const auto third = recorded.addRecording("third");
    for (const auto& destination : {recorded.recording, second}) {
        destination->setFilters(filters([](LogDetails& details, std::string& line) {
            details.message = "changed";
            details.level = Level::emergency;
            details.functionName = "changed";
            details.fileName = "changed";
            details.lineNumber = -1;
            details.userInfo.clear();
            line += " changed";
            return false;
        }));
    }
    recorded.log->logln(Level::info, {"function", "file.cpp", 42}, UserInfo{{"key", 1}}, "text");
    const LogDetails untouched = third->records().at(0);
    EXPECT_EQ(untouched.level, Level::info);
    EXPECT_EQ(untouched.message, "text");
    EXPECT_EQ(untouched.functionName, "function");
    EXPECT_EQ(untouched.fileName, "file.cpp");
    EXPECT_EQ(untouched.lineNumber, 42);
    EXPECT_EQ(untouched.userInfo.count("key"), 1U);
    EXPECT_EQ(untouched.date, second->records().at(0).date);
    EXPECT_THAT(third->lines(), ElementsAre("> text"));
    EXPECT_THAT(second->lines(), ElementsAre("> text changed"));
    EXPECT_EQ(second->records().at(0).message, "changed");
}

TEST(XCGLoggerCall, IsDatedWhenItIsMade) {
    const RecordedLogger<> recorded;
    const Date before = currentDate();
    recorded.log->info("text");
    const Date after = currentDate();
    const Date date = recorded.recording->records().at(0).date;
    EXPECT_LE(before, date);
    EXPECT_LE(date, after);
}

TEST(XCGLoggerCall, LeavesNothingOfItselfToTheNextOne) {
    const RecordedLogger<> recorded;
    recorded.log->logln(Level::error, {"function", "file.cpp", 42}, UserInfo{{"key", 1}}, "first");
    recorded.log->logln(Level::info, SourceLocation(), {}, "second");
    const LogDetails second = recorded.recording->records().at(1);
    EXPECT_EQ(second.level, Level::info);
    EXPECT_EQ(second.message, "second");
    EXPECT_EQ(second.functionName, "");
    EXPECT_EQ(second.fileName, "");
    EXPECT_EQ(second.lineNumber, 0);
    EXPECT_TRUE(second.userInfo.empty());
}

TEST(XCGLoggerCall, ReleasesItsUserInfoWhenItEnds) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    const auto value = std::make_shared<int>(7);
    recorded.log->info(UserInfo{{"key", value}}, "text");
    recorded.recording->clear();
    second->clear();
    EXPECT_EQ(value.use_count(), 1);
}

TEST(XCGLoggerCall, WithoutAMessageEndsInTheMark) {
    const RecordedLogger<> recorded;
    recorded.recording->setShowLevel(true);
    recorded.log->debug();
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("[Debug] > "));
}

TEST(XCGLoggerCall, ComposesTheDefaultColumns) {
    const auto log = make<XCGLogger>("name", false);
    const auto recording = make<RecordingDestination>(nullptr, "recording");
    log->add(recording);
    log->logln(Level::debug, {"doWork", "/src/Main.cpp", 42}, {}, "hello");
    const LogDetails record = recording->records().at(0);
    EXPECT_THAT(recording->lines(),
                ElementsAre(log->dateFormatter()->string(record.date) + " [Debug] [Main.cpp:42] doWork > hello"));
    removeDestinations(*log);
}

TEST(XCGLoggerCall, KeepsEveryByteOfItsMessage) {
    using namespace std::string_literals;
    const RecordedLogger<> recorded;
    const std::string bytes = "a\0b\xff\xfe\n\r"s;
    recorded.log->info(bytes);
    EXPECT_EQ(recorded.recording->records().at(0).message, bytes);
    EXPECT_EQ(recorded.recording->lines().at(0), "> " + bytes);
}

TEST(XCGLoggerCall, CarriesAMessageOfTenMegabytes) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    std::string huge;
    huge.resize(10'000'000, 'x');
    huge.back() = '!';
    recorded.log->info(huge);
    recorded.log->info("small");
    EXPECT_TRUE(recorded.recording->lines().at(0) == "> " + huge);
    EXPECT_TRUE(second->records().at(0).message == huge);
    EXPECT_EQ(second->lines().at(1), "> small");
}

// --- Calls within calls -------------------------------------------------------------------------------

struct LogsWhenStreamed {
    XCGLogger* log;
    friend std::ostream& operator<<(std::ostream& stream, const LogsWhenStreamed& value) {
        stream << "outer ";
        value.log->info("inner {}", 1);
        return stream << "end";
    }
};

TEST(NestedLogCall, InAMessageClosureKeepsBothLinesWhole) {
    const RecordedLogger<> recorded;
    recorded.log->error(Tag("outer"), [&] {
        std::string text = "outer ";
        recorded.log->info(Tag("inner"), [&] {
            recorded.log->debug("innermost");
            return "inner";
        });
        return text + "end";
    });
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> innermost", "> inner", "> outer end"));
    const std::vector<LogDetails> records = recorded.recording->records();
    EXPECT_EQ(records[1].level, Level::info);
    EXPECT_EQ(records[2].level, Level::error);
    EXPECT_TRUE(records[0].userInfo.empty());
    EXPECT_EQ(std::any_cast<std::string>(records[1].userInfo.begin()->second), "inner");
    EXPECT_EQ(std::any_cast<std::string>(records[2].userInfo.begin()->second), "outer");
}

TEST(NestedLogCall, InAStreamOperatorKeepsBothLinesWhole) {
    const RecordedLogger<> recorded;
    recorded.log->info(LogsWhenStreamed{recorded.log.get()});
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> inner 1", "> outer end"));
}

TEST(NestedLogCall, InAFilterAndAFormatterKeepsAllLinesWhole) {
    const RecordedLogger<> recorded;
    recorded.recording->setShowLevel(true);
    recorded.recording->setFilters(filters([&](LogDetails& details, std::string&) {
        if (details.level == Level::error) {
            recorded.log->info("from the filter");
        }
        return false;
    }));
    recorded.recording->setFormatters(formatters([&](LogDetails& details, std::string& line) {
        if (details.level == Level::error) {
            recorded.log->info("from the formatter");
            line += " (formatted)";
        }
    }));
    recorded.log->error("text");
    EXPECT_THAT(recorded.recording->lines(),
                ElementsAre("[Info] > from the filter", "[Info] > from the formatter", "[Error] > text (formatted)"));
}

TEST(NestedLogCall, InTheConversionOfUserInfoKeepsBothLinesWhole) {
    struct LogsWhenConverted {
        XCGLogger* log;
        operator UserInfo() const {
            log->info("inner");
            return {{"outer", 1}};
        }
    };
    const RecordedLogger<> recorded;
    recorded.log->error(LogsWhenConverted{recorded.log.get()}, "outer");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> inner", "> outer"));
    EXPECT_TRUE(recorded.recording->records()[0].userInfo.empty());
    EXPECT_EQ(recorded.recording->records()[1].userInfo.count("outer"), 1U);
}

// --- Destinations that go in the middle of a call -----------------------------------------------------

TEST(DestinationRemovedInACall, ByTheMessageClosureGetsNothingAnyMore) {
    const RecordedLogger<> recorded;
    auto second = recorded.addRecording("second");
    const std::weak_ptr<RecordingDestination> watched = second;
    second.reset();
    recorded.log->info([&] {
        recorded.log->remove("second");
        EXPECT_FALSE(watched.expired()) << "the call may still have to do with it";
        return "text";
    });
    EXPECT_TRUE(watched.expired());
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> text"));
}

TEST(DestinationRemovedInACall, ByTheMessageClosureMayBeAllOfThem) {
    const RecordedLogger<> recorded;
    recorded.addRecording("second");
    recorded.addRecording("third");
    recorded.log->info([&] {
        removeDestinations(*recorded.log);
        return "text";
    });
    EXPECT_THAT(recorded.log->destinations(), IsEmpty());
    EXPECT_THAT(recorded.recording->lines(), IsEmpty());
}

TEST(DestinationRemovedInACall, ByItsOwnFilterStillGetsTheLine) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    recorded.recording->setFilters(filters([&](LogDetails&, std::string&) {
        recorded.log->remove("recording");
        return false;
    }));
    recorded.log->info("text");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> text"));
    EXPECT_THAT(second->lines(), ElementsAre("> text"));
}

TEST(DestinationRemovedInACall, ByTheFilterOfAnotherOneGetsNothingAnyMore) {
    const RecordedLogger<> recorded;
    auto second = recorded.addRecording("second");
    const auto third = recorded.addRecording("third");
    const std::weak_ptr<RecordingDestination> watched = second;
    second.reset();
    recorded.recording->setFilters(filters([&](LogDetails&, std::string&) {
        recorded.log->remove("second");
        return false;
    }));
    recorded.log->info("text");
    EXPECT_TRUE(watched.expired());
    EXPECT_THAT(third->lines(), ElementsAre("> text"));
}

TEST(DestinationRemovedInACall, LetsANewOneWithItsIdentifierIn) {
    const RecordedLogger<> recorded;
    std::shared_ptr<RecordingDestination> replacement;
    recorded.log->info([&] {
        recorded.log->remove("recording");
        replacement = recorded.addRecording("recording");
        return "first";
    });
    recorded.log->info("second");
    EXPECT_THAT(recorded.recording->lines(), IsEmpty());
    EXPECT_THAT(replacement->lines(), ElementsAre("> second"));
}

TEST(DestinationAddedInACall, GetsTheNextCallOnly) {
    const RecordedLogger<> recorded;
    std::vector<std::shared_ptr<RecordingDestination>> added;
    recorded.log->info([&] {
        for (int index = 0; index < 50; ++index) {
            added.push_back(recorded.addRecording("added " + std::to_string(index)));
        }
        return "first";
    });
    recorded.log->info("second");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> first", "> second"));
    for (const auto& destination : added) {
        EXPECT_THAT(destination->lines(), ElementsAre("> second"));
    }
}

TEST(DestinationRemovedInACall, ByTheWriterOfAnInternalLineIsKeptUntilItsEnd) {
    const RecordedLogger<> recorded;
    auto second = recorded.addRecording("second");
    const std::weak_ptr<RecordingDestination> watched = second;
    second.reset();
    recorded.recording->setFilters(filters([&](LogDetails&, std::string&) {
        recorded.log->remove("second");
        return false;
    }));
    recorded.log->_logln("internal", Level::error);
    EXPECT_TRUE(watched.expired());
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> internal"));
}

// --- What throws --------------------------------------------------------------------------------------

class ThrowingDestination : public RecordingDestination {
public:
    using RecordingDestination::RecordingDestination;
    void output(LogDetails& logDetails, std::string& message) override {
        if (logDetails.message == "throw") {
            throw std::runtime_error(identifier() + " is full");
        }
        RecordingDestination::output(logDetails, message);
    }
};

class UnsureDestination : public RecordingDestination {
public:
    using RecordingDestination::RecordingDestination;
    bool isEnabledFor(Level /*level*/) const override { throw std::runtime_error("unsure"); }
};

TEST(ThrowingMessage, IsPrintedAndLogsNothing) {
    const RecordedLogger<> recorded;
    EXPECT_EQ(printedBy([&] { recorded.log->info([]() -> std::string { throw std::runtime_error("no text"); }); }),
              "Objective-C Exception occurred: no text\n");
    EXPECT_EQ(printedBy([&] { recorded.log->info([]() -> std::string { throw OddException(); }); }),
              "Objective-C Exception occurred: velora::test::(anonymous namespace)::OddException\n");
    EXPECT_EQ(printedBy([&] { recorded.log->info([]() -> std::string { throw 7; }); }),
              "Objective-C Exception occurred: int\n");
    EXPECT_EQ(printedBy([&] { recorded.log->info(std::function<std::string()>()); }),
              "Objective-C Exception occurred: bad_function_call\n");
    EXPECT_THAT(recorded.recording->lines(), IsEmpty());
    recorded.log->info("next");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> next"));
}

TEST(ThrowingMessage, LeavesWhatItHadOfItsTextToNoOtherLine) {
    const RecordedLogger<> recorded;
    const std::string printed = printedBy([&] { recorded.log->info("half a text {:{}}", "and a width", -1); });
    EXPECT_EQ(printed, "Objective-C Exception occurred: negative width\n");
    recorded.log->info("next");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> next"));
}

TEST(ThrowingFilter, CountsAsOneThatLetsTheLinePass) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    recorded.recording->setFilters(
        filters([](LogDetails&, std::string&) -> bool { throw std::runtime_error("bad filter"); }));
    EXPECT_EQ(printedBy([&] { recorded.log->info("text"); }), "Objective-C Exception occurred: bad filter\n");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> text"));
    EXPECT_THAT(second->lines(), ElementsAre("> text"));
}

TEST(ThrowingFormatter, LeavesTheLineAsItFoundIt) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    recorded.recording->setFormatters(formatters([](LogDetails&, std::string& line) {
        line = "half";
        throw OddException();
    }));
    EXPECT_EQ(printedBy([&] { recorded.log->info("text"); }),
              "Objective-C Exception occurred: velora::test::(anonymous namespace)::OddException\n");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> text"));
    EXPECT_THAT(second->lines(), ElementsAre("> text"));
}

TEST(ThrowingDestination, LosesOnlyItsOwnLine) {
    const RecordedLogger<> recorded;
    const auto first = recorded.addRecording<ThrowingDestination>("first");
    const auto middle = recorded.addRecording("middle");
    const auto last = recorded.addRecording<ThrowingDestination>("last");
    EXPECT_EQ(printedBy([&] { recorded.log->info("throw"); }),
              "Objective-C Exception occurred: first is full\nObjective-C Exception occurred: last is full\n");
    recorded.log->info("next");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> throw", "> next"));
    EXPECT_THAT(middle->lines(), ElementsAre("> throw", "> next"));
    EXPECT_THAT(first->lines(), ElementsAre("> next"));
    EXPECT_THAT(last->lines(), ElementsAre("> next"));
}

TEST(ThrowingDestination, KeepsInternalLinesFromNoOther) {
    const RecordedLogger<> recorded;
    recorded.log->remove("recording");
    recorded.addRecording<ThrowingDestination>("first");
    const auto last = recorded.addRecording("last");
    EXPECT_EQ(printedBy([&] { recorded.log->_logln("throw", Level::error); }),
              "Objective-C Exception occurred: first is full\n");
    EXPECT_THAT(last->lines(), ElementsAre("> throw"));
}

TEST(ThrowingDestination, ThatCannotTellItsLevelAcceptsNothing) {
    const RecordedLogger<> recorded;
    recorded.log->remove("recording");
    const auto first = recorded.addRecording<UnsureDestination>("first");
    const auto middle = recorded.addRecording("middle");
    const auto last = recorded.addRecording<UnsureDestination>("last");
    const std::string twice = "Objective-C Exception occurred: unsure\nObjective-C Exception occurred: unsure\n";
    EXPECT_EQ(printedBy([&] { recorded.log->info("text"); }), twice);
    EXPECT_EQ(printedBy([&] { recorded.log->_logln("internal", Level::error); }), twice);
    EXPECT_THAT(middle->lines(), ElementsAre("> text", "> internal"));
    EXPECT_THAT(first->lines(), IsEmpty());
    EXPECT_THAT(last->lines(), IsEmpty());
}

TEST(ThrowingUserInfo, IsPrintedAndLogsNothing) {
    struct Throws {
        operator UserInfo() const { throw std::runtime_error("no info"); }
    };
    const RecordedLogger<> recorded;
    EXPECT_EQ(printedBy([&] { recorded.log->info(Throws(), "text"); }), "Objective-C Exception occurred: no info\n");
    recorded.log->info("next");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> next"));
}

// --- Internal lines -----------------------------------------------------------------------------------

TEST(InternalLine, HasTheRecordOfTheEngineItself) {
    const RecordedLogger<> recorded;
    const Date before = currentDate();
    recorded.log->_logln("about {} itself %n", Level::warning);
    const LogDetails record = recorded.recording->records().at(0);
    EXPECT_EQ(record.level, Level::warning);
    EXPECT_EQ(record.message, "about {} itself %n");
    EXPECT_GE(record.date, before);
    EXPECT_EQ(record.functionName, "");
    EXPECT_EQ(record.fileName, "");
    EXPECT_EQ(record.lineNumber, 0);
    ASSERT_EQ(record.userInfo.size(), 1U);
    EXPECT_TRUE(std::any_cast<bool>(record.userInfo.at(std::string(Constants::userInfoKeyInternal))));
}

TEST(InternalLine, ShowsNeitherThreadNorPlaceAndPlainLevelWords) {
    const auto log = make<XCGLogger>("name", false);
    log->setLevelDescriptions({{Level::error, "FEHLER"}});
    const auto recording = make<RecordingDestination>(nullptr, "recording");
    recording->setLevelDescriptions({{Level::error, "Oh"}});
    recording->setShowLogIdentifier(true);
    recording->setShowThreadName(true);
    log->add(recording);
    log->_logln("text", Level::error);
    const Date date = recording->records().at(0).date;
    EXPECT_THAT(recording->lines(), ElementsAre(log->dateFormatter()->string(date) + " [Error] [name] > text"));
    hideColumns(*recording);
    log->_logln("text", Level::error);
    EXPECT_EQ(recording->lines().at(1), "> text");
    removeDestinations(*log);
}

TEST(InternalLine, OfASourceReachesAllButThoseOfItsIdentifierFromErrorUp) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    const auto twin = make<RecordingDestination>(nullptr, "recording");
    for (const Level level : Levels::all) {
        recorded.recording->clear();
        second->clear();
        recorded.log->_logln("text", level, twin.get());
        EXPECT_EQ(recorded.recording->lines().size(), level < Level::error ? 1U : 0U) << level;
        EXPECT_THAT(second->lines(), ElementsAre("> text")) << level;
    }
}

TEST(InternalLine, WithoutASourceReachesAll) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    recorded.log->_logln("text", Level::emergency);
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> text"));
    EXPECT_THAT(second->lines(), ElementsAre("> text"));
}

TEST(InternalLine, ReachesOnlyDestinationsThatAcceptItsLevel) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    second->setOutputLevel(Level::severe);
    recorded.log->_logln("text", Level::error);
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> text"));
    EXPECT_THAT(second->lines(), IsEmpty());
}

// --- The start-up header ------------------------------------------------------------------------------

std::string processText() {
    return "PID: " + std::to_string(processIdentifier());
}

class StartUpHeader : public testing::Test {
protected:
    ~StartUpHeader() override {
        Bundle::main().setInfo(Bundle::shortVersionKey, std::any());
        Bundle::main().setInfo(Bundle::versionKey, std::any());
    }

    RecordedLogger<> recorded_;
};

TEST_F(StartUpHeader, IsTwoLinesOfOneDate) {
    recorded_.log->logAppDetails();
    EXPECT_THAT(recorded_.recording->lines(),
                ElementsAre("> " + processName() + " " + processText(), "> XCGLogger Version: 7.0.1 - Level: Debug"));
    const std::vector<LogDetails> records = recorded_.recording->records();
    EXPECT_EQ(records[0].date, records[1].date);
    for (const LogDetails& record : records) {
        EXPECT_EQ(record.level, Level::info);
        EXPECT_EQ(record.functionName, "");
        EXPECT_EQ(record.fileName, "");
        EXPECT_EQ(record.lineNumber, 0);
        ASSERT_EQ(record.userInfo.size(), 1U);
        EXPECT_TRUE(std::any_cast<bool>(record.userInfo.at(std::string(Constants::userInfoKeyInternal))));
    }
}

TEST_F(StartUpHeader, TellsTheVersionsOfTheBundle) {
    Bundle::main().setVersion("1.2", "345");
    recorded_.log->setOutputLevel(Level::verbose);
    recorded_.log->logAppDetails();
    EXPECT_THAT(recorded_.recording->lines(),
                ElementsAre("> " + processName() + " Version: 1.2 Build: 345 " + processText(),
                            "> XCGLogger Version: 7.0.1 - Level: Verbose"));
}

TEST_F(StartUpHeader, TellsOnlyTheVersionThatIsText) {
    Bundle::main().setInfo("CFBundleVersion", std::string("345"));
    recorded_.log->logAppDetails();
    EXPECT_EQ(recorded_.recording->lines().at(0), "> " + processName() + " Build: 345 " + processText());
    Bundle::main().setInfo("CFBundleVersion", 345);
    Bundle::main().setInfo("CFBundleShortVersionString", std::string("1.2"));
    recorded_.recording->setHaveLoggedAppDetails(false);
    recorded_.log->logAppDetails();
    EXPECT_EQ(recorded_.recording->lines().at(2), "> " + processName() + " Version: 1.2 " + processText());
}

TEST_F(StartUpHeader, IsWrittenOnceToEachDestination) {
    recorded_.log->logAppDetails();
    const auto later = recorded_.addRecording("later");
    recorded_.log->logAppDetails();
    EXPECT_EQ(recorded_.recording->lines().size(), 2U);
    EXPECT_EQ(later->lines().size(), 2U);
    EXPECT_TRUE(recorded_.recording->haveLoggedAppDetails());
    EXPECT_TRUE(later->haveLoggedAppDetails());
}

TEST_F(StartUpHeader, IsWrittenAgainWhenADestinationClearsItsFlag) {
    recorded_.log->logAppDetails();
    recorded_.recording->setHaveLoggedAppDetails(false);
    recorded_.log->logAppDetails(recorded_.recording.get());
    EXPECT_EQ(recorded_.recording->lines().size(), 4U);
}

TEST_F(StartUpHeader, IsWrittenToTheSelectedDestinationAlone) {
    const auto second = recorded_.addRecording("second");
    recorded_.log->logAppDetails(second.get());
    EXPECT_THAT(recorded_.recording->lines(), IsEmpty());
    EXPECT_FALSE(recorded_.recording->haveLoggedAppDetails());
    EXPECT_EQ(second->lines().size(), 2U);
}

TEST_F(StartUpHeader, IsNotForDestinationsAboveInfo) {
    recorded_.recording->setOutputLevel(Level::notice);
    recorded_.log->logAppDetails();
    EXPECT_THAT(recorded_.recording->lines(), IsEmpty());
    EXPECT_FALSE(recorded_.recording->haveLoggedAppDetails());
    recorded_.recording->setOutputLevel(Level::info);
    recorded_.log->logAppDetails();
    EXPECT_EQ(recorded_.recording->lines().size(), 2U);
}

TEST_F(StartUpHeader, HasPlainLevelWords) {
    recorded_.log->setLevelDescriptions({{Level::info, "Hinweis"}, {Level::debug, "Fehlersuche"}});
    recorded_.recording->setShowLevel(true);
    recorded_.log->logAppDetails();
    EXPECT_THAT(recorded_.recording->lines(), ElementsAre("[Info] > " + processName() + " " + processText(),
                                                          "[Info] > XCGLogger Version: 7.0.1 - Level: Debug"));
}

TEST_F(StartUpHeader, OfOneDestinationIsNotChangedByAnother) {
    const auto second = recorded_.addRecording("second");
    recorded_.recording->setFilters(filters([](LogDetails& details, std::string&) {
        details.message = "changed";
        return false;
    }));
    recorded_.log->logAppDetails();
    EXPECT_EQ(second->records().at(1).message, "XCGLogger Version: 7.0.1 - Level: Debug");
}

// --- Description and date -----------------------------------------------------------------------------

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
