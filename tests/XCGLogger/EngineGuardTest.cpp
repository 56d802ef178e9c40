#include <cstdio>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <unistd.h>

#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>

#include "support/PrintedBy.h"

namespace velora::test {
namespace {

TEST(EngineGuard, PrintsAnExceptionAsOneLine) {
    EXPECT_EQ(printedBy([] { printException("disk full"); }), "Objective-C Exception occurred: disk full\n");
    EXPECT_EQ(printedBy([] { printException("100% {}\xff"); }), "Objective-C Exception occurred: 100% {}\xff\n");
    EXPECT_EQ(printedBy([] { printException(""); }), "Objective-C Exception occurred: \n");
}

TEST(EngineGuard, PrintsAtOnceAndInOrderWithWhatTheHostPrinted) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    std::fflush(stdout);
    const int original = ::dup(STDOUT_FILENO);
    ::dup2(ends[1], STDOUT_FILENO);
    std::fputs("before ", stdout);
    printException("text");
    char buffer[128];
    const ssize_t count = ::read(ends[0], buffer, sizeof buffer);
    ::dup2(original, STDOUT_FILENO);
    ::close(original);
    ::close(ends[0]);
    ::close(ends[1]);
    ASSERT_GT(count, 0);
    EXPECT_EQ(std::string(buffer, static_cast<std::size_t>(count)), "before Objective-C Exception occurred: text\n");
}

TEST(EngineGuard, PrintsWhatEscapesAndGoesOn) {
    EXPECT_EQ(printedBy([] { reportingExceptions([] { throw std::runtime_error("reason"); }); }),
              "Objective-C Exception occurred: reason\n");
}

TEST(EngineGuard, PrintsNothingWhenNothingIsThrown) {
    bool hasRun = false;
    EXPECT_EQ(printedBy([&] { reportingExceptions([&] { hasRun = true; }); }), "");
    EXPECT_TRUE(hasRun);
}

}  // namespace
}  // namespace velora::test
