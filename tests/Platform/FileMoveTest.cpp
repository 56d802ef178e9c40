#include <cerrno>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/FileMove.h>

#include "support/FailingSystemCall.h"
#include "support/ForkedChild.h"
#include "support/TemporaryFolder.h"

namespace velora {
namespace {

using test::makeFail;
using test::readFile;
using test::resultOfForkedChild;
using test::TemporaryFolder;
using test::writeFile;

constexpr int cannotFilter = 200;

/// Renames in a child where the file system seems to know neither flags for renaming nor, if
/// `withoutLinks`, hard links.
int renameOnSimpleFileSystem(const std::string& from, const std::string& to, bool withoutLinks) {
    return resultOfForkedChild([&] {
        if (!makeFail(SYS_renameat2, EINVAL) || (withoutLinks && !makeFail(SYS_linkat, EPERM))) {
            return cannotFilter;
        }
        return renameWithoutReplacing(from, to);
    });
}

/// Whether hard links do not work either.
class RenameOnSimpleFileSystemTest : public testing::TestWithParam<bool> {
protected:
    TemporaryFolder folder_;
    std::string from_ = folder_ / "from";
    std::string to_ = folder_ / "to";
};

INSTANTIATE_TEST_SUITE_P(RenameWithoutReplacing, RenameOnSimpleFileSystemTest, testing::Bool());

TEST_P(RenameOnSimpleFileSystemTest, MovesFilesAndReplacesNothing) {
    writeFile(from_, "1");
    const int code = renameOnSimpleFileSystem(from_, to_, GetParam());
    if (code == cannotFilter) {
        GTEST_SKIP() << "system calls cannot be filtered here";
    }
    EXPECT_EQ(code, 0);
    EXPECT_EQ(readFile(to_), "1");
    EXPECT_FALSE(std::filesystem::exists(from_));

    writeFile(from_, "2");
    EXPECT_EQ(renameOnSimpleFileSystem(from_, to_, GetParam()), EEXIST);
    EXPECT_EQ(readFile(to_), "1");
    EXPECT_EQ(readFile(from_), "2");
    EXPECT_EQ(renameOnSimpleFileSystem(from_, from_, GetParam()), EEXIST);
    EXPECT_EQ(renameOnSimpleFileSystem(folder_ / "missing", folder_ / "x", GetParam()), ENOENT);
}

TEST_P(RenameOnSimpleFileSystemTest, MovesFoldersAndReplacesNone) {
    std::filesystem::create_directory(from_);
    writeFile(from_ + "/file", "1");
    const int code = renameOnSimpleFileSystem(from_, to_, GetParam());
    if (code == cannotFilter) {
        GTEST_SKIP() << "system calls cannot be filtered here";
    }
    EXPECT_EQ(code, 0);
    EXPECT_EQ(readFile(to_ + "/file"), "1");
    std::filesystem::create_directory(folder_ / "empty");
    EXPECT_EQ(renameOnSimpleFileSystem(to_, folder_ / "empty", GetParam()), EEXIST);
    EXPECT_NE(renameOnSimpleFileSystem(to_, to_ + "/below", GetParam()), 0);
    EXPECT_EQ(readFile(to_ + "/file"), "1");
}

TEST(RenameWithoutReplacing, MovesAFileInOneStep) {
    const TemporaryFolder folder;
    writeFile(folder / "a", "1");
    EXPECT_EQ(renameWithoutReplacing(folder / "a", folder / "b"), 0);
    EXPECT_EQ(readFile(folder / "b"), "1");
    EXPECT_EQ(renameWithoutReplacing(folder / "b", folder / "b"), EEXIST);
}

TEST(CopyWithoutReplacing, KeepsTheOriginal) {
    const TemporaryFolder folder;
    writeFile(folder / "a", "1");
    EXPECT_EQ(copyWithoutReplacing(folder / "a", folder / "b"), 0);
    EXPECT_EQ(readFile(folder / "a"), "1");
    EXPECT_EQ(readFile(folder / "b"), "1");
    writeFile(folder / "a", "2");
    EXPECT_EQ(copyWithoutReplacing(folder / "a", folder / "b"), EEXIST);
    EXPECT_EQ(readFile(folder / "b"), "1");
}

/// A system call that fails while something is copied.
struct FailingCall {
    const char* name;
    long call;
    int code;
};

class CopyWithFailingCallTest : public testing::TestWithParam<FailingCall> {
protected:
    /// Copies in a child in which the call fails.
    int copy(const std::string& from) const {
        return resultOfForkedChild([&] {
            return makeFail(GetParam().call, GetParam().code) ? copyWithoutReplacing(from, folder_ / "to")
                                                              : cannotFilter;
        });
    }
    /// The names of all that is in the folder, hidden or not.
    std::vector<std::string> names() const {
        std::vector<std::string> result;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
            result.push_back(entry.path().filename().string());
        }
        return result;
    }

