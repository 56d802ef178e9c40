#include <cstdlib>
#include <gtest/gtest.h>
#include <latch>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/RecursiveLock.h>

#include "support/ForkedChild.h"

namespace velora {
namespace {

using test::resultOfForkedChild;

/// Holds a lock on a thread of its own from construction to destruction.
class HolderThread {
public:
    explicit HolderThread(RecursiveLock& lock)
        : thread_([this, &lock] {
              const std::scoped_lock locked(lock);
              held_.count_down();
              release_.wait();
          }) {
        held_.wait();
    }
    HolderThread(const HolderThread&) = delete;
    HolderThread& operator=(const HolderThread&) = delete;
    ~HolderThread() {
        release_.count_down();
        thread_.join();
    }

private:
    std::latch held_{1};
    std::latch release_{1};
    std::thread thread_;
};

bool otherThreadGets(RecursiveLock& lock) {
    bool gotIt = false;
    std::thread([&] {
        gotIt = lock.try_lock();
        if (gotIt) {
            lock.unlock();
        }
    }).join();
    return gotIt;
}

TEST(RecursiveLock, IsFreeForOthersOnlyWhenEveryLockIsGivenBack) {
    RecursiveLock lock;
    EXPECT_TRUE(otherThreadGets(lock));
    lock.lock();
    EXPECT_TRUE(lock.try_lock());
    lock.lock();
    EXPECT_TRUE(lock.isHeldByThisThread());
    lock.unlock();
    EXPECT_FALSE(otherThreadGets(lock));
    lock.unlock();
    EXPECT_FALSE(otherThreadGets(lock));
    lock.unlock();
    EXPECT_FALSE(lock.isHeldByThisThread());
    EXPECT_TRUE(otherThreadGets(lock));
}

TEST(RecursiveLock, ExcludesOtherThreads) {
    RecursiveLock lock;
    long counter = 0;
    const auto countUp = [&] {
        for (int i = 0; i < 20000; ++i) {
            const std::scoped_lock outer(lock);
            ++counter;
            const std::scoped_lock inner(lock);
            ++counter;
        }
    };
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back(countUp);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 4 * 20000 * 2);
}

TEST(RecursiveLock, IsNotTakenWhileAnotherThreadHoldsIt) {
    RecursiveLock lock;
    const HolderThread holder(lock);
    EXPECT_FALSE(lock.try_lock());
    EXPECT_FALSE(lock.isHeldByThisThread());
}

TEST(RecursiveLock, IsFreeInAChildThoughAnotherThreadHeldItAtTheFork) {
    RecursiveLock lock;
    const HolderThread holder(lock);
    EXPECT_EQ(resultOfForkedChild([&] {
                  lock.lock();
                  lock.lock();
                  lock.unlock();
                  lock.unlock();
                  return lock.isHeldByThisThread() ? 1 : 0;
              }),
              0);
    EXPECT_FALSE(lock.try_lock()) << "the parent's lock must stay as it is";
}

TEST(RecursiveLock, StaysHeldInAChildByTheThreadThatForks) {
    RecursiveLock lock;
    lock.lock();
    lock.lock();
    EXPECT_EQ(resultOfForkedChild([&] {
                  if (!lock.isHeldByThisThread()) {
                      return 1;
                  }
                  lock.unlock();
                  if (!lock.isHeldByThisThread()) {
                      return 2;
                  }
                  lock.unlock();
                  // Taken and given back once more as a free one.
                  lock.lock();
                  lock.unlock();
                  return lock.isHeldByThisThread() ? 3 : 0;
              }),
              0);
    lock.unlock();
    lock.unlock();
}

#if !defined(__SANITIZE_THREAD__)  // which cannot start threads in a child of several threads
TEST(RecursiveLock, ExcludesTheThreadsOfAChildFromWhatTheForkingThreadHolds) {
    RecursiveLock lock;
    lock.lock();
    EXPECT_EQ(resultOfForkedChild([&] {
                  if (otherThreadGets(lock)) {
                      return 1;
                  }
                  lock.unlock();
                  return otherThreadGets(lock) ? 0 : 2;
              }),
              0);
    lock.unlock();
}
#endif

TEST(RecursiveLock, MayBeDestroyedBeforeAFork) {
    auto lock = std::make_unique<RecursiveLock>();
    lock.reset();
    EXPECT_EQ(resultOfForkedChild([] { return 0; }), 0);
}

RecursiveLock staticLock;

struct UserOfStaticLock {
    ~UserOfStaticLock() {
        const std::scoped_lock locked(staticLock);
        if (staticLock.isHeldByThisThread()) {
            ::_exit(7);
        }
    }
};

TEST(RecursiveLock, IsUsableInDestructorsOfStaticObjects) {
    EXPECT_EXIT(
        {
            static const UserOfStaticLock user;
            std::exit(0);
        },
        testing::ExitedWithCode(7), "");
}

}  // namespace
}  // namespace velora
