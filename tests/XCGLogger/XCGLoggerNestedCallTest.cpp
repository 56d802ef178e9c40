// Log calls, and changes of the list of destinations, in the middle of a log call.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/RecordingDestination.h"

namespace velora::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

struct LogsWhenStreamed {
    XCGLogger* log;
    friend std::ostream& operator<<(std::ostream& stream, const LogsWhenStreamed& value) {
        stream << "outer ";
        value.log->info("inner {}", 1);
        return stream << "end";
    }
};

TEST(NestedLogCall, InAMessageClosureKeepsBothLinesWhole) {
    const RecordedLogger<> recorded;
    recorded.log->error(Tag("outer"), [&] {
        std::string text = "outer ";
        recorded.log->info(Tag("inner"), [&] {
            recorded.log->debug("innermost");
            return "inner";
        });
        return text + "end";
    });
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> innermost", "> inner", "> outer end"));
    const std::vector<LogDetails> records = recorded.recording->records();
    EXPECT_EQ(records[1].level, Level::info);
    EXPECT_EQ(records[2].level, Level::error);
    EXPECT_TRUE(records[0].userInfo.empty());
    EXPECT_EQ(std::any_cast<std::string>(records[1].userInfo.begin()->second), "inner");
    EXPECT_EQ(std::any_cast<std::string>(records[2].userInfo.begin()->second), "outer");
}

TEST(NestedLogCall, InAStreamOperatorKeepsBothLinesWhole) {
    const RecordedLogger<> recorded;
    recorded.log->info(LogsWhenStreamed{recorded.log.get()});
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> inner 1", "> outer end"));
}

TEST(NestedLogCall, InAFilterAndAFormatterKeepsAllLinesWhole) {
    const RecordedLogger<> recorded;
    recorded.recording->setShowLevel(true);
    recorded.recording->setFilters(filters([&](LogDetails& details, std::string&) {
        if (details.level == Level::error) {
            recorded.log->info("from the filter");
        }
        return false;
    }));
    recorded.recording->setFormatters(formatters([&](LogDetails& details, std::string& line) {
        if (details.level == Level::error) {
            recorded.log->info("from the formatter");
            line += " (formatted)";
        }
    }));
    recorded.log->error("text");
    EXPECT_THAT(recorded.recording->lines(),
                ElementsAre("[Info] > from the filter", "[Info] > from the formatter", "[Error] > text (formatted)"));
}

TEST(NestedLogCall, InTheConversionOfUserInfoKeepsBothLinesWhole) {
    struct LogsWhenConverted {
        XCGLogger* log;
        operator UserInfo() const {
            log->info("inner");
            return {{"outer", 1}};
        }
    };
    const RecordedLogger<> recorded;
    recorded.log->error(LogsWhenConverted{recorded.log.get()}, "outer");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> inner", "> outer"));
    EXPECT_TRUE(recorded.recording->records()[0].userInfo.empty());
    EXPECT_EQ(recorded.recording->records()[1].userInfo.count("outer"), 1U);
}

TEST(DestinationRemovedInACall, ByTheMessageClosureGetsNothingAnyMore) {
    const RecordedLogger<> recorded;
    auto second = recorded.addRecording("second");
    const std::weak_ptr<RecordingDestination> watched = second;
    second.reset();
    recorded.log->info([&] {
        recorded.log->remove("second");
        EXPECT_FALSE(watched.expired()) << "the call may still have to do with it";
        return "text";
    });
    EXPECT_TRUE(watched.expired());
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> text"));
}

TEST(DestinationRemovedInACall, ByTheMessageClosureMayBeAllOfThem) {
    const RecordedLogger<> recorded;
    recorded.addRecording("second");
    recorded.addRecording("third");
    recorded.log->info([&] {
        removeDestinations(*recorded.log);
        return "text";
    });
    EXPECT_THAT(recorded.log->destinations(), IsEmpty());
    EXPECT_THAT(recorded.recording->lines(), IsEmpty());
}

TEST(DestinationRemovedInACall, ByItsOwnFilterStillGetsTheLine) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    recorded.recording->setFilters(filters([&](LogDetails&, std::string&) {
        recorded.log->remove("recording");
        return false;
    }));
    recorded.log->info("text");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> text"));
    EXPECT_THAT(second->lines(), ElementsAre("> text"));
}

TEST(DestinationRemovedInACall, ByTheFilterOfAnotherOneGetsNothingAnyMore) {
    const RecordedLogger<> recorded;
    auto second = recorded.addRecording("second");
    const auto third = recorded.addRecording("third");
    const std::weak_ptr<RecordingDestination> watched = second;
    second.reset();
    recorded.recording->setFilters(filters([&](LogDetails&, std::string&) {
        recorded.log->remove("second");
        return false;
    }));
    recorded.log->info("text");
    EXPECT_TRUE(watched.expired());
    EXPECT_THAT(third->lines(), ElementsAre("> text"));
}

TEST(DestinationRemovedInACall, LetsANewOneWithItsIdentifierIn) {
    const RecordedLogger<> recorded;
    std::shared_ptr<RecordingDestination> replacement;
    recorded.log->info([&] {
        recorded.log->remove("recording");
        replacement = recorded.addRecording("recording");
        return "first";
    });
    recorded.log->info("second");
    EXPECT_THAT(recorded.recording->lines(), IsEmpty());
    EXPECT_THAT(replacement->lines(), ElementsAre("> second"));
}

TEST(DestinationAddedInACall, GetsTheNextCallOnly) {
    const RecordedLogger<> recorded;
    std::vector<std::shared_ptr<RecordingDestination>> added;
    recorded.log->info([&] {
        for (int index = 0; index < 50; ++index) {
            added.push_back(recorded.addRecording("added " + std::to_string(index)));
        }
        return "first";
    });
    recorded.log->info("second");
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> first", "> second"));
    for (const auto& destination : added) {
        EXPECT_THAT(destination->lines(), ElementsAre("> second"));
    }
}

TEST(DestinationRemovedInACall, ByTheWriterOfAnInternalLineIsKeptUntilItsEnd) {
    const RecordedLogger<> recorded;
    auto second = recorded.addRecording("second");
    const std::weak_ptr<RecordingDestination> watched = second;
    second.reset();
    recorded.recording->setFilters(filters([&](LogDetails&, std::string&) {
        recorded.log->remove("second");
        return false;
    }));
    recorded.log->_logln("internal", Level::error);
    EXPECT_TRUE(watched.expired());
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> internal"));
}

class LogsWhenItGoes : public RecordingDestination {
public:
    using RecordingDestination::RecordingDestination;
    ~LogsWhenItGoes() override { log->info("going"); }
    std::shared_ptr<XCGLogger> log;
};

TEST(DestinationRemovedInACall, MayLogWhenItGoesAtTheEndOfTheCall) {
    const RecordedLogger<> others;
    const auto log = make<XCGLogger>("log", false);
    auto destination = make<LogsWhenItGoes>(nullptr, "going");
    destination->log = others.log;
    log->add(destination);
    destination.reset();
    log->info([&] {
        log->remove("going");
        EXPECT_EQ(others.recording->lines().size(), 0U) << "kept until the call ends";
        return "message";
    });
    EXPECT_EQ(others.recording->lines(), std::vector<std::string>{"> going"});
}

}  // namespace
}  // namespace velora::test
