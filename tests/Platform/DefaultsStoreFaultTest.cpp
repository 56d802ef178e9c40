// What the machine can refuse: full disks, folders that may not be written to, files of somebody else.

#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

#include "DefaultsStoreTestSupport.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

constexpr uid_t somebody = 65534;
constexpr int noPermission = 77;

/// Makes a process of the superuser one of `somebody`; any other stays what it is.
void becomeOrdinaryUser() {
    if (::geteuid() == 0 &&
        (::setresgid(somebody, somebody, somebody) != 0 || ::setresuid(somebody, somebody, somebody) != 0)) {
        ::_exit(noPermission);
    }
}

void giveToOrdinaryUser(const std::string& path) {
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(path.c_str(), somebody, somebody), 0);
    }
}

/// Ends a child process that meets something else than expected, with a line for the log.
void require(bool condition, const char* text) {
    if (!condition) {
        ::dprintf(STDERR_FILENO, "not so: %s\n", text);
        ::_exit(1);
    }
}
#define REQUIRE(condition) require(condition, #condition)

class DefaultsStoreFaults : public ::testing::Test {
protected:
    TemporaryFolder folder;
    std::string file = folder / "UserDefaults.json";
};

void fillUp(const std::string& path) {
    const int filler = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    const std::string block(4096, 'x');
    while (::write(filler, block.data(), block.size()) > 0) {
    }
    ::close(filler);
}

TEST_F(DefaultsStoreFaults, ChangeNothingOnAFullDisk) {
    const int result = inChildProcess([this] {
        const char* path = folder.path().c_str();
        if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("tmpfs", path, "tmpfs", 0, "size=64k") != 0) {
            ::_exit(noPermission);
        }
        DefaultsStore store(file);
        const Reports reports(store);
        REQUIRE(store.setInteger("number", 6));
        fillUp(folder / "filler");
        const std::string before = readFile(file);
        REQUIRE(!store.setString("text", std::string(100, 'x')));
        REQUIRE(!store.setInteger("number", 7));
        REQUIRE(store.integer("number") == 6);
        REQUIRE(readFile(file) == before);
        REQUIRE(DefaultsStore(file).integer("number") == 6);
        REQUIRE(filesBeginningWith(folder.path(), "UserDefaults.json.spare").empty());
        REQUIRE(reports.lines().size() == 2 && reports.lines()[0].ends_with("No space left on device."));
        std::filesystem::remove(folder / "filler");
        REQUIRE(store.setInteger("number", 8));
        REQUIRE(DefaultsStore(file).integer("number") == 8);
        return 0;
    });
    if (result == noPermission) {
        GTEST_SKIP() << "mounting a small file system needs the superuser";
    }
    EXPECT_EQ(result, 0);
}

TEST_F(DefaultsStoreFaults, ChangeNothingOnADiskThatIsFullFromTheStart) {
    const int result = inChildProcess([this] {
        const char* path = folder.path().c_str();
        if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            ::mount("tmpfs", path, "tmpfs", 0, "size=64k") != 0) {
            ::_exit(noPermission);
        }
        fillUp(folder / "filler");
        DefaultsStore store(file);
        const Reports reports(store);
        store.registerDefault("number", 6);
        REQUIRE(store.integer("number") == 6);
        REQUIRE(!store.setInteger("number", 7));
        REQUIRE(store.integer("number") == 6);
        REQUIRE(reports.lines().size() == 1);
        std::filesystem::remove(folder / "filler");
        REQUIRE(store.setInteger("number", 8));
        REQUIRE(store.integer("number") == 8);
        return 0;
    });
    if (result == noPermission) {
        GTEST_SKIP() << "mounting a small file system needs the superuser";
    }
    EXPECT_EQ(result, 0);
}