    TemporaryFolder folder_;
};

INSTANTIATE_TEST_SUITE_P(CopyWithoutReplacing, CopyWithFailingCallTest,
                         testing::Values(FailingCall{"Reading", SYS_read, EIO},
                                         FailingCall{"Writing", SYS_write, ENOSPC},
                                         FailingCall{"ReadingAttributes", SYS_fgetxattr, EIO},
                                         FailingCall{"WritingAttributes", SYS_fsetxattr, ENOSPC},
                                         FailingCall{"GivingPermissions", SYS_fchmod, EPERM},
                                         FailingCall{"GivingDates", SYS_utimensat, EPERM},
                                         FailingCall{"Synchronising", SYS_fsync, EIO},
                                         FailingCall{"Renaming", SYS_renameat2, EIO}),
                         [](const auto& tested) { return tested.param.name; });

TEST_P(CopyWithFailingCallTest, LeavesNoHalfFileAndKeepsTheOriginal) {
    writeFile(folder_ / "from", "1");
    ASSERT_EQ(::setxattr((folder_ / "from").c_str(), "user.mark", "m", 1, 0), 0);
    const int code = copy(folder_ / "from");
    if (code == cannotFilter) {
        GTEST_SKIP() << "system calls cannot be filtered here";
    }
    EXPECT_EQ(code, GetParam().code);
    EXPECT_THAT(names(), testing::ElementsAre("from"));
    EXPECT_EQ(readFile(folder_ / "from"), "1");
}

TEST_P(CopyWithFailingCallTest, LeavesNoHalfFolderAndKeepsTheOriginal) {
    std::filesystem::create_directories(folder_ / "from/below");
    writeFile(folder_ / "from/below/file", "1");
    ASSERT_EQ(::setxattr((folder_ / "from/below/file").c_str(), "user.mark", "m", 1, 0), 0);
    const int code = copy(folder_ / "from");
    if (code == cannotFilter) {
        GTEST_SKIP() << "system calls cannot be filtered here";
    }
    EXPECT_EQ(code, GetParam().code);
    EXPECT_THAT(names(), testing::ElementsAre("from"));
    EXPECT_EQ(readFile(folder_ / "from/below/file"), "1");
}

TEST(CopyWithoutReplacing, GoesOnWithoutAttributesWhereThereAreNone) {
    const TemporaryFolder folder;
    writeFile(folder / "a", "1");
    ASSERT_EQ(::setxattr((folder / "a").c_str(), "user.mark", "m", 1, 0), 0);
    const int code = resultOfForkedChild([&] {
        return makeFail(SYS_fsetxattr, ENOTSUP) ? copyWithoutReplacing(folder / "a", folder / "b") : cannotFilter;
    });
    if (code == cannotFilter) {
        GTEST_SKIP() << "system calls cannot be filtered here";
    }
    EXPECT_EQ(code, 0);
    EXPECT_EQ(readFile(folder / "b"), "1");
    EXPECT_EQ(::getxattr((folder / "b").c_str(), "user.mark", nullptr, 0), -1);
}

TEST(CopyWithoutReplacing, CopiesLinksAsLinksAndNothingThatIsNoFile) {
    const TemporaryFolder folder;
    std::filesystem::create_symlink("nowhere", folder / "link");
    EXPECT_EQ(copyWithoutReplacing(folder / "link", folder / "copy"), 0);
    EXPECT_EQ(std::filesystem::read_symlink(folder / "copy"), "nowhere");
    EXPECT_EQ(copyWithoutReplacing(folder / "link", folder / "copy"), EEXIST);
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(copyWithoutReplacing(folder / "pipe", folder / "other"), ENOTSUP);
    EXPECT_EQ(copyWithoutReplacing(folder / "missing", folder / "other"), ENOENT);
    EXPECT_FALSE(std::filesystem::exists(folder / "other"));
}

TEST(FileCopy, TakesWhatIsAppendedUntilItIsFinished) {
    const TemporaryFolder folder;
    writeFile(folder / "from", "one\n");
    FileCopy copy;
    ASSERT_EQ(copy.begin(folder / "from", folder / "to"), 0);
    EXPECT_FALSE(std::filesystem::exists(folder / "to"));
    writeFile(folder / "from", "one\ntwo\n");
    ASSERT_EQ(copy.finish(), 0);
    EXPECT_EQ(readFile(folder / "to"), "one\ntwo\n");
}

TEST(FileCopy, LeavesNothingIfItIsNotFinished) {
    const TemporaryFolder folder;
    writeFile(folder / "from", "one\n");
    {
        FileCopy copy;
        ASSERT_EQ(copy.begin(folder / "from", folder / "to"), 0);
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path()), {}), 1);
}

TEST(FileCopy, OfAProcessThatWasKilledIsRemovedByTheNextOneButNotWhileItIsInUse) {
    const TemporaryFolder folder;
    const auto copies = [&] { return std::distance(std::filesystem::directory_iterator(folder.path()), {}) - 1; };
    writeFile(folder / "from", "one\n");
    ASSERT_EQ(resultOfForkedChild([&] {
                  FileCopy copy;
                  copy.begin(folder / "from", folder / "to");
                  ::_exit(0);  // as one that is killed: nothing is cleaned up
                  return 1;
              }),
              0);
    ASSERT_EQ(copies(), 1);
    FileCopy copy;
    ASSERT_EQ(copy.begin(folder / "from", folder / "to"), 0);
    EXPECT_EQ(copies(), 1) << "its own";
    removeAbandonedCopies(folder.path());
    EXPECT_EQ(copies(), 1) << "in use";
}

}  // namespace
}  // namespace velora
