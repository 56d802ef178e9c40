// What becomes of a log call when something in it throws.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>

#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/PrintedBy.h"
#include "support/RecordingDestination.h"

namespace velora::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct OddException {};

class ThrowingDestination : public RecordingDestination {
public:
    using RecordingDestination::RecordingDestination;
    void output(LogDetails& logDetails, std::string& message) override {
        if (logDetails.message == "throw") {
            throw std::runtime_error(identifier() + " is full");
        }
        RecordingDestination::output(logDetails, message);
    }
};

class UnsureDestination : public RecordingDestination {
public:
    using RecordingDestination::RecordingDestination;
    bool isEnabledFor(Level /*level*/) const override { throw std::runtime_error("unsure"); }
};

TEST(ThrowingMessage, IsPrintedAndLogsNothing) {
    const RecordedLogger<> recorded;
    EXPECT_EQ(printedBy([&] { recorded.log->info([]() -> std::string { throw std::runtime_error("no text"); }); }),
              "Objective-C Exception occurred: no text\n");
    EXPECT_THAT(recorded.recording->lines(), IsEmpty());
    recorded.log->info("next");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> next"));
}

TEST(ThrowingMessage, LeavesWhatItHadOfItsTextToNoOtherLine) {
    const RecordedLogger<> recorded;
    const std::string printed = printedBy([&] { recorded.log->info("half a text {:{}}", "and a width", -1); });
    EXPECT_EQ(printed, "Objective-C Exception occurred: negative width\n");
    recorded.log->info("next");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> next"));
}

TEST(ThrowingFilter, CountsAsOneThatLetsTheLinePass) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    recorded.recording->setFilters(
        filters([](LogDetails&, std::string&) -> bool { throw std::runtime_error("bad filter"); }));
    EXPECT_EQ(printedBy([&] { recorded.log->info("text"); }), "Objective-C Exception occurred: bad filter\n");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> text"));
    EXPECT_THAT(second->lines(), ElementsAre("> text"));
}

TEST(ThrowingFormatter, LeavesTheLineAsItFoundIt) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    recorded.recording->setFormatters(formatters([](LogDetails&, std::string& line) {
        line = "half";
        throw OddException();
    }));
    EXPECT_EQ(printedBy([&] { recorded.log->info("text"); }),
              "Objective-C Exception occurred: velora::test::(anonymous namespace)::OddException\n");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> text"));
    EXPECT_THAT(second->lines(), ElementsAre("> text"));
}

TEST(ThrowingDestination, LosesOnlyItsOwnLine) {
    const RecordedLogger<> recorded;
    const auto first = recorded.addRecording<ThrowingDestination>("first");
    const auto middle = recorded.addRecording("middle");
    const auto last = recorded.addRecording<ThrowingDestination>("last");
    EXPECT_EQ(printedBy([&] { recorded.log->info("throw"); }),
              "Objective-C Exception occurred: first is full\nObjective-C Exception occurred: last is full\n");
    recorded.log->info("next");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> throw", "> next"));
    EXPECT_THAT(middle->lines(), ElementsAre("> throw", "> next"));
    EXPECT_THAT(first->lines(), ElementsAre("> next"));
    EXPECT_THAT(last->lines(), ElementsAre("> next"));
}

TEST(ThrowingDestination, KeepsInternalLinesFromNoOther) {
    const RecordedLogger<> recorded;
    recorded.log->remove("recording");
    recorded.addRecording<ThrowingDestination>("first");
    const auto last = recorded.addRecording("last");
    EXPECT_EQ(printedBy([&] { recorded.log->_logln("throw", Level::error); }),
              "Objective-C Exception occurred: first is full\n");
    EXPECT_THAT(last->lines(), ElementsAre("> throw"));
}

TEST(ThrowingDestination, ThatCannotTellItsLevelAcceptsNothing) {
    const RecordedLogger<> recorded;
    recorded.log->remove("recording");
    const auto first = recorded.addRecording<UnsureDestination>("first");
    const auto middle = recorded.addRecording("middle");
    const auto last = recorded.addRecording<UnsureDestination>("last");
    const std::string twice = "Objective-C Exception occurred: unsure\nObjective-C Exception occurred: unsure\n";
    EXPECT_EQ(printedBy([&] { recorded.log->info("text"); }), twice);
    EXPECT_EQ(printedBy([&] { recorded.log->_logln("internal", Level::error); }), twice);
    EXPECT_THAT(middle->lines(), ElementsAre("> text", "> internal"));
    EXPECT_THAT(first->lines(), IsEmpty());
    EXPECT_THAT(last->lines(), IsEmpty());
}

TEST(ThrowingUserInfo, IsPrintedAndLogsNothing) {
    struct Throws {
        operator UserInfo() const { throw std::runtime_error("no info"); }
    };
    const RecordedLogger<> recorded;
    EXPECT_EQ(printedBy([&] { recorded.log->info(Throws(), "text"); }), "Objective-C Exception occurred: no info\n");
    recorded.log->info("next");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> next"));
}

}  // namespace
}  // namespace velora::test
