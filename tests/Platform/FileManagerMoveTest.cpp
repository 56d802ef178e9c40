// Files and folders that are moved, within a file system and to another one.

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/ExtendedAttributes.h>
#include <Velora_UserDefaults/Platform/FileManager.h>

#include "Platform/FileManagerTestSupport.h"
#include "support/ForkedChild.h"
#include "support/TemporaryFolder.h"

namespace velora {
namespace {

using std::string_literals::operator""s;
using test::readFile;
using test::TemporaryFolder;
using test::writeFile;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

namespace filesystem = std::filesystem;

/// Each test runs within one file system and between two.
class MoveTest : public testing::TestWithParam<bool> {
protected:
    void SetUp() override {
        if (!GetParam()) {
            target_ = folder_ / "target";
            filesystem::create_directory(target_);
            return;
        }
        std::string pattern = "/dev/shm/velora-test-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            GTEST_SKIP() << "there is no /dev/shm to write to";
        }
        target_ = pattern;
        struct stat here {};
        struct stat there {};
        ::stat(folder_.path().c_str(), &here);
        ::stat(target_.c_str(), &there);
        if (here.st_dev == there.st_dev) {
            GTEST_SKIP() << "/dev/shm and " << folder_.path() << " are on one file system";
        }
    }
    void TearDown() override {
        std::error_code ignored;
        filesystem::remove_all(target_, ignored);
    }

    std::vector<std::string> targetContents() const { return *FileManager::contentsOfFolder(target_); }

