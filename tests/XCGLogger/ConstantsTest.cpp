#include <gtest/gtest.h>

#include <Velora_UserDefaults/XCGLogger/Constants.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {
namespace {

static_assert(std::is_same_v<XCGLogger::Constants, Constants>);

TEST(Constants, AreFormedOnOnePrefix) {
    EXPECT_EQ(Constants::baseIdentifier, "tamberlo.xcglogger");
    EXPECT_EQ(Constants::defaultInstanceIdentifier, "tamberlo.xcglogger.defaultInstance");
    EXPECT_EQ(Constants::baseConsoleDestinationIdentifier, "tamberlo.xcglogger.logdestination.console");
    EXPECT_EQ(Constants::systemLogDestinationIdentifier, "tamberlo.xcglogger.logdestination.console.nslog");
    EXPECT_EQ(Constants::fileDestinationIdentifier, "tamberlo.xcglogger.logdestination.file");
    EXPECT_EQ(Constants::logQueueIdentifier, "tamberlo.xcglogger.queue");
    EXPECT_EQ(Constants::userInfoKeyTags, "tamberlo.xcglogger.tags");
    EXPECT_EQ(Constants::userInfoKeyDevs, "tamberlo.xcglogger.devs");
    EXPECT_EQ(Constants::userInfoKeyInternal, "tamberlo.xcglogger.internal");
    EXPECT_EQ(Constants::extendedAttributeArchivedLogIdentifierKey, "tamberlo.xcglogger.archived.by");
    EXPECT_EQ(Constants::extendedAttributeArchivedLogTimestampKey, "tamberlo.xcglogger.archived.at");
}

TEST(Constants, NameTheVersion) {
    EXPECT_EQ(Constants::versionString, "7.0.1");
}

}  // namespace
}  // namespace velora::test
