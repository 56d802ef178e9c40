// What becomes of lines when the administrator makes a file system read-only for a time.

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "reliability/FaultyCalls.h"
#include "reliability/LoggedLines.h"
#include "reliability/SmallDisk.h"

namespace velora::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ReadOnlyDisk : public testing::TestWithParam<Mode> {
protected:
    void SetUp() override {
        if (const auto reason = disk_.mount()) {
            GTEST_SKIP() << *reason;
        }
    }

    SmallDisk disk_;
};

INSTANTIATE_TEST_SUITE_P(InEachMode, ReadOnlyDisk, testing::ValuesIn(allModes), nameOf);

TEST_P(ReadOnlyDisk, CannotBecomeReadOnlyWhileAFileIsLoggedTo) {
    LoggedFile file(GetParam(), disk_ / "app.log");
    file.open();
    file.logAndSettle(0, 5);
    EXPECT_FALSE(disk_.remount(/*readOnly=*/true));
    EXPECT_EQ(errno, EBUSY) << "the system lets nobody pull a file away from who writes to it";
    file.logAndSettle(5, 10);
    EXPECT_EQ(file.found().numbers, numbersFrom(0, 10));
}

TEST_P(ReadOnlyDisk, IsReportedWhenAFileIsOpenedAndWrittenToOnceItIsWritable) {
    const TemporaryFolder writable;
    LoggedFile file(GetParam(), disk_ / "app.log");
    file.keepPendingIn(writable.path());
    file.open();
    file.logAndSettle(0, 5);
    file.close();
    ASSERT_TRUE(disk_.remount(/*readOnly=*/true));
    file.open();
    EXPECT_THAT(file.errors(),
                ElementsAre("Attempt to open log file for appending failed: The file “" + (disk_ / "app.log") +
                            "” couldn’t be opened for writing: Read-only file system"));
    file.logAndSettle(5, 10);
    FaultyCalls::passTime(untilTheNextLook);
    file.logAndSettle(10, 15);
    ASSERT_TRUE(disk_.remount(/*readOnly=*/false));
    FaultyCalls::passTime(untilTheNextLook);
    file.logAndSettle(15, 20);
    EXPECT_EQ(file.found().numbers, (std::vector<int>{0, 1, 2, 3, 4, 15, 16, 17, 18, 19}));
    EXPECT_THAT(file.found().torn, IsEmpty());
    EXPECT_EQ(file.errors().size(), 1U);
}

TEST_P(ReadOnlyDisk, MountedOverTheFolderLosesNoLine) {
    LoggedFile file(GetParam(), disk_ / "app.log");
    file.open();
    file.logAndSettle(0, 5);
    ASSERT_EQ(::mount("over", disk_.path().c_str(), "tmpfs", MS_RDONLY, nullptr), 0);
    FaultyCalls::passTime(untilTheNextLook);
    file.logAndSettle(5, 10);
    ASSERT_EQ(::umount2(disk_.path().c_str(), 0), 0);
    FaultyCalls::passTime(untilTheNextLook);
    file.logAndSettle(10, 15);
    EXPECT_EQ(file.found().numbers, numbersFrom(0, 15));
    EXPECT_THAT(file.found().torn, IsEmpty());
    EXPECT_THAT(file.errors(), IsEmpty());
}

}  // namespace
}  // namespace velora::test
