#include <cerrno>
#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/FileHandle.h>
#include <Velora_UserDefaults/Platform/FileManager.h>

#include "Platform/FileManagerTestSupport.h"
#include "support/TemporaryFolder.h"

namespace velora {
namespace {

using std::string_literals::operator""s;
using test::readFile;
using test::TemporaryFolder;
using test::writeFile;
using testing::UnorderedElementsAre;

namespace filesystem = std::filesystem;

/// Sets the umask while it lives.
class Umask {
public:
    explicit Umask(mode_t mask) : before_(::umask(mask)) {}
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;
    ~Umask() { ::umask(before_); }

private:
    mode_t before_;
};

class FileManagerTest : public testing::Test {
protected:
    TemporaryFolder folder_;
    std::string file_ = folder_ / "app.log";
};

TEST_F(FileManagerTest, FindsFilesAndFoldersAndWhatLinksLeadTo) {
    writeFile(file_, "");
    EXPECT_TRUE(FileManager::fileExists(file_));
    EXPECT_TRUE(FileManager::fileExists(folder_.path().string()));
    filesystem::create_symlink(file_, folder_ / "link");
    EXPECT_TRUE(FileManager::fileExists(folder_ / "link"));
    filesystem::create_symlink("nowhere", folder_ / "broken");
    EXPECT_FALSE(FileManager::fileExists(folder_ / "broken"));
    EXPECT_FALSE(FileManager::fileExists(folder_ / "missing"));
    EXPECT_FALSE(FileManager::fileExists(file_ + "/below"));
    EXPECT_FALSE(FileManager::fileExists(file_ + "\0x"s));
    EXPECT_FALSE(FileManager::fileExists(""));
}

TEST_F(FileManagerTest, MakesAnEmptyFileWithTheUsualPermissionsLessTheUmask) {
    {
        const Umask none(0);
        EXPECT_TRUE(FileManager::createFile(file_));
        EXPECT_EQ(permissionsOf(file_), 0640);
    }
    const Umask strict(077);
    EXPECT_TRUE(FileManager::createFile(folder_ / "strict"));
    EXPECT_EQ(permissionsOf(folder_ / "strict"), 0600);
    EXPECT_EQ(readFile(file_), "");
}

TEST_F(FileManagerTest, EmptiesAFileThatIsThereAndKeepsItsPermissions) {
    writeFile(file_, "old");
    ::chmod(file_.c_str(), 0604);
    EXPECT_TRUE(FileManager::createFile(file_));
    EXPECT_TRUE(FileManager::fileExists(file_));
    EXPECT_EQ(filesystem::file_size(file_), 0U);
    EXPECT_EQ(permissionsOf(file_), 0604);
}

TEST_F(FileManagerTest, GivesAFileExactlyThePermissionsAskedFor) {
    const Umask strict(077);
    const std::vector<std::any> values{0664, 0664U, 0664L, static_cast<unsigned short>(0664),
                                       static_cast<filesystem::perms>(0664)};
    for (std::size_t i = 0; i < values.size(); ++i) {
        const std::string path = folder_ / ("file" + std::to_string(i));
        EXPECT_TRUE(FileManager::createFile(path, {{FileAttributeKey::posixPermissions, values[i]}}));
        EXPECT_EQ(permissionsOf(path), 0664) << i;
    }
    EXPECT_TRUE(FileManager::createFile(folder_ / "file0", {{FileAttributeKey::posixPermissions, 0600}}));
    EXPECT_EQ(permissionsOf(folder_ / "file0"), 0600) << "also if it is there already";
}

TEST_F(FileManagerTest, SaysSoIfPermissionsMakeNoSense) {
    EXPECT_FALSE(FileManager::createFile(file_, {{FileAttributeKey::posixPermissions, -1}}));
    EXPECT_TRUE(FileManager::fileExists(file_));
    EXPECT_FALSE(FileManager::createFile(file_, {{FileAttributeKey::posixPermissions, 0200000}}));
}

TEST_F(FileManagerTest, LeavesAloneAttributesItDoesNotKnow) {
    const Umask none(0);
    EXPECT_TRUE(FileManager::createFile(file_, {{"protectionClass", 3},
                                                {FileAttributeKey::size, 100},
                                                {FileAttributeKey::posixPermissions, "0600"s},
                                                {FileAttributeKey::modificationDate, 5}}));
    EXPECT_EQ(permissionsOf(file_), 0640);
    EXPECT_EQ(filesystem::file_size(file_), 0U);
}

TEST_F(FileManagerTest, SetsTheModificationDate) {
    for (const long seconds : {1'000'000'000L, -5L}) {
        const FileDate date = FileDate(std::chrono::seconds(seconds) + std::chrono::nanoseconds(123'456'000));
        EXPECT_TRUE(FileManager::createFile(file_, {{FileAttributeKey::modificationDate, date}}));
        struct stat status {};
        ASSERT_EQ(::stat(file_.c_str(), &status), 0);
        EXPECT_EQ(status.st_mtim.tv_sec, seconds);
        EXPECT_EQ(status.st_mtim.tv_nsec, 123'456'000);
    }
}

TEST_F(FileManagerTest, SetsOwnerAndGroup) {
    const bool isRoot = ::geteuid() == 0;
    const unsigned owner = isRoot ? 1234U : ::geteuid();
    const unsigned group = isRoot ? 4321U : ::getegid();
    EXPECT_TRUE(FileManager::createFile(file_, {{FileAttributeKey::ownerAccountID, owner},
                                                {FileAttributeKey::groupOwnerAccountID, static_cast<int>(group)},
                                                {FileAttributeKey::posixPermissions, 0600}}));
    struct stat status {};
    ASSERT_EQ(::stat(file_.c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, owner);
    EXPECT_EQ(status.st_gid, group);
    EXPECT_FALSE(FileManager::createFile(file_, {{FileAttributeKey::ownerAccountID, -1}}));
}

TEST_F(FileManagerTest, CannotMakeFilesWhereNoneCanBe) {
    EXPECT_FALSE(FileManager::createFile(folder_ / "missing/app.log"));
    writeFile(file_, "kept");
    EXPECT_FALSE(FileManager::createFile(file_ + "/below"));
    EXPECT_FALSE(FileManager::createFile(folder_.path().string()));
    EXPECT_FALSE(FileManager::createFile("/proc/velora-test"));
    EXPECT_FALSE(FileManager::createFile(""));
    EXPECT_FALSE(FileManager::createFile(file_ + "\0x"s));
    EXPECT_EQ(readFile(file_), "kept");
    ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0600), 0);
    EXPECT_FALSE(FileManager::createFile(folder_ / "pipe")) << "and nothing waits for a reader";
}

TEST_F(FileManagerTest, OpensAFileAndMakesItInOneStep) {
    bool existed = true;
    auto made = FileManager::open(file_, /*empties=*/true, {{FileAttributeKey::posixPermissions, 0600}}, existed);
    ASSERT_TRUE(made);
    EXPECT_FALSE(existed);
    ASSERT_TRUE(made->write("one\n"));
    auto kept = FileManager::open(file_, /*empties=*/false, {{FileAttributeKey::posixPermissions, 0644}}, existed);
    ASSERT_TRUE(kept);
    EXPECT_TRUE(existed);
    ASSERT_TRUE(kept->write("two\n"));
    EXPECT_EQ(test::readFile(file_), "one\ntwo\n");
    struct stat status {};
    ASSERT_EQ(::stat(file_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    ASSERT_TRUE(FileManager::open(file_, /*empties=*/true, {{FileAttributeKey::posixPermissions, 0644}}, existed));
    EXPECT_TRUE(existed);
    ASSERT_EQ(::stat(file_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0644U);
    EXPECT_EQ(status.st_size, 0);
}

TEST_F(FileManagerTest, OpensTheFileThatALinkWillLeadTo) {
    std::filesystem::create_symlink(folder_ / "target", file_);
    bool existed = true;
    EXPECT_TRUE(FileManager::open(file_, /*empties=*/false, {}, existed));
    EXPECT_FALSE(existed);
    EXPECT_TRUE(std::filesystem::exists(folder_ / "target"));
    const auto missing = FileManager::open(folder_ / "missing/app.log", /*empties=*/false, {}, existed);
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().code, ENOENT);
}

TEST_F(FileManagerTest, MakesAFolderLessTheUmask) {
    const Umask none(0);
    EXPECT_TRUE(FileManager::createFolder(folder_ / "new"));
    EXPECT_EQ(permissionsOf(folder_ / "new"), 0750);
    EXPECT_EQ(codeOf(FileManager::createFolder(folder_ / "new")), EEXIST);
    const auto failure = FileManager::createFolder(folder_ / "a/b");
    ASSERT_FALSE(failure);
    EXPECT_EQ(failure.error().code, ENOENT);
    EXPECT_EQ(failure.error().description,
              "The folder “" + (folder_ / "a/b") + "” couldn’t be made: No such file or directory");
}

TEST_F(FileManagerTest, MakesTheFoldersAboveAFolder) {
    const Umask none(0);
    EXPECT_TRUE(FileManager::createFolder(folder_ / "a//b/ü ñ/d/", true));
    EXPECT_EQ(permissionsOf(folder_ / "a"), 0750);
    EXPECT_EQ(permissionsOf(folder_ / "a/b/ü ñ/d"), 0750);
    EXPECT_TRUE(FileManager::createFolder(folder_ / "a/b", true)) << "one that is there is no error";
    EXPECT_TRUE(FileManager::createFolder("/", true));
    writeFile(file_, "");
    EXPECT_EQ(codeOf(FileManager::createFolder(file_, true)), EEXIST);
    EXPECT_EQ(codeOf(FileManager::createFolder(file_ + "/below", true)), ENOTDIR);
    EXPECT_EQ(codeOf(FileManager::createFolder("", true)), ENOENT);
    EXPECT_EQ(codeOf(FileManager::createFolder((folder_ / "n") + "\0x"s, true)), EINVAL);
}

TEST_F(FileManagerTest, MakesARelativeFolder) {
    const filesystem::path before = filesystem::current_path();
    filesystem::current_path(folder_.path());
    EXPECT_TRUE(FileManager::createFolder("one/two", true));
    filesystem::current_path(before);
    EXPECT_TRUE(filesystem::is_directory(folder_ / "one/two"));
}

TEST_F(FileManagerTest, ListsAFolder) {
    writeFile(folder_ / "a b", "");
    writeFile(folder_ / "ü\n", "");
    writeFile(folder_ / ".hidden", "");
    filesystem::create_directory(folder_ / "sub");
    writeFile(folder_ / "sub/below", "");
    const std::string path = folder_.path().string();
    const auto all = FileManager::contentsOfFolder(path);
    ASSERT_TRUE(all);
    EXPECT_THAT(*all, UnorderedElementsAre(path + "/a b", path + "/ü\n", path + "/.hidden", path + "/sub"));
    const auto visible = FileManager::contentsOfFolder(path + "/", true);
    ASSERT_TRUE(visible);
    EXPECT_THAT(*visible, UnorderedElementsAre(path + "/a b", path + "/ü\n", path + "/sub"));
    EXPECT_THAT(*FileManager::contentsOfFolder(path + "/sub"), UnorderedElementsAre(path + "/sub/below"));
}

TEST_F(FileManagerTest, SaysWhyAFolderCannotBeListed) {
    const auto missing = FileManager::contentsOfFolder(folder_ / "missing");
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().code, ENOENT);
    EXPECT_EQ(missing.error().description,
              "The folder “" + (folder_ / "missing") + "” couldn’t be listed: No such file or directory");
    writeFile(file_, "");
    EXPECT_EQ(FileManager::contentsOfFolder(file_).error().code, ENOTDIR);
    EXPECT_EQ(FileManager::contentsOfFolder(folder_.path().string() + "\0x"s).error().code, EINVAL);
}

TEST_F(FileManagerTest, TellsTheAttributesOfAFile) {
    const FileDate before = std::chrono::system_clock::now() - std::chrono::seconds(1);
    const FileDate date(std::chrono::seconds(1'600'000'000));
    ASSERT_TRUE(FileManager::createFile(
        file_, {{FileAttributeKey::posixPermissions, 0604}, {FileAttributeKey::modificationDate, date}}));
    {
        const auto attributes = FileManager::attributesOf(file_);
        ASSERT_TRUE(attributes);
        EXPECT_EQ(std::any_cast<FileDate>(attributes->at(FileAttributeKey::modificationDate)), date);
    }
    writeFile(file_, "12345");
    const auto attributes = FileManager::attributesOf(file_);
    ASSERT_TRUE(attributes);
    EXPECT_EQ(std::any_cast<std::uint64_t>(attributes->at(FileAttributeKey::size)), 5U);
    EXPECT_EQ(std::any_cast<int>(attributes->at(FileAttributeKey::posixPermissions)), 0604);
    EXPECT_EQ(std::any_cast<unsigned>(attributes->at(FileAttributeKey::ownerAccountID)), ::geteuid());
    EXPECT_GE(std::any_cast<FileDate>(attributes->at(FileAttributeKey::modificationDate)), before);
    const auto creation = attributes->find(FileAttributeKey::creationDate);
    if (creation == attributes->end()) {
        GTEST_SKIP() << "the file system of " << folder_.path() << " keeps no creation dates";
    }
    const auto created = std::any_cast<FileDate>(creation->second);
    EXPECT_GE(created, before);
    EXPECT_LE(created, std::chrono::system_clock::now());
}

TEST_F(FileManagerTest, TellsTheAttributesOfWhatALinkLeadsTo) {
    writeFile(file_, std::string(1000, 'x'));
    filesystem::create_symlink(file_, folder_ / "link");
    EXPECT_EQ(std::any_cast<std::uint64_t>(FileManager::attributesOf(folder_ / "link")->at(FileAttributeKey::size)),
              1000U);
}

TEST_F(FileManagerTest, HasNoCreationDateWhereTheFileSystemHasNone) {
    const auto attributes = FileManager::attributesOf("/proc/self/status");
    ASSERT_TRUE(attributes);
    EXPECT_EQ(attributes->count(FileAttributeKey::creationDate), 0U);
    EXPECT_EQ(attributes->count(FileAttributeKey::modificationDate), 1U);
}

TEST_F(FileManagerTest, SaysWhyAttributesCannotBeTold) {
    const auto missing = FileManager::attributesOf(file_);
    ASSERT_FALSE(missing);
    EXPECT_EQ(missing.error().code, ENOENT);
    EXPECT_EQ(missing.error().description,
              "The file “" + file_ + "” couldn’t be asked for its attributes: No such file or directory");
    EXPECT_EQ(FileManager::attributesOf(file_ + "\0x"s).error().code, EINVAL);
}

TEST_F(FileManagerTest, RemovesAFile) {
    writeFile(file_, "");
    EXPECT_TRUE(FileManager::remove(file_));
    EXPECT_FALSE(filesystem::exists(file_));
    const auto again = FileManager::remove(file_);
    ASSERT_FALSE(again);
    EXPECT_EQ(again.error().code, ENOENT);
    EXPECT_EQ(again.error().description, "The file “" + file_ + "” couldn’t be removed: No such file or directory");
}

TEST_F(FileManagerTest, RemovesAFolderWithAllInItButNotWhatLinksInItLeadTo) {
    filesystem::create_directories(folder_ / "kept");
    writeFile(folder_ / "kept/file", "x");
    filesystem::create_directories(folder_ / "tree/a/b");
    writeFile(folder_ / "tree/a/b/file", "x");
    filesystem::create_directory_symlink(folder_ / "kept", folder_ / "tree/a/link");
    EXPECT_TRUE(FileManager::remove(folder_ / "tree"));
    EXPECT_FALSE(filesystem::exists(folder_ / "tree"));
    EXPECT_EQ(readFile(folder_ / "kept/file"), "x");
}

TEST_F(FileManagerTest, RemovesALinkAndNotWhatItLeadsTo) {
    filesystem::create_directories(folder_ / "kept");
    writeFile(folder_ / "kept/file", "x");
    for (const std::string name : {"link", "link/"}) {
        filesystem::create_directory_symlink("kept", folder_ / "link");
        EXPECT_TRUE(FileManager::remove(folder_ / name));
        EXPECT_FALSE(filesystem::is_symlink(folder_ / "link"));
        EXPECT_EQ(readFile(folder_ / "kept/file"), "x");
    }
}

TEST_F(FileManagerTest, CannotRemoveWhatIsNoPath) {
    writeFile(file_, "kept");
    EXPECT_EQ(codeOf(FileManager::remove("")), ENOENT);
    EXPECT_EQ(codeOf(FileManager::remove(file_ + "\0x"s)), EINVAL);
    EXPECT_EQ(codeOf(FileManager::remove(file_ + "/below")), ENOTDIR);
    EXPECT_NE(codeOf(FileManager::remove("/proc/self/status")), 0);
    EXPECT_EQ(readFile(file_), "kept");
}

}  // namespace
}  // namespace velora
