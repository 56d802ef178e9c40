// Whose file lines wait in, and whom it is open to.

#include <cerrno>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include <Velora_UserDefaults/XCGLogger/Destinations/PendingLines.h>

#include "support/OtherUser.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

constexpr std::size_t smallCapacity = 4'096;

unsigned modeOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0);
    return status.st_mode & 07777U;
}

TEST(PendingLinesSecurity, MakesTheFileTheUsersAloneAgain) {
    const TemporaryFolder folder;
    const std::string path = folder / "pending";
    { ASSERT_TRUE(PendingLines().moveTo(path, smallCapacity, "")); }
    EXPECT_EQ(modeOf(path), 0600U);
    ASSERT_EQ(::chmod(path.c_str(), 0666), 0);
    { ASSERT_TRUE(PendingLines().moveTo(path, smallCapacity, "")); }
    EXPECT_EQ(modeOf(path), 0600U);
}

TEST(PendingLinesSecurity, LeavesOtherFilesAsTheyAre) {
    const TemporaryFolder folder;
    const std::string path = folder / "letter";
    writeFile(path, "Dear Ann");
    ASSERT_EQ(::chmod(path.c_str(), 0644), 0);
    EXPECT_EQ(PendingLines().moveTo(path, smallCapacity, "").error().code, EEXIST);
    EXPECT_EQ(modeOf(path), 0644U);
    EXPECT_EQ(readFile(path), "Dear Ann");
}

TEST(PendingLinesSecurity, RefusesAFileThatAnotherUserPrepared) {
    if (!canBecomeOtherUsers()) {
        GTEST_SKIP() << "only root can act as other users";
    }
    const SharedFolder shared;
    const std::string path = shared / "pending";
    ASSERT_EQ(resultAsUser(anotherUser,
                           [&] {
                               ::umask(0);
                               const bool isMade = PendingLines().moveTo(path, smallCapacity, "").operator bool();
                               return isMade && ::chmod(path.c_str(), 0666) == 0 ? 0 : 1;
                           }),
              0);
    const std::string before = readFile(path);
    // The kernel may refuse it first (fs.protected_regular), by EACCES.
    const auto isRefused = testing::AnyOf(EPERM, EACCES);
    EXPECT_THAT(resultAsUser(someUser, [&] { return PendingLines().moveTo(path, smallCapacity, "").error().code; }),
                isRefused);
    EXPECT_THAT(PendingLines().moveTo(path, smallCapacity, "").error().code, isRefused) << "not even root uses it";
    EXPECT_EQ(modeOf(path), 0666U);
    EXPECT_EQ(readFile(path), before);
}

}  // namespace
}  // namespace velora::test
