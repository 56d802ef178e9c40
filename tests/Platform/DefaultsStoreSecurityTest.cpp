// Who may see the settings, and what another user can make the store do to files that are not its own.

#include <array>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/Platform/FileContents.h>

#include "DefaultsStoreTestSupport.h"
#include "support/OtherUser.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

namespace fs = std::filesystem;

constexpr std::array besideStore{"UserDefaults.json.lock", "UserDefaults.json.new"};

unsigned modeOf(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

/// 0 if all that the store has made below `folder` is for its owner alone, else a number that tells where not.
int faultOfModes(const std::string& folder) {
    if (modeOf(folder + "/config") != 0700 || modeOf(folder + "/config/below") != 0700) {
        return 1;
    }
    int files = 0;
    for (const auto& entry : fs::directory_iterator(folder + "/config/below")) {
        ++files;
        if (modeOf(entry.path().string()) != 0600) {
            return 2;
        }
    }
    return files == 2 ? 0 : 3;  // the store and the lock
}

int faultAfterWritesUnder(mode_t mask, const std::string& folder) {
    ::umask(mask);
    DefaultsStore store(folder + "/config/below/UserDefaults.json");
    const Reports reports(store);
    for (int number = 1; number < 4; ++number) {
        if (!store.setInteger("number", number) || store.integer("number") != number) {
            return 4;
        }
    }
    return faultOfModes(folder);
}

TEST(DefaultsStoreSecurity, KeepsSettingsToTheirOwnerWhateverTheUmask) {
    for (const mode_t mask : {0U, 022U, 077U, 0177U, 0277U, 0777U}) {
        const TemporaryFolder folder;
        EXPECT_EQ(resultOfForkedChild([&] { return faultAfterWritesUnder(mask, folder.path().string()); }), 0) << mask;
        if (canBecomeOtherUsers()) {
            // The superuser may open what nobody may.
            const SharedFolder shared;
            const std::string home = shared.folderOf(someUser);
            EXPECT_EQ(resultAsUser(someUser, [&] { return faultAfterWritesUnder(mask, home); }), 0) << mask;
        }
    }
}

TEST(DefaultsStoreSecurity, LeavesFoldersThatExistAsTheyAre) {
    const TemporaryFolder folder;
    ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
    ASSERT_TRUE(DefaultsStore(folder / "UserDefaults.json").setInteger("number", 1));
    EXPECT_EQ(modeOf(folder.path().string()), 0755U);
}

TEST(DefaultsStoreSecurity, ClosesFilesThatWereOpenToOthers) {
    const TemporaryFolder folder;
    DefaultsStore store(folder / "UserDefaults.json");
    ASSERT_TRUE(store.setString("secret", "old"));
    ASSERT_TRUE(store.setString("secret", "older"));
    for (const std::string& name : filesBeginningWith(folder.path(), "")) {
        ASSERT_EQ(::chmod((folder / name).c_str(), 0666), 0);
    }
    ASSERT_TRUE(store.setString("secret", "new"));
    ASSERT_TRUE(DefaultsStore(folder / "UserDefaults.json").setString("secret", "newer"));
    EXPECT_EQ(modeOf(folder / "UserDefaults.json.lock"), 0600U);
    EXPECT_EQ(modeOf(folder / "UserDefaults.json"), 0600U);
}

TEST(DefaultsStoreSecurity, LeavesNoFormerSettingsThatOthersCanRead) {
    const TemporaryFolder folder;
    writeFile(folder / "UserDefaults.json", "{\"secret\": \"former\"}");
    ASSERT_EQ(::chmod((folder / "UserDefaults.json").c_str(), 0644), 0);
    ASSERT_TRUE(DefaultsStore(folder / "UserDefaults.json").setString("secret", "new"));
    for (const std::string& name : filesBeginningWith(folder.path(), "")) {
        EXPECT_EQ(modeOf(folder / name) & 077U, 0U) << name;
    }
}

TEST(DefaultsStoreSecurity, IsNotLedAstrayByWhatLiesAtTheNamesBesideIt) {
    const std::vector<std::function<void(const std::string&)>> traps{
        [](const std::string& path) { fs::create_directory(path); },
        [](const std::string& path) { ASSERT_EQ(::mkfifo(path.c_str(), 0666), 0); },
        [](const std::string& path) { fs::create_symlink("/dev/full", path); },
        [](const std::string& path) { fs::create_symlink("not there", path); },
        [](const std::string& path) { fs::create_symlink("UserDefaults.json", path); },
    };
    for (std::size_t trap = 0; trap < traps.size(); ++trap) {
        for (const char* name : besideStore) {
            const TemporaryFolder folder;
            traps[trap](folder / name);
            DefaultsStore store(folder / "UserDefaults.json");
            const Reports reports(store);
            const bool isStored = store.setInteger("number", 1);
            EXPECT_EQ(store.integer("number"), isStored ? 1 : 0) << name << " " << trap;
            EXPECT_EQ(reports.lines().empty(), isStored) << name << " " << trap;
            EXPECT_FALSE(fs::exists(folder / "not there"));
        }
    }
}

TEST(DefaultsStoreSecurity, KeepsEveryKeyInItsFile) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "config");
    DefaultsStore store(folder / "config/UserDefaults.json");
    for (const char* key : {"../escaped", "/etc/escaped", "..", "a/b", "~/escaped", "%2e%2e/escaped"}) {
        ASSERT_TRUE(store.setInteger(key, 7)) << key;
        EXPECT_EQ(DefaultsStore(folder / "config/UserDefaults.json").integer(key), 7) << key;
    }
    EXPECT_EQ(filesBeginningWith(folder.path(), ""), std::vector<std::string>{"config"});
    EXPECT_EQ(filesBeginningWith(folder.path() / "config", "").size(), 2U);
}

