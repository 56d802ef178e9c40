#include <cerrno>
#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/syscall.h>
#include <thread>

#include <Velora_UserDefaults/Platform/DefaultsStoreFile.h>
#include <Velora_UserDefaults/Platform/FileContents.h>

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
    makeOld(file);
    // The time of the change of the inode is of today all the same.
    EXPECT_FALSE(DefaultsStoreContents::read(file).settled);
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

TEST(DefaultsStoreFile, IsPutInPlaceAsAWhole) {
    const TemporaryFolder folder;
    const std::string path = folder / "file";
    writeFile(path, "before");
    const Descriptor file = writeBeside(path, "after");
    ASSERT_TRUE(file);
    EXPECT_EQ(readFile(path), "before");
    ASSERT_TRUE(putInPlace(path));
    EXPECT_EQ(DefaultsStoreIdentity::of(file.get()), DefaultsStoreIdentity::at(path));
    EXPECT_EQ(readFile(path), "after");
    EXPECT_EQ(filesBeginningWith(folder.path(), "").size(), 1U);
}

TEST(DefaultsStoreFile, LeavesNothingBesideWhenItCannotBePutInPlace) {
    const TemporaryFolder folder;
    const std::string path = folder / "file";
    std::filesystem::create_directories(path + "/not empty");
    ASSERT_TRUE(writeBeside(path, "after"));
    EXPECT_FALSE(putInPlace(path));
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
            if (isStore) {
                return writeBeside(folder / "file", "after") ? 1 : 0;
            }
            return replaceFile(folder / "file", "after").starts_with("cannot write it: ") ? 0 : 1;
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
