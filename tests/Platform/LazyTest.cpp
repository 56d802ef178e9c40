#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/Lazy.h>

#include "support/ForkedChild.h"

namespace velora::test {
namespace {

TEST(Lazy, IsMadeAtItsFirstUseOnly) {
    static constinit Lazy<const std::string> lazy;
    int made = 0;
    const auto make = [&made] {
        ++made;
        return new std::string("text");
    };
    EXPECT_EQ(made, 0);
    const std::string* const first = &lazy.get(make);
    EXPECT_EQ(*first, "text");
    EXPECT_EQ(&lazy.get(make), first);
    EXPECT_EQ(made, 1);
}

TEST(Lazy, IsTheSameForAllThreadsAndTheOthersAreDeleted) {
    static std::atomic<int> alive = 0;
    struct Counted {
        Counted() { ++alive; }
        Counted(const Counted&) = delete;
        Counted& operator=(const Counted&) = delete;
        ~Counted() { --alive; }
    };
    for (int round = 0; round < 20; ++round) {
        auto& lazy = *new Lazy<Counted>;  // never destroyed, as in use
        alive = 0;
        constexpr int count = 4;
        std::atomic<int> ready = 0;
        std::vector<Counted*> found(count);
        std::vector<std::jthread> threads;
        for (auto& each : found) {
            threads.emplace_back([&] {
                ++ready;
                while (ready < count) {
                }
                each = &lazy.get([] { return new Counted; });
            });
        }
        threads.clear();
        EXPECT_EQ(found, std::vector<Counted*>(count, found[0]));
        EXPECT_EQ(alive, 1);
        delete found[0];
        delete &lazy;
    }
}

TEST(Lazy, IsMadeByAChildForkedWhileAnotherThreadMakesIt) {
    static constinit Lazy<const int> lazy;
    std::atomic<bool> isMaking = false;
    std::atomic<bool> mayGoOn = false;
    std::thread making([&] {
        lazy.get([&] {
            isMaking = true;
            while (!mayGoOn) {
                std::this_thread::yield();
            }
            return new int(1);
        });
    });
    while (!isMaking) {
        std::this_thread::yield();
    }
    EXPECT_EQ(resultOfForkedChild([] { return lazy.get([] { return new int(2); }); }), 2);
    mayGoOn = true;
    making.join();
    EXPECT_EQ(lazy.get([] { return new int(3); }), 1);
}

}  // namespace
}  // namespace velora::test
