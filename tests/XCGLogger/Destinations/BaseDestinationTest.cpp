#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/ThreadInfo.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseDestination.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/RecordingDestination.h"

namespace velora::test {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

class BaseDestinationTest : public testing::Test {
protected:
    BaseDestinationTest() {
        log_->setDateFormatter(std::make_shared<const DateFormatter>("yyyy-MM-dd HH:mm:ss.SSS", "en_US_POSIX", "UTC"));
        log_->add(destination_);
    }
    ~BaseDestinationTest() override { removeDestinations(*log_); }

    /// The line that the destination makes of an ordinary record.
    std::string line(LogDetails record) {
        destination_->clear();
        destination_->process(record);
        return onlyLine();
    }
    /// The line that it makes of an internal one.
    std::string internalLine(LogDetails record) {
        destination_->clear();
        destination_->processInternal(record);
        return onlyLine();
    }
    std::string onlyLine() const {
        const std::vector<std::string> lines = destination_->lines();
        return lines.size() == 1 ? lines[0] : "not one line";
    }
    /// Switches each column by one bit of `columns`.
    void showColumns(unsigned columns) {
        destination_->setShowDate((columns & 1U) != 0);
        destination_->setShowLevel((columns & 2U) != 0);
        destination_->setShowLogIdentifier((columns & 4U) != 0);
        destination_->setShowThreadName((columns & 8U) != 0);
        destination_->setShowFileName((columns & 16U) != 0);
        destination_->setShowLineNumber((columns & 32U) != 0);
        destination_->setShowFunctionName((columns & 64U) != 0);
    }
    /// The line with nothing but the thread column.
    std::string threadLine() {
        hideColumns(*destination_);
        destination_->setShowThreadName(true);
        return line(aRecord());
    }

