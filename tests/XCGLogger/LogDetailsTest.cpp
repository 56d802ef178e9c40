#include <chrono>
#include <gtest/gtest.h>
#include <limits>

#include <Velora_UserDefaults/XCGLogger/LogDetails.h>

namespace velora::test {
namespace {

LogDetails sample() {
    return {.level = Level::severe,
            .date = Date(std::chrono::nanoseconds(1'700'000'000'123'456'789)),
            .message = "message",
            .functionName = "function",
            .fileName = "/path/file.cpp",
            .lineNumber = std::numeric_limits<std::int64_t>::min(),
            .userInfo = {{"key", 7}}};
}

// Compiled with warnings as errors: a value that is left out must not be one.
TEST(LogDetails, TakesTheValuesThatAreNamedAndLeavesTheOthersEmpty) {
    const LogDetails details{.level = Level::info};
    EXPECT_EQ(details.level, Level::info);
    EXPECT_EQ(details.date, Date());
    EXPECT_EQ(details.message, "");
    EXPECT_EQ(details.functionName, "");
    EXPECT_EQ(details.fileName, "");
    EXPECT_EQ(details.lineNumber, 0);
    EXPECT_TRUE(details.userInfo.empty());
    EXPECT_EQ((LogDetails{.message = "text", .lineNumber = 7}.lineNumber), 7);
}

TEST(LogDetails, IsACopyThatChangesByItself) {
    const LogDetails original = sample();
    LogDetails copy = original;
    copy.level = Level::debug;
    copy.date = Date();
    copy.message = "changed";
    copy.functionName = "other";
    copy.fileName = "other.cpp";
    copy.lineNumber = 1;
    copy.userInfo["key"] = 8;
    copy.userInfo["more"] = true;

    EXPECT_EQ(original.level, Level::severe);
    EXPECT_EQ(original.date, sample().date);
    EXPECT_EQ(original.message, "message");
    EXPECT_EQ(original.functionName, "function");
    EXPECT_EQ(original.fileName, "/path/file.cpp");
    EXPECT_EQ(original.lineNumber, std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(original.userInfo.size(), 1U);
    EXPECT_EQ(std::any_cast<int>(original.userInfo.at("key")), 7);
    EXPECT_EQ(copy.message, "changed");
    EXPECT_EQ(copy.functionName, "other");
}

}  // namespace
}  // namespace velora::test
