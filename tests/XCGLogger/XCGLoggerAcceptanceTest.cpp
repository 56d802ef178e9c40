// Which calls a logger ends before it is asked to log, and which it must not.

#include <algorithm>
#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/Destinations/ConsoleDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "support/RecordingDestination.h"

namespace velora::test {
namespace {

using ::testing::ElementsAre;

/// The levels at which a logger may have something to do.
std::vector<Level> mayAccept(const XCGLogger& log) {
    std::vector<Level> levels;
    for (const Level level : Levels::all) {
        if (log.mayAccept(level)) {
            levels.push_back(level);
        }
    }
    return levels;
}

TEST(Acceptance, FollowsTheLowestThreshold) {
    EXPECT_THAT(mayAccept(*make<XCGLogger>("no destinations", false)), ElementsAre());
    const RecordedLogger<> recorded;
    recorded.recording->setOutputLevel(Level::alert);
    EXPECT_THAT(mayAccept(*recorded.log), ElementsAre(Level::alert, Level::emergency));
    const auto second = recorded.addRecording("second");
    EXPECT_EQ(mayAccept(*recorded.log).size(), Levels::all.size());
    second->setOutputLevel(Level::emergency);
    EXPECT_THAT(mayAccept(*recorded.log), ElementsAre(Level::alert, Level::emergency));
    recorded.log->remove("recording");
    EXPECT_THAT(mayAccept(*recorded.log), ElementsAre(Level::emergency));
    recorded.log->setOutputLevel(Level::severe);
    EXPECT_THAT(mayAccept(*recorded.log), ElementsAre(Level::severe, Level::alert, Level::emergency));
    second->setOutputLevel(Level::none);
    EXPECT_THAT(mayAccept(*recorded.log), ElementsAre());
    EXPECT_TRUE(recorded.log->mayAccept(Level::none));
}

TEST(Acceptance, FollowsADestinationToItsNewLogger) {
    const RecordedLogger<> first;
    const RecordedLogger<> second;
    second.recording->setOutputLevel(Level::none);
    const auto moved = first.addRecording("moved");
    second.log->add(moved);
    first.recording->setOutputLevel(Level::none);
    EXPECT_THAT(mayAccept(*first.log), ElementsAre());
    EXPECT_EQ(mayAccept(*second.log).size(), Levels::all.size());
    moved->setOutputLevel(Level::emergency);
    EXPECT_THAT(mayAccept(*first.log), ElementsAre());
    EXPECT_THAT(mayAccept(*second.log), ElementsAre(Level::emergency));
    second.log->remove(moved);
    moved->setOutputLevel(Level::verbose);
    EXPECT_THAT(mayAccept(*second.log), ElementsAre());
}

class WillfulDestination : public RecordingDestination {
public:
    using RecordingDestination::RecordingDestination;
    bool isEnabledFor(Level level) const override { return level == Level::verbose; }
};

class CustomLevelDestination : public RecordingDestination {
public:
    using RecordingDestination::RecordingDestination;
    Level outputLevel() const override { return ownLevel; }
    Level ownLevel = Level::none;
};

class SecretlyWillfulDestination : public RecordingDestination {
public:
    using RecordingDestination::RecordingDestination;

private:
    bool isEnabledFor(Level level) const override { return level == Level::verbose; }
};

class GrandchildDestination final : public WillfulDestination {
public:
    using WillfulDestination::WillfulDestination;
};

template <typename Destination>
class AcceptanceByOverride : public testing::Test {};
using Overriding = testing::Types<WillfulDestination, GrandchildDestination, SecretlyWillfulDestination>;
TYPED_TEST_SUITE(AcceptanceByOverride, Overriding);

TYPED_TEST(AcceptanceByOverride, IsAskedForEachCall) {
    const RecordedLogger<> recorded;
    recorded.recording->setOutputLevel(Level::none);
    const auto asked = recorded.addRecording<TypeParam>("asked");
    asked->setOutputLevel(Level::none);
    recorded.log->verbose("text");
    recorded.log->verbose("number {}", 1);
    recorded.log->info("not this");
    EXPECT_THAT(asked->lines(), ElementsAre("> text", "> number 1"));
}

TEST(Acceptance, AsksADestinationWithACustomThreshold) {
    const RecordedLogger<> recorded;
    recorded.recording->setOutputLevel(Level::none);
    const auto own = recorded.addRecording<CustomLevelDestination>("own");
    recorded.log->info("too low");
    own->ownLevel = Level::info;
    recorded.log->info("high enough");
    own->ownLevel = Level::none;
    recorded.log->info("too low again");
    EXPECT_THAT(own->lines(), ElementsAre("> high enough"));
}

/// Says that it belongs to nobody, so that two loggers may have it at once.
class SharedDestination : public RecordingDestination {
public:
    using RecordingDestination::RecordingDestination;
    const std::shared_ptr<XCGLogger>& owner() const override {
        return calls_++ < 2 ? nobody_ : RecordingDestination::owner();
    }

private:
    mutable int calls_ = 0;
    std::shared_ptr<XCGLogger> nobody_;
};

TEST(Acceptance, FollowsADestinationThatTwoLoggersHave) {
    const auto shared = make<SharedDestination>(nullptr, "shared");
    hideColumns(*shared);
    shared->setOutputLevel(Level::none);
    const RecordedLogger<> first;
    first.recording->setOutputLevel(Level::none);
    const RecordedLogger<> second;
    second.recording->setOutputLevel(Level::none);
    first.log->add(shared);
    second.log->add(shared);
    shared->setOutputLevel(Level::info);
    first.log->info("from the first");
    second.log->info("from the second");
    EXPECT_THAT(shared->lines(), ElementsAre("> from the first", "> from the second"));
}

TEST(Acceptance, LetsADestinationOutliveItsLogger) {
    const auto shared = make<SharedDestination>(nullptr, "shared");
    {
        const auto log = make<XCGLogger>("log", false);
        log->add(shared);
        shared->setOwner(nullptr);
    }
    shared->setOutputLevel(Level::info);
    EXPECT_EQ(shared->outputLevel(), Level::info);
}

TEST(Acceptance, FollowsThresholdsThatSeveralThreadsSetAtOnce) {
    constexpr int rounds = 50'000;
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    const auto firstLevel = [](int round) { return round % 2 == 0 ? Level::error : Level::debug; };
    const auto secondLevel = [](int round) { return round % 3 == 0 ? Level::info : Level::none; };
    std::atomic<int> begun = -1;
    std::atomic<int> done = -1;
    std::thread other([&] {
        for (int round = 0; round < rounds; ++round) {
            while (begun < round) {
                std::this_thread::yield();
            }
            second->setOutputLevel(secondLevel(round));
            done = round;
        }
    });
    int wrong = 0;
    for (int round = 0; round < rounds; ++round) {
        begun = round;
        recorded.recording->setOutputLevel(firstLevel(round));
        while (done < round) {
            std::this_thread::yield();
        }
        const Level lowest = std::min(firstLevel(round), secondLevel(round));
        const bool isRight =
            recorded.log->mayAccept(lowest) && !recorded.log->mayAccept(static_cast<Level>(rawValue(lowest) - 1));
        wrong += isRight ? 0 : 1;
    }
    other.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace velora::test
