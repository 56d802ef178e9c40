// What keeps a destination alive until its lines are written, whatever it left meanwhile.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseQueuedDestination.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/RecordingDestination.h"

namespace velora::test {
namespace {

using testing::ElementsAre;

/// Tells what it wrote when it is gone, too.
class Telling : public BaseQueuedDestination {
public:
    using BaseQueuedDestination::BaseQueuedDestination;
    void write(std::string_view message) override { written.emplace_back(message); }

    static inline std::vector<std::string> written;
};

class BaseQueuedDestinationLifetimeTest : public testing::Test {
protected:
    BaseQueuedDestinationLifetimeTest() {
        Telling::written.clear();
        hideColumns(*telling_);
        telling_->setLogQueue(queue_);
    }

    void expectAllWritten() {
        queue_->drain();
        EXPECT_THAT(Telling::written, ElementsAre("> one", "> two", "> three"));
        queue_->drain();
        EXPECT_TRUE(weak_.expired());
    }
    void logThreeLines(XCGLogger& logger) {
        for (const char* const text : {"one", "two", "three"}) {
            logger.info(text);
        }
    }

    const RecordedLogger<> logger_{"app"};
    XCGLogger& log_ = *logger_.log;
    std::shared_ptr<DispatchQueue> queue_ = DispatchQueue::make("test queue");
    std::shared_ptr<Telling> telling_ = make<Telling>(logger_.log, "telling");
    const std::weak_ptr<Telling> weak_ = telling_;
};

TEST_F(BaseQueuedDestinationLifetimeTest, LivesUntilItsLastLineIsWritten) {
    {
        const Gate gate(*queue_);
        for (const char* const text : {"one", "two", "three"}) {
            LogDetails record = aRecord(text);
            telling_->process(record);
        }
        telling_.reset();
        EXPECT_FALSE(weak_.expired());
        EXPECT_THAT(Telling::written, ElementsAre());
    }
    expectAllWritten();
}

TEST_F(BaseQueuedDestinationLifetimeTest, OutlivesItsRemovalByWorkOfItsOwnQueue) {
    log_.add(telling_);
    queue_->sync([&] {
        logThreeLines(log_);
        log_.remove(telling_);
        telling_.reset();
        EXPECT_FALSE(weak_.expired());
        EXPECT_THAT(Telling::written, ElementsAre());
    });
    expectAllWritten();
}

TEST_F(BaseQueuedDestinationLifetimeTest, OutlivesItsLogger) {
    std::shared_ptr<XCGLogger> logger = make<XCGLogger>("other", false);
    logger->add(telling_);
    queue_->sync([&] {
        logThreeLines(*logger);
        telling_->setOwner(nullptr);
        telling_.reset();
        EXPECT_EQ(logger.use_count(), 1);
        logger.reset();
        EXPECT_FALSE(weak_.expired());
        EXPECT_THAT(Telling::written, ElementsAre());
    });
    expectAllWritten();
}

TEST_F(BaseQueuedDestinationLifetimeTest, GoesWithItsLoggerIfNoLineIsLeft) {
    std::shared_ptr<XCGLogger> logger = make<XCGLogger>("other", false);
    logger->add(telling_);
    logThreeLines(*logger);
    queue_->drain();
    const Gate gate(*queue_);
    // As the queue sees it, this waits for nothing.
    queue_->async([] {});
    telling_->setLogQueue(nullptr);
    telling_->setOwner(nullptr);
    telling_.reset();
    logger.reset();
    EXPECT_TRUE(weak_.expired());
}

TEST_F(BaseQueuedDestinationLifetimeTest, OutlivesItsChangeToAnotherQueue) {
    const auto other = DispatchQueue::make("other");
    log_.add(telling_);
    {
        const Gate gate(*queue_);
        logThreeLines(log_);
        telling_->setLogQueue(other);
        log_.remove(telling_);
        telling_.reset();
        EXPECT_FALSE(weak_.expired());
    }
    other->drain();  // it does not know whose lines are not finished
    expectAllWritten();
}

}  // namespace
}  // namespace velora::test
