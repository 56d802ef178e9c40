#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>

#include "Platform/DispatchQueueTestSupport.h"

namespace velora::test {
namespace {

using std::chrono::milliseconds;

TEST(DispatchQueue, HasTheLabelItWasMadeWith) {
    EXPECT_EQ(DispatchQueue::make("com.example.saving")->label(), "com.example.saving");
}

TEST(DispatchQueue, RunsWorkOnAThreadOfItsOwnNamedAfterTheLabel) {
    const auto queue = DispatchQueue::make("com.example.a.long.label");
    std::thread::id thread;
    std::array<char, 64> name = {};
    queue->sync([&] {
        thread = std::this_thread::get_id();
        pthread_getname_np(pthread_self(), name.data(), name.size());
    });
    EXPECT_NE(thread, std::this_thread::get_id());
    EXPECT_STREQ(name.data(), "com.example.a.l");
}

TEST(DispatchQueue, CutsTheThreadNameBetweenCharacters) {
    const auto queue = DispatchQueue::make("fourteen bytesé");
    std::array<char, 64> name = {};
    queue->sync([&] { pthread_getname_np(pthread_self(), name.data(), name.size()); });
    EXPECT_STREQ(name.data(), "fourteen bytes");
}

TEST(DispatchQueue, BlocksSignalsOnItsThreadButThoseOfFaults) {
    const auto queue = DispatchQueue::make("signals");
    sigset_t blocked;
    queue->sync([&] { pthread_sigmask(SIG_BLOCK, nullptr, &blocked); });
    EXPECT_TRUE(sigismember(&blocked, SIGTERM));
    EXPECT_TRUE(sigismember(&blocked, SIGALRM));
    EXPECT_FALSE(sigismember(&blocked, SIGSEGV));
    sigset_t own;
    pthread_sigmask(SIG_BLOCK, nullptr, &own);
    EXPECT_FALSE(sigismember(&own, SIGTERM));
}

TEST(DispatchQueue, RunsTheWorkOfEachOfManyThreadsInItsOrderAndLosesNone) {
    constexpr std::size_t producers = 8;
    constexpr int each = 100'000;
    const auto queue = DispatchQueue::make("many");
    std::array<int, producers> next = {};
    int outOfOrder = 0;
    {
        std::vector<std::jthread> threads;
        for (std::size_t producer = 0; producer < producers; ++producer) {
            threads.emplace_back([&, producer] {
                for (int number = 0; number < each; ++number) {
                    queue->async([&, producer, number] { outOfOrder += next[producer]++ == number ? 0 : 1; });
                }
            });
        }
    }
    queue->drain();
    EXPECT_EQ(outOfOrder, 0);
    EXPECT_THAT(next, testing::Each(each));
}

TEST(DispatchQueue, RunsWorkInTheOrderThatThreadsAgreedOn) {
    constexpr int rounds = 20'000;
    const auto queue = DispatchQueue::make("relay");
    std::atomic<int> turn = 0;
    std::vector<int> ran;
    const auto takeEverySecondTurn = [&](int first) {
        for (int round = first; round < rounds; round += 2) {
            while (turn.load() != round) {
                std::this_thread::yield();
            }
            queue->async([&ran, round] { ran.push_back(round); });
            turn.store(round + 1);
        }
    };
    {
        const std::jthread even(takeEverySecondTurn, 0);
        const std::jthread odd(takeEverySecondTurn, 1);
    }
    queue->drain();
    ASSERT_EQ(ran.size(), static_cast<std::size_t>(rounds));
    EXPECT_TRUE(std::is_sorted(ran.begin(), ran.end()));
}

TEST(DispatchQueue, TakesWorkThatCanOnlyBeMoved) {
    const auto queue = DispatchQueue::make("moving");
    int seen = 0;
    queue->async([&seen, value = std::make_unique<int>(7)] { seen = *value; });
    queue->drain();
    EXPECT_EQ(seen, 7);
}

TEST(DispatchQueue, LetsATaskHandItselfOverAgainOrDeleteItself) {
    class Countdown final : public DispatchQueue::Task {
    public:
        Countdown(DispatchQueue& queue, int& runs, std::promise<void>& deleted)
            : queue_(queue), runs_(runs), deleted_(deleted) {}
        void run() noexcept override {
            if (++runs_ < 1000) {
                queue_.async(*this);
            } else {
                auto& deleted = deleted_;
                delete this;
                deleted.set_value();
            }
        }

    private:
        DispatchQueue& queue_;
        int& runs_;
        std::promise<void>& deleted_;
    };
    const auto queue = DispatchQueue::make("again");
    int runs = 0;
    std::promise<void> deleted;
    queue->async(*new Countdown(*queue, runs, deleted));
    deleted.get_future().wait();
    EXPECT_EQ(runs, 1000);
}

TEST(DispatchQueue, RunsEarlierWorkBeforeSyncReturns) {
    const auto queue = DispatchQueue::make("sync");
    Barrier barrier(*queue);
    std::vector<int> ran;
    for (int number = 0; number < 100; ++number) {
        queue->async([&ran, number] { ran.push_back(number); });
    }
    std::jthread opener([&] { barrier.open(); });
    std::size_t before = 0;
    queue->sync([&] { before = ran.size(); });
    EXPECT_EQ(before, 100U);
}

TEST(DispatchQueue, RunsSyncInPlaceWhenAlreadyOnTheQueue) {
    const auto queue = DispatchQueue::make("nested");
    std::string order;
    queue->sync([&] {
        queue->async([&] { order += 'c'; });
        queue->sync([&] {
            EXPECT_TRUE(queue->isCurrent());
            EXPECT_EQ(DispatchQueue::currentLabel(), "nested");
            order += 'a';
        });
        queue->drain();
        order += 'b';
    });
    queue->drain();
    EXPECT_EQ(order, "abc");
}

TEST(DispatchQueue, RunsSyncToAnotherQueueFromItsWork) {
    const auto first = DispatchQueue::make("first");
    const auto second = DispatchQueue::make("second");
    std::optional<std::string> inner;
    bool currentOfFirst = true;
    first->sync([&] {
        second->sync([&] {
            inner = DispatchQueue::currentLabel();
            currentOfFirst = first->isCurrent();
        });
    });
    EXPECT_EQ(inner, "second");
    EXPECT_FALSE(currentOfFirst);
}

TEST(DispatchQueue, KnowsTheLabelOfTheRunningQueueOnlyInsideItsWork) {
    const auto queue = DispatchQueue::make("labelled");
    EXPECT_EQ(DispatchQueue::currentLabel(), std::nullopt);
    EXPECT_FALSE(queue->isCurrent());
    std::optional<std::string> inside;
    bool current = false;
    queue->async([&] {
        inside = DispatchQueue::currentLabel();
        current = queue->isCurrent();
    });
    queue->drain();
    EXPECT_EQ(inside, "labelled");
    EXPECT_TRUE(current);
    EXPECT_EQ(DispatchQueue::currentLabel(), std::nullopt);
}

TEST(DispatchQueue, ThrowsWhatSyncWorkThrewToTheCaller) {
    const auto queue = DispatchQueue::make("throwing");
    EXPECT_THROW(queue->sync([] { throw std::out_of_range("far"); }), std::out_of_range);
    bool ran = false;
    queue->sync([&] { ran = true; });
    EXPECT_TRUE(ran);
}

TEST(DispatchQueue, ReportsWhatAsyncWorkThrewAndGoesOn) {
    testing::internal::CaptureStdout();
    const auto queue = DispatchQueue::make("throwing");
    bool ran = false;
    queue->async([] { throw std::runtime_error("no paper"); });
    queue->async([] { throw 3; });
    queue->async([&] { ran = true; });
    queue->drain();
    EXPECT_TRUE(ran);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Objective-C Exception occurred: no paper\nObjective-C Exception occurred: int\n");
}

TEST(DispatchQueue, DrainsEveryQueueAtOnce) {
    const auto first = DispatchQueue::make("first");
    const auto second = DispatchQueue::make("second");
    std::atomic<int> ran = 0;
    for (int number = 0; number < 1000; ++number) {
        first->async([&] { ++ran; });
        second->async([&] { ++ran; });
    }
    DispatchQueue::drainAll();
    EXPECT_EQ(ran, 2000);
}

TEST(DispatchQueue, RunsPendingWorkBeforeItsDestructionEnds) {
    int ran = 0;
    auto queue = DispatchQueue::make("destroyed");
    Barrier barrier(*queue);
    for (int number = 0; number < 1000; ++number) {
        queue->async([&] { ++ran; });
    }
    const std::jthread opener([&] { barrier.open(); });
    queue.reset();
    EXPECT_EQ(ran, 1000);
}

TEST(DispatchQueue, EndsWithoutEverHavingBeenUsed) {
    EXPECT_NE(DispatchQueue::make("unused"), nullptr);
}

TEST(DispatchQueue, RunsWhatIsLeftWhenItsLastReferenceGoesOnItsOwnThread) {
    auto queue = DispatchQueue::make("own");
    Barrier barrier(*queue);
    std::promise<std::string> label;
    std::vector<int> ran;
    queue->async([&ran, queue] { ran.push_back(1); });
    queue->async([&ran] { ran.push_back(2); });
    queue->async([&label, &ran] {
        ran.push_back(3);
        label.set_value(std::string(DispatchQueue::currentLabel().value_or("none")));
    });
    queue.reset();
    barrier.open();
    EXPECT_EQ(label.get_future().get(), "own");
    EXPECT_THAT(ran, testing::ElementsAre(1, 2, 3));
}

TEST(DispatchQueue, StopsAndRestartsBeingIdleWithoutLosingWork) {
    const auto queue = DispatchQueue::make("pausing");
    std::atomic<int> ran = 0;
    int handedOver = 0;
    // Pauses shorter and longer than the time that the thread lingers.
    for (const auto pause : {0, 1, 3, 7, 8, 9, 20, 40}) {
        for (int repeat = 0; repeat < 5; ++repeat) {
            std::this_thread::sleep_for(milliseconds(pause));
            queue->async([&] { ++ran; });
            ++handedOver;
        }
        while (ran != handedOver) {
            std::this_thread::yield();
        }
    }
    EXPECT_EQ(ran, handedOver);
}

}  // namespace
}  // namespace velora::test
