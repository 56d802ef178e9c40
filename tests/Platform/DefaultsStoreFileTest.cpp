#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/syscall.h>
#include <thread>

#include <Velora_UserDefaults/Platform/DefaultsStoreFile.h>

#include "DefaultsStoreTestSupport.h"
#include "support/FailingSystemCall.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

using State = DefaultsStoreContents::State;

TEST(DefaultsStoreFile, TrustsTheStampsOfAFileOnlyWhenTheyAreOld) {
    const TemporaryFolder folder;
    const std::string file = folder / "file";
    writeFile(file, "bytes");
    EXPECT_FALSE(DefaultsStoreContents::read(file).settled);
    EXPECT_TRUE(DefaultsStoreContents::read(file).young);
    makeOld(file);
    // The time of the change of the inode is of today all the same.
    EXPECT_FALSE(DefaultsStoreContents::read(file).settled);
    EXPECT_FALSE(DefaultsStoreContents::read(file).young);
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    EXPECT_TRUE(DefaultsStoreContents::read(file).settled);
}

TEST(DefaultsStoreFile, TellsWhatItFindsInItsPlace) {
    const TemporaryFolder folder;
    EXPECT_EQ(DefaultsStoreContents::read(folder / "missing").state, State::missing);
    EXPECT_EQ(DefaultsStoreContents::read(folder.path().string()).state, State::unreadable);
    writeFile(folder / "file", std::string(100'000, 'x'));
    EXPECT_EQ(DefaultsStoreContents::read(folder / "file").state, State::complete);
    EXPECT_EQ(DefaultsStoreContents::read(folder / "file").bytes, std::string(100'000, 'x'));
    EXPECT_EQ(DefaultsStoreContents::read(folder / "file/below").state, State::missing);
    std::filesystem::resize_file(folder / "file", 20'000'000);
    EXPECT_EQ(DefaultsStoreContents::read(folder / "file").state, State::tooLarge);
}

TEST(DefaultsStoreFile, FollowsLinksToWhereTheyLead) {
    const TemporaryFolder folder;
    std::filesystem::create_symlink("b", folder / "a");
    std::filesystem::create_symlink(folder / "c", folder / "b");
    EXPECT_EQ(resolvedStorePath(folder / "a"), folder / "c");
    EXPECT_EQ(resolvedStorePath(folder / "plain"), folder / "plain");
    std::filesystem::create_symlink("loop", folder / "loop");
    EXPECT_EQ(resolvedStorePath(folder / "loop"), folder / "loop");
}

TEST(DefaultsStoreFile, ReplacesAFileThatIsNoStoreAndTouchesNoOther) {
    const TemporaryFolder folder;
    const std::string neighbours[] = {"file.new", "file.spare", "file.tmp", "file~"};
    for (const std::string& name : neighbours) {
        writeFile(folder / name, name);
    }
    std::string fault;
    for (const std::string bytes : {"one", "two", "three"}) {
        ASSERT_TRUE(replaceForeignFile(folder / "file", bytes, fault)) << fault;
        EXPECT_EQ(readFile(folder / "file"), bytes);
    }
    for (const std::string& name : neighbours) {
        EXPECT_EQ(readFile(folder / name), name);
    }
    EXPECT_EQ(filesBeginningWith(folder.path(), "").size(), 1 + std::size(neighbours));
}

TEST(DefaultsStoreFile, PutsNothingInPlaceWhenTheRenameIsRefused) {
    const TemporaryFolder folder;
    std::string fault;
    const auto refuse = [](const std::function<bool()>&) { return false; };
    const auto allow = [](const std::function<bool()>& move) { return move(); };
    ASSERT_TRUE(replaceStoreFile(folder / "file", "before", allow, fault));
    EXPECT_FALSE(replaceStoreFile(folder / "file", "after", refuse, fault));
    EXPECT_EQ(readFile(folder / "file"), "before");
    EXPECT_EQ(filesBeginningWith(folder.path(), "").size(), 1U);
}

/// A system call that fails while a file is written.
struct FailingCall {
    const char* name;
    long call;
    int code;
};

class DefaultsStoreFileWithFailingCall : public testing::TestWithParam<FailingCall> {};

INSTANTIATE_TEST_SUITE_P(DefaultsStoreFile, DefaultsStoreFileWithFailingCall,
                         testing::Values(FailingCall{"Writing", SYS_write, ENOSPC},
                                         FailingCall{"Synchronising", SYS_fdatasync, EIO}),
                         [](const auto& tested) { return tested.param.name; });

TEST_P(DefaultsStoreFileWithFailingCall, StaysAsItWasAndLeavesNothingBeside) {
    constexpr int cannotFilter = 2;
    const TemporaryFolder folder;
    writeFile(folder / "file", "before");
    for (const bool isStore : {true, false}) {
        const int replaced = inChildProcess([&] {
            if (!makeFail(GetParam().call, GetParam().code)) {
                return cannotFilter;
            }
            std::string fault;
            const auto allow = [](const std::function<bool()>& move) { return move(); };
            const bool done = isStore ? replaceStoreFile(folder / "file", "after", allow, fault)
                                      : replaceForeignFile(folder / "file", "after", fault);
            return done || !fault.starts_with("cannot write it: ") ? 1 : 0;
        });
        if (replaced == cannotFilter) {
            GTEST_SKIP() << "system calls cannot be filtered here";
        }
        EXPECT_EQ(replaced, 0);
        EXPECT_EQ(readFile(folder / "file"), "before");
        EXPECT_EQ(filesBeginningWith(folder.path(), "").size(), 1U);
    }
}

TEST(DefaultsStoreFile, TellsAFileThatCannotBeReadFromOneThatIsDamaged) {
    const TemporaryFolder folder;
    writeFile(folder / "file", "bytes");
    const int found = inChildProcess([&] {
        if (!makeFail(SYS_read, EIO)) {
            return 2;
        }
        const DefaultsStoreContents contents = DefaultsStoreContents::read(folder / "file");
        return contents.state == State::unreadable && contents.fault.starts_with("cannot read it: ") ? 0 : 1;
    });
    if (found == 2) {
        GTEST_SKIP() << "system calls cannot be filtered here";
    }
    EXPECT_EQ(found, 0);
}

}  // namespace
}  // namespace velora::test
