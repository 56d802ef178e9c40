// What becomes of lines when the disk is full for a time: a small file system in memory, filled up for real.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "reliability/LoggedLines.h"
#include "reliability/SmallDisk.h"

namespace velora::test {
namespace {

using testing::Each;
using testing::EndsWith;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

class FullDisk : public testing::TestWithParam<Mode> {
protected:
    void SetUp() override {
        if (const auto reason = disk_.mount()) {
            GTEST_SKIP() << *reason;
        }
        writeFile(disk_ / "ballast", std::string(SmallDisk::size / 2, 'x'));
    }

    /// Logs lines, few at a time, until the disk is full and some more; returns what was reported.
    std::vector<std::string> logBeyondTheEnd(LoggedFile& file, int& next) const {
        return reportsIn(printedBy([&] {
            const int last = next + static_cast<int>(SmallDisk::size / 40);
            for (; next < last; next += few) {
                file.logAndSettle(next, next + few);
            }
        }));
    }

    static constexpr int few = 5;

    SmallDisk disk_;
};

INSTANTIATE_TEST_SUITE_P(InEachMode, FullDisk, testing::ValuesIn(allModes), nameOf);

/// The lines among `all` that are not in `found`.
std::vector<int> missingFrom(const std::vector<int>& found, const std::vector<int>& all) {
    std::vector<int> missing;
    std::ranges::set_difference(all, found, std::back_inserter(missing));
    return missing;
}

TEST_P(FullDisk, LosesTheLinesThatDoNotFitReportsEachAndGoesOnWhenThereIsRoom) {
    LoggedFile file(GetParam(), disk_ / "app.log");
    file.open();
    int next = 0;
    const std::vector<std::string> reports = logBeyondTheEnd(file, next);
    EXPECT_THAT(reports, Each(EndsWith("couldn’t be written: No space left on device")));
    std::filesystem::remove(disk_ / "ballast");
    file.logAndSettle(next, next + 100);

    const FoundLines found = file.found();
    EXPECT_TRUE(std::ranges::is_sorted(found.numbers));
    const std::vector<int> lost = missingFrom(found.numbers, numbersFrom(0, next + 100));
    ASSERT_THAT(lost, Not(IsEmpty()));
    EXPECT_LT(lost.back(), next) << "none is lost once there is room";
    // A destination that rotates may find no room for its own lines, too.
    EXPECT_LE(lost.size(), reports.size());
    if (GetParam().maxFileSize == 0) {
        EXPECT_EQ(lost.size(), reports.size());
        EXPECT_EQ(lost, numbersFrom(lost.front(), next)) << "what did not fit is lost, all before is there";
    }
    // The line in the middle of which the disk was full has got an end.
    EXPECT_LE(found.torn.size(), GetParam().maxFileSize == 0 ? 1U : file.archives().size() + 1);
    for (const std::string& fragment : found.torn) {
        EXPECT_TRUE(std::ranges::any_of(
                        lost, [&](int number) { return ("> " + numberedText(number)).starts_with(fragment); }) ||
                    isInternal(fragment) || fragment.size() < 20)
            << fragment << " is not the beginning of a lost line";
    }
}

TEST_P(FullDisk, MayFillUpAgainAndAgain) {
    LoggedFile file(GetParam(), disk_ / "app.log");
    file.open();
    int next = 0;
    std::size_t reported = 0;
    for (int round = 0; round < 3; ++round) {
        reported += logBeyondTheEnd(file, next).size();
        for (const std::string& archive : file.archives()) {
            std::filesystem::resize_file(archive, 0);
        }
        std::filesystem::resize_file(file.path(), 0);
        const int first = next;
        next += 50;
        EXPECT_EQ(printedBy([&] { file.logAndSettle(first, next); }), "");
        const FoundLines found = file.found();
        EXPECT_EQ(found.numbers, numbersFrom(first, next));
        EXPECT_THAT(found.torn, SizeIs(testing::Le(1U)));
    }
    EXPECT_GT(reported, 0U);
}

}  // namespace
}  // namespace velora::test
