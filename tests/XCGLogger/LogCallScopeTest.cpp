#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <support/RecordingDestination.h>
#include <thread>

#include <Velora_UserDefaults/XCGLogger/LogCallScope.h>

namespace velora::test {
namespace {

TEST(LogCallScope, KeepsADestinationUntilTheCallEnds) {
    auto destination = make<RecordingDestination>(nullptr, "kept");
    const std::weak_ptr<RecordingDestination> watched = destination;
    {
        const LogCallScope scope;
        LogCallScope::keepUntilCallEnds(destination);
        destination.reset();
        EXPECT_FALSE(watched.expired());
    }
    EXPECT_TRUE(watched.expired());
}

TEST(LogCallScope, KeepsADestinationUntilTheOutermostCallEnds) {
    auto destination = make<RecordingDestination>(nullptr, "kept");
    const std::weak_ptr<RecordingDestination> watched = destination;
    {
        const LogCallScope outer;
        {
            const LogCallScope inner;
            LogCallScope::keepUntilCallEnds(destination);
            destination.reset();
        }
        EXPECT_FALSE(watched.expired());
    }
    EXPECT_TRUE(watched.expired());
}

TEST(LogCallScope, KeepsNothingOutsideOfACall) {
    const auto destination = make<RecordingDestination>(nullptr, "free");
    LogCallScope::keepUntilCallEnds(destination);
    EXPECT_EQ(destination.use_count(), 1);
}

TEST(LogCallScope, IsAThreadsOwn) {
    const LogCallScope scope;
    const auto destination = make<RecordingDestination>(nullptr, "free");
    std::thread([&] { LogCallScope::keepUntilCallEnds(destination); }).join();
    EXPECT_EQ(destination.use_count(), 1);
}

class LogsWhenItGoes : public RecordingDestination {
public:
    using RecordingDestination::RecordingDestination;
    ~LogsWhenItGoes() override {
        if (log) {
            log->info("going");
        }
    }
    std::shared_ptr<XCGLogger> log;
};

TEST(LogCallScope, LetsADestinationLogWhileItIsDestroyed) {
    const RecordedLogger<> last;
    auto destination = make<LogsWhenItGoes>(nullptr, "going");
    destination->log = last.log;
    {
        const LogCallScope scope;
        LogCallScope::keepUntilCallEnds(destination);
        destination.reset();
        EXPECT_EQ(last.recording->lines().size(), 0U);
    }
    EXPECT_EQ(last.recording->lines(), std::vector<std::string>{"> going"});
}

}  // namespace
}  // namespace velora::test
