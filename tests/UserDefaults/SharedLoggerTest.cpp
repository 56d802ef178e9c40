#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/UserDefaults/SharedLogger.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {
namespace {

/// The place, which is empty before and after.
class SharedLoggerTest : public testing::Test {
protected:
    SharedLoggerTest() { place.store(nullptr); }
    ~SharedLoggerTest() override { place.store(nullptr); }

    SharedLogger place;
};

TEST_F(SharedLoggerTest, CanBeAskedLikeAPointer) {
    EXPECT_FALSE(place);
    EXPECT_TRUE(place == nullptr);
    EXPECT_TRUE(nullptr == place);
    EXPECT_FALSE(place != nullptr);
    const auto log = make<XCGLogger>("place", false);
    place = log;
    bool isThere = false;
    if (place) {
        isThere = true;
    }
    EXPECT_TRUE(isThere);
    EXPECT_TRUE(place != nullptr);
    EXPECT_TRUE(place == log);
    EXPECT_EQ(place->identifier(), "place");
    const std::shared_ptr<XCGLogger> read = place;
    EXPECT_EQ(read, log);
    place = nullptr;
    EXPECT_TRUE(place == nullptr);
}

TEST_F(SharedLoggerTest, KeepsWhatAnExpressionUsesThoughItIsClearedMeanwhile) {
    place = make<XCGLogger>("first", false);
    std::weak_ptr<XCGLogger> first = place.load();
    const auto clear = [this] {
        place = nullptr;
        return std::string("first");
    };
    // The left side is read first, then the place is cleared, then the logger is used.
    EXPECT_EQ(place->identifier().compare(clear()), 0);
    EXPECT_TRUE(first.expired());
}

TEST_F(SharedLoggerTest, MayBeUsedWhileOthersReplaceIt) {
    place = make<XCGLogger>("one", false);
    std::atomic<bool> stop{false};
    std::vector<std::jthread> threads;
    threads.reserve(2);
    for (int reader = 0; reader < 2; ++reader) {
        threads.emplace_back([&] {
            while (!stop) {
                EXPECT_EQ(place->identifier().size(), 3U);
            }
        });
    }
    for (int round = 0; round < 500; ++round) {
        place = make<XCGLogger>(round % 2 == 0 ? "two" : "one", false);
    }
    stop = true;
}

}  // namespace
}  // namespace velora::test
