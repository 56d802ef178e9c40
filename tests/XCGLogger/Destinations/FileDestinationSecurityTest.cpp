// Whom a log file is open to, and which links it follows.

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/stat.h>

#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>

#include "XCGLogger/Destinations/FileDestinationTestSupport.h"
#include "support/OtherUser.h"

namespace velora::test {
namespace {

namespace fs = std::filesystem;
using testing::EndsWith;
using testing::HasSubstr;

class FileDestinationSecurity : public FileDestinationTest {
protected:
    FileDestinationSecurity() : umask_(::umask(0)) {}
    ~FileDestinationSecurity() override { ::umask(umask_); }

    /// A file with attributes, added to the logger.
    std::shared_ptr<FileDestination> addFileWith(unsigned permissions, bool shouldAppend = false) {
        const auto file = make<FileDestination>(nullptr, path_, "file", shouldAppend, std::nullopt,
                                                FileAttributes{{FileAttributeKey::posixPermissions, permissions}});
        log_.add(file);
        return file;
    }

private:
    mode_t umask_;
};

TEST_F(FileDestinationSecurity, GivesNewFilesNoMoreThanTheUserAndTheGroup) {
    const auto file = addFile();
    EXPECT_EQ(permissionsOf(path_), 0640U);
    ::umask(027);
    ASSERT_TRUE(file->rotateFile(archive_));
    EXPECT_EQ(permissionsOf(archive_), 0640U);
    EXPECT_EQ(permissionsOf(path_), 0640U);
    ::umask(077);
    fs::remove(archive_);
    ASSERT_TRUE(file->rotateFile(archive_));
    EXPECT_EQ(permissionsOf(path_), 0600U);
}

TEST_F(FileDestinationSecurity, LeavesTheModeOfAnExistingFile) {
    for (const bool shouldAppend : {false, true}) {
        for (const unsigned permissions : {0600U, 0666U, 0400U | 0200U | 0044U}) {
            writeFile(path_, "before\n");
            ASSERT_EQ(::chmod(path_.c_str(), permissions), 0);
            const auto file = addFile(shouldAppend);
            log_.info("text");
            EXPECT_EQ(permissionsOf(path_), permissions);
            EXPECT_TRUE(log_.remove(file));
        }
    }
}

TEST_F(FileDestinationSecurity, GivesEveryFileThatItMakesTheModeThatTheHostAskedFor) {
    ::umask(077);
    const auto file = addFileWith(0604);
    EXPECT_EQ(permissionsOf(path_), 0604U);
    ASSERT_TRUE(file->rotateFile(archive_));
    EXPECT_EQ(permissionsOf(path_), 0604U);
    EXPECT_EQ(permissionsOf(archive_), 0604U);
}

TEST_F(FileDestinationSecurity, GivesAFileThatItGoesOnInNoMoreThanTheHostAskedFor) {
    writeFile(path_, "before\n");
    ASSERT_EQ(::chmod(path_.c_str(), 0644), 0);
    const auto file = addFileWith(0600, /*shouldAppend=*/true);
    EXPECT_EQ(permissionsOf(path_), 0644U) << "attributes are for files that are made";
    ASSERT_TRUE(file->rotateFile(archive_));
    EXPECT_EQ(permissionsOf(path_), 0600U);
}

TEST_F(FileDestinationSecurity, FollowsALinkThatTheHostNamesAndMovesOnlyTheLink) {
    const std::string elsewhere = folder_ / "elsewhere.log";
    fs::create_symlink(elsewhere, path_);
    const auto file = addFile();
    log_.info("through the link");
    EXPECT_TRUE(fs::is_symlink(path_));
    EXPECT_THAT(readFile(elsewhere), EndsWith("> through the link\n"));
    ASSERT_TRUE(file->rotateFile(archive_));
    EXPECT_TRUE(fs::is_symlink(archive_));
    EXPECT_FALSE(fs::is_symlink(path_));
    log_.info("after it");
    EXPECT_THAT(readFile(elsewhere), testing::Not(HasSubstr("after it")));
}

TEST_F(FileDestinationSecurity, WritesToADeviceThatTheHostNamesAndLeavesItsMode) {
    if (!canBecomeOtherUsers()) {
        GTEST_SKIP() << "only the superuser can be kept from changing a device";
    }
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(::stat("/dev/null", &before), 0);
    const auto file = make<FileDestination>(nullptr, "/dev/null", "file");
    log_.add(file);
    EXPECT_TRUE(file->isOpen());
    ASSERT_EQ(::stat("/dev/null", &after), 0);
    EXPECT_EQ(before.st_mode, after.st_mode);
    EXPECT_EQ(before.st_rdev, after.st_rdev);
}

TEST_F(FileDestinationSecurity, OpensNoFileThatTheUserMayNotWriteTo) {
    if (!canBecomeOtherUsers()) {
        GTEST_SKIP() << "only the superuser can act as another user";
    }
    const SharedFolder shared;
    const std::string victim = shared / "victim.log";
    writeFile(victim, "of the superuser\n");
    ASSERT_EQ(::chmod(victim.c_str(), 0644), 0);
    EXPECT_EQ(resultAsUser(anotherUser,
                           [&] {
                               const auto file = make<FileDestination>(nullptr, victim, "file");
                               log_.add(file);
                               log_.info("forged");
                               const bool isOpen = file->isOpen();
                               log_.remove(file);
                               return isOpen ? 1 : 0;
                           }),
              0);
    EXPECT_EQ(readFile(victim), "of the superuser\n");
}

}  // namespace
}  // namespace velora::test
