#include <gtest/gtest.h>
#include <string>
#include <support/CountingAllocations.h>

#include <Velora_UserDefaults/XCGLogger/LogFormatters/EscapingLogFormatter.h>

namespace velora::test {
namespace {

TEST(EscapingLogFormatterAllocation, OnlyLooksAtALineWithNothingToEscape) {
    const auto formatter = make<EscapingLogFormatter>();
    LogDetails details;
    std::string message = "2024-03-01 15:45:02.123 [Info] grüße 日本語, " + std::string(1'000, 'x');
    const char* const before = message.data();
    EXPECT_EQ(allocationsOf([&] { formatter->format(details, message); }).all, 0U);
    EXPECT_EQ(message.data(), before);
}

}  // namespace
}  // namespace velora::test