    std::shared_ptr<XCGLogger> log_ = make<XCGLogger>("app", false);
    std::shared_ptr<RecordingDestination> destination_ = make<RecordingDestination>(nullptr, "recording");
};

constexpr unsigned columnCombinations = 128;

TEST_F(BaseDestinationTest, BeginsWithItsDefaults) {
    const auto destination = make<RecordingDestination>(nullptr, "it");
    EXPECT_EQ(destination->owner(), nullptr);
    EXPECT_EQ(destination->identifier(), "it");
    EXPECT_EQ(destination->outputLevel(), Level::debug);
    EXPECT_FALSE(destination->haveLoggedAppDetails());
    EXPECT_EQ(destination->formatters(), std::nullopt);
    EXPECT_EQ(destination->filters(), std::nullopt);
    EXPECT_FALSE(destination->showLogIdentifier());
    EXPECT_TRUE(destination->showFunctionName());
    EXPECT_FALSE(destination->showThreadName());
    EXPECT_TRUE(destination->showFileName());
    EXPECT_TRUE(destination->showLineNumber());
    EXPECT_TRUE(destination->showLevel());
    EXPECT_TRUE(destination->showDate());
    EXPECT_TRUE(destination->levelDescriptions().empty());
}

TEST_F(BaseDestinationTest, KeepsTheOwnerItWasMadeWith) {
    const auto destination = make<RecordingDestination>(log_, "");
    EXPECT_EQ(destination->owner(), log_);
    EXPECT_EQ(destination->identifier(), "");
    EXPECT_EQ(log_->destination(""), nullptr) << "an owner does not register it";
    LogDetails record = aRecord();
    destination->process(record);
    EXPECT_THAT(destination->lines(), ElementsAre("2024-01-02 03:04:05.678 [Debug] [Main.ext:42] doWork() > hello"));
}

TEST_F(BaseDestinationTest, ShowsItsDefaultColumns) {
    EXPECT_EQ(line(aRecord()), "2024-01-02 03:04:05.678 [Debug] [Main.ext:42] doWork() > hello");
}

TEST_F(BaseDestinationTest, ShowsExactlyTheColumnsThatAreOn) {
    for (unsigned columns = 0; columns < columnCombinations; ++columns) {
        showColumns(columns);
        std::string expected;
        expected += destination_->showDate() ? "2024-01-02 03:04:05.678 " : "";
        expected += destination_->showLevel() ? "[Debug] " : "";
        expected += destination_->showLogIdentifier() ? "[app] " : "";
        expected += destination_->showThreadName() ? "[main] " : "";
        switch (columns & 48U) {
            case 16:
                expected += "[Main.ext] ";
                break;
            case 32:
                expected += "[42] ";
                break;
            case 48:
                expected += "[Main.ext:42] ";
                break;
            default:
                break;
        }
        expected += destination_->showFunctionName() ? "doWork() " : "";
        EXPECT_EQ(line(aRecord()), expected + "> hello") << columns;
    }
}

TEST_F(BaseDestinationTest, ShowsOnlyDateLevelAndLoggerOnInternalLines) {
    for (unsigned columns = 0; columns < columnCombinations; ++columns) {
        showColumns(columns);
        std::string expected;
        expected += destination_->showDate() ? "2024-01-02 03:04:05.678 " : "";
        expected += destination_->showLevel() ? "[Debug] " : "";
        expected += destination_->showLogIdentifier() ? "[app] " : "";
        EXPECT_EQ(internalLine(aRecord()), expected + "> hello") << columns;
    }
}

TEST_F(BaseDestinationTest, LeavesOnlyTheMessageWithEveryColumnOff) {
    hideColumns(*destination_);
    EXPECT_EQ(line(aRecord()), "> hello");
    EXPECT_EQ(line(aRecord("")), "> ");
    EXPECT_EQ(internalLine(aRecord("")), "> ");
    EXPECT_EQ(line(aRecord("two\nlines\n")), "> two\nlines\n");
}

TEST_F(BaseDestinationTest, ShowsTheLastComponentOfTheFileName) {
    hideColumns(*destination_);
    destination_->setShowFileName(true);
    const auto shown = [this](const char* fileName) {
        LogDetails record = aRecord();
        record.fileName = fileName;
        return line(record);
    };
    EXPECT_EQ(shown("/a/b/c.cpp"), "[c.cpp] > hello");
    EXPECT_EQ(shown("b/c.cpp"), "[c.cpp] > hello");
    EXPECT_EQ(shown("c.cpp"), "[c.cpp] > hello");
    EXPECT_EQ(shown("/größe.cpp"), "[größe.cpp] > hello");
    EXPECT_EQ(shown(""), "[] > hello");
}

TEST_F(BaseDestinationTest, ShowsLineNumbersAtBothEndsOfTheirRange) {
    hideColumns(*destination_);
    destination_->setShowLineNumber(true);
    LogDetails record = aRecord();
    record.lineNumber = std::numeric_limits<std::int64_t>::min();
    EXPECT_EQ(line(record), "[-9223372036854775808] > hello");
    record.lineNumber = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(line(record), "[9223372036854775807] > hello");
    record.lineNumber = 0;
    EXPECT_EQ(line(record), "[0] > hello");
    destination_->setShowFileName(true);
    record.lineNumber = -1;
    EXPECT_EQ(line(record), "[Main.ext:-1] > hello");
}

TEST_F(BaseDestinationTest, PrefersItsOwnLevelWordToItsOwnersAndThatToThePlainOne) {
    hideColumns(*destination_);
    destination_->setShowLevel(true);
    log_->setLevelDescriptions({{Level::debug, "owner's"}, {Level::info, "owner's info"}});
    destination_->setLevelDescriptions({{Level::debug, "own"}, {Level::alert, ""}});
    EXPECT_EQ(line(aRecord("m", Level::debug)), "[own] > m");
    EXPECT_EQ(line(aRecord("m", Level::info)), "[owner's info] > m");
    EXPECT_EQ(line(aRecord("m", Level::alert)), "[] > m");
    EXPECT_EQ(line(aRecord("m", Level::verbose)), "[Verbose] > m");
    EXPECT_EQ(line(aRecord("m", Level::emergency)), "[Emergency] > m");
}

TEST_F(BaseDestinationTest, ShowsThePlainLevelWordsOnInternalLines) {
    hideColumns(*destination_);
    destination_->setShowLevel(true);
    log_->setLevelDescriptions({{Level::info, "owner's"}});
    destination_->setLevelDescriptions({{Level::info, "own"}, {Level::error, "own"}});
    EXPECT_EQ(internalLine(aRecord("m", Level::info)), "[Info] > m");
    EXPECT_EQ(internalLine(aRecord("m", Level::error)), "[Error] > m");
}

TEST_F(BaseDestinationTest, ShowsTheDateByItsOwnersFormatter) {
    hideColumns(*destination_);
    destination_->setShowDate(true);
    log_->setDateFormatter(std::make_shared<const DateFormatter>("'day' dd.MM.yy", "en_US_POSIX", "UTC"));
    EXPECT_EQ(line(aRecord()), "day 02.01.24 > hello");
    EXPECT_EQ(internalLine(aRecord()), "day 02.01.24 > hello");
    log_->setDateFormatter(nullptr);
    EXPECT_THAT(line(aRecord()), MatchesRegex("2024-01-0[123] [0-9][0-9]:[0-9][0-9]:05\\.678 > hello"));
}

TEST_F(BaseDestinationTest, ShowsACompleteDateIfItsOwnerHasNoFormatterAtAll) {
    class LoggerWithoutDateFormatter : public XCGLogger {
    public:
        using XCGLogger::XCGLogger;
        const std::shared_ptr<const DateFormatter>& dateFormatter() const override {
            static const std::shared_ptr<const DateFormatter> none;
            return none;
        }
    };
    const RecordedLogger<LoggerWithoutDateFormatter> logger;
    logger.recording->setShowDate(true);
    LogDetails record = aRecord();
    logger.recording->process(record);
    EXPECT_THAT(logger.recording->lines(), ElementsAre("2024-01-02 03:04:05 +0000 > hello"));
}

TEST_F(BaseDestinationTest, NamesTheMainThread) {
    EXPECT_EQ(threadLine(), "[main] > hello");
}

TEST_F(BaseDestinationTest, NamesAThreadByItsName) {
    std::string shown;
    std::thread([&] {
        setCurrentThreadName("a worker with a name of some length");
        shown = threadLine();
    }).join();
    EXPECT_EQ(shown, "[a worker with a name of some length] > hello");
    std::thread([&] {
        ::pthread_setname_np(::pthread_self(), "posix worker");
        shown = threadLine();
    }).join();
    EXPECT_EQ(shown, "[posix worker] > hello");
}

TEST_F(BaseDestinationTest, NamesTheQueueWhoseWorkLogs) {
    for (const char* const label : {"short", "tamberlo.xcglogger.queue", "fünfzehn bytes…"}) {
        const auto queue = DispatchQueue::make(label);
        std::string shown;
        queue->sync([&] { shown = threadLine(); });
        EXPECT_EQ(shown, "[" + std::string(label) + "] > hello");
    }
}

TEST_F(BaseDestinationTest, PrefersTheNameOfAQueuesThreadToTheLabel) {
    const auto queue = DispatchQueue::make("label");
    std::string named;
    std::string unnamed;
    queue->sync([&] {
        setCurrentThreadName("worker");
        named = threadLine();
        setCurrentThreadName("");
        unnamed = threadLine();
    });
    EXPECT_EQ(named, "[worker] > hello");
    EXPECT_EQ(unnamed, "[label] > hello") << "an empty name is none";
}

TEST_F(BaseDestinationTest, NamesAThreadWithoutNameOrLabelByItsAddress) {
    std::string shown;
    std::string address;
    std::thread([&] {
        shown = threadLine();
        address = currentThreadIdentifierText();
    }).join();
    EXPECT_THAT(shown, MatchesRegex("\\[0x[0-9a-f]+\\] > hello"));
    EXPECT_EQ(shown, "[" + address + "] > hello");
}

TEST_F(BaseDestinationTest, NamesAQueueWithoutAReadableLabelByItsThreadsAddress) {
    for (const char* const label : {"",
                                    "not\xff"
                                    "text"}) {
        const auto queue = DispatchQueue::make(label);
        std::string shown;
        queue->sync([&] { shown = threadLine(); });
        EXPECT_THAT(shown, MatchesRegex("\\[0x[0-9a-f]+\\] > hello"));
    }
}

TEST_F(BaseDestinationTest, DropsEverythingWithoutAnOwner) {
    log_->remove(destination_);
    LogDetails record = aRecord();
    destination_->process(record);
    destination_->processInternal(record);
    EXPECT_THAT(destination_->lines(), ElementsAre());
}

TEST_F(BaseDestinationTest, IsEnabledForTheLevelsFromItsOwnOn) {
    for (const Level threshold : Levels::allCases) {
        destination_->setOutputLevel(threshold);
        for (const Level level : Levels::allCases) {
            EXPECT_EQ(destination_->isEnabledFor(level), threshold <= level) << threshold << " " << level;
        }
    }
}

TEST_F(BaseDestinationTest, IsEnabledForNoneOnlyAtNoneAndThenReceivesNothing) {
    destination_->setOutputLevel(Level::none);
    EXPECT_TRUE(destination_->isEnabledFor(Level::none));
    EXPECT_FALSE(destination_->isEnabledFor(Level::emergency));
    log_->emergency("lost");
    log_->_logln("lost", Level::emergency);
    log_->logAppDetails();
    EXPECT_THAT(destination_->lines(), ElementsAre());
    EXPECT_FALSE(destination_->haveLoggedAppDetails());
    destination_->setOutputLevel(Level::emergency);
    EXPECT_TRUE(destination_->isEnabledFor(Level::none)) << "none is the highest level";
}

TEST_F(BaseDestinationTest, DescribesItself) {
    EXPECT_EQ(destination_->debugDescription(),
              "RecordingDestination: recording - Level: Debug showLogIdentifier: false showFunctionName: true "
              "showThreadName: false showLevel: true showFileName: true showLineNumber: true showDate: true");
    destination_->setOutputLevel(Level::none);
    destination_->setIdentifier("");
    showColumns(4 | 8 | 16);
    EXPECT_EQ(destination_->debugDescription(),
              "RecordingDestination:  - Level: None showLogIdentifier: true showFunctionName: false "
              "showThreadName: true showLevel: false showFileName: true showLineNumber: false showDate: false");
}

TEST_F(BaseDestinationTest, ShowsEachColumnInItsOwnPlaceInTheDescription) {
    const char* const names[] = {"showDate",     "showLevel",      "showLogIdentifier", "showThreadName",
                                 "showFileName", "showLineNumber", "showFunctionName"};
    for (unsigned column = 0; column < 7; ++column) {
        showColumns(1U << column);
        const std::string description = destination_->debugDescription() + " ";
        for (unsigned other = 0; other < 7; ++other) {
            const std::string part = " " + std::string(names[other]) + (other == column ? ": true " : ": false ");
            EXPECT_NE(description.find(part), std::string::npos) << description << part;
        }
    }
}

/// Answers for every property by an override, none of which is what is stored.
class OverridingDestination : public RecordingDestination {
public:
    using RecordingDestination::RecordingDestination;
    bool showLogIdentifier() const override { return true; }
    bool showFunctionName() const override { return false; }
    bool showThreadName() const override { return true; }
    bool showFileName() const override { return false; }
    bool showLineNumber() const override { return true; }
    bool showLevel() const override { return true; }
    bool showDate() const override { return false; }
    const LevelTexts& levelDescriptions() const override {
        static const LevelTexts texts{{Level::debug, "overridden"}};
        return texts;
    }
    Level outputLevel() const override { return Level::verbose; }
    const Formatters& formatters() const override {
        static const Formatters list{{appending(" formatted")}};
        return list;
    }
    const Filters& filters() const override {
        static const Filters list{
            {filter([](LogDetails& /*logDetails*/, std::string& message) { return message.ends_with("filtered"); })}};
        return list;
    }
    const std::string& identifier() const override {
        static const std::string name = "overridden identifier";
        return name;
    }
};

TEST_F(BaseDestinationTest, AsksOverridesForEveryProperty) {
    const auto destination = make<OverridingDestination>(nullptr, "stored");
    ASSERT_TRUE(log_->add(destination));
    EXPECT_EQ(log_->destination("overridden identifier"), destination);
    LogDetails record = aRecord();
    destination->process(record);
    EXPECT_THAT(destination->lines(), ElementsAre("[overridden] [app] [main] [42] > hello formatted"));
    destination->clear();
    LogDetails internal = aRecord();
    destination->processInternal(internal);
    EXPECT_THAT(destination->lines(), ElementsAre("[Debug] [app] > hello formatted"));
    destination->clear();
    LogDetails filtered = aRecord("to be filtered");
    destination->process(filtered);
    EXPECT_THAT(destination->lines(), ElementsAre());
    EXPECT_TRUE(destination->isEnabledFor(Level::verbose));
    EXPECT_EQ(destination->debugDescription(),
              "OverridingDestination: overridden identifier - Level: Verbose showLogIdentifier: true showFunctionName: "
              "false showThreadName: true showLevel: true showFileName: false showLineNumber: true showDate: false");
}

TEST_F(BaseDestinationTest, LetsOverridesDecideWhatIsEnabledAndHowLinesAreMade) {
    class OwnWay : public RecordingDestination {
    public:
        using RecordingDestination::RecordingDestination;
        bool isEnabledFor(Level level) const override { return level == Level::verbose; }
        void process(LogDetails& logDetails) override {
            std::string line = "own: " + logDetails.message;
            output(logDetails, line);
        }
    };
    const RecordedLogger<> logger;
    const auto destination = logger.addRecording<OwnWay>("own");
    destination->setOutputLevel(Level::none);
    logger.log->verbose("yes");
    logger.log->error("no");
    EXPECT_THAT(destination->lines(), ElementsAre("own: yes"));
}

TEST_F(BaseDestinationTest, WorksOnACopyOfItsOwn) {
    class Spoiling : public RecordingDestination {
    public:
        using RecordingDestination::RecordingDestination;
        void output(LogDetails& logDetails, std::string& message) override {
            RecordingDestination::output(logDetails, message);
            logDetails.message = "spoilt";
            logDetails.userInfo["spoilt"] = true;
            message.clear();
        }
    };
    const RecordedLogger<> logger;
    logger.addRecording<Spoiling>("spoiling");
    const auto after = logger.addRecording<>("after");
    logger.log->info("kept");
    EXPECT_THAT(after->lines(), ElementsAre("> kept"));
    EXPECT_EQ(after->records().at(0).message, "kept");
    EXPECT_TRUE(after->records().at(0).userInfo.empty());
}

TEST_F(BaseDestinationTest, BearsALogCallFromItsOwnOutput) {
    class Logging : public RecordingDestination {
    public:
        using RecordingDestination::RecordingDestination;
        void output(LogDetails& logDetails, std::string& message) override {
            if (logDetails.message != "inner") {
                owner()->info("inner");
            }
            RecordingDestination::output(logDetails, message);
        }
    };
    const RecordedLogger<> logger;
    const auto destination = logger.addRecording<Logging>("logging");
    logger.log->info("outer");
    EXPECT_THAT(destination->lines(), ElementsAre("> inner", "> outer"));
    EXPECT_THAT(logger.recording->lines(), ElementsAre("> outer", "> inner"));
}

TEST_F(BaseDestinationTest, KeepsTheLogCallGoingWhenItsOutputThrows) {
    class Throwing : public RecordingDestination {
    public:
        using RecordingDestination::RecordingDestination;
        void output(LogDetails& /*logDetails*/, std::string& /*message*/) override {
            throw std::runtime_error("no output");
        }
    };
    const RecordedLogger<> logger;
    const auto throwing = logger.addRecording<Throwing>("throwing");
    const auto after = logger.addRecording<>("after");
    testing::internal::CaptureStdout();
    logger.log->info("one");
    logger.log->info("two");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Objective-C Exception occurred: no output\nObjective-C Exception occurred: no output\n");
    EXPECT_THAT(after->lines(), ElementsAre("> one", "> two"));
}

TEST_F(BaseDestinationTest, TakesAMessageOfTenMegabytes) {
    hideColumns(*destination_);
    std::string message;
    message.resize(10'000'000, 'x');
    EXPECT_TRUE(line(aRecord(message)) == "> " + message);
    EXPECT_EQ(line(aRecord("short")), "> short");
}

TEST_F(BaseDestinationTest, HoldsItsOwnerUntilItIsRemoved) {
    const auto destination = make<RecordingDestination>(nullptr, "holding");
    std::weak_ptr<XCGLogger> weak;
    {
        const auto log = make<XCGLogger>("held", false);
        log->add(destination);
        weak = log;
    }
    ASSERT_FALSE(weak.expired());
    EXPECT_TRUE(destination->owner()->remove(destination));
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(destination->owner(), nullptr);
}

TEST(BaseDestinationDeathTest, StopsTheProcessWithoutAnOutputOfItsOwn) {
    class Unfinished : public BaseDestination {
    public:
        using BaseDestination::BaseDestination;
    };
    const RecordedLogger<> logger;
    const auto destination = make<Unfinished>(logger.log, "unfinished");
    LogDetails record = aRecord();
    EXPECT_DEATH(destination->process(record), "BaseDestination::output.*must be overridden by Unfinished");
    EXPECT_DEATH(destination->processInternal(record), "BaseDestination::output.*must be overridden by Unfinished");
    const auto plain = make<BaseDestination>(logger.log, "plain");
    EXPECT_DEATH(plain->process(record), "BaseDestination::output.*must be overridden by BaseDestination");
}

}  // namespace
}  // namespace velora::test
