#include <chrono>
#include <future>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/TestDestination.h>
#include <Velora_UserDefaults/XCGLogger/Filters/FileNameFilter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/PrePostFixLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "DestinationTestSupport.h"

namespace velora::test {
namespace {

/// A logger whose one destination compares lines that have the level and the message only.
class TestDestinationTest : public testing::Test {
public:
    TestDestinationTest(const TestDestinationTest&) = delete;
    TestDestinationTest& operator=(const TestDestinationTest&) = delete;

protected:
    TestDestinationTest() {
        log->add(destination);
        destination->setShowDate(false);
        destination->setShowFileName(false);
        destination->setShowLineNumber(false);
        destination->setShowFunctionName(false);
    }
    ~TestDestinationTest() override { log->remove(destination); }

    std::int64_t remaining() const { return destination->remainingNumberOfExpectedLogMessages(); }
    std::int64_t unexpected() const { return destination->numberOfUnexpectedLogMessages(); }

    std::shared_ptr<XCGLogger> log = make<XCGLogger>("log", false);
    std::shared_ptr<TestDestination> destination = make<TestDestination>(nullptr, "test");
};

TEST_F(TestDestinationTest, StartsWithoutLinesOfEitherKindAndWithoutAQueue) {
    EXPECT_EQ(remaining(), 0);
    EXPECT_EQ(unexpected(), 0);
    EXPECT_EQ(destination->logQueue(), nullptr);
}

TEST_F(TestDestinationTest, TakesAnExpectationAwayWhenItsLineComes) {
    destination->addExpectedLogMessage("[Info] > one");
    destination->addExpectedLogMessage("[Error] > two");
    log->error("two");
    EXPECT_EQ(destination->expectedLogMessages(), std::vector<std::string>{"[Info] > one"});
    EXPECT_EQ(unexpected(), 0);
}

TEST_F(TestDestinationTest, ConsumesOneOfTwoEqualExpectationsForEachLineAndCountsTheThirdAsUnexpected) {
    destination->addExpectedLogMessage("[Info] > same");
    destination->addExpectedLogMessage("[Info] > same");
    log->info("same");
    EXPECT_EQ(remaining(), 1);
    log->info("same");
    EXPECT_EQ(remaining(), 0);
    EXPECT_EQ(unexpected(), 0);
    log->info("same");
    EXPECT_EQ(destination->unexpectedLogMessages(), std::vector<std::string>{"[Info] > same"});
}

TEST_F(TestDestinationTest, ComparesTheWholeLineWithItsColumns) {
    destination->setShowFileName(true);
    destination->setShowLineNumber(true);
    destination->setShowFunctionName(true);
    destination->addExpectedLogMessage("[Info] [File.cpp:7] work > text");
    log->info("text", SourceLocation("work", "/a/b/File.cpp", 7));
    EXPECT_EQ(remaining(), 0);
    log->info("text", SourceLocation("work", "/a/b/File.cpp", 8));
    EXPECT_EQ(destination->unexpectedLogMessages(), std::vector<std::string>{"[Info] [File.cpp:8] work > text"});
}

TEST_F(TestDestinationTest, CountsALineThatAFilterRejectsNeitherWay) {
    destination->setFilters({{make<FileNameFilter>(ExcludeFrom{"Noise.cpp"})}});
    destination->addExpectedLogMessage("[Info] > text");
    log->info("text", SourceLocation("f", "Noise.cpp", 1));
    EXPECT_EQ(remaining(), 1);
    EXPECT_EQ(unexpected(), 0);
}

TEST_F(TestDestinationTest, ComparesTheLineThatTheFormattersMade) {
    const auto formatter = make<PrePostFixLogFormatter>();
    formatter->apply("<", ">", Level::info);
    destination->setFormatters({{formatter}});
    destination->addExpectedLogMessage("<[Info] > text>");
    log->info("text");
    EXPECT_EQ(remaining(), 0);
    EXPECT_EQ(unexpected(), 0);
}

TEST_F(TestDestinationTest, TakesCanonicallyEquivalentTextsAsEqual) {
    destination->addExpectedLogMessage("[Info] > caf\u00e9");
    log->info("cafe\u0301");
    EXPECT_EQ(remaining(), 0);
    EXPECT_EQ(unexpected(), 0);
    log->info("cafe");
    EXPECT_EQ(unexpected(), 1);
}

TEST_F(TestDestinationTest, TakesTheFirstOfSeveralEqualExpectationsAway) {
    destination->addExpectedLogMessage("[Info] > caf\u00e9");
    destination->addExpectedLogMessage("[Info] > cafe\u0301");
    log->info("cafe\u0301");
    EXPECT_EQ(destination->expectedLogMessages(), std::vector<std::string>{"[Info] > cafe\u0301"});
}

TEST_F(TestDestinationTest, LeavesTheRecordAndTheLineOfItsCallerAsTheyAre) {
    const auto formatter = make<PrePostFixLogFormatter>();
    formatter->apply("<", ">", Level::info);
    destination->setFormatters({{formatter}});
    destination->setFilters({{filter([](LogDetails& details, std::string& /*message*/) {
        details.message = "changed";
        return false;
    })}});
    LogDetails record = aRecord("message", Level::info);
    std::string line = "line";
    destination->output(record, line);
    EXPECT_EQ(destination->unexpectedLogMessages(), std::vector<std::string>{"<line>"});
    EXPECT_EQ(line, "line");
    EXPECT_EQ(record.message, "message");
}

TEST_F(TestDestinationTest, ForgetsEverythingOnResetAndGetsTheHeaderAgain) {
    destination->addExpectedLogMessage("never");
    log->logAppDetails();
    EXPECT_EQ(unexpected(), 2);
    log->logAppDetails();
    EXPECT_EQ(unexpected(), 2);
    destination->reset();
    EXPECT_EQ(remaining(), 0);
    EXPECT_EQ(unexpected(), 0);
    EXPECT_FALSE(destination->haveLoggedAppDetails());
    log->logAppDetails();
    EXPECT_EQ(unexpected(), 2);
}

TEST_F(TestDestinationTest, ComparesOnItsQueueWhileTheCallerWaits) {
    const auto queue = DispatchQueue::make("comparing");
    destination->setLogQueue(queue);
    int filteredOnTheQueue = 0;
    destination->setFilters({{filter([&](LogDetails& /*details*/, std::string& /*message*/) {
        filteredOnTheQueue += queue->isCurrent() ? 1 : 0;
        return false;
    })}});
    destination->addExpectedLogMessage("[Info] > text");
    log->info("text");
    EXPECT_EQ(filteredOnTheQueue, 1);
    EXPECT_EQ(remaining(), 0);
    log->info("other");
    EXPECT_EQ(unexpected(), 1);
    queue->sync([&] {
        destination->addExpectedLogMessage("[Info] > from the queue itself");
        log->info("from the queue itself");
    });
    EXPECT_EQ(remaining(), 0);
    EXPECT_EQ(unexpected(), 1);
}

TEST_F(TestDestinationTest, AddsAnExpectationBehindTheWorkOfItsQueue) {
    const auto queue = DispatchQueue::make("comparing");
    destination->setLogQueue(queue);
    std::thread adding;
    {
        const Gate gate(*queue);
        std::promise<void> begins;
        adding = std::thread([&] {
            begins.set_value();
            destination->addExpectedLogMessage("text");
        });
        begins.get_future().wait();
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(remaining(), 0);
    }
    adding.join();
    EXPECT_EQ(remaining(), 1);
}

TEST_F(TestDestinationTest, LosesNoLineOfManyThreads) {
    constexpr int threads = 4;
    constexpr int lines = 500;
    for (int line = 0; line < threads * lines; ++line) {
        destination->addExpectedLogMessage("[Info] > line");
    }
    std::vector<std::thread> running;
    running.reserve(threads);
    for (int thread = 0; thread < threads; ++thread) {
        running.emplace_back([this] {
            for (int line = 0; line < lines; ++line) {
                log->info("line");
            }
            log->info("extra");
        });
    }
    for (std::thread& thread : running) {
        thread.join();
    }
    EXPECT_EQ(remaining(), 0);
    EXPECT_EQ(unexpected(), threads);
}

TEST_F(TestDestinationTest, DescribesItselfAsEveryDestinationDoes) {
    EXPECT_EQ(destination->debugDescription(),
              "TestDestination: test - Level: Debug showLogIdentifier: false showFunctionName: false "
              "showThreadName: false showLevel: true showFileName: false showLineNumber: false showDate: false");
    class Own : public TestDestination {
    public:
        using TestDestination::TestDestination;
    };
    EXPECT_EQ(make<Own>(nullptr, "")->debugDescription(),
              "Own:  - Level: Debug showLogIdentifier: false showFunctionName: true "
              "showThreadName: false showLevel: true showFileName: true showLineNumber: true showDate: true");
}

}  // namespace
}  // namespace velora::test
