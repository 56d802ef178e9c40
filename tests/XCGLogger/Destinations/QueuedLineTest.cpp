#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/QueuedLine.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/RecordingDestination.h"

namespace velora::test {
namespace {

using testing::ElementsAre;

class QueuedLineTest : public testing::Test {
protected:
    void submit(const std::string& text) {
        LogDetails record = aRecord(text);
        submit(destination_, record, text);
    }
    void submit(const std::shared_ptr<BaseQueuedDestination>& destination, LogDetails& record, std::string text) {
        QueuedLine::submit(*queue_, *destination, record, text);
    }

    std::shared_ptr<DispatchQueue> queue_ = DispatchQueue::make("lines");
    std::shared_ptr<WritingDestination> destination_ = make<WritingDestination>(nullptr, "writing");
};

TEST_F(QueuedLineTest, TakesTheTextsOverSoThatTheCallerMayReuseTheirMemory) {
    LogDetails record = aRecord("record");
    std::string message = "a message that is too long for a string to hold it in itself";
    const char* const memory = message.data();
    destination_->setFilters({{filter([](const LogDetails& details, const std::string& /*line*/) {
        EXPECT_EQ(details.message, "record");
        EXPECT_EQ(details.functionName, "doWork()");
        EXPECT_EQ(details.lineNumber, 42);
        return false;
    })}});
    QueuedLine::submit(*queue_, *destination_, record, message);
    EXPECT_NE(message.data(), memory);
    record.message = "changed";
    record.functionName = "changed";
    message = "changed";
    queue_->drain();
    EXPECT_THAT(destination_->lines(), ElementsAre("a message that is too long for a string to hold it in itself"));
}

TEST_F(QueuedLineTest, IsUsedAgainWithoutATraceOfTheLineBefore) {
    std::vector<std::size_t> userInfoSizes;
    destination_->setFilters({{filter([&](LogDetails& logDetails, std::string& /*message*/) {
        userInfoSizes.push_back(logDetails.userInfo.size());
        return false;
    })}});
    const std::vector<std::string> texts{"a long text that does not fit into a short one", "", "short",
                                         std::string(100'000, 'x'), "short again"};
    for (const std::string& text : texts) {
        LogDetails record = aRecord(text);
        if (text == "short") {
            record.userInfo["key"] = true;
        }
        submit(destination_, record, text);
        queue_->drain();
    }
    EXPECT_EQ(destination_->lines(), texts);
    EXPECT_THAT(userInfoSizes, ElementsAre(0, 0, 1, 0, 0));
}

TEST_F(QueuedLineTest, FreesWhatTheRecordHeldOnceItIsWritten) {
    const auto held = std::make_shared<int>(1);
    LogDetails record = aRecord();
    record.userInfo["held"] = held;
    submit(destination_, record, "line");
    record.userInfo.clear();
    queue_->drain();
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(QueuedLineTest, LetsGoOfTheDestinationOnceItIsWritten) {
    const std::weak_ptr<WritingDestination> weak = destination_;
    {
        const Gate gate(*queue_);
        submit("line");
        destination_.reset();
        EXPECT_FALSE(weak.expired());
    }
    queue_->drain();
    EXPECT_TRUE(weak.expired());
}

TEST_F(QueuedLineTest, PassesBetweenThreadsThatComeAndGo) {
    constexpr int rounds = 20;
    constexpr int threadsPerRound = 4;
    constexpr int linesPerThread = 200;
    for (int round = 0; round < rounds; ++round) {
        std::vector<std::thread> threads;
        threads.reserve(threadsPerRound);
        for (int thread = 0; thread < threadsPerRound; ++thread) {
            threads.emplace_back([this] {
                for (int i = 0; i < linesPerThread; ++i) {
                    submit("line " + std::to_string(i));
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    queue_->drain();
    std::vector<int> counts(linesPerThread, 0);
    for (const std::string& line : destination_->lines()) {
        ++counts.at(std::stoul(line.substr(5)));
    }
    EXPECT_EQ(counts, std::vector<int>(linesPerThread, rounds * threadsPerRound));
}

TEST_F(QueuedLineTest, IsTakenByTheDestructorsOfAThreadThatEnds) {
    class LogsAtTheEnd {
    public:
        LogsAtTheEnd() = default;
        LogsAtTheEnd(const LogsAtTheEnd&) = delete;
        LogsAtTheEnd& operator=(const LogsAtTheEnd&) = delete;
        ~LogsAtTheEnd() { log(); }
        std::function<void()> log;
    };
    for (int i = 0; i < 3; ++i) {
        std::thread([this] {
            thread_local LogsAtTheEnd logs;
            logs.log = [this] { submit("at the end"); };
            submit("before");
            queue_->drain();
            submit("again");  // from what the queue gave back
        }).join();
    }
    queue_->drain();
    EXPECT_THAT(destination_->lines(), ElementsAre("before", "again", "at the end", "before", "again", "at the end",
                                                   "before", "again", "at the end"));
}

TEST_F(QueuedLineTest, IsKeptByAThreadThatDefersAndThenHandedOverInOrder) {
    QueuedLine::Deferral::begin();
    submit("one");
    QueuedLine::Deferral::begin();
    submit("two");
    QueuedLine::Deferral::end();
    EXPECT_TRUE(QueuedLine::Deferral::isActive());
    submit("three");
    queue_->drain();
    EXPECT_THAT(destination_->lines(), ElementsAre());
    std::thread([this] { submit("of another thread"); }).join();
    queue_->drain();
    EXPECT_THAT(destination_->lines(), ElementsAre("of another thread"));
    destination_->setLogQueue(queue_);
    QueuedLine::Deferral::end();
    EXPECT_FALSE(QueuedLine::Deferral::isActive());
    submit("four");
    queue_->drain();
    EXPECT_THAT(destination_->lines(), ElementsAre("of another thread", "one", "two", "three", "four"));
    EXPECT_NE(destination_->writer(), std::this_thread::get_id());
}

TEST_F(QueuedLineTest, IsWrittenInPlaceIfItsDestinationHasNoQueueAnyMore) {
    QueuedLine::Deferral::begin();
    submit("line");
    QueuedLine::Deferral::end();
    EXPECT_THAT(destination_->lines(), ElementsAre("line"));
    EXPECT_EQ(destination_->writer(), std::this_thread::get_id());
}

TEST_F(QueuedLineTest, ReportsWhatADestinationThrows) {
    class Throwing : public WritingDestination {
    public:
        using WritingDestination::WritingDestination;
        bool shouldExclude(LogDetails& /*logDetails*/, std::string& /*message*/) override {
            throw std::runtime_error("cannot say");
        }
    };
    const auto throwing = make<Throwing>(nullptr, "throwing");
    LogDetails record = aRecord();
    testing::internal::CaptureStdout();
    submit(throwing, record, "lost");
    submit("next");
    queue_->drain();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Objective-C Exception occurred: cannot say\n");
    EXPECT_THAT(destination_->lines(), ElementsAre("next"));
}

}  // namespace
}  // namespace velora::test
