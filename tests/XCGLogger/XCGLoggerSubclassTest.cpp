// What a class derived from the logger or from a destination changes must take effect wherever the engine
// itself uses it.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <support/RecordingDestination.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Rejects lines by their text.
class RejectText : public FilterProtocol {
public:
    explicit RejectText(std::string text) : text_(std::move(text)) {}
    bool shouldExclude(LogDetails& details, std::string& /*message*/) override { return details.message == text_; }
    std::string debugDescription() const override { return "RejectText"; }

private:
    std::string text_;
};

class AppendText : public LogFormatterProtocol {
public:
    explicit AppendText(std::string text) : text_(std::move(text)) {}
    const std::string& format(LogDetails& /*logDetails*/, std::string& message) override { return message += text_; }
    std::string debugDescription() const override { return "AppendText"; }

private:
    std::string text_;
};

class OwnWayLogger : public XCGLogger {
public:
    using XCGLogger::XCGLogger;

    const std::string& identifier() const override { return shownIdentifier; }
    const LevelTexts& levelDescriptions() const override { return words; }
    const Formatters& formatters() const override { return ownFormatters; }
    const Filters& filters() const override { return ownFilters; }
    const std::shared_ptr<const DateFormatter>& dateFormatter() const override { return ownDateFormatter; }
    const MessageClosure& noMessageClosure() const override { return noMessage; }
    bool isEnabledFor(Level level) const override { return level == Level::info; }

    std::string shownIdentifier = "shown";
    LevelTexts words{{Level::info, "word"}};
    Formatters ownFormatters{{std::make_shared<AppendText>("!")}};
    Filters ownFilters{{std::make_shared<RejectText>("reject")}};
    std::shared_ptr<const DateFormatter> ownDateFormatter;
    MessageClosure noMessage{[] { return "nothing to say"; }};
};

TEST(LoggerSubclass, ChangesWhatDestinationsShow) {
    const RecordedLogger<OwnWayLogger> recorded;
    recorded.recording->setShowLevel(true);
    recorded.recording->setShowLogIdentifier(true);
    recorded.log->info("reject");
    recorded.log->info("text");
    recorded.log->info();
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("[word] [shown] > text!", "[word] [shown] > nothing to say!"));
}

TEST(LoggerSubclass, ChangesTheDateFormatter) {
    const RecordedLogger<OwnWayLogger> recorded;
    recorded.recording->setShowDate(true);
    recorded.log->ownDateFormatter = std::make_shared<const DateFormatter>("'today'", "en_US_POSIX", "UTC");
    recorded.log->info("text");
    recorded.log->_logln("internal", Level::info);
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("today > text!", "today > internal!"));
}

TEST(LoggerSubclass, WithoutADateFormatterShowsACompleteDate) {
    const RecordedLogger<OwnWayLogger> recorded;
    recorded.recording->setShowDate(true);
    recorded.log->info("text");
    recorded.log->_logln("internal", Level::info);
    const DateFormatter complete("yyyy-MM-dd HH:mm:ss Z", "en_US_POSIX", "UTC");
    const std::vector<LogDetails> records = recorded.recording->records();
    EXPECT_THAT(recorded.recording->lines(), ElementsAre(complete.string(records.at(0).date) + " > text!",
                                                         complete.string(records.at(1).date) + " > internal!"));
    EXPECT_THAT(recorded.recording->lines().at(0), testing::MatchesRegex("....-..-.. ..:..:.. [+]0000 > text!"));
}

TEST(LoggerSubclass, DecidesWhatIsExecuted) {
    const RecordedLogger<OwnWayLogger> recorded;
    std::vector<Level> executed;
    for (const Level level : Levels::all) {
        recorded.log->exec(level, [&] { executed.push_back(level); });
    }
    recorded.log->infoExec([&] { executed.push_back(Level::none); });
    recorded.log->errorExec([&] { executed.push_back(Level::none); });
    EXPECT_THAT(executed, ElementsAre(Level::info, Level::none));
}

class InterceptingLogger : public XCGLogger {
public:
    using XCGLogger::logln;
    using XCGLogger::XCGLogger;

    void logln(Level level, const SourceLocation& place, UserInfoReference userInfo,
               MessageReference message) override {
        ++calls;
        XCGLogger::logln(level == Level::debug ? Level::notice : level, place, userInfo, message);
    }
    void setOutputLevel(Level level) override {
        levelsSet.push_back(level);
        XCGLogger::setOutputLevel(level);
    }
    void _logln(std::string_view message, Level level, const DestinationProtocol* source) override {
        internalLines.emplace_back(message);
        XCGLogger::_logln("engine: " + std::string(message), level, source);
    }
    void logAppDetails(DestinationProtocol* /*selectedDestination*/) override { ++headers; }
    bool add(const std::shared_ptr<DestinationProtocol>& destination) override {
        added.push_back(destination->identifier());
        return XCGLogger::add(destination);
    }
    bool remove(const std::shared_ptr<DestinationProtocol>& destination) override {
        removed.push_back(destination->identifier());
        return XCGLogger::remove(destination);
    }
    using XCGLogger::remove;
    std::shared_ptr<DestinationProtocol> destination(std::string_view identifier) const override {
        return XCGLogger::destination(identifier == "alias" ? "recording" : identifier);
    }

    int calls = 0;
    int headers = 0;
    std::vector<Level> levelsSet;
    std::vector<std::string> internalLines;
    std::vector<std::string> added;
    std::vector<std::string> removed;
};

