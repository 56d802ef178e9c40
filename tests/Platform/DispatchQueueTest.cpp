#include <array>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <latch>
#include <memory>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>

namespace velora::test {
namespace {

using std::chrono::milliseconds;

/// Keeps a queue's thread busy from its construction until `open()`.
class Barrier {
public:
    explicit Barrier(DispatchQueue& queue) {
        queue.async([this] {
            reached_.release();
            opened_.acquire();
        });
        reached_.acquire();
    }
    void open() { opened_.release(); }

private:
    std::binary_semaphore reached_{0};
    std::binary_semaphore opened_{0};
};

class CountingBatchEnd final : public DispatchQueue::BatchEnd {
public:
    void batchEnded() noexcept override { ++count; }
    std::atomic<int> count = 0;
};

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

TEST(DispatchQueue, MakesAThreadWaitWhileItIsFull) {
    constexpr int capacity = 4;
    const auto queue = DispatchQueue::make("full", capacity);
    std::atomic<int> handedOver = 0;
    std::atomic<int> ran = 0;
    std::atomic<bool> opened = false;
    std::atomic<bool> tooEarly = false;
    Barrier barrier(*queue);
    std::jthread producer([&] {
        for (int number = 0; number < 1000; ++number) {
            queue->async([&] { ++ran; });
            ++handedOver;
            if (!opened && handedOver >= capacity) {
                tooEarly = true;
            }
        }
    });
    // The barrier's own work counts, too, so one less fits.
    while (handedOver < capacity - 1) {
        std::this_thread::yield();
    }
    std::this_thread::sleep_for(milliseconds(20));
    EXPECT_EQ(handedOver, capacity - 1);
    opened = true;
    barrier.open();
    producer.join();
    queue->drain();
    EXPECT_FALSE(tooEarly);
    EXPECT_EQ(ran, 1000);
}

TEST(DispatchQueue, LosesNothingWhereManyThreadsFindItFull) {
    for (const std::size_t capacity : {1U, 2U, 100U}) {
        const auto queue = DispatchQueue::make("full", capacity);
        int ran = 0;
        {
            std::vector<std::jthread> producers;
            producers.reserve(4);
            for (int producer = 0; producer < 4; ++producer) {
                producers.emplace_back([&] {
                    for (int number = 0; number < 2000; ++number) {
                        queue->async([&] { ++ran; });
                    }
                });
            }
        }
        queue->drain();
        EXPECT_EQ(ran, 8000);
    }
}

TEST(DispatchQueue, NeverMakesWorkOfAQueueWaitForAFullQueue) {
    const auto first = DispatchQueue::make("first", 2);
    const auto second = DispatchQueue::make("second", 2);
    int ranOnFirst = 0;
    int ranOnSecond = 0;
    std::latch both(2);
    const auto feed = [&both](DispatchQueue& own, DispatchQueue& other, int& ranOnOther, int& ranOnOwn) {
        own.async([&] {
            both.arrive_and_wait();
            for (int number = 0; number < 100; ++number) {
                other.async([&ranOnOther] { ++ranOnOther; });
                own.async([&ranOnOwn] { ++ranOnOwn; });
            }
        });
    };
    feed(*first, *second, ranOnSecond, ranOnFirst);
    feed(*second, *first, ranOnFirst, ranOnSecond);
    both.wait();
    first->drain();
    second->drain();
    first->drain();
    EXPECT_EQ(ranOnFirst, 200);
    EXPECT_EQ(ranOnSecond, 200);
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

// --- Fork ---

/// Runs `body` in a forked child and returns its exit status, or minus the number of the signal that ended it.
template <typename Body>
int statusOfChild(Body body) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        _exit(body());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

class DispatchQueueInForkedChild : public testing::Test {
protected:
#if defined(__SANITIZE_THREAD__)
    void SetUp() override {
        GTEST_SKIP() << "ThreadSanitizer does not support starting threads in a forked child of a process with threads";
    }
#endif
};

TEST_F(DispatchQueueInForkedChild, StartsAThreadOfItsOwn) {
    const auto queue = DispatchQueue::make("forked");
    std::thread::id parentThread;
    int ran = 0;
    queue->sync([&] { ++ran; });
    EXPECT_EQ(statusOfChild([&] {
                  std::thread::id thread;
                  for (int number = 0; number < 1000; ++number) {
                      queue->async([&] { ++ran; });
                  }
                  queue->sync([&] { thread = std::this_thread::get_id(); });
                  return ran == 1001 && thread != std::this_thread::get_id() && !queue->isCurrent() ? 0 : 1;
              }),
              0);
    queue->sync([&] { ++ran; });
    EXPECT_EQ(ran, 2);
}

TEST_F(DispatchQueueInForkedChild, LeavesTheParentsPendingWorkAlone) {
    const auto queue = DispatchQueue::make("forked");
    std::vector<int> ran;
    CountingBatchEnd end;
    queue->sync([&] { ran.reserve(10); });
    Barrier barrier(*queue);
    queue->async([&] { ran.push_back(1); });
    queue->async([&] { ran.push_back(2); });
    EXPECT_EQ(statusOfChild([&] {
                  queue->drain();
                  if (!ran.empty()) {
                      return 1;
                  }
                  queue->async([&] { ran.push_back(3); });
                  queue->drain();
                  return ran == std::vector{3} ? 0 : 2;
              }),
              0);
    barrier.open();
    queue->drain();
    EXPECT_THAT(ran, testing::ElementsAre(1, 2));
}

TEST_F(DispatchQueueInForkedChild, FindsRoomInAQueueThatIsFullInTheParent) {
    const auto queue = DispatchQueue::make("forked", 2);
    Barrier barrier(*queue);
    queue->async([] {});
    EXPECT_EQ(statusOfChild([&] {
                  int ran = 0;
                  for (int number = 0; number < 100; ++number) {
                      queue->async([&] { ++ran; });
                  }
                  queue->drain();
                  return ran == 100 ? 0 : 1;
              }),
              0);
    barrier.open();
}

TEST_F(DispatchQueueInForkedChild, DropsTheParentsOpenBatch) {
    const auto queue = DispatchQueue::make("forked");
    CountingBatchEnd end;
    std::binary_semaphore registered{0};
    std::binary_semaphore forked{0};
    queue->async([&] {
        DispatchQueue::atEndOfBatch(end);
        registered.release();
        forked.acquire();
    });
    registered.acquire();
    EXPECT_EQ(statusOfChild([&] {
                  queue->sync([] {});
                  if (end.count != 0) {
                      return 1;
                  }
                  queue->sync([&] { DispatchQueue::atEndOfBatch(end); });
                  return end.count == 1 ? 0 : 2;
              }),
              0);
    forked.release();
    queue->drain();
    EXPECT_EQ(end.count, 1);
}

TEST_F(DispatchQueueInForkedChild, WorksThoughOtherThreadsHandedOverWhileForking) {
    // Handed over and over, since the child of a fork amid allocations is a test of the allocator.
    class Ball final : public DispatchQueue::Task {
    public:
        void run() noexcept override { inTheAir = false; }
        std::atomic<bool> inTheAir = false;
    };
    const auto queue = DispatchQueue::make("forked");
    std::atomic<bool> stop = false;
    std::vector<std::jthread> producers;
    std::array<std::array<Ball, 64>, 2> balls;
    producers.reserve(balls.size());
    for (auto& own : balls) {
        producers.emplace_back([&] {
            while (!stop) {
                for (auto& ball : own) {
                    if (!ball.inTheAir.exchange(true)) {
                        queue->async(ball);
                    }
                }
            }
        });
    }
    for (int round = 0; round < 20; ++round) {
        EXPECT_EQ(statusOfChild([&] {
                      int own = 0;
                      for (int number = 0; number < 100; ++number) {
                          queue->async([&] { ++own; });
                      }
                      queue->drain();
                      return own == 100 ? 0 : 1;
                  }),
                  0);
    }
    stop = true;
    producers.clear();
    queue->drain();
}

TEST(DispatchQueue, DestroysAnInheritedQueueInAForkedChild) {
    auto queue = DispatchQueue::make("forked");
    queue->sync([] {});
    EXPECT_EQ(statusOfChild([&] {
                  queue.reset();
                  return 0;
              }),
              0);
}

TEST(DispatchQueue, GoesOnWithItsWorkInAChildForkedByThatWork) {
    const auto queue = DispatchQueue::make("forking");
    bool laterRan = false;
    int status = -1;
    Barrier barrier(*queue);
    queue->async([&] {
        status = statusOfChild([&] {
            if (!queue->isCurrent() || DispatchQueue::currentLabel() != "forking") {
                return 1;
            }
            bool inPlace = false;
            queue->sync([&] { inPlace = true; });
            queue->drain();
            return inPlace && !laterRan ? 0 : 2;
        });
    });
    queue->async([&] { laterRan = true; });
    barrier.open();
    queue->drain();
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(laterRan);
}

TEST(DispatchQueue, ServesAChildForkedByItsWorkOnceThatWorkReturns) {
    const auto queue = DispatchQueue::make("forking");
    pid_t child = -1;
    bool parentsWorkRan = false;
    Barrier barrier(*queue);
    queue->async([&] {
        child = fork();
        if (child == 0) {
            alarm(60);
            queue->async([&] { _exit(parentsWorkRan ? 1 : 42); });
        }
    });
    queue->async([&] { parentsWorkRan = true; });
    barrier.open();
    queue->drain();
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 42);
    EXPECT_TRUE(parentsWorkRan);
}

TEST_F(DispatchQueueInForkedChild, LeavesItsPendingWorkToItselfBeforeItsOwnChild) {
    const auto queue = DispatchQueue::make("forked");
    int ran = 0;
    Barrier barrier(*queue);
    queue->async([&] { ++ran; });
    EXPECT_EQ(statusOfChild([&] {
                  Barrier childsBarrier(*queue);
                  queue->async([&] { ran += 10; });
                  const int status = statusOfChild([&] {
                      queue->sync([&] { ran += 100; });
                      return ran == 100 ? 0 : 1;
                  });
                  childsBarrier.open();
                  queue->drain();
                  return status == 0 && ran == 10 ? 0 : 2;
              }),
              0);
    barrier.open();
    queue->drain();
    EXPECT_EQ(ran, 1);
}

}  // namespace
}  // namespace velora::test
