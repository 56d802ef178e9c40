// Queues in forked children.

#include <array>
#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <semaphore>
#include <sys/wait.h>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>

#include "Platform/DispatchQueueTestSupport.h"

namespace velora::test {
namespace {

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