TEST(LoggerSubclass, SeesEveryLogCallInLogln) {
    const RecordedLogger<InterceptingLogger> recorded;
    recorded.recording->setShowLevel(true);
    XCGLogger& log = *recorded.log;
    log.debug("text");
    log.debug("number {}", 1);
    log.debug([] { return "closure"; });
    log.debug();
    log.logln("message first", Level::debug);
    log.logln(Level::debug, [] { return "closure alone"; });
    EXPECT_EQ(recorded.log->calls, 6);
    EXPECT_THAT(recorded.recording->lines(),
                ElementsAre("[Notice] > text", "[Notice] > number 1", "[Notice] > closure", "[Notice] > ",
                            "[Notice] > message first", "[Notice] > closure alone"));
}

TEST(LoggerSubclass, SeesWhatSetupDoes) {
    const RecordedLogger<InterceptingLogger> recorded;
    recorded.log->setup({.level = Level::warning});
    EXPECT_THAT(recorded.log->levelsSet, ElementsAre(Level::warning));
    EXPECT_EQ(recorded.log->headers, 1);
    EXPECT_THAT(recorded.recording->lines(), IsEmpty());
}

TEST(LoggerSubclass, SeesTheInternalLinesOfItsDestinations) {
    const RecordedLogger<InterceptingLogger> recorded;
    recorded.recording->owner()->_logln("text", Level::error, nullptr);
    EXPECT_THAT(recorded.log->internalLines, ElementsAre("text"));
    EXPECT_THAT(recorded.recording->lines(), ElementsAre("> engine: text"));
}

TEST(LoggerSubclass, SeesDestinationsComeAndGo) {
    const RecordedLogger<InterceptingLogger> recorded;
    const RecordedLogger<> other;
    const auto moving = recorded.addRecording("moving");
    other.log->add(moving);
    EXPECT_THAT(recorded.log->added, ElementsAre("recording", "moving"));
    EXPECT_THAT(recorded.log->removed, ElementsAre("moving"));
    EXPECT_TRUE(recorded.log->remove("alias")) << "looked up by its own destination()";
    EXPECT_THAT(recorded.log->removed, ElementsAre("moving", "recording"));
    EXPECT_FALSE(other.log->remove("alias"));
}

class OwnDefaultsLogger : public XCGLogger {
public:
    using XCGLogger::XCGLogger;

protected:
    void addDefaultDestinations() override {
        add(make<RecordingDestination>(nullptr, "one"));
        add(make<RecordingDestination>(nullptr, "two"));
    }
};

TEST(LoggerSubclass, StartsWithItsOwnDefaultDestinations) {
    const auto log = make<OwnDefaultsLogger>("name");
    ASSERT_EQ(log->destinations().size(), 2U);
    EXPECT_EQ(log->destinations()[0]->identifier(), "one");
    EXPECT_EQ(log->destinations()[1]->identifier(), "two");
    EXPECT_EQ(log->destinations()[1]->owner(), log);
    removeDestinations(*log);
    EXPECT_THAT(make<OwnDefaultsLogger>("name", false)->destinations(), IsEmpty());
}

/// Accepts even levels only, numbers its lines, and drops those that end in "drop".
class OwnWayDestination : public RecordingDestination {
public:
    using RecordingDestination::RecordingDestination;

    bool isEnabledFor(Level level) const override { return rawValue(level) % 2 == 0; }
    void process(LogDetails& logDetails) override {
        logDetails.message = std::to_string(++processed) + " " + logDetails.message;
        RecordingDestination::process(logDetails);
    }
    void processInternal(LogDetails& logDetails) override {
        logDetails.message += " (internal)";
        RecordingDestination::processInternal(logDetails);
    }
    bool shouldExclude(LogDetails& /*logDetails*/, std::string& message) override { return message.ends_with("drop"); }
    void applyFormatters(LogDetails& /*logDetails*/, std::string& message) override { message += " ."; }

    int processed = 0;
};

TEST(DestinationSubclass, DecidesHowItTakesLines) {
    const RecordedLogger<> recorded;
    recorded.log->remove("recording");
    const auto own = recorded.addRecording<OwnWayDestination>("own");
    own->setOutputLevel(Level::none);
    recorded.log->debug("odd");
    recorded.log->info("even");
    recorded.log->info("drop");
    recorded.log->warning("even");
    recorded.log->_logln("odd", Level::error);
    recorded.log->_logln("even", Level::severe);
    EXPECT_THAT(own->lines(), ElementsAre("> 1 even .", "> 3 even .", "> even (internal) ."));
}

/// Keeps its own idea of its settings.
class FixedDestination : public RecordingDestination {
public:
    using RecordingDestination::RecordingDestination;
    const std::string& identifier() const override { return fixed; }
    Level outputLevel() const override { return Level::info; }
    bool showLevel() const override { return true; }
    bool haveLoggedAppDetails() const override { return true; }

    std::string fixed = "fixed";
};

TEST(DestinationSubclass, OverridesItsProperties) {
    const RecordedLogger<> recorded;
    const auto destination = recorded.addRecording<FixedDestination>("given");
    EXPECT_EQ(recorded.log->destination("fixed"), destination);
    EXPECT_EQ(recorded.log->destination("given"), nullptr);
    recorded.log->setOutputLevel(Level::emergency);
    recorded.log->info("text");
    recorded.log->debug("text");
    recorded.log->logAppDetails();
    EXPECT_THAT(destination->lines(), ElementsAre("[Info] > text"));
    EXPECT_TRUE(recorded.log->remove("fixed"));
}

}  // namespace
}  // namespace velora::test
