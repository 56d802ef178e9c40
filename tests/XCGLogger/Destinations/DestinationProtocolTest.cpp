#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/Destinations/DestinationProtocol.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/RecordingDestination.h"

namespace velora::test {
namespace {

using testing::ElementsAre;

/// A destination that has nothing but what the protocol gives to every one.
class BareDestination : public DestinationProtocol {
public:
    const std::shared_ptr<XCGLogger>& owner() const override { return owner_; }
    void setOwner(std::shared_ptr<XCGLogger> owner) override { owner_ = std::move(owner); }
    const std::string& identifier() const override { return identifier_; }
    void setIdentifier(std::string identifier) override { identifier_ = std::move(identifier); }
    Level outputLevel() const override { return Level::verbose; }
    void setOutputLevel(Level /*level*/) override {}
    bool haveLoggedAppDetails() const override { return true; }
    void setHaveLoggedAppDetails(bool /*haveLogged*/) override {}
    const Formatters& formatters() const override { return formatters_; }
    void setFormatters(Formatters formatters) override { formatters_ = std::move(formatters); }
    const Filters& filters() const override { return filters_; }
    void setFilters(Filters filters) override { filters_ = std::move(filters); }
    void process(LogDetails& logDetails) override {
        if (!shouldExclude(logDetails, logDetails.message)) {
            applyFormatters(logDetails, logDetails.message);
            lines.push_back(logDetails.message);
        }
    }
    void processInternal(LogDetails& logDetails) override { process(logDetails); }
    bool isEnabledFor(Level /*level*/) const override { return true; }
    std::string debugDescription() const override { return "bare"; }

    std::vector<std::string> lines;

private:
    std::shared_ptr<XCGLogger> owner_;
    std::string identifier_ = "bare";
    Formatters formatters_;
    Filters filters_;
};

class DestinationProtocolTest : public testing::Test {
protected:
    DestinationProtocolTest() { log_->add(destination_); }
    ~DestinationProtocolTest() override { removeDestinations(*log_); }

    /// A filter that notes `name` and gives `answer`.
    std::shared_ptr<FilterProtocol> noting(const std::string& name, bool answer) {
        return filter([this, name, answer](LogDetails& /*logDetails*/, std::string& /*message*/) {
            asked_.push_back(name);
            return answer;
        });
    }
    bool excludes() {
        LogDetails record = aRecord();
        std::string message = "line";
        return destination_->shouldExclude(record, message);
    }
    std::string formatted(const std::string& line) {
        LogDetails record = aRecord();
        std::string message = line;
        destination_->applyFormatters(record, message);
        return message;
    }