TEST_F(DefaultsStoreFaults, LeaveAReadOnlyFolderAsItIs) {
    writeFile(file, "{\"number\": 6}");
    giveToOrdinaryUser(file);
    giveToOrdinaryUser(folder.path().string());
    ASSERT_EQ(::chmod(folder.path().c_str(), 0500), 0);
    EXPECT_EQ(inChildProcess([this] {
                  becomeOrdinaryUser();
                  DefaultsStore store(file);
                  const Reports reports(store);
                  REQUIRE(store.integer("number") == 6);
                  REQUIRE(reports.lines().empty());
                  REQUIRE(!store.setInteger("number", 7));
                  REQUIRE(store.integer("number") == 6);
                  REQUIRE(reports.lines().size() == 1 && reports.lines()[0].ends_with("Permission denied."));
                  // Nothing can be mapped here, yet an edit is seen at once.
                  writeFile(file, "{\"number\": 10}");
                  REQUIRE(store.integer("number") == 10);
                  writeFile(file, "{\"number\": 11}");
                  REQUIRE(store.integer("number") == 11);
                  return 0;
              }),
              0);
    EXPECT_EQ(filesBeginningWith(folder.path(), "").size(), 1U);
    ::chmod(folder.path().c_str(), 0700);
}

TEST_F(DefaultsStoreFaults, ReportDamageThatCannotBeSetAsideOnce) {
    writeFile(file, "damage");
    makeOld(file);
    giveToOrdinaryUser(file);
    giveToOrdinaryUser(folder.path().string());
    ASSERT_EQ(::chmod(folder.path().c_str(), 0500), 0);
    EXPECT_EQ(inChildProcess([this] {
                  becomeOrdinaryUser();
                  DefaultsStore store(file);
                  const Reports reports(store);
                  store.registerDefault("number", 6);
                  for (int read = 0; read < 5; ++read) {
                      REQUIRE(store.integer("number") == 6);
                  }
                  REQUIRE(reports.lines().size() == 1);
                  REQUIRE(reports.lines()[0].find("stays in place") != std::string::npos);
                  REQUIRE(!store.setInteger("number", 7));
                  return 0;
              }),
              0);
    ::chmod(folder.path().c_str(), 0700);
    EXPECT_EQ(readFile(file), "damage");
}

TEST_F(DefaultsStoreFaults, NeverReplaceAFileThatMayNotBeRead) {
    writeFile(file, "{\"number\": 6}");
    ASSERT_EQ(::chmod(file.c_str(), 0000), 0);
    giveToOrdinaryUser(file);
    giveToOrdinaryUser(folder.path().string());
    EXPECT_EQ(inChildProcess([this] {
                  becomeOrdinaryUser();
                  DefaultsStore store(file);
                  const Reports reports(store);
                  REQUIRE(store.integer("number") == 0);
                  REQUIRE(store.integer("number") == 0);
                  REQUIRE(reports.lines().size() == 1);
                  REQUIRE(!store.setInteger("number", 7));
                  return 0;
              }),
              0);
    ::chmod(file.c_str(), 0600);
    EXPECT_EQ(readFile(file), "{\"number\": 6}");
}

TEST_F(DefaultsStoreFaults, ReportAFolderThatCannotBeMade) {
    writeFile(folder / "file", "");
    DefaultsStore store(folder / "file/below/UserDefaults.json");
    const Reports reports(store);
    EXPECT_EQ(store.integer("number"), 0);
    EXPECT_FALSE(store.setInteger("number", 1));
    ASSERT_EQ(reports.lines().size(), 1U);
    EXPECT_THAT(reports.lines()[0], ::testing::HasSubstr("Not a directory"));
}

TEST_F(DefaultsStoreFaults, DoNotFollowPlantedLinks) {
    writeFile(folder / "victim", "precious data");
    for (const char* name : {"UserDefaults.json.lock", "UserDefaults.json.spare", "UserDefaults.json.generation"}) {
        const std::string own = folder / (std::string("for ") + name);
        std::filesystem::create_directory(own);
        std::filesystem::create_symlink(folder / "victim", own + "/" + name);
        DefaultsStore store(own + "/UserDefaults.json");
        const Reports reports(store);
        store.integer("number");
        store.setInteger("number", 1);
        EXPECT_EQ(readFile(folder / "victim"), "precious data") << name;
    }
}

TEST_F(DefaultsStoreFaults, GiveWhatRootWritesToTheOwnerOfTheFolder) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs the superuser";
    }
    giveToOrdinaryUser(folder.path().string());
    DefaultsStore store(file);
    ASSERT_TRUE(store.setInteger("number", 1));
    for (const std::string& name : filesBeginningWith(folder.path(), "")) {
        struct stat status {};
        ASSERT_EQ(::stat((folder / name).c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, somebody) << name;
    }
    EXPECT_EQ(inChildProcess([this] {
                  becomeOrdinaryUser();
                  REQUIRE(DefaultsStore(file).setInteger("number", 2));
                  return 0;
              }),
              0);
    EXPECT_EQ(store.integer("number"), 2);
}

