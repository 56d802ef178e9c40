#include <atomic>
#include <chrono>
#include <cstddef>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/ThreadInfo.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseQueuedDestination.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/RecordingDestination.h"

namespace velora::test {
namespace {

using testing::ElementsAre;

class BaseQueuedDestinationTest : public testing::Test {
protected:
    void useQueue() { destination_->setLogQueue(queue_); }

    const RecordedLogger<> logger_;
    XCGLogger& log_ = *logger_.log;
    std::shared_ptr<WritingDestination> destination_ = logger_.addRecording<WritingDestination>("writing");
    std::shared_ptr<DispatchQueue> queue_ = DispatchQueue::make("test queue");
};

TEST_F(BaseQueuedDestinationTest, HasNoQueueAtFirst) {
    EXPECT_EQ(destination_->logQueue(), nullptr);
    useQueue();
    EXPECT_EQ(destination_->logQueue(), queue_);
    destination_->setLogQueue(nullptr);
    EXPECT_EQ(destination_->logQueue(), nullptr);
}

TEST_F(BaseQueuedDestinationTest, HasTheDefaultsOfEveryDestination) {
    const auto destination = make<BaseQueuedDestination>(nullptr, "it");
    EXPECT_EQ(destination->debugDescription(),
              "BaseQueuedDestination: it - Level: Debug showLogIdentifier: false showFunctionName: true "
              "showThreadName: false showLevel: true showFileName: true showLineNumber: true showDate: true");
    EXPECT_EQ(destination->logQueue(), nullptr);
    EXPECT_EQ(destination->owner(), nullptr);
}

TEST_F(BaseQueuedDestinationTest, WritesNothingByItself) {
    const auto plain = logger_.addRecording<BaseQueuedDestination>("plain");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    log_.info("line");
    plain->setLogQueue(queue_);
    log_.info("line");
    queue_->drain();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(BaseQueuedDestinationTest, WritesOnTheCallingThreadWithoutAQueue) {
    log_.info("one");
    EXPECT_THAT(destination_->lines(), ElementsAre("> one"));
    EXPECT_EQ(destination_->writer(), std::this_thread::get_id());
    std::thread other([this] {
        log_.info("two");
        EXPECT_EQ(destination_->writer(), std::this_thread::get_id());
    });
    other.join();
    EXPECT_THAT(destination_->lines(), ElementsAre("> one", "> two"));
}

TEST_F(BaseQueuedDestinationTest, ReturnsFromOutputBeforeAQueueWritesAndKeepsTheOrder) {
    useQueue();
    std::vector<std::string> expected;
    {
        Gate gate(*queue_);
        for (int i = 0; i < 1'000; ++i) {
            log_.info("{}", i);
            expected.push_back("> " + std::to_string(i));
        }
        EXPECT_THAT(destination_->lines(), ElementsAre());
        gate.open();
    }
    queue_->drain();
    EXPECT_EQ(destination_->lines(), expected);
    EXPECT_NE(destination_->writer(), std::this_thread::get_id());
}

TEST_F(BaseQueuedDestinationTest, RunsFiltersAndFormattersWhereItWrites) {
    std::thread::id filtering;
    std::thread::id formatting;
    destination_->setFilters({{filter([&](LogDetails& /*logDetails*/, std::string& /*message*/) {
        filtering = std::this_thread::get_id();
        return false;
    })}});
    destination_->setFormatters({{formatter(
        [&](LogDetails& /*logDetails*/, std::string& /*message*/) { formatting = std::this_thread::get_id(); })}});
    log_.info("line");
    EXPECT_EQ(filtering, std::this_thread::get_id());
    EXPECT_EQ(formatting, std::this_thread::get_id());
    useQueue();
    log_.info("line");
    queue_->drain();
    EXPECT_NE(filtering, std::this_thread::get_id());
    EXPECT_EQ(filtering, destination_->writer());
    EXPECT_EQ(formatting, destination_->writer());
}

TEST_F(BaseQueuedDestinationTest, NamesTheLoggingThreadAndNotTheQueue) {
    useQueue();
    destination_->setShowThreadName(true);
    log_.info("from main");
    std::thread([this] {
        setCurrentThreadName("logging thread");
        log_.info("from another");
    }).join();
    queue_->drain();
    EXPECT_THAT(destination_->lines(), ElementsAre("[main] > from main", "[logging thread] > from another"));
}

TEST_F(BaseQueuedDestinationTest, FormatsAndWritesNoLineThatAFilterExcludes) {
    int formatted = 0;
    destination_->setFilters({{filter(
        [](LogDetails& logDetails, std::string& /*message*/) { return logDetails.message.starts_with("secret"); })}});
    destination_->setFormatters(
        {{formatter([&formatted](LogDetails& /*logDetails*/, std::string& /*message*/) { ++formatted; })}});
    log_.info("secret one");
    log_.info("open one");
    EXPECT_EQ(formatted, 1);
    useQueue();
    log_.info("secret two");
    log_.info("open two");
    queue_->drain();
    EXPECT_EQ(formatted, 2);
    EXPECT_THAT(destination_->lines(), ElementsAre("> open one", "> open two"));
}

TEST_F(BaseQueuedDestinationTest, WritesWhatFiltersAndFormattersMadeOfTheLine) {
    destination_->setFilters({{filter([](LogDetails& logDetails, std::string& message) {
        logDetails.lineNumber = 5;
        message += " filtered";
        return false;
    })}});
    destination_->setFormatters({{formatter([](LogDetails& logDetails, std::string& message) {
        message += " formatted " + std::to_string(logDetails.lineNumber);
    })}});
    log_.info("line");
    EXPECT_THAT(destination_->lines(), ElementsAre("> line filtered formatted 5"));
    EXPECT_THAT(logger_.recording->lines(), ElementsAre("> line")) << "others have their own copies";
}

TEST_F(BaseQueuedDestinationTest, FiltersAndFormatsInternalLinesToo) {
    destination_->setFormatters({{appending(".")}});
    log_._logln("internal", Level::info);
    EXPECT_THAT(destination_->lines(), ElementsAre("> internal."));
}

TEST_F(BaseQueuedDestinationTest, HandsTheWholeRecordToTheQueue) {
    useQueue();
    std::vector<LogDetails> seen;
    destination_->setFilters({{filter([&seen](LogDetails& logDetails, std::string& /*message*/) {
        seen.push_back(logDetails);
        return false;
    })}});
    {
        const std::string function = "a function";
        const UserInfo info{{"key", std::string("value")}};
        log_.logln(Level::alert, SourceLocation(function, "file", -3), info, std::string("message"));
        log_.info("next");
    }
    queue_->drain();
    ASSERT_EQ(seen.size(), 2U);
    EXPECT_EQ(seen[0].level, Level::alert);
    EXPECT_EQ(seen[0].message, "message");
    EXPECT_EQ(seen[0].functionName, "a function");
    EXPECT_EQ(seen[0].fileName, "file");
    EXPECT_EQ(seen[0].lineNumber, -3);
    EXPECT_EQ(std::any_cast<std::string>(seen[0].userInfo.at("key")), "value");
    EXPECT_TRUE(seen[1].userInfo.empty()) << "nothing stays of the record before";
}

TEST_F(BaseQueuedDestinationTest, ReportsAnExceptionOfAWriteAndWritesTheNextLine) {
    class Throwing : public WritingDestination {
    public:
        using WritingDestination::WritingDestination;
        void write(std::string_view message) override {
            if (message == "> bad") {
                throw std::runtime_error("bad line");
            }
            WritingDestination::write(message);
        }
    };
    const auto throwing = logger_.addRecording<Throwing>("throwing");
    for (const auto& queue : {std::shared_ptr<DispatchQueue>(), queue_}) {
        throwing->setLogQueue(queue);
        testing::internal::CaptureStdout();
        log_.info("bad");
        log_.info("good");
        queue_->drain();
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "Objective-C Exception occurred: bad line\n");
    }
    EXPECT_THAT(throwing->lines(), ElementsAre("> good", "> good"));
}

TEST_F(BaseQueuedDestinationTest, KeepsTheOrderOfEachThread) {
    useQueue();
    constexpr int threadCount = 8;
    constexpr int lineCount = 2'000;
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back([this, thread] {
            for (int i = 0; i < lineCount; ++i) {
                log_.info("{} {}", thread, i);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    queue_->drain();
    std::vector<int> next(threadCount, 0);
    for (const std::string& line : destination_->lines()) {
        const int thread = line.at(2) - '0';
        EXPECT_EQ(line,
                  "> " + std::to_string(thread) + " " + std::to_string(next.at(static_cast<std::size_t>(thread))++));
    }
    EXPECT_EQ(next, std::vector<int>(threadCount, lineCount));
}

TEST_F(BaseQueuedDestinationTest, LooksFiltersAndFormattersUpWhenTheWorkRuns) {
    useQueue();
    std::vector<LogDetails> seen;
    {
        const Gate gate(*queue_);
        const std::string function = "a function";
        log_.logln(Level::alert, SourceLocation(function, "/a/file.cpp", -3), UserInfo{{"key", 7}}, "one");
        destination_->setFormatters({{appending(" formatted")}});
        destination_->setFilters({{filter([&seen](LogDetails& logDetails, std::string& /*message*/) {
            seen.push_back(logDetails);
            return logDetails.message == "two";
        })}});
        log_.info("two");
        log_.info("three");
    }
    queue_->drain();
    EXPECT_THAT(destination_->lines(), ElementsAre("> one formatted", "> three formatted"));
    ASSERT_EQ(seen.size(), 3U);
    EXPECT_EQ(seen[0].message, "one");
    EXPECT_EQ(seen[0].level, Level::alert);
    EXPECT_EQ(seen[0].functionName, "a function");
    EXPECT_EQ(seen[0].fileName, "/a/file.cpp");
    EXPECT_EQ(seen[0].lineNumber, -3);
    EXPECT_EQ(std::any_cast<int>(seen[0].userInfo.at("key")), 7);
    EXPECT_TRUE(seen[1].userInfo.empty());
}

TEST_F(BaseQueuedDestinationTest, KeepsARecordWhoseMessageIsNotTheEndOfTheLine) {
    useQueue();
    std::string message;
    destination_->setFilters({{filter([&message](LogDetails& logDetails, std::string& /*message*/) {
        message = logDetails.message;
        return false;
    })}});
    LogDetails record{.level = Level::info, .message = "the message"};
    std::string line = "another line";
    destination_->output(record, line);
    queue_->drain();
    EXPECT_EQ(message, "the message");
    EXPECT_THAT(destination_->lines(), ElementsAre("another line"));
}

TEST_F(BaseQueuedDestinationTest, BlocksAThreadThatLogsFasterThanTheQueueWrites) {
    useQueue();
    destination_->setMaxPendingBytes(1'000);
    std::atomic<int> logged = 0;
    std::thread logging;
    {
        const Gate gate(*queue_);
        logging = std::thread([&] {
            for (int i = 0; i < 1'000; ++i) {
                log_.info("{}", i);
                ++logged;
            }
        });
        while (logged < 5) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_LT(logged, 20);
    }
    logging.join();
    queue_->drain();
    EXPECT_EQ(destination_->lines().size(), 1'000U);
}

TEST_F(BaseQueuedDestinationTest, NeverBlocksATaskOfAQueue) {
    useQueue();
    destination_->setMaxPendingBytes(1);
    queue_->sync([this] {
        for (int i = 0; i < 100; ++i) {
            log_.info("{}", i);
        }
    });
    queue_->drain();
    EXPECT_EQ(destination_->lines().size(), 100U);
}

TEST_F(BaseQueuedDestinationTest, WritesLinesOfEveryLength) {
    useQueue();
    std::vector<std::string> expected;
    for (std::size_t length = 0; length < 1'000; ++length) {
        expected.push_back("> " + std::string(length, static_cast<char>('a' + length % 26)));
        log_.info(expected.back().substr(2));
    }
    queue_->drain();
    EXPECT_EQ(destination_->lines(), expected);
}

TEST_F(BaseQueuedDestinationTest, WritesTheLinesOnItsQueueAsItsOwnerHasThemBeforeItLeaves) {
    useQueue();
    log_.setFormatters({{appending(" by the owner's formatter")}});
    std::atomic<bool> isLeaving = false;
    destination_->setFilters({{filter([&isLeaving](LogDetails& /*logDetails*/, std::string& /*message*/) {
        while (!isLeaving) {
            std::this_thread::yield();
        }
        return false;
    })}});
    log_.info("one");
    log_.info("two");
    isLeaving = true;
    log_.remove(destination_);
    EXPECT_THAT(destination_->lines(), ElementsAre("> one by the owner's formatter", "> two by the owner's formatter"));
    log_.info("three");
    queue_->drain();
    EXPECT_EQ(destination_->lines().size(), 2U);
}

TEST_F(BaseQueuedDestinationTest, MayBeRemovedByWorkOfItsOwnQueue) {
    useQueue();
    destination_->setFilters({{filter([this](LogDetails& /*logDetails*/, std::string& /*message*/) {
        log_.remove(destination_);
        return false;
    })}});
    log_.info("one");
    queue_->drain();
    EXPECT_EQ(destination_->owner(), nullptr);
    EXPECT_THAT(destination_->lines(), ElementsAre("> one"));
}

TEST_F(BaseQueuedDestinationTest, LogsFromItsOwnQueueInOrder) {
    useQueue();
    destination_->setFilters({{filter([this](LogDetails& logDetails, std::string& /*message*/) {
        if (logDetails.message == "one") {
            log_.info("from the filter");
        }
        return false;
    })}});
    log_.info("one");
    queue_->drain();
    queue_->drain();  // the filter's line was handed over behind the first one's end
    EXPECT_THAT(destination_->lines(), ElementsAre("> one", "> from the filter"));
}

TEST_F(BaseQueuedDestinationTest, SharesAQueueWithOtherDestinations) {
    useQueue();
    const auto other = logger_.addRecording<WritingDestination>("other");
    other->setLogQueue(queue_);
    log_.info("line");
    queue_->drain();
    EXPECT_THAT(destination_->lines(), ElementsAre("> line"));
    EXPECT_THAT(other->lines(), ElementsAre("> line"));
    EXPECT_EQ(other->writer(), destination_->writer());
}

TEST_F(BaseQueuedDestinationTest, AsksAnOverrideForItsQueue) {
    class AlwaysQueued : public WritingDestination {
    public:
        using WritingDestination::WritingDestination;
        const std::shared_ptr<DispatchQueue>& logQueue() const override { return XCGLogger::logQueue(); }
    };
    const auto destination = logger_.addRecording<AlwaysQueued>("queued");
    {
        const Gate gate(*XCGLogger::logQueue());
        log_.info("line");
        EXPECT_THAT(destination->lines(), ElementsAre());
    }
    XCGLogger::logQueue()->drain();
    EXPECT_THAT(destination->lines(), ElementsAre("> line"));
}

/// Filters and formats without a list of filters or formatters.
class WillfulDestination : public WritingDestination {
public:
    using WritingDestination::WritingDestination;
    bool shouldExclude(LogDetails& /*logDetails*/, std::string& message) override { return message == "> secret"; }
    void applyFormatters(LogDetails& /*logDetails*/, std::string& message) override { message += " (seen)"; }
};

/// Has lists that nobody set.
class ListingDestination : public WritingDestination {
public:
    using WritingDestination::WritingDestination;
    const Filters& filters() const override { return filters_; }
    const Formatters& formatters() const override { return formatters_; }

private:
    Filters filters_{{filter([](LogDetails& /*logDetails*/, std::string& message) { return message == "> secret"; })}};
    Formatters formatters_{{appending(" (seen)")}};
};

class ListingLogger : public XCGLogger {
public:
    using XCGLogger::XCGLogger;
    const Filters& filters() const override { return filters_; }
    const Formatters& formatters() const override { return formatters_; }

private:
    Filters filters_{{filter([](LogDetails& /*logDetails*/, std::string& message) { return message == "> secret"; })}};
    Formatters formatters_{{appending(" (seen)")}};
};

template <typename Logger, typename Destination>
void expectFilteredAndFormatted(const std::shared_ptr<DispatchQueue>& queue) {
    const auto log = make<Logger>("log", false);
    const auto destination = make<Destination>(nullptr, "destination");
    hideColumns(*destination);
    destination->setLogQueue(queue);
    log->add(destination);
    log->info("public");
    log->info("secret");
    log->remove(destination);
    EXPECT_THAT(destination->lines(), ElementsAre("> public (seen)"));
}

TEST(QueuedDestinationSubclass, IsAskedWhatToFilterAndHowToFormatWithoutAnyList) {
    for (const auto& queue : {std::shared_ptr<DispatchQueue>(), DispatchQueue::make("subclass")}) {
        expectFilteredAndFormatted<XCGLogger, WillfulDestination>(queue);
        expectFilteredAndFormatted<XCGLogger, ListingDestination>(queue);
        expectFilteredAndFormatted<ListingLogger, WritingDestination>(queue);
    }
}

/// Keeps the levels that it is told of after each line.
class FinishingDestination : public WritingDestination {
public:
    using WritingDestination::WritingDestination;
    void finishWriting(Level level) override { finished.emplace_back(level, lines().size()); }
    std::vector<std::pair<Level, std::size_t>> finished;
};

TEST(QueuedDestinationSubclass, IsToldTheLevelOfEachLineAfterItIsWritten) {
    const auto log = make<XCGLogger>("log", false);
    const auto destination = make<FinishingDestination>(nullptr, "destination");
    log->add(destination);
    log->info("first");
    log->error("second");
    log->remove(destination);
    EXPECT_THAT(destination->finished, ElementsAre(std::pair(Level::info, 1U), std::pair(Level::error, 2U)));
}

}  // namespace
}  // namespace velora::test
