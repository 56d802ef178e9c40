// What the machine can refuse: full disks, folders that may not be written to, files of somebody else.

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

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
    TemporaryFolder backup;
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
        REQUIRE(filesBeginningWith(folder.path(), "UserDefaults.json.new").empty());
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
                  return 0;
              }),
              0);
    EXPECT_EQ(filesBeginningWith(folder.path(), "").size(), 1U);
    ::chmod(folder.path().c_str(), 0700);
}

TEST_F(DefaultsStoreFaults, ReportDamageThatCannotBeSetAsideOnce) {
    writeFile(file, "damage");
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
                  REQUIRE(!store.setInteger("number", 7));
                  REQUIRE(reports.lines().size() == 2);
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
    for (const char* name : {"UserDefaults.json.lock", "UserDefaults.json.new"}) {
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
    EXPECT_TRUE(reports.lines().empty());
}

TEST_F(DefaultsStoreFaults, DoNotWriteThroughASecondNameInAFolderOfAll) {
    writeFile(folder / "victim", "precious data");
    for (const char* name : {"UserDefaults.json.lock", "UserDefaults.json.new"}) {
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

TEST_F(DefaultsStoreFaults, EndNoProgramWhenABackupIsCopiedOverTheFolder) {
    DefaultsStore store(file);
    ASSERT_TRUE(store.setInteger("number", 1));
    ASSERT_EQ(std::system(("cp -a '" + folder.path().string() + "/.' '" + backup.path().string() + "'").c_str()), 0);
    ASSERT_TRUE(store.setInteger("number", 2));
    EXPECT_EQ(
        inChildProcess([this] {
            DefaultsStore running(file);
            REQUIRE(running.integer("number") == 2);
            for (int round = 0; round < 20; ++round) {
                // cp truncates each file in its place and writes it anew.
                REQUIRE(std::system(
                            ("cp -a '" + backup.path().string() + "/.' '" + folder.path().string() + "'").c_str()) ==
                        0);
                running.integer("number");
                for (const std::string& name : filesBeginningWith(folder.path(), "UserDefaults.json")) {
                    std::filesystem::resize_file(folder / name, 0);
                    running.integer("number");
                }
            }
            REQUIRE(std::system(
                        ("cp -a '" + backup.path().string() + "/.' '" + folder.path().string() + "'").c_str()) == 0);
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            REQUIRE(running.integer("number") == 1);
            REQUIRE(running.setInteger("number", 3));
            return 0;
        }),
        0);
}

TEST_F(DefaultsStoreFaults, LeaveValuesAsTheyWereWithoutDescriptors) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "this sanitizer looks at objects through a pipe, for which there are no descriptors";
#endif
    DefaultsStore store(file);
    const Reports reports(store);
    store.registerDefaults({{"incoming", true}, {"pin", 6}});
    ASSERT_TRUE(store.importText(R"({"incoming": false, "encryption": true, "pin": 12})"));
    EXPECT_EQ(inChildProcess([&] {
                  REQUIRE(store.integer("pin") == 12);
                  std::vector<int> taken;
                  const int spare = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
                  const rlimit few{.rlim_cur = 64, .rlim_max = 64};
                  REQUIRE(::setrlimit(RLIMIT_NOFILE, &few) == 0);
                  for (int next = ::dup(spare); next >= 0; next = ::dup(spare)) {
                      taken.push_back(next);
                  }
                  const auto areAsTheyWere = [&store] {
                      return !store.boolean("incoming") && store.boolean("encryption") && store.integer("pin") == 12;
                  };
                  // The file has changed, so what is known is not known to be current.
                  REQUIRE(::utimensat(AT_FDCWD, file.c_str(), nullptr, 0) == 0);
                  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
                  while (std::chrono::steady_clock::now() < end) {
                      REQUIRE(areAsTheyWere());
                  }
                  REQUIRE(!store.setInteger("pin", 4));
                  REQUIRE(areAsTheyWere());
                  for (const int descriptor : taken) {
                      ::close(descriptor);
                  }
                  std::this_thread::sleep_for(std::chrono::milliseconds(50));
                  REQUIRE(areAsTheyWere());
                  REQUIRE(store.setInteger("pin", 4));
                  REQUIRE(store.integer("pin") == 4);
                  return 0;
              }),
              0);
    EXPECT_EQ(DefaultsStore(file).integer("pin"), 4);
}

TEST_F(DefaultsStoreFaults, AreGoneAsSoonAsThereAreDescriptorsAgain) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "this sanitizer looks at objects through a pipe, for which there are no descriptors";
#endif
    writeFile(file, R"({"pin": 12})");
    EXPECT_EQ(inChildProcess([this] {
                  std::vector<int> taken;
                  const int spare = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
                  for (int next = ::dup(spare); next >= 0; next = ::dup(spare)) {
                      taken.push_back(next);
                  }
                  DefaultsStore store(file);
                  const Reports reports(store);
                  store.registerDefault("pin", 6);
                  REQUIRE(store.integer("pin") == 6);
                  REQUIRE(reports.lines().size() == 1);
                  for (const int descriptor : taken) {
                      ::close(descriptor);
                  }
                  std::this_thread::sleep_for(std::chrono::milliseconds(50));
                  REQUIRE(store.integer("pin") == 12);
                  return 0;
              }),
              0);
}

TEST_F(DefaultsStoreFaults, TellWhoseLockFileMakesAWriteWait) {
    DefaultsStore store(file);
    const Reports reports(store);
    ASSERT_TRUE(store.setInteger("number", 1));
    const int holder = ::open((file + ".lock").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(holder, LOCK_EX), 0);
    std::jthread writer([&store] { EXPECT_TRUE(store.setInteger("number", 2)); });
    while (reports.lines().empty()) {
        EXPECT_EQ(store.integer("number"), 1) << "readers do not wait";
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_EQ(reports.lines()[0], "Preferences: somebody holds " + file + ".lock; writing waits for it.");
    EXPECT_EQ(store.integer("number"), 1);
    ::close(holder);
    writer.join();
    EXPECT_EQ(store.integer("number"), 2);
    EXPECT_EQ(reports.lines().size(), 1U);
}

TEST_F(DefaultsStoreFaults, SendTheHostNoSignal) {
    static volatile std::sig_atomic_t signals = 0;
    struct sigaction counting {};
    counting.sa_handler = [](int) { signals = signals + 1; };
    struct sigaction urgent {};
    struct sigaction io {};
    ::sigaction(SIGURG, &counting, &urgent);
    ::sigaction(SIGIO, &counting, &io);
    DefaultsStore store(file);
    for (int number = 0; number < 50; ++number) {
        std::jthread reading([this] { readFile(file + ".new"); });
        ASSERT_TRUE(store.setInteger("number", number));
    }
    ::sigaction(SIGURG, &urgent, nullptr);
    ::sigaction(SIGIO, &io, nullptr);
    EXPECT_EQ(signals, 0);
    EXPECT_THAT(filesBeginningWith(folder.path(), ""),
                ::testing::UnorderedElementsAre("UserDefaults.json", "UserDefaults.json.lock"));
}

TEST_F(DefaultsStoreFaults, LeaveAUserWhomRootHasProvisionedHisFolders) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs the superuser";
    }
    giveToOrdinaryUser(folder.path().string());
    const std::string below = folder / ".config/Some Application/UserDefaults.json";
    ASSERT_TRUE(DefaultsStore(below).setInteger("number", 1));
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder.path())) {
        struct stat status {};
        ASSERT_EQ(::stat(entry.path().c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, somebody) << entry.path();
    }
    EXPECT_EQ(inChildProcess([&] {
                  becomeOrdinaryUser();
                  DefaultsStore store(below);
                  REQUIRE(store.integer("number") == 1);
                  REQUIRE(store.setInteger("number", 2));
                  return 0;
              }),
              0);
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
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "Preferences: cannot read " + file + ": it is a folder.\n");
}

}  // namespace
}  // namespace velora::test
