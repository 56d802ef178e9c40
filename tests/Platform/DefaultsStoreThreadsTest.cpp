// Everything that threads may do to one store at once; what ThreadSanitizer is to watch.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

#include "DefaultsStoreTestSupport.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

TEST(DefaultsStoreThreads, MayDoEverythingAtOnce) {
    const TemporaryFolder folder;
    DefaultsStore store(folder / "UserDefaults.json");
    std::atomic<bool> stop{false};
    const auto repeat = [&stop](auto action) {
        return std::jthread([&stop, action]() mutable {
            for (std::int64_t round = 1; !stop; ++round) {
                action(round);
            }
        });
    };
    std::vector<std::jthread> threads;
    threads.reserve(10);
    for (int reader = 0; reader < 3; ++reader) {
        threads.push_back(repeat([&store, seen = std::int64_t{0}](std::int64_t) mutable {
            const std::int64_t number = store.integer("number");
            EXPECT_GE(number, seen);
            seen = number;
            const auto text = store.string("text");
            EXPECT_TRUE(!text || text->size() == 100);
            store.boolean("registered");
            store.url("url");
        }));
    }
    threads.push_back(repeat([&store](std::int64_t round) { store.setInteger("number", round); }));
    threads.push_back(repeat([&store](std::int64_t round) {
        store.setString("text", std::string(100, static_cast<char>('a' + round % 26)));
        store.setURL("url", URL::fileURL("/tmp/" + std::to_string(round)));
    }));
    threads.push_back(repeat([&store](std::int64_t round) { store.registerDefault("registered", round % 2 == 0); }));
    threads.push_back(repeat([&store](std::int64_t) { store.setReportHandler([](const std::string&) {}); }));
    threads.push_back(repeat([&store](std::int64_t) { store.setInteger("\xff", 1); }));
    threads.push_back(
        repeat([&store](std::int64_t) { store.waitForChange(store.generation(), std::chrono::milliseconds(5)); }));
    threads.push_back(repeat([&store](std::int64_t) { store.allValues(); }));
    // Threads that come and go take their part of the store with them.
    for (int brief = 0; brief < 200; ++brief) {
        std::jthread([&store] { store.integer("number"); }).join();
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    stop = true;
}

TEST(DefaultsStoreThreads, ReadsWhileTheThreadEnds) {
    const TemporaryFolder folder;
    static DefaultsStore* shared = nullptr;
    DefaultsStore store(folder / "UserDefaults.json");
    shared = &store;
    store.setInteger("number", 5);
    static std::atomic<std::int64_t> readAtEnd{0};
    struct ReadsAtEnd {
        ~ReadsAtEnd() { readAtEnd = shared->integer("number"); }
    };
    std::jthread([] {
        // Made before the store's own object of this thread, so destroyed after it.
        static thread_local ReadsAtEnd object;
        [[maybe_unused]] const ReadsAtEnd* made = &object;
        shared->integer("number");
    }).join();
    EXPECT_EQ(readAtEnd, 5);
}

TEST(DefaultsStoreThreads, ReadSnapshotsOfStoresThatAreGone) {
    const TemporaryFolder folder;
    for (int round = 0; round < 50; ++round) {
        DefaultsStore store(folder / "UserDefaults.json");
        ASSERT_TRUE(store.setInteger("number", round));
        ASSERT_EQ(store.integer("number"), round);
    }
}

}  // namespace
}  // namespace velora::test