TEST(DefaultsStoreSecurity, FollowsNoLinkThatAnotherUserPutIntoAFolderOfAll) {
    if (!canBecomeOtherUsers()) {
        GTEST_SKIP() << "only the superuser can act as another user";
    }
    const SharedFolder shared;
    const std::string home = shared.folderOf(someUser);
    const std::string precious = "{\"precious\": true}";
    writeFile(home + "/victim.json", precious);
    ASSERT_EQ(::chown((home + "/victim.json").c_str(), someUser, someUser), 0);
    ASSERT_EQ(resultAsUser(anotherUser,
                           [&] { return ::symlink((home + "/victim.json").c_str(), (shared / "store.json").c_str()); }),
              0);
    const auto write = [&] {
        DefaultsStore store(shared / "store.json");
        const Reports reports(store);
        store.setInteger("number", 1);
        return 0;
    };
    EXPECT_EQ(resultAsUser(someUser, write), 0);
    EXPECT_EQ(readFile(home + "/victim.json"), precious);
    EXPECT_EQ(resultOfForkedChild(write), 0) << "as the superuser";
    EXPECT_EQ(readFile(home + "/victim.json"), precious);
}

/// Puts links to `victim` at every name that is free beside the store, until the process is ended.
[[noreturn]] void plantForEver(const std::string& folder, const std::string& victim) {
    for (;;) {
        for (const char* name : besideStore) {
            const std::string path = folder + "/" + name;
            static_cast<void>(::symlink(victim.c_str(), path.c_str()));
            ::unlink(path.c_str());
            static_cast<void>(::link(victim.c_str(), path.c_str()));
            ::unlink(path.c_str());
        }
    }
}

TEST(DefaultsStoreSecurity, BearsThatAnotherUserPlantsLinksWhileItWrites) {
    if (!canBecomeOtherUsers()) {
        GTEST_SKIP() << "only the superuser can act as another user";
    }
    const std::string precious = "precious data";
    for (int round = 0; round < 20; ++round) {
        const SharedFolder shared;
        const std::string victim = shared.folderOf(someUser, 0755) + "/victim";
        writeFile(victim, precious);
        ASSERT_EQ(::chown(victim.c_str(), someUser, someUser), 0);
        const pid_t attacker = ::fork();
        if (attacker == 0) {
            ::alarm(30);
            if (::setresgid(anotherUser, anotherUser, anotherUser) == 0 &&
                ::setresuid(anotherUser, anotherUser, anotherUser) == 0) {
                plantForEver(shared.path(), victim);
            }
            ::_exit(1);
        }
        const int stored = resultAsUser(someUser, [&] {
            int writes = 0;
            for (int number = 0; number < 10; ++number) {
                DefaultsStore store(shared / "UserDefaults.json");
                const Reports reports(store);
                writes += store.setInteger("number", number) ? 1 : 0;
            }
            return writes;
        });
        ::kill(attacker, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(attacker, &status, 0), attacker);
        ASSERT_TRUE(WIFSIGNALED(status)) << "nobody attacked";
        EXPECT_GE(stored, 0);
        EXPECT_EQ(readFile(victim), precious);
        EXPECT_EQ(modeOf(victim), 0644U);
    }
}

TEST(DefaultsStoreSecurity, FollowsLinksOfTheUsersOwnEvenThere) {
    const SharedFolder shared;
    const TemporaryFolder home;
    fs::create_symlink(home / "store.json", shared / "store.json");
    ASSERT_TRUE(DefaultsStore(shared / "store.json").setInteger("number", 1));
    EXPECT_TRUE(fs::is_symlink(shared / "store.json"));
    EXPECT_EQ(DefaultsStore(home / "store.json").integer("number"), 1);
}

TEST(DefaultsStoreSecurity, WritesThroughNoSecondNameThatTheOwnerOfTheFolderGaveAFileOfOurs) {
    if (!canBecomeOtherUsers()) {
        GTEST_SKIP() << "only the superuser can act as another user";
    }
    const std::string precious = "precious data of the superuser";
    for (const char* name : besideStore) {
        const SharedFolder shared;
        const std::string home = shared.folderOf(anotherUser);
        writeFile(shared / "victim", precious);
        // Where the system lets users give names to files of others (fs.protected_hardlinks), they can do it as well.
        fs::create_hard_link(shared / "victim", home + "/" + name);
        DefaultsStore store(home + "/UserDefaults.json");
        const Reports reports(store);
        store.setInteger("number", 1);
        store.setInteger("number", 2);
        EXPECT_EQ(readFile(shared / "victim"), precious) << name;
        struct stat status {};
        ASSERT_EQ(::stat((shared / "victim").c_str(), &status), 0);
        EXPECT_EQ(status.st_uid, 0U) << name;
    }
}

TEST(DefaultsStoreSecurity, ExportsToAFileOfItsOwnInAFolderOfAll) {
    const SharedFolder shared;
    writeFile(shared / "victim", "precious data");
    fs::create_symlink("victim", shared / "exported");
    ASSERT_EQ(replaceFile(shared / "exported", "settings"), "");
    EXPECT_EQ(readFile(shared / "victim"), "precious data");
    EXPECT_EQ(readFile(shared / "exported"), "settings");
    EXPECT_EQ(modeOf(shared / "exported"), 0600U);
}

}  // namespace
}  // namespace velora::test
