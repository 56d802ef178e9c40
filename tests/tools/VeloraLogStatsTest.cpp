// What velora-log counts.

#include <cstdlib>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <support/TemporaryFolder.h>
#include <tools/VeloraLogTestSupport.h>

namespace velora::test {
namespace {

using testing::_;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

TEST_F(VeloraLog, CountsRecordsByLevelAndMinute) {
    writeFile(path,
              "2026-11-22 01:23:00.000 [Info] > a\nmore\n2026-11-22 01:23:59.999 [Error] > b\n"
              "2026-11-22 01:24:00.000 [Info] > c\n2026-11-22 01:23:01.000 [Info] > d\n2026-11-22 01:26:00.000 > e\n");
    const std::string block = "█";
    const auto bar = [&](int size) {
        std::string text;
        for (int each = 0; each < size; ++each) {
            text += block;
        }
        return text;
    };
    EXPECT_EQ(run({"stats", path}).output,
              "TIME                  Info     Error     Other       ALL\n"
              "2026-11-22 01:23         2         1         0         3  " +
                  bar(40) +
                  "\n"
                  "2026-11-22 01:24         1         0         0         1  " +
                  bar(13) +
                  "\n"
                  "2026-11-22 01:26         0         0         1         1  " +
                  bar(13) +
                  "\n"
                  "all                      3         1         1         5\n");
    EXPECT_THAT(linesOf(run({"stats", "--every", "1h", "--level", "info", path}).output),
                ElementsAre(_, StartsWith("2026-11-22 01:00         3         1         4  ██"), StartsWith("all")));
    EXPECT_THAT(run({"stats", "--color", "always", "--level", "error", path}).output, HasSubstr("\x1b[31m█"));
    ::setenv("LC_ALL", "C", 1);
    EXPECT_THAT(run({"stats", path}).output, AllOf(HasSubstr("  ####"), Not(HasSubstr(block))));
}

TEST_F(VeloraLog, MakesItsBarsStandForMoreTimeWhenThereAreManyMinutes) {
    std::string content;
    for (int minute = 0; minute < 300; ++minute) {
        content += "2026-11-22 0" + std::to_string(minute / 60) + ":" + (minute % 60 < 10 ? "0" : "") +
                   std::to_string(minute % 60) + ":00.000 [Info] > x\n";
    }
    writeFile(path, content);
    const auto lines = linesOf(run({"stats", path}).output);
    EXPECT_THAT(lines, SizeIs(2 + 20)) << "a quarter of an hour each";
    EXPECT_THAT(lines[2], StartsWith("2026-11-22 00:15        15"));
    EXPECT_THAT(linesOf(run({"stats", "--every", "1m", path}).output), SizeIs(2 + 300));
    EXPECT_THAT(linesOf(run({"stats", "--every", "90m", path}).output), SizeIs(2 + 4));
    EXPECT_THAT(linesOf(run({"stats", "--every", "1h 30 minutes", path}).output), SizeIs(2 + 4));
    EXPECT_THAT(linesOf(run({"stats", "--every", "120s", path}).output), SizeIs(2 + 150));
}

}  // namespace
}  // namespace velora::test
