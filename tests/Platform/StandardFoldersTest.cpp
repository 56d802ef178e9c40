#include <filesystem>
#include <gtest/gtest.h>
#include <pwd.h>
#include <stdlib.h>
#include <string>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/FileManager.h>
#include <Velora_UserDefaults/Platform/URL.h>

#include "support/EnvironmentVariable.h"
#include "support/TemporaryFolder.h"

namespace velora {
namespace {

using test::EnvironmentVariable;
using test::TemporaryFolder;
using test::writeFile;

/// The text of the one URL in `urls`; what is wrong with them otherwise.
std::string onlyURL(const std::vector<URL>& urls) {
    return urls.size() == 1 ? urls.front().absoluteString() : std::to_string(urls.size()) + " URLs";
}

/// A user whose home is a temporary folder and who has set nothing else.
class StandardFoldersTest : public testing::Test {
protected:
    StandardFoldersTest() { std::filesystem::create_directory(folder_ / ".config"); }

    /// The downloads folder with `userDirs` in the file that configures it.
    std::string downloadsWith(const std::string& userDirs) {
        writeFile(folder_ / ".config/user-dirs.dirs", userDirs);
        return onlyURL(FileManager::downloadsFolders());
    }

    TemporaryFolder folder_;
    std::string home_ = folder_.path().string();
    std::string homeURL_ = "file://" + home_;

private:
    EnvironmentVariable homeVariable_{"HOME", home_.c_str()};
    EnvironmentVariable dataVariable_{"XDG_DATA_HOME", nullptr};
    EnvironmentVariable configurationVariable_{"XDG_CONFIG_HOME", nullptr};
    EnvironmentVariable temporaryVariable_{"TMPDIR", nullptr};
};

TEST_F(StandardFoldersTest, KeepsApplicationDataInTheHomeFolder) {
    EXPECT_EQ(onlyURL(FileManager::applicationSupportFolders()), homeURL_ + "/.local/share/");
}

TEST_F(StandardFoldersTest, KeepsApplicationDataWhereTheUserWantsIt) {
    ::setenv("XDG_DATA_HOME", "/data of mine/ü", 1);
    EXPECT_EQ(onlyURL(FileManager::applicationSupportFolders()), "file:///data%20of%20mine/%C3%BC/");
    EXPECT_EQ(FileManager::applicationSupportFolders().front().path(), "/data of mine/ü");
}

TEST_F(StandardFoldersTest, TakesNoRelativePathForADataFolder) {
    for (const char* path : {"", "data", "./data", "~/data"}) {
        ::setenv("XDG_DATA_HOME", path, 1);
        EXPECT_EQ(onlyURL(FileManager::applicationSupportFolders()), homeURL_ + "/.local/share/") << path;
    }
}

TEST_F(StandardFoldersTest, KeepsSettingsInTheHomeFolderIfThereIsOne) {
    EXPECT_EQ(FileManager::configurationFolder(), home_ + "/.config");
    ::setenv("XDG_CONFIG_HOME", "/some/where", 1);
    EXPECT_EQ(FileManager::configurationFolder(), "/some/where");
    ::setenv("XDG_CONFIG_HOME", "relative", 1);
    EXPECT_EQ(FileManager::configurationFolder(), home_ + "/.config");
    ::setenv("HOME", (home_ + "/missing").c_str(), 1);
    EXPECT_EQ(FileManager::configurationFolder(), "") << "a home that is named but not there is not made";
}

TEST_F(StandardFoldersTest, ExpandsATilde) {
    EXPECT_EQ(FileManager::expandingTilde("~"), home_);
    EXPECT_EQ(FileManager::expandingTilde("~/a b"), home_ + "/a b");
    EXPECT_EQ(FileManager::expandingTilde("~root/x"), "/root/x");
    EXPECT_EQ(FileManager::expandingTilde("~no-such-user/x"), "~no-such-user/x");
    EXPECT_EQ(FileManager::expandingTilde("/a/~/b"), "/a/~/b");
    EXPECT_EQ(FileManager::expandingTilde(""), "");
}

TEST_F(StandardFoldersTest, AsksTheUserDatabaseWithoutAHomeInTheEnvironment) {
    const passwd* entry = ::getpwuid(::getuid());
    const std::string home = entry == nullptr ? "" : entry->pw_dir;
    if (home.empty() || home[0] != '/') {
        GTEST_SKIP() << "this user has no home in the user database";
    }
    ::unsetenv("HOME");
    EXPECT_EQ(FileManager::homeFolder(), home);
    ::setenv("HOME", "not/absolute", 1);
    EXPECT_EQ(FileManager::homeFolder(), home);
    ::setenv("HOME", "", 1);
    EXPECT_EQ(FileManager::homeFolder(), home);
}

TEST_F(StandardFoldersTest, AreNoneForAUserWithoutAHome) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can become a user who is not in the user database";
    }
    EXPECT_EXIT(
        {
            ::unsetenv("HOME");
            if (::setuid(3'999'999'999U) != 0) {
                ::_exit(3);
            }
            const bool isNone = FileManager::homeFolder().empty() && FileManager::applicationSupportFolders().empty() &&
                                FileManager::downloadsFolders().empty();
            ::_exit(isNone ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(StandardFoldersTest, HasHomeWithoutASlashAtItsEnd) {
    ::setenv("HOME", (home_ + "//").c_str(), 1);
    EXPECT_EQ(FileManager::homeFolder(), home_);
    ::setenv("HOME", "/", 1);
    EXPECT_EQ(FileManager::homeFolder(), "/");
    EXPECT_EQ(onlyURL(FileManager::applicationSupportFolders()), "file:///.local/share/");
    EXPECT_EQ(onlyURL(FileManager::downloadsFolders()), "file:///Downloads/");
}

TEST_F(StandardFoldersTest, DownloadsToTheHomeFolderUnlessToldOtherwise) {
    EXPECT_EQ(onlyURL(FileManager::downloadsFolders()), homeURL_ + "/Downloads/");
    EXPECT_EQ(downloadsWith(""), homeURL_ + "/Downloads/");
    EXPECT_EQ(downloadsWith("XDG_DESKTOP_DIR=\"$HOME/Desktop\"\n"), homeURL_ + "/Downloads/");
}

TEST_F(StandardFoldersTest, DownloadsWhereTheUsersFoldersFileSays) {
    EXPECT_EQ(downloadsWith("# a comment\n"
                            "XDG_DESKTOP_DIR=\"$HOME/Schreibtisch\"\n"
                            "XDG_DOWNLOAD_DIR=\"$HOME/Meine Downloads\"\n"
                            "XDG_MUSIC_DIR=\"$HOME/Musik\"\n"),
              homeURL_ + "/Meine%20Downloads/");
    EXPECT_EQ(downloadsWith("XDG_DOWNLOAD_DIR=\"/srv/downloads\""), "file:///srv/downloads/");
    EXPECT_EQ(downloadsWith(" \tXDG_DOWNLOAD_DIR = \"/srv/x/\" # why\n"), "file:///srv/x/");
    EXPECT_EQ(downloadsWith("XDG_DOWNLOAD_DIR=\"$HOME/\"\n"), homeURL_ + "/");
    EXPECT_EQ(downloadsWith("XDG_DOWNLOAD_DIR=\"$HOME\"\n"), homeURL_ + "/");
    EXPECT_EQ(downloadsWith("XDG_DOWNLOAD_DIR=\"/one\"\nXDG_DOWNLOAD_DIR=\"/two\"\n"), "file:///two/");
}

TEST_F(StandardFoldersTest, ResolvesBackslashesInTheUsersFoldersFile) {
    EXPECT_EQ(downloadsWith(R"(XDG_DOWNLOAD_DIR="$HOME/a\"b\\c\$d\`e")"), homeURL_ + "/a%22b%5Cc$d%60e/");
}

TEST_F(StandardFoldersTest, PassesOverLinesThatAreNotInTheFilesForm) {
    for (const std::string line :
         {"XDG_DOWNLOAD_DIR=$HOME/x", "XDG_DOWNLOAD_DIR=\"relative\"", "XDG_DOWNLOAD_DIR=\"$HOMEx/y\"",
          "XDG_DOWNLOAD_DIR=\"/unclosed", "XDG_DOWNLOAD_DIR=\"/ends in\\\"", "XDG_DOWNLOAD_DIR_2=\"/x\"",
          "#XDG_DOWNLOAD_DIR=\"/x\"", "XDG_DOWNLOAD_DIR=", "XDG_DOWNLOAD_DIR=\"\"", "XDG_DOWNLOAD_DIR \"/x\""}) {
        EXPECT_EQ(downloadsWith(line + "\n"), homeURL_ + "/Downloads/") << line;
        EXPECT_EQ(downloadsWith("XDG_DOWNLOAD_DIR=\"/good\"\n" + line + "\n"), "file:///good/") << line;
    }
}

TEST_F(StandardFoldersTest, FindsTheUsersFoldersFileInTheConfigurationFolder) {
    std::filesystem::create_directory(folder_ / "config");
    writeFile(folder_ / "config/user-dirs.dirs", "XDG_DOWNLOAD_DIR=\"$HOME/there\"\n");
    ::setenv("XDG_CONFIG_HOME", (folder_ / "config").c_str(), 1);
    EXPECT_EQ(onlyURL(FileManager::downloadsFolders()), homeURL_ + "/there/");
    ::setenv("XDG_CONFIG_HOME", "config", 1);
    EXPECT_EQ(downloadsWith("XDG_DOWNLOAD_DIR=\"$HOME/here\"\n"), homeURL_ + "/here/");
}

TEST_F(StandardFoldersTest, KeepsTemporaryFilesWhereTheEnvironmentSays) {
    EXPECT_EQ(FileManager::temporaryFolder(), "/tmp");
    ::setenv("TMPDIR", home_.c_str(), 1);
    EXPECT_EQ(FileManager::temporaryFolder(), home_);
    ::setenv("TMPDIR", (home_ + "/").c_str(), 1);
    EXPECT_EQ(FileManager::temporaryFolder(), home_);
    ::setenv("TMPDIR", "/", 1);
    EXPECT_EQ(FileManager::temporaryFolder(), "/");
}

TEST_F(StandardFoldersTest, KeepsTemporaryFilesInNoFolderThatIsNotOne) {
    writeFile(folder_ / "file", "");
    for (const std::string& path :
         {std::string(), std::string("relative"), std::string("."), folder_ / "missing", folder_ / "file"}) {
        ::setenv("TMPDIR", path.c_str(), 1);
        EXPECT_EQ(FileManager::temporaryFolder(), "/tmp") << path;
    }
}

}  // namespace
}  // namespace velora
