#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>

#include <Velora_UserDefaults/Platform/OwnFolder.h>

#include "support/OtherUser.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

TEST(OwnFolder, IsAFolderOfTheUsersAmongThoseOfAll) {
    const SharedFolder shared;
    EXPECT_EQ(checkOwnFolder(shared / "log"), ENOENT);
    std::filesystem::create_directory(shared / "log");
    EXPECT_EQ(checkOwnFolder(shared / "log"), 0);
    writeFile(shared / "file", "text");
    EXPECT_EQ(checkOwnFolder(shared / "file"), ENOTDIR);
}

TEST(OwnFolder, IsNoLinkNoFolderOfAllAndNoneThatAllMayReplace) {
    const SharedFolder shared;
    std::filesystem::create_directory(shared / "log");
    std::filesystem::create_symlink("log", shared / "link");
    EXPECT_EQ(checkOwnFolder(shared / "link"), EPERM);
    ASSERT_EQ(::chmod((shared / "log").c_str(), 01777), 0);
    EXPECT_EQ(checkOwnFolder(shared / "log"), EPERM);
    ASSERT_EQ(::chmod((shared / "log").c_str(), 0755), 0);
    EXPECT_EQ(checkOwnFolder(shared / "log"), 0);
    ASSERT_EQ(::chmod(shared.path().c_str(), 0777), 0);
    EXPECT_EQ(checkOwnFolder(shared / "log"), EPERM);
}

TEST(OwnFolder, IsWhateverIsInAFolderThatOnlySomeMayWriteTo) {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "log");
    std::filesystem::create_symlink("log", folder / "link");
    EXPECT_EQ(checkOwnFolder(folder / "log"), 0);
    EXPECT_EQ(checkOwnFolder(folder / "link"), 0);
    EXPECT_EQ(checkOwnFolder(folder / "missing"), ENOENT);
}

TEST(OwnFolder, IsNotAnotherUsers) {
    if (!canBecomeOtherUsers()) {
        GTEST_SKIP() << "only the superuser can act as another user";
    }
    const SharedFolder shared;
    ASSERT_EQ(resultAsUser(anotherUser, [&] { return ::mkdir((shared / "log").c_str(), 0755); }), 0);
    EXPECT_EQ(resultAsUser(someUser, [&] { return checkOwnFolder(shared / "log"); }), EPERM);
    EXPECT_EQ(resultAsUser(anotherUser, [&] { return checkOwnFolder(shared / "log"); }), 0);
}

TEST(OwnFolder, IsMadeForItsOwnerAlone) {
    const TemporaryFolder folder;
    ASSERT_EQ(makeOwnFolder(folder / "a/b/c"), 0);
    for (const char* name : {"a", "a/b", "a/b/c"}) {
        EXPECT_EQ(std::filesystem::status(folder / name).permissions(), std::filesystem::perms(0700)) << name;
    }
    EXPECT_EQ(makeOwnFolder(folder / "a/b/c"), 0);
    writeFile(folder / "file", "");
    EXPECT_EQ(makeOwnFolder(folder / "file"), ENOTDIR);
    EXPECT_EQ(makeOwnFolder(folder / "file/below"), ENOTDIR);
}

TEST(OwnFolder, BelongsToTheUserInWhoseFolderRootMakesIt) {
    if (!canBecomeOtherUsers()) {
        GTEST_SKIP() << "only the superuser can act as another user";
    }
    const SharedFolder shared;
    const std::string home = shared.folderOf(someUser);
    ASSERT_EQ(makeOwnFolder(home + "/.config/Some Application"), 0);
    for (const char* name : {"/.config", "/.config/Some Application"}) {
        struct stat status {};
        ASSERT_EQ(::stat((home + name).c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, someUser) << name;
        EXPECT_EQ(status.st_gid, someUser) << name;
    }
    ASSERT_EQ(makeOwnFolder(shared / "roots"), 0);
    struct stat status {};
    ASSERT_EQ(::stat((shared / "roots").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 0U) << "in a folder of root";
}

TEST(OwnFolder, IsFoundBehindLinks) {
    const TemporaryFolder folder;
    std::filesystem::create_symlink("b", folder / "a");
    std::filesystem::create_symlink(folder / "c", folder / "b");
    EXPECT_EQ(resolvedOwnPath(folder / "a"), folder / "c");
    EXPECT_EQ(resolvedOwnPath(folder / "plain"), folder / "plain");
    std::filesystem::create_symlink("loop", folder / "loop");
    EXPECT_EQ(resolvedOwnPath(folder / "loop"), folder / "loop");
}

}  // namespace
}  // namespace velora::test