    TemporaryFolder folder_;
    std::string file_ = folder_ / "app.log";
    std::string target_;
};

INSTANTIATE_TEST_SUITE_P(FileManager, MoveTest, testing::Bool(), [](const testing::TestParamInfo<bool>& info) {
    return info.param ? "BetweenFileSystems" : "WithinAFileSystem";
});

TEST_P(MoveTest, KeepsDataPermissionsAndDate) {
    std::string bytes(1'000'000, 'a');
    bytes[500'000] = '\0';
    const FileDate date(std::chrono::seconds(1'500'000'000) + std::chrono::nanoseconds(7000));
    ASSERT_TRUE(FileManager::createFile(file_, {{FileAttributeKey::posixPermissions, 04613}}));
    writeFile(file_, bytes);
    ::chmod(file_.c_str(), 04613);
    const std::vector<timespec> dates{{1'500'000'000, 7000}, {1'500'000'000, 7000}};
    ::utimensat(AT_FDCWD, file_.c_str(), dates.data(), 0);

    const auto result = FileManager::move(file_, target_ + "/ü b.log");
    ASSERT_TRUE(result) << result.error().description;

    EXPECT_FALSE(filesystem::exists(file_));
    EXPECT_THAT(targetContents(), UnorderedElementsAre(target_ + "/ü b.log"));
    EXPECT_TRUE(readFile(target_ + "/ü b.log") == bytes);
    EXPECT_EQ(permissionsOf(target_ + "/ü b.log"), 04613);
    EXPECT_EQ(std::any_cast<FileDate>(
                  FileManager::attributesOf(target_ + "/ü b.log")->at(FileAttributeKey::modificationDate)),
              date);
}

TEST_P(MoveTest, KeepsUserExtendedAttributes) {
    writeFile(file_, "x");
    if (!writeExtendedAttribute(file_, "velora.one", "1\0 2"s) || !writeExtendedAttribute(file_, "velora.two", "")) {
        GTEST_SKIP() << "no extended attributes on the file system of " << folder_.path();
    }
    writeFile(target_ + "/probe", "");
    const bool canKeep = bool(writeExtendedAttribute(target_ + "/probe", "velora.probe", "x"));
    ASSERT_TRUE(FileManager::move(file_, target_ + "/b.log"));
    EXPECT_EQ(readFile(target_ + "/b.log"), "x");
    if (!canKeep) {
        GTEST_SKIP() << "no extended attributes on the file system of " << target_;
    }
    EXPECT_EQ(*readExtendedAttribute(target_ + "/b.log", "velora.one"), "1\0 2"s);
    EXPECT_EQ(*readExtendedAttribute(target_ + "/b.log", "velora.two"), "");
}

TEST_P(MoveTest, KeepsTheOwnerWhereThatIsAllowed) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root may give files away";
    }
    writeFile(file_, "x");
    ASSERT_EQ(::chown(file_.c_str(), 1234, 4321), 0);
    ASSERT_TRUE(FileManager::move(file_, target_ + "/b.log"));
    struct stat status {};
    ASSERT_EQ(::stat((target_ + "/b.log").c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, 1234U);
    EXPECT_EQ(status.st_gid, 4321U);
}

TEST_P(MoveTest, NeverReplacesAnything) {
    writeFile(file_, "new");
    writeFile(target_ + "/taken", "old");
    filesystem::create_symlink("nowhere", target_ + "/broken");
    filesystem::create_directory(target_ + "/folder");
    for (const std::string name : {"/taken", "/broken", "/folder"}) {
        const auto result = FileManager::move(file_, target_ + name);
        ASSERT_FALSE(result) << name;
        EXPECT_EQ(result.error().code, EEXIST);
        EXPECT_EQ(result.error().description,
                  "The file “" + file_ + "” couldn’t be moved to “" + target_ + name + "”: File exists");
    }
    EXPECT_EQ(readFile(file_), "new");
    EXPECT_EQ(readFile(target_ + "/taken"), "old");
    EXPECT_THAT(targetContents(), UnorderedElementsAre(target_ + "/taken", target_ + "/broken", target_ + "/folder"));
}

TEST_P(MoveTest, LeavesTheOriginalIfThereIsNowhereToMoveTo) {
    writeFile(file_, "x");
    EXPECT_EQ(codeOf(FileManager::move(file_, target_ + "/missing/b.log")), ENOENT);
    EXPECT_EQ(codeOf(FileManager::move(file_, target_ + "/" + std::string(300, 'n'))), ENAMETOOLONG);
    EXPECT_EQ(codeOf(FileManager::move(file_, target_ + "/b\0c"s)), EINVAL);
    EXPECT_EQ(readFile(file_), "x");
    EXPECT_THAT(targetContents(), IsEmpty());
}

TEST_P(MoveTest, CannotMoveWhatIsNotThere) {
    EXPECT_EQ(codeOf(FileManager::move(file_, target_ + "/b.log")), ENOENT);
    EXPECT_THAT(targetContents(), IsEmpty());
}

TEST_P(MoveTest, MovesALinkItself) {
    filesystem::create_symlink("some where", folder_ / "link");
    ASSERT_TRUE(FileManager::move(folder_ / "link", target_ + "/link"));
    EXPECT_FALSE(filesystem::is_symlink(folder_ / "link"));
    EXPECT_EQ(filesystem::read_symlink(target_ + "/link"), "some where");
}

TEST_P(MoveTest, MovesAFolderWithAllInIt) {
    filesystem::create_directories(folder_ / "tree/a/b");
    writeFile(folder_ / "tree/a/b/file", "x");
    writeFile(folder_ / "tree/.hidden", "y");
    filesystem::create_symlink("a/b", folder_ / "tree/link");
    ::chmod((folder_ / "tree/a").c_str(), 0711);
    const auto result = FileManager::move(folder_ / "tree", target_ + "/moved");
    ASSERT_TRUE(result) << result.error().description;
    EXPECT_FALSE(filesystem::exists(folder_ / "tree"));
    EXPECT_THAT(targetContents(), UnorderedElementsAre(target_ + "/moved"));
    EXPECT_EQ(readFile(target_ + "/moved/a/b/file"), "x");
    EXPECT_EQ(readFile(target_ + "/moved/.hidden"), "y");
    EXPECT_EQ(filesystem::read_symlink(target_ + "/moved/link"), "a/b");
    EXPECT_EQ(permissionsOf(target_ + "/moved/a"), 0711);
    EXPECT_THAT(*FileManager::contentsOfFolder(target_ + "/moved"),
                UnorderedElementsAre(target_ + "/moved/a", target_ + "/moved/.hidden", target_ + "/moved/link"));
}

class MoveBetweenFileSystemsTest : public MoveTest {};

INSTANTIATE_TEST_SUITE_P(FileManager, MoveBetweenFileSystemsTest, testing::Values(true));

TEST_P(MoveBetweenFileSystemsTest, LeavesNothingHalfDoneIfTheCopyFails) {
    writeFile(file_, std::string(100'000, 'x'));
    const auto moveWithLittleRoom = [&] {
        const rlimit limit{.rlim_cur = 50'000, .rlim_max = 50'000};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        std::signal(SIGXFSZ, SIG_IGN);
        return codeOf(FileManager::move(file_, target_ + "/b.log"));
    };
    EXPECT_EQ(test::resultOfForkedChild(moveWithLittleRoom), EFBIG);
    EXPECT_EQ(readFile(file_), std::string(100'000, 'x'));
    EXPECT_THAT(targetContents(), IsEmpty());

    filesystem::create_directory(folder_ / "tree");
    writeFile(folder_ / "tree/small", "1");
    writeFile(folder_ / "tree/large", std::string(100'000, 'x'));
    const auto moveTreeWithLittleRoom = [&] {
        const rlimit limit{.rlim_cur = 50'000, .rlim_max = 50'000};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        std::signal(SIGXFSZ, SIG_IGN);
        return codeOf(FileManager::move(folder_ / "tree", target_ + "/tree"));
    };
    EXPECT_EQ(test::resultOfForkedChild(moveTreeWithLittleRoom), EFBIG);
    EXPECT_EQ(readFile(folder_ / "tree/small"), "1");
    EXPECT_EQ(filesystem::file_size(folder_ / "tree/large"), 100'000U);
    EXPECT_THAT(targetContents(), IsEmpty());
}

TEST_P(MoveBetweenFileSystemsTest, TakesTheCopyBackIfTheOriginalCannotBeRemoved) {
    const auto result = FileManager::move("/proc/self/status", target_ + "/status");
    EXPECT_FALSE(result);
    EXPECT_THAT(targetContents(), IsEmpty());
}

TEST_P(MoveBetweenFileSystemsTest, DoesNotWaitForPipes) {
    ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(codeOf(FileManager::move(folder_ / "pipe", target_ + "/pipe")), ENOTSUP);
    EXPECT_TRUE(filesystem::is_fifo(folder_ / "pipe"));
    EXPECT_THAT(targetContents(), IsEmpty());
}

}  // namespace
}  // namespace velora
