// What one log call does.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/RecordingDestination.h"

namespace velora::test {
namespace {

using ::testing::ElementsAre;

TEST(XCGLoggerCall, EvaluatesTheMessageOnceForAllDestinations) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    const auto third = recorded.addRecording("third");
    int evaluations = 0;
    recorded.log->info([&] { return ++evaluations; });
    EXPECT_EQ(evaluations, 1);
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> 1"));
    EXPECT_THAT(second->lines(), ElementsAre("> 1"));
    EXPECT_THAT(third->lines(), ElementsAre("> 1"));
}

TEST(XCGLoggerCall, ReachesTheAcceptingDestinationsInOrder) {
    const RecordedLogger<> recorded;
    std::vector<std::string> order;
    for (const std::string name : {"a", "b", "c", "d"}) {
        const auto destination = recorded.addRecording(name);
        destination->setFormatters(formatters([&order, name](LogDetails&, std::string&) { order.push_back(name); }));
        destination->setOutputLevel(name == "c" ? Level::error : Level::info);
    }
    recorded.log->info("text");
    EXPECT_THAT(order, ElementsAre("a", "b", "d"));
    recorded.log->error("text");
    EXPECT_THAT(order, ElementsAre("a", "b", "d", "a", "b", "c", "d"));
}

TEST(XCGLoggerCall, GivesEachDestinationTheSameRecordToChangeAtWill) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    const auto third = recorded.addRecording("third");
    for (const auto& destination : {recorded.recording, second}) {
        destination->setFilters(filters([](LogDetails& details, std::string& line) {
            details.message = "changed";
            details.level = Level::emergency;
            details.functionName = "changed";
            details.fileName = "changed";
            details.lineNumber = -1;
            details.userInfo.clear();
            line += " changed";
            return false;
        }));
    }
    recorded.log->logln(Level::info, {"function", "file.cpp", 42}, UserInfo{{"key", 1}}, "text");
    const LogDetails untouched = third->records().at(0);
    EXPECT_EQ(untouched.level, Level::info);
    EXPECT_EQ(untouched.message, "text");
    EXPECT_EQ(untouched.functionName, "function");
    EXPECT_EQ(untouched.fileName, "file.cpp");
    EXPECT_EQ(untouched.lineNumber, 42);
    EXPECT_EQ(untouched.userInfo.count("key"), 1U);
    EXPECT_EQ(untouched.date, second->records().at(0).date);
    EXPECT_THAT(third->lines(), ElementsAre("> text"));
    EXPECT_THAT(second->lines(), ElementsAre("> text changed"));
    EXPECT_EQ(second->records().at(0).message, "changed");
}

TEST(XCGLoggerCall, IsDatedWhenItIsMade) {
    const RecordedLogger<> recorded;
    const Date before = currentDate();
    recorded.log->info("text");
    const Date after = currentDate();
    const Date date = recorded.recording->records().at(0).date;
    EXPECT_LE(before, date);
    EXPECT_LE(date, after);
}

TEST(XCGLoggerCall, LeavesNothingOfItselfToTheNextOne) {
    const RecordedLogger<> recorded;
    recorded.log->logln(Level::error, {"function", "file.cpp", 42}, UserInfo{{"key", 1}}, "first");
    recorded.log->logln(Level::info, SourceLocation(), {}, "second");
    const LogDetails second = recorded.recording->records().at(1);
    EXPECT_EQ(second.level, Level::info);
    EXPECT_EQ(second.message, "second");
    EXPECT_EQ(second.functionName, "");
    EXPECT_EQ(second.fileName, "");
    EXPECT_EQ(second.lineNumber, 0);
    EXPECT_TRUE(second.userInfo.empty());
}

TEST(XCGLoggerCall, ReleasesItsUserInfoWhenItEnds) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    const auto value = std::make_shared<int>(7);
    recorded.log->info(UserInfo{{"key", value}}, "text");
    recorded.recording->clear();
    second->clear();
    EXPECT_EQ(value.use_count(), 1);
}

TEST(XCGLoggerCall, WithoutAMessageEndsInTheMark) {
    const RecordedLogger<> recorded;
    recorded.recording->setShowLevel(true);
    recorded.log->debug();
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("[Debug] > "));
}

TEST(XCGLoggerCall, ComposesTheDefaultColumns) {
    const auto log = make<XCGLogger>("name", false);
    const auto recording = make<RecordingDestination>(nullptr, "recording");
    log->add(recording);
    log->logln(Level::debug, {"doWork", "/src/Main.cpp", 42}, {}, "hello");
    const LogDetails record = recording->records().at(0);
    EXPECT_THAT(recording->lines(),
                ElementsAre(log->dateFormatter()->string(record.date) + " [Debug] [Main.cpp:42] doWork > hello"));
    removeDestinations(*log);
}

TEST(XCGLoggerCall, KeepsEveryByteOfItsMessage) {
    using namespace std::string_literals;
    const RecordedLogger<> recorded;
    const std::string bytes = "a\0b\xff\xfe\n\r"s;
    recorded.log->info(bytes);
    EXPECT_EQ(recorded.recording->records().at(0).message, bytes);
    EXPECT_EQ(recorded.recording->lines().at(0), "> " + bytes);
}

TEST(XCGLoggerCall, CarriesAMessageOfTenMegabytes) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    std::string huge;
    huge.resize(10'000'000, 'x');
    huge.back() = '!';
    recorded.log->info(huge);
    recorded.log->info("small");
    EXPECT_TRUE(recorded.recording->lines().at(0) == "> " + huge);
    EXPECT_TRUE(second->records().at(0).message == huge);
    EXPECT_EQ(second->lines().at(1), "> small");
}

}  // namespace
}  // namespace velora::test
