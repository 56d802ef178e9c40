#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <thread>

#include <Velora_UserDefaults/Platform/DefaultsStoreFile.h>

#include "DefaultsStoreTestSupport.h"
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

}  // namespace
}  // namespace velora::test