TEST_F(DefaultsStoreFaults, NeverWriteOverAFileThatSomebodyReads) {
    DefaultsStore store(file);
    ASSERT_TRUE(store.setInteger("number", 1));
    const std::string before = readFile(file);
    const int reading = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
    for (int number = 2; number < 10; ++number) {
        ASSERT_TRUE(store.setInteger("number", number));
    }
    std::string bytes(before.size() + 1, ' ');
    ASSERT_EQ(::read(reading, bytes.data(), bytes.size()), static_cast<ssize_t>(before.size()));
    bytes.pop_back();
    EXPECT_EQ(bytes, before);
    ::close(reading);
}

TEST_F(DefaultsStoreFaults, NeverWriteOverAFileThatHasAnotherName) {
    DefaultsStore store(file);
    ASSERT_TRUE(store.setInteger("number", 1));
    std::filesystem::create_hard_link(file, folder / "backup");
    for (int number = 2; number < 10; ++number) {
        ASSERT_TRUE(store.setInteger("number", number));
    }
    EXPECT_EQ(readFile(folder / "backup"), "{\n    \"number\": 1\n}\n");
    EXPECT_EQ(DefaultsStore(file).integer("number"), 9);
}

TEST_F(DefaultsStoreFaults, BearThatABackupGaveEveryFileASecondName) {
    DefaultsStore store(file);
    const Reports reports(store);
    ASSERT_TRUE(store.setInteger("number", 1));
    ASSERT_TRUE(store.setInteger("number", 2));
    std::filesystem::create_directory(folder / "backup");
    for (const std::string& name : filesBeginningWith(folder.path(), "UserDefaults.json")) {
        std::filesystem::create_hard_link(folder / name, folder / ("backup/" + name));
    }
    for (int number = 3; number < 10; ++number) {
        ASSERT_TRUE(store.setInteger("number", number));
        ASSERT_EQ(DefaultsStore(file).integer("number"), number);
    }
    EXPECT_EQ(readFile(folder / "backup/UserDefaults.json"), "{\n    \"number\": 2\n}\n");
    EXPECT_EQ(readFile(folder / "backup/UserDefaults.json.spare"), "{\n    \"number\": 1\n}\n");
    EXPECT_TRUE(reports.lines().empty());
}

TEST_F(DefaultsStoreFaults, DoNotWriteThroughASecondNameInAFolderOfAll) {
    writeFile(folder / "victim", "precious data");
    for (const char* name : {"UserDefaults.json.lock", "UserDefaults.json.spare", "UserDefaults.json.generation"}) {
        const std::string shared = folder / (std::string("for ") + name);
        std::filesystem::create_directory(shared);
        ASSERT_EQ(::chmod(shared.c_str(), 01777), 0);
        std::filesystem::create_hard_link(folder / "victim", shared + "/" + name);
        DefaultsStore store(shared + "/UserDefaults.json");
        const Reports reports(store);
        store.setInteger("number", 1);
        EXPECT_EQ(readFile(folder / "victim"), "precious data") << name;
    }
}

TEST_F(DefaultsStoreFaults, KeepAFileToItsOwnerThatWasOpenToOthers) {
    DefaultsStore store(file);
    for (int number = 1; number < 6; ++number) {
        ASSERT_TRUE(store.setString("text", std::string(static_cast<std::size_t>(100 / number), 'x')));
        EXPECT_EQ(DefaultsStore(file).string("text")->size(), static_cast<std::size_t>(100 / number));
        struct stat status {};
        ASSERT_EQ(::stat(file.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 07777U, 0600U);
        ::chmod(file.c_str(), 0644);
    }
}

TEST_F(DefaultsStoreFaults, TellStandardErrorIfNobodyElseIsTold) {
    std::filesystem::create_directory(file);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(DefaultsStore(file).integer("number"), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Preferences: cannot use " + file + ": it is a folder.\n");
}

}  // namespace
}  // namespace velora::test