    std::shared_ptr<XCGLogger> log_ = make<XCGLogger>("log", false);
    std::shared_ptr<BareDestination> destination_ = std::make_shared<BareDestination>();
    std::vector<std::string> asked_;
};

TEST_F(DestinationProtocolTest, ExcludesNothingWithoutAnyFilterList) {
    EXPECT_FALSE(excludes());
    log_->remove(destination_);
    EXPECT_FALSE(excludes());
}

TEST_F(DestinationProtocolTest, UsesTheOwnersFiltersOnlyIfItsOwnListIsAbsent) {
    log_->setFilters({{noting("owner", true)}});
    EXPECT_TRUE(excludes());
    EXPECT_THAT(asked_, ElementsAre("owner"));

    asked_.clear();
    destination_->setFilters(Filters(std::in_place));
    EXPECT_FALSE(excludes());
    EXPECT_THAT(asked_, ElementsAre());

    destination_->setFilters({{noting("own", false)}});
    EXPECT_FALSE(excludes());
    EXPECT_THAT(asked_, ElementsAre("own"));

    asked_.clear();
    destination_->setFilters(std::nullopt);
    EXPECT_TRUE(excludes());
    EXPECT_THAT(asked_, ElementsAre("owner"));
}

TEST_F(DestinationProtocolTest, AsksItsOwnFiltersWithoutAnOwner) {
    destination_->setFilters({{noting("own", true)}});
    log_->remove(destination_);
    EXPECT_TRUE(excludes());
}

TEST_F(DestinationProtocolTest, AsksFiltersInOrderUntilOneSaysYes) {
    destination_->setFilters({{noting("a", false), noting("b", true), noting("c", true)}});
    EXPECT_TRUE(excludes());
    EXPECT_THAT(asked_, ElementsAre("a", "b"));
}

TEST_F(DestinationProtocolTest, AsksEveryFilterIfNoneSaysYes) {
    destination_->setFilters({{noting("a", false), noting("b", false)}});
    EXPECT_FALSE(excludes());
    EXPECT_THAT(asked_, ElementsAre("a", "b"));
}

TEST_F(DestinationProtocolTest, LetsFiltersChangeTheRecordAndTheLine) {
    destination_->setFilters({{filter([](LogDetails& logDetails, std::string& message) {
                                   logDetails.lineNumber = 7;
                                   message += "!";
                                   return false;
                               }),
                               filter([](LogDetails& logDetails, std::string& message) {
                                   return logDetails.lineNumber == 7 && message == "line!";
                               })}});
    LogDetails record = aRecord();
    std::string message = "line";
    EXPECT_TRUE(destination_->shouldExclude(record, message));
    EXPECT_EQ(record.lineNumber, 7);
    EXPECT_EQ(message, "line!");
}

TEST_F(DestinationProtocolTest, FormatsNothingWithoutAnyFormatterList) {
    EXPECT_EQ(formatted("line"), "line");
    log_->remove(destination_);
    EXPECT_EQ(formatted("line"), "line");
}

TEST_F(DestinationProtocolTest, UsesTheOwnersFormattersOnlyIfItsOwnListIsAbsent) {
    log_->setFormatters({{appending(" owner")}});
    EXPECT_EQ(formatted("line"), "line owner");
    destination_->setFormatters(Formatters(std::in_place));
    EXPECT_EQ(formatted("line"), "line");
    destination_->setFormatters({{appending(" own")}});
    EXPECT_EQ(formatted("line"), "line own");
    destination_->setFormatters(std::nullopt);
    EXPECT_EQ(formatted("line"), "line owner");
}

TEST_F(DestinationProtocolTest, RunsEveryFormatterOnWhatTheOneBeforeMade) {
    destination_->setFormatters(
        {{appending("1"), appending("2"), formatter([](LogDetails& logDetails, std::string& message) {
              logDetails.lineNumber = 1;
              message = "<" + message + ">";
          }),
          formatter([](LogDetails& logDetails, std::string& message) {
              message += std::to_string(logDetails.lineNumber);
          })}});
    EXPECT_EQ(formatted("line"), "<line12>1");
}

TEST_F(DestinationProtocolTest, KeepsALineWhoseFilterThrowsAndReportsIt) {
    destination_->setFilters({{filter([](LogDetails& /*logDetails*/, std::string& /*message*/) -> bool {
                                   throw std::runtime_error("filter broke");
                               }),
                               noting("next", false)}});
    testing::internal::CaptureStdout();
    const bool isExcluded = excludes();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Objective-C Exception occurred: filter broke\n");
    EXPECT_FALSE(isExcluded);
    EXPECT_THAT(asked_, ElementsAre("next"));
}

TEST_F(DestinationProtocolTest, KeepsALineAsItWasWhenItsFormatterThrowsAndReportsIt) {
    destination_->setFormatters({{appending("1"), formatter([](LogDetails& /*logDetails*/, std::string& message) {
                                      message = "half done";
                                      throw std::runtime_error("formatter broke");
                                  }),
                                  appending("2")}});
    testing::internal::CaptureStdout();
    const std::string line = formatted("line");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Objective-C Exception occurred: formatter broke\n");
    EXPECT_EQ(line, "line12");
}

TEST_F(DestinationProtocolTest, IsAllThatALoggerNeeds) {
    destination_->setFilters({{filter([](LogDetails& /*logDetails*/, std::string& message) {
        return message.find("secret") != std::string::npos;
    })}});
    log_->setFormatters({{appending(".")}});
    log_->verbose("one");
    log_->emergency("a secret");
    log_->_logln("two", Level::info);
    EXPECT_THAT(destination_->lines, ElementsAre("one.", "two."));
}

}  // namespace
}  // namespace velora::test
