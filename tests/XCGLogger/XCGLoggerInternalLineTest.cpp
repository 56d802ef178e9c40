// The lines that the engine logs itself, and its start-up header.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include <Velora_UserDefaults/Platform/Bundle.h>
#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/ProcessInfo.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/RecordingDestination.h"

namespace velora::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(InternalLine, HasTheRecordOfTheEngineItself) {
    const RecordedLogger<> recorded;
    const Date before = currentDate();
    recorded.log->_logln("about {} itself %n", Level::warning);
    const LogDetails record = recorded.recording->records().at(0);
    EXPECT_EQ(record.level, Level::warning);
    EXPECT_EQ(record.message, "about {} itself %n");
    EXPECT_GE(record.date, before);
    EXPECT_EQ(record.functionName, "");
    EXPECT_EQ(record.fileName, "");
    EXPECT_EQ(record.lineNumber, 0);
    ASSERT_EQ(record.userInfo.size(), 1U);
    EXPECT_TRUE(std::any_cast<bool>(record.userInfo.at(std::string(Constants::userInfoKeyInternal))));
}

TEST(InternalLine, ShowsNeitherThreadNorPlaceAndPlainLevelWords) {
    const auto log = make<XCGLogger>("name", false);
    log->setLevelDescriptions({{Level::error, "FEHLER"}});
    const auto recording = make<RecordingDestination>(nullptr, "recording");
    recording->setLevelDescriptions({{Level::error, "Oh"}});
    recording->setShowLogIdentifier(true);
    recording->setShowThreadName(true);
    log->add(recording);
    log->_logln("text", Level::error);
    const Date date = recording->records().at(0).date;
    EXPECT_THAT(recording->lines(), ElementsAre(log->dateFormatter()->string(date) + " [Error] [name] > text"));
    hideColumns(*recording);
    log->_logln("text", Level::error);
    EXPECT_EQ(recording->lines().at(1), "> text");
    removeDestinations(*log);
}

TEST(InternalLine, OfASourceReachesAllButThoseOfItsIdentifierFromErrorUp) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    const auto twin = make<RecordingDestination>(nullptr, "recording");
    for (const Level level : Levels::all) {
        recorded.recording->clear();
        second->clear();
        recorded.log->_logln("text", level, twin.get());
        EXPECT_EQ(recorded.recording->lines().size(), level < Level::error ? 1U : 0U) << level;
        EXPECT_THAT(second->lines(), ElementsAre("> text")) << level;
    }
}

TEST(InternalLine, WithoutASourceReachesAllDestinationsThatAcceptItsLevel) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    second->setOutputLevel(Level::severe);
    recorded.log->_logln("text", Level::error);
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> text"));
    EXPECT_THAT(second->lines(), IsEmpty());
}

std::string processText() {
    return "PID: " + std::to_string(processIdentifier());
}

class StartUpHeader : public testing::Test {
protected:
    ~StartUpHeader() override {
        Bundle::main().setInfo(Bundle::shortVersionKey, std::any());
        Bundle::main().setInfo(Bundle::versionKey, std::any());
    }

    RecordedLogger<> recorded_;
};

TEST_F(StartUpHeader, IsTwoLinesOfOneDate) {
    recorded_.log->logAppDetails();
    EXPECT_THAT(recorded_.recording->lines(),
                ElementsAre("> " + processName() + " " + processText(), "> XCGLogger Version: 7.0.1 - Level: Debug"));
    const std::vector<LogDetails> records = recorded_.recording->records();
    EXPECT_EQ(records[0].date, records[1].date);
    for (const LogDetails& record : records) {
        EXPECT_EQ(record.level, Level::info);
        EXPECT_EQ(record.functionName, "");
        EXPECT_EQ(record.fileName, "");
        EXPECT_EQ(record.lineNumber, 0);
        ASSERT_EQ(record.userInfo.size(), 1U);
        EXPECT_TRUE(std::any_cast<bool>(record.userInfo.at(std::string(Constants::userInfoKeyInternal))));
    }
}

TEST_F(StartUpHeader, TellsTheVersionsOfTheBundle) {
    Bundle::main().setVersion("1.2", "345");
    recorded_.log->setOutputLevel(Level::verbose);
    recorded_.log->logAppDetails();
    EXPECT_THAT(recorded_.recording->lines(),
                ElementsAre("> " + processName() + " Version: 1.2 Build: 345 " + processText(),
                            "> XCGLogger Version: 7.0.1 - Level: Verbose"));
}

TEST_F(StartUpHeader, TellsOnlyTheVersionThatIsText) {
    Bundle::main().setInfo("CFBundleVersion", std::string("345"));
    recorded_.log->logAppDetails();
    EXPECT_EQ(recorded_.recording->lines().at(0), "> " + processName() + " Build: 345 " + processText());
    Bundle::main().setInfo("CFBundleVersion", 345);
    Bundle::main().setInfo("CFBundleShortVersionString", std::string("1.2"));
    recorded_.recording->setHaveLoggedAppDetails(false);
    recorded_.log->logAppDetails();
    EXPECT_EQ(recorded_.recording->lines().at(2), "> " + processName() + " Version: 1.2 " + processText());
}

TEST_F(StartUpHeader, IsWrittenOnceUntilADestinationClearsItsFlag) {
    recorded_.log->logAppDetails();
    EXPECT_TRUE(recorded_.recording->haveLoggedAppDetails());
    recorded_.log->logAppDetails();
    EXPECT_EQ(recorded_.recording->lines().size(), 2U);
    recorded_.recording->setHaveLoggedAppDetails(false);
    recorded_.log->logAppDetails(recorded_.recording.get());
    EXPECT_EQ(recorded_.recording->lines().size(), 4U);
}

TEST_F(StartUpHeader, IsWrittenToTheSelectedDestinationAlone) {
    const auto second = recorded_.addRecording("second");
    recorded_.log->logAppDetails(second.get());
    EXPECT_THAT(recorded_.recording->lines(), IsEmpty());
    EXPECT_FALSE(recorded_.recording->haveLoggedAppDetails());
    EXPECT_EQ(second->lines().size(), 2U);
}

TEST_F(StartUpHeader, IsNotForDestinationsAboveInfo) {
    recorded_.recording->setOutputLevel(Level::notice);
    recorded_.log->logAppDetails();
    EXPECT_THAT(recorded_.recording->lines(), IsEmpty());
    EXPECT_FALSE(recorded_.recording->haveLoggedAppDetails());
    recorded_.recording->setOutputLevel(Level::info);
    recorded_.log->logAppDetails();
    EXPECT_EQ(recorded_.recording->lines().size(), 2U);
}

TEST_F(StartUpHeader, HasPlainLevelWords) {
    recorded_.log->setLevelDescriptions({{Level::info, "Hinweis"}, {Level::debug, "Fehlersuche"}});
    recorded_.recording->setShowLevel(true);
    recorded_.log->logAppDetails();
    EXPECT_THAT(recorded_.recording->lines(), ElementsAre("[Info] > " + processName() + " " + processText(),
                                                          "[Info] > XCGLogger Version: 7.0.1 - Level: Debug"));
}

TEST_F(StartUpHeader, OfOneDestinationIsNotChangedByAnother) {
    const auto second = recorded_.addRecording("second");
    recorded_.recording->setFilters(filters([](LogDetails& details, std::string&) {
        details.message = "changed";
        return false;
    }));
    recorded_.log->logAppDetails();
    EXPECT_EQ(second->records().at(1).message, "XCGLogger Version: 7.0.1 - Level: Debug");
}

}  // namespace
}  // namespace velora::test
