#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <syslog.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AppleSystemLogDestination.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/RecordingDestination.h"
#include "support/SyslogDaemon.h"

namespace velora::test {
namespace {

using testing::ElementsAre;

class AppleSystemLogDestinationTest : public testing::Test {
protected:
    void SetUp() override {
        if (const auto reason = daemon_.start()) {
            GTEST_SKIP() << *reason;
        }
        // The C library keeps the connection to the daemon of the test before.
        ::closelog();
        logger_.log->add(destination_);
    }

    SyslogDaemon daemon_;
    const RecordedLogger<> logger_;
    XCGLogger& log_ = *logger_.log;
    std::shared_ptr<AppleSystemLogDestination> destination_ = make<AppleSystemLogDestination>(nullptr, "system");
};

TEST_F(AppleSystemLogDestinationTest, SendsLinesUnchanged) {
    hideColumns(*destination_);
    const std::string longMessage(20'000, 'x');
    const std::vector<std::string> messages{"hello",        "100 % sure", "%",          "%n%n%n",   "%s%s %d %m %@ {}",
                                            "grüße 日本語", "",           "two\nlines", longMessage};
    std::vector<std::string> expected;
    for (const std::string& message : messages) {
        log_.info(message);
        expected.push_back("> " + message);
    }
    EXPECT_EQ(daemon_.waitForEntries(messages.size()), expected);
}

TEST_F(AppleSystemLogDestinationTest, SendsItsColumnsWithoutTheDate) {
    destination_->setShowDate(true);
    destination_->setShowLogIdentifier(true);
    destination_->setShowThreadName(true);
    log_.warning("hello", SourceLocation("doWork", "/src/main.cpp", 12));
    log_._logln("internal", Level::info);
    EXPECT_THAT(daemon_.waitForEntries(2),
                ElementsAre("[Warning] [test] [main] [main.cpp:12] doWork > hello", "[Info] [test] > internal"));
}

TEST_F(AppleSystemLogDestinationTest, SendsOnItsQueueInOrder) {
    hideColumns(*destination_);
    const auto queue = DispatchQueue::make("system log");
    destination_->setLogQueue(queue);
    std::vector<std::string> expected;
    for (int i = 0; i < 100; ++i) {
        log_.info("%d {}", i);
        expected.push_back("> %d " + std::to_string(i));
    }
    queue->drain();
    EXPECT_EQ(daemon_.waitForEntries(expected.size()), expected);
}

TEST_F(AppleSystemLogDestinationTest, SendsNothingThatAFilterExcludes) {
    hideColumns(*destination_);
    destination_->setFilters(
        {{filter([](LogDetails& logDetails, std::string& /*message*/) { return logDetails.message == "secret"; })}});
    log_.info("secret");
    log_.info("open");
    EXPECT_THAT(daemon_.waitForEntries(1), ElementsAre("> open"));
}

TEST(AppleSystemLogDestination, NeverShowsTheDate) {
    const auto destination = make<AppleSystemLogDestination>(nullptr, "system");
    EXPECT_FALSE(destination->showDate());
    destination->setShowDate(true);
    EXPECT_FALSE(destination->showDate());
    EXPECT_EQ(destination->debugDescription(),
              "AppleSystemLogDestination: system - Level: Debug showLogIdentifier: false showFunctionName: true "
              "showThreadName: false showLevel: true showFileName: true showLineNumber: true showDate: false");
    class Own : public AppleSystemLogDestination {
    public:
        using AppleSystemLogDestination::AppleSystemLogDestination;
    };
    EXPECT_EQ(make<Own>(nullptr, "system")->debugDescription(),
              "Own: system - Level: Debug showLogIdentifier: false showFunctionName: true "
              "showThreadName: false showLevel: true showFileName: true showLineNumber: true showDate: false");
}

}  // namespace
}  // namespace velora::test
