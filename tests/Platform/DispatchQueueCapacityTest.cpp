// What happens when a queue is full.

#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <latch>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>

#include "Platform/DispatchQueueTestSupport.h"

namespace velora::test {
namespace {

using std::chrono::milliseconds;

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

}  // namespace
}  // namespace velora::test
