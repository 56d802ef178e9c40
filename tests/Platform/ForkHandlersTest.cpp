#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>

#include <Velora_UserDefaults/Platform/ForkHandlers.h>

#include "support/ForkedChild.h"

namespace velora {
namespace {

using test::resultOfForkedChild;

void append(void* context, const char* text) {
    *static_cast<std::string*>(context) += text;
}

TEST(ForkGeneration, GrowsByOneInEachChildAndStaysInTheParent) {
    const auto before = forkGeneration();
    EXPECT_EQ(resultOfForkedChild([before] { return static_cast<int>(forkGeneration() - before); }), 1);
    const auto inGrandchild = [before] {
        return resultOfForkedChild([before] { return static_cast<int>(forkGeneration() - before); });
    };
    EXPECT_EQ(resultOfForkedChild(inGrandchild), 2);
    EXPECT_EQ(forkGeneration(), before);
}

TEST(ForkChildHandler, RunsInTheChildOnly) {
    std::string calls;
    const ForkChildHandler handler([](void* context) { append(context, "child "); }, &calls);
    EXPECT_EQ(resultOfForkedChild([&] { return calls == "child " ? 0 : 1; }), 0);
    EXPECT_EQ(calls, "");
}

TEST(ForkChildHandler, SeesTheChildsGeneration) {
    std::uint64_t seen = 0;
    const ForkChildHandler handler([](void* context) { *static_cast<std::uint64_t*>(context) = forkGeneration(); },
                                   &seen);
    const auto before = forkGeneration();
    EXPECT_EQ(resultOfForkedChild([&] { return static_cast<int>(seen - before); }), 1);
}

TEST(ForkChildHandler, RunsNoMoreOnceItIsDestroyed) {
    std::string calls;
    auto first = std::make_unique<ForkChildHandler>([](void* context) { append(context, "1 "); }, &calls);
    auto second = std::make_unique<ForkChildHandler>([](void* context) { append(context, "2 "); }, &calls);
    auto third = std::make_unique<ForkChildHandler>([](void* context) { append(context, "3 "); }, &calls);
    EXPECT_EQ(resultOfForkedChild([&] { return calls == "1 2 3 " ? 0 : 1; }), 0);
    second.reset();
    EXPECT_EQ(resultOfForkedChild([&] { return calls == "1 3 " ? 0 : 1; }), 0);
    first.reset();
    EXPECT_EQ(resultOfForkedChild([&] { return calls == "3 " ? 0 : 1; }), 0);
    third.reset();
    const ForkChildHandler last([](void* context) { append(context, "4 "); }, &calls);
    EXPECT_EQ(resultOfForkedChild([&] { return calls == "4 " ? 0 : 1; }), 0);
}

TEST(ForkChildHandler, MayBeMadeInAChildForChildrenOfThat) {
    std::string calls;
    const auto inChild = [&] {
        const ForkChildHandler handler([](void* context) { append(context, "x"); }, &calls);
        return resultOfForkedChild([&] { return calls == "x" ? 0 : 1; });
    };
    EXPECT_EQ(resultOfForkedChild(inChild), 0);
}

TEST(ForkHandler, RunsBackwardsBeforeTheForkAndForwardsAfterIt) {
    std::string calls;
    const ForkHandler first({.beforeFork = [](void* context) { append(context, "before1 "); },
                             .inParent = [](void* context) { append(context, "parent1 "); },
                             .inChild = [](void* context) { append(context, "child1 "); }},
                            &calls);
    const ForkHandler second({.beforeFork = [](void* context) { append(context, "before2 "); },
                              .inParent = [](void* context) { append(context, "parent2 "); },
                              .inChild = [](void* context) { append(context, "child2 "); }},
                             &calls);
    EXPECT_EQ(resultOfForkedChild([&] { return calls == "before2 before1 child1 child2 " ? 0 : 1; }), 0);
    EXPECT_EQ(calls, "before2 before1 parent1 parent2 ");
}

TEST(ForkHandler, MayComeAndGoOnOtherThreadsWhileAProcessForks) {
    std::atomic<bool> done = false;
    const auto churn = [&done] {
        while (!done) {
            const ForkChildHandler one([](void*) {}, nullptr);
            const ForkChildHandler two([](void*) {}, nullptr);
        }
    };
    std::thread first(churn);
    std::thread second(churn);
    for (int i = 0; i < 50; ++i) {
        // The child would wait for ever if it inherited the list's lock taken.
        EXPECT_EQ(resultOfForkedChild([] {
                      const ForkChildHandler mine([](void*) {}, nullptr);
                      return 0;
                  }),
                  0);
    }
    done = true;
    first.join();
    second.join();
}

}  // namespace
}  // namespace velora
