// Work of a queue that is told when a batch ends.

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>

#include "Platform/DispatchQueueTestSupport.h"

namespace velora::test {
namespace {

using std::chrono::milliseconds;

TEST(DispatchQueue, EndsABatchOnceForAllTheWorkInIt) {
    const auto queue = DispatchQueue::make("batch");
    CountingBatchEnd end;
    Barrier barrier(*queue);
    std::vector<int> countsSeen;
    for (int number = 0; number < 100; ++number) {
        queue->async([&] {
            DispatchQueue::atEndOfBatch(end);
            countsSeen.push_back(end.count);
        });
    }
    barrier.open();
    queue->drain();
    EXPECT_THAT(countsSeen, testing::Each(0));
    EXPECT_EQ(end.count, 1);
}

TEST(DispatchQueue, CallsTheBatchEndsOfABatchInTheOrderOfRegistration) {
    class Noting final : public DispatchQueue::BatchEnd {
    public:
        Noting(std::string& text, char letter) : text_(text), letter_(letter) {}
        void batchEnded() noexcept override { text_ += letter_; }

    private:
        std::string& text_;
        char letter_;
    };
    const auto queue = DispatchQueue::make("order");
    std::string text;
    Noting a(text, 'a');
    Noting b(text, 'b');
    Noting c(text, 'c');
    queue->sync([&] {
        for (auto* end : {&b, &a, &b, &c, &a}) {
            DispatchQueue::atEndOfBatch(*end);
        }
        EXPECT_EQ(text, "");
    });
    EXPECT_EQ(text, "bac");
}

TEST(DispatchQueue, EndsABatchBeforeItGoesIdle) {
    class Signalling final : public DispatchQueue::BatchEnd {
    public:
        void batchEnded() noexcept override { ended.release(); }
        std::binary_semaphore ended{0};
    };
    const auto queue = DispatchQueue::make("idle");
    Signalling end;
    queue->async([&] { DispatchQueue::atEndOfBatch(end); });
    end.ended.acquire();
    std::this_thread::sleep_for(milliseconds(30));
    queue->async([&] { DispatchQueue::atEndOfBatch(end); });
    end.ended.acquire();
}

TEST(DispatchQueue, EndsTheBatchOfEarlierWorkBeforeSyncWorkRuns) {
    const auto queue = DispatchQueue::make("sync");
    CountingBatchEnd end;
    Barrier barrier(*queue);
    queue->async([&] { DispatchQueue::atEndOfBatch(end); });
    std::jthread opener([&] { barrier.open(); });
    int seen = 0;
    queue->sync([&] {
        seen = end.count;
        DispatchQueue::atEndOfBatch(end);
    });
    EXPECT_EQ(seen, 1);
    EXPECT_EQ(end.count, 2);
}

TEST(DispatchQueue, EndsBatchesOfAQueueThatIsNeverEmpty) {
    constexpr int batches = 5;
    class Endless final : public DispatchQueue::Task {
    public:
        Endless(DispatchQueue& queue, CountingBatchEnd& end) : queue_(queue), end_(end) {}
        void run() noexcept override {
            DispatchQueue::atEndOfBatch(end_);
            if (end_.count < batches) {
                ++runs;
                queue_.async(*this);
            } else {
                done.release();
            }
        }
        int runs = 0;
        std::binary_semaphore done{0};

    private:
        DispatchQueue& queue_;
        CountingBatchEnd& end_;
    };
    const auto queue = DispatchQueue::make("endless");
    CountingBatchEnd end;
    Endless one(*queue, end);
    Endless other(*queue, end);
    queue->async([&] {
        queue->async(one);
        queue->async(other);
    });
    one.done.acquire();
    other.done.acquire();
    queue->drain();
    EXPECT_LE(one.runs + other.runs, batches * static_cast<int>(DispatchQueue::maximumBatch));
    EXPECT_GE(one.runs + other.runs, (batches - 1) * static_cast<int>(DispatchQueue::maximumBatch));
}

TEST(DispatchQueue, EndsTheBatchAtOnceOutsideOfAnyWork) {
    CountingBatchEnd end;
    DispatchQueue::atEndOfBatch(end);
    EXPECT_EQ(end.count, 1);
}

TEST(DispatchQueue, CallsABatchEndAgainThatRegistersItself) {
    class Twice final : public DispatchQueue::BatchEnd {
    public:
        void batchEnded() noexcept override {
            if (++count == 1) {
                DispatchQueue::atEndOfBatch(*this);
            }
        }
        int count = 0;
    };
    const auto queue = DispatchQueue::make("twice");
    Twice end;
    queue->sync([&] { DispatchQueue::atEndOfBatch(end); });
    EXPECT_EQ(end.count, 2);
}

TEST(DispatchQueue, ForgetsABatchEndThatIsDestroyedInTheBatch) {
    const auto queue = DispatchQueue::make("destroyed");
    CountingBatchEnd first;
    CountingBatchEnd last;
    queue->sync([&] {
        DispatchQueue::atEndOfBatch(first);
        auto middle = std::make_unique<CountingBatchEnd>();
        DispatchQueue::atEndOfBatch(*middle);
        middle.reset();
        DispatchQueue::atEndOfBatch(last);
        auto end = std::make_unique<CountingBatchEnd>();
        DispatchQueue::atEndOfBatch(*end);
    });
    EXPECT_EQ(first.count, 1);
    EXPECT_EQ(last.count, 1);
}

}  // namespace
}  // namespace velora::test
