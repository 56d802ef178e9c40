// The columns of a line.

#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <pthread.h>
#include <string>
#include <thread>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/ThreadInfo.h>

#include "XCGLogger/Destinations/BaseDestinationTestSupport.h"
#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/RecordingDestination.h"

namespace velora::test {
namespace {

using testing::ElementsAre;
using testing::MatchesRegex;

constexpr unsigned columnCombinations = 128;

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

TEST_F(BaseDestinationTest, ShowsWhatFollowsTheLastSlashOfTheFileName) {
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
    EXPECT_EQ(shown("/a/b/"), "[] > hello");
    EXPECT_EQ(shown("b/"), "[] > hello");
    EXPECT_EQ(shown("/"), "[] > hello");
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

TEST_F(BaseDestinationTest, PrefersAQueuesThreadsNameThatIsTheBeginningOfTheLabel) {
    const auto queue = DispatchQueue::make("network.io");
    std::string unnamed;
    std::string named;
    std::string namedByPOSIX;
    queue->sync([&] {
        unnamed = threadLine();
        setCurrentThreadName("network");
        named = threadLine();
        ::pthread_setname_np(::pthread_self(), "net");
        namedByPOSIX = threadLine();
    });
    EXPECT_EQ(unnamed, "[network.io] > hello");
    EXPECT_EQ(named, "[network] > hello");
    EXPECT_EQ(namedByPOSIX, "[net] > hello");
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

}  // namespace
}  // namespace velora::test
