#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>

#include <Velora_UserDefaults/XCGLogger/Destinations/BaseDestination.h>

#include "XCGLogger/Destinations/BaseDestinationTestSupport.h"
#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/RecordingDestination.h"

namespace velora::test {
namespace {

using testing::ElementsAre;

TEST_F(BaseDestinationTest, BeginsWithItsDefaults) {
    const auto destination = make<RecordingDestination>(nullptr, "it");
    EXPECT_EQ(destination->owner(), nullptr);
    EXPECT_EQ(destination->identifier(), "it");
    EXPECT_EQ(destination->outputLevel(), Level::debug);
    EXPECT_FALSE(destination->haveLoggedAppDetails());
    EXPECT_EQ(destination->formatters(), std::nullopt);
    EXPECT_EQ(destination->filters(), std::nullopt);
    EXPECT_FALSE(destination->showLogIdentifier());
    EXPECT_TRUE(destination->showFunctionName());
    EXPECT_FALSE(destination->showThreadName());
    EXPECT_TRUE(destination->showFileName());
    EXPECT_TRUE(destination->showLineNumber());
    EXPECT_TRUE(destination->showLevel());
    EXPECT_TRUE(destination->showDate());
    EXPECT_TRUE(destination->levelDescriptions().empty());
}

TEST_F(BaseDestinationTest, KeepsTheOwnerItWasMadeWith) {
    const auto destination = make<RecordingDestination>(log_, "");
    EXPECT_EQ(destination->owner(), log_);
    EXPECT_EQ(destination->identifier(), "");
    EXPECT_EQ(log_->destination(""), nullptr) << "an owner does not register it";
    LogDetails record = aRecord();
    destination->process(record);
    EXPECT_THAT(destination->lines(), ElementsAre("2024-01-02 03:04:05.678 [Debug] [Main.ext:42] doWork() > hello"));
}

TEST_F(BaseDestinationTest, DropsEverythingWithoutAnOwner) {
    log_->remove(destination_);
    LogDetails record = aRecord();
    destination_->process(record);
    destination_->processInternal(record);
    EXPECT_THAT(destination_->lines(), ElementsAre());
}

TEST_F(BaseDestinationTest, IsEnabledForTheLevelsFromItsOwnOn) {
    for (const Level threshold : Levels::allCases) {
        destination_->setOutputLevel(threshold);
        for (const Level level : Levels::allCases) {
            EXPECT_EQ(destination_->isEnabledFor(level), threshold <= level) << threshold << " " << level;
        }
    }
}

TEST_F(BaseDestinationTest, IsEnabledForNoneOnlyAtNoneAndThenReceivesNothing) {
    destination_->setOutputLevel(Level::none);
    EXPECT_TRUE(destination_->isEnabledFor(Level::none));
    EXPECT_FALSE(destination_->isEnabledFor(Level::emergency));
    log_->emergency("lost");
    log_->_logln("lost", Level::emergency);
    log_->logAppDetails();
    EXPECT_THAT(destination_->lines(), ElementsAre());
    EXPECT_FALSE(destination_->haveLoggedAppDetails());
    destination_->setOutputLevel(Level::emergency);
    EXPECT_TRUE(destination_->isEnabledFor(Level::none)) << "none is the highest level";
}

TEST_F(BaseDestinationTest, DescribesItself) {
    EXPECT_EQ(destination_->debugDescription(),
              "RecordingDestination: recording - Level: Debug showLogIdentifier: false showFunctionName: true "
              "showThreadName: false showLevel: true showFileName: true showLineNumber: true showDate: true");
    destination_->setOutputLevel(Level::none);
    destination_->setIdentifier("");
    showColumns(4 | 8 | 16);
    EXPECT_EQ(destination_->debugDescription(),
              "RecordingDestination:  - Level: None showLogIdentifier: true showFunctionName: false "
              "showThreadName: true showLevel: false showFileName: true showLineNumber: false showDate: false");
}

/// Answers for every property by an override, none of which is what is stored.
class OverridingDestination : public RecordingDestination {
public:
    using RecordingDestination::RecordingDestination;
    bool showLogIdentifier() const override { return true; }
    bool showFunctionName() const override { return false; }
    bool showThreadName() const override { return true; }
    bool showFileName() const override { return false; }
    bool showLineNumber() const override { return true; }
    bool showLevel() const override { return true; }
    bool showDate() const override { return false; }
    const LevelTexts& levelDescriptions() const override {
        static const LevelTexts texts{{Level::debug, "overridden"}};
        return texts;
    }
    Level outputLevel() const override { return Level::verbose; }
    const Formatters& formatters() const override {
        static const Formatters list{{appending(" formatted")}};
        return list;
    }
    const Filters& filters() const override {
        static const Filters list{
            {filter([](LogDetails& /*logDetails*/, std::string& message) { return message.ends_with("filtered"); })}};
        return list;
    }
    const std::string& identifier() const override {
        static const std::string name = "overridden identifier";
        return name;
    }
};

TEST_F(BaseDestinationTest, AsksOverridesForEveryProperty) {
    const auto destination = make<OverridingDestination>(nullptr, "stored");
    ASSERT_TRUE(log_->add(destination));
    EXPECT_EQ(log_->destination("overridden identifier"), destination);
    LogDetails record = aRecord();
    destination->process(record);
    EXPECT_THAT(destination->lines(), ElementsAre("[overridden] [app] [main] [42] > hello formatted"));
    destination->clear();
    LogDetails internal = aRecord();
    destination->processInternal(internal);
    EXPECT_THAT(destination->lines(), ElementsAre("[Debug] [app] > hello formatted"));
    destination->clear();
    LogDetails filtered = aRecord("to be filtered");
    destination->process(filtered);
    EXPECT_THAT(destination->lines(), ElementsAre());
    EXPECT_TRUE(destination->isEnabledFor(Level::verbose));
    EXPECT_EQ(destination->debugDescription(),
              "OverridingDestination: overridden identifier - Level: Verbose showLogIdentifier: true showFunctionName: "
              "false showThreadName: true showLevel: true showFileName: false showLineNumber: true showDate: false");
}

TEST_F(BaseDestinationTest, LetsOverridesDecideWhatIsEnabledAndHowLinesAreMade) {
    class OwnWay : public RecordingDestination {
    public:
        using RecordingDestination::RecordingDestination;
        bool isEnabledFor(Level level) const override { return level == Level::verbose; }
        void process(LogDetails& logDetails) override {
            std::string line = "own: " + logDetails.message;
            output(logDetails, line);
        }
    };
    const RecordedLogger<> logger;
    const auto destination = logger.addRecording<OwnWay>("own");
    destination->setOutputLevel(Level::none);
    logger.log->verbose("yes");
    logger.log->error("no");
    EXPECT_THAT(destination->lines(), ElementsAre("own: yes"));
}

TEST_F(BaseDestinationTest, WorksOnACopyOfItsOwn) {
    class Spoiling : public RecordingDestination {
    public:
        using RecordingDestination::RecordingDestination;
        void output(LogDetails& logDetails, std::string& message) override {
            RecordingDestination::output(logDetails, message);
            logDetails.message = "spoilt";
            logDetails.userInfo["spoilt"] = true;
            message.clear();
        }
    };
    const RecordedLogger<> logger;
    logger.addRecording<Spoiling>("spoiling");
    const auto after = logger.addRecording<>("after");
    logger.log->info("kept");
    EXPECT_THAT(after->lines(), ElementsAre("> kept"));
    EXPECT_EQ(after->records().at(0).message, "kept");
    EXPECT_TRUE(after->records().at(0).userInfo.empty());
}

TEST_F(BaseDestinationTest, BearsALogCallFromItsOwnOutput) {
    class Logging : public RecordingDestination {
    public:
        using RecordingDestination::RecordingDestination;
        void output(LogDetails& logDetails, std::string& message) override {
            if (logDetails.message != "inner") {
                owner()->info("inner");
            }
            RecordingDestination::output(logDetails, message);
        }
    };
    const RecordedLogger<> logger;
    const auto destination = logger.addRecording<Logging>("logging");
    logger.log->info("outer");
    EXPECT_THAT(destination->lines(), ElementsAre("> inner", "> outer"));
    EXPECT_THAT(logger.recording->lines(), ElementsAre("> outer", "> inner"));
}

TEST_F(BaseDestinationTest, KeepsTheLogCallGoingWhenItsOutputThrows) {
    class Throwing : public RecordingDestination {
    public:
        using RecordingDestination::RecordingDestination;
        void output(LogDetails& /*logDetails*/, std::string& /*message*/) override {
            throw std::runtime_error("no output");
        }
    };
    const RecordedLogger<> logger;
    const auto throwing = logger.addRecording<Throwing>("throwing");
    const auto after = logger.addRecording<>("after");
    testing::internal::CaptureStdout();
    logger.log->info("one");
    logger.log->info("two");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Objective-C Exception occurred: no output\nObjective-C Exception occurred: no output\n");
    EXPECT_THAT(after->lines(), ElementsAre("> one", "> two"));
}

TEST_F(BaseDestinationTest, TakesAMessageOfTenMegabytes) {
    hideColumns(*destination_);
    std::string message;
    message.resize(10'000'000, 'x');
    EXPECT_TRUE(line(aRecord(message)) == "> " + message);
    EXPECT_EQ(line(aRecord("short")), "> short");
}

TEST_F(BaseDestinationTest, HoldsItsOwnerUntilItIsRemoved) {
    const auto destination = make<RecordingDestination>(nullptr, "holding");
    std::weak_ptr<XCGLogger> weak;
    {
        const auto log = make<XCGLogger>("held", false);
        log->add(destination);
        weak = log;
    }
    ASSERT_FALSE(weak.expired());
    EXPECT_TRUE(destination->owner()->remove(destination));
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(destination->owner(), nullptr);
}

TEST(BaseDestinationDeathTest, StopsTheProcessWithoutAnOutputOfItsOwn) {
    class Unfinished : public BaseDestination {
    public:
        using BaseDestination::BaseDestination;
    };
    const RecordedLogger<> logger;
    const auto destination = make<Unfinished>(logger.log, "unfinished");
    LogDetails record = aRecord();
    EXPECT_DEATH(destination->process(record), "BaseDestination::output.*must be overridden by Unfinished");
    EXPECT_DEATH(destination->processInternal(record), "BaseDestination::output.*must be overridden by Unfinished");
    const auto plain = make<BaseDestination>(logger.log, "plain");
    EXPECT_DEATH(plain->process(record), "BaseDestination::output.*must be overridden by BaseDestination");
}

}  // namespace
}  // namespace velora::test
