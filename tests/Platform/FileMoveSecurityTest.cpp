#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>

#include <Velora_UserDefaults/Platform/FileMove.h>

#include "support/OtherUser.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

struct stat statusOf(const std::string& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status;
}

TEST(FileMoveSecurity, LendsNobodysRightsToACopyWithAnotherOwner) {
    if (!canBecomeOtherUsers()) {
        GTEST_SKIP() << "only the superuser can act as another user";
    }
    const SharedFolder shared;
    const std::string home = shared.folderOf(someUser);
    ASSERT_EQ(resultAsUser(anotherUser,
                           [&] {
                               writeFile(shared / "planted", "#!/bin/sh\n");
                               return ::chmod((shared / "planted").c_str(), 06755);
                           }),
              0);
    ASSERT_EQ(statusOf(shared / "planted").st_mode & 07777U, 06755U);
    ASSERT_EQ(resultAsUser(someUser, [&] { return copyWithoutReplacing(shared / "planted", home + "/copy"); }), 0);
    EXPECT_EQ(statusOf(home + "/copy").st_uid, someUser);
    EXPECT_EQ(statusOf(home + "/copy").st_mode & 07777U, 0755U);
    // Who may keep the owner keeps the bits too: nobody gets more than before.
    ASSERT_EQ(copyWithoutReplacing(shared / "planted", home + "/whole"), 0);
    EXPECT_EQ(statusOf(home + "/whole").st_uid, anotherUser);
    EXPECT_EQ(statusOf(home + "/whole").st_mode & 07777U, 06755U);
}

TEST(FileMoveSecurity, WritesACopyToNothingThatIsThere) {
    const TemporaryFolder folder;
    writeFile(folder / "from", "text");
    writeFile(folder / "victim", "precious data");
    std::filesystem::create_symlink("victim", folder / "link");
    std::filesystem::create_symlink("missing", folder / "dangling");
    EXPECT_EQ(copyWithoutReplacing(folder / "from", folder / "link"), EEXIST);
    EXPECT_EQ(copyWithoutReplacing(folder / "from", folder / "dangling"), EEXIST);
    EXPECT_EQ(renameWithoutReplacing(folder / "from", folder / "dangling"), EEXIST);
    EXPECT_EQ(readFile(folder / "victim"), "precious data");
    EXPECT_FALSE(std::filesystem::exists(folder / "missing"));
}

}  // namespace
}  // namespace velora::test
