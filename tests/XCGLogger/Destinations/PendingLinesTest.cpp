#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>

#include <Velora_UserDefaults/Platform/FileManager.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/PendingLines.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/ForkedChild.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

using testing::HasSubstr;

constexpr std::size_t capacity = 4'096;

class PendingLinesTest : public testing::Test {
protected:
    PendingLinesTest() { write(log_, "before\n"); }

    /// All that is pending.
    static std::string textOf(const PendingLines& lines) {
        return std::string(lines.taken()) + std::string(lines.appended());
    }
    static void write(const std::string& path, std::string_view text) {
        std::ofstream(path, std::ios::app | std::ios::binary) << text;
    }

    /// A process that crashed when the log had the first `written` bytes of what was pending; none: when it was not
    /// writing.
    void crash(std::optional<std::size_t> written = std::nullopt) {
        PendingLines lines;
        ASSERT_TRUE(lines.moveTo(path_, capacity, log_));
        for (const char* const line : {"one", "two", "three"}) {
            ASSERT_TRUE(lines.append(line));
        }
        if (written) {
            auto handle = FileHandle::openForWriting(log_);
            ASSERT_TRUE(handle);
            const std::string_view taken = lines.take();
            lines.willWrite(*handle, taken.size());
            ASSERT_TRUE(handle->write(taken.substr(0, *written)));
        }
    }
    /// What is pending in the next process.
    std::string recovered() {
        PendingLines lines;
        const auto moved = lines.moveTo(path_, capacity, log_);
        EXPECT_TRUE(moved) << moved.error().description;
        return textOf(lines);
    }

    const TemporaryFolder folder_;
    const std::string path_ = folder_ / "pending";
    const std::string log_ = folder_ / "app.log";
    const std::string all_ = "one\ntwo\nthree\n";
};

TEST_F(PendingLinesTest, WaitInMemoryAtFirst) {
    PendingLines lines;
    EXPECT_TRUE(lines.empty());
    EXPECT_FALSE(lines.isMapped());
    EXPECT_TRUE(lines.append("line"));
    EXPECT_TRUE(lines.append(std::string(1'000'000, 'x')));
    EXPECT_EQ(textOf(lines), "line\n" + std::string(1'000'000, 'x') + "\n");
    lines.take();
    lines.finish();
    EXPECT_TRUE(lines.empty());
}

TEST_F(PendingLinesTest, ArePendingInTheNextProcess) {
    crash();
    EXPECT_EQ(recovered(), all_);
    EXPECT_EQ(recovered(), all_) << "until they are written";
}

TEST_F(PendingLinesTest, AreForgottenForGoodOnceTheyAreWritten) {
    {
        PendingLines lines;
        ASSERT_TRUE(lines.moveTo(path_, capacity, log_));
        lines.append("line");
        EXPECT_EQ(lines.size(), 5U);
        EXPECT_EQ(lines.take(), "line\n");
        lines.finish();
        EXPECT_TRUE(lines.empty());
        lines.append("next");
        EXPECT_EQ(lines.take(), "next\n");
        lines.finish();
    }
    EXPECT_EQ(recovered(), "");
}

TEST_F(PendingLinesTest, AreNotPendingAnyMoreIfTheLogHasThem) {
    crash(all_.size());
    EXPECT_EQ(recovered(), "");
    EXPECT_EQ(readFile(log_), "before\n" + all_);
}

TEST_F(PendingLinesTest, AreAllPendingIfTheLogHasNoneOfThem) {
    crash(0);
    EXPECT_EQ(recovered(), all_);
}

TEST_F(PendingLinesTest, AreCompletedWhereTheyWereCutOff) {
    for (std::size_t written = 1; written < all_.size(); ++written) {
        std::filesystem::remove(path_);
        std::filesystem::remove(log_);
        write(log_, "before\n");
        crash(written);
        const std::string rest = recovered();
        EXPECT_EQ(readFile(log_) + rest, "before\n" + all_) << written;
        EXPECT_TRUE(readFile(log_).ends_with('\n'));
        EXPECT_EQ(recovered(), rest) << "also when that process crashes";
    }
}

TEST_F(PendingLinesTest, AreComparedWithTheLogHoweverManyTheyAre) {
    constexpr std::size_t room = 50'000'000;
    {
        PendingLines lines;
        ASSERT_TRUE(lines.moveTo(path_, room, log_));
        for (int number = 0; number < 20; ++number) {
            ASSERT_TRUE(lines.append(std::to_string(number) + std::string(2'000'000, 'x')));
        }
        auto handle = FileHandle::openForWriting(log_);
        ASSERT_TRUE(handle);
        const std::string_view taken = lines.take();
        lines.willWrite(*handle, taken.size());
        ASSERT_TRUE(handle->write(taken));
    }
    const auto sizeBefore = std::filesystem::file_size(log_);
    EXPECT_EQ(recovered().size(), 0U);
    EXPECT_EQ(std::filesystem::file_size(log_), sizeBefore);
}

TEST_F(PendingLinesTest, AreFoundInALogThatWasRenamed) {
    crash(6);
    std::filesystem::rename(log_, folder_ / "app.log.1");
    write(log_, "a new log\n");
    EXPECT_EQ(recovered(), "three\n");
    EXPECT_EQ(readFile(folder_ / "app.log.1"), "before\none\ntwo\n");
    EXPECT_EQ(readFile(log_), "a new log\n");
}

TEST_F(PendingLinesTest, AreFoundInALogThatWasMovedToAnotherFolder) {
    std::filesystem::create_directory(folder_ / "old");
    crash(6);
    std::filesystem::rename(log_, folder_ / "old/app.log.1");
    write(log_, "a new log\n");
    EXPECT_EQ(recovered(), "three\n");
    EXPECT_EQ(readFile(folder_ / "old/app.log.1"), "before\none\ntwo\n");
}

TEST_F(PendingLinesTest, AreInTwoTextsOfWhichOneIsBeingWritten) {
    {
        PendingLines lines;
        ASSERT_TRUE(lines.moveTo(path_, capacity, log_));
        lines.append("one");
        lines.append("two");
        const auto handle = FileHandle::openForWriting(log_);
        lines.willWrite(*handle, lines.take().size());
        lines.append("three");
        write(log_, "one\nt");
    }
    EXPECT_EQ(recovered(), "three\n");
    EXPECT_EQ(readFile(log_), "before\none\ntwo\n");
}

TEST_F(PendingLinesTest, AreAllPendingIfTheLogIsGone) {
    crash(6);
    std::filesystem::remove(log_);
    EXPECT_EQ(recovered(), all_);
}

TEST_F(PendingLinesTest, AreFoundBehindWhatAnotherProcessAppended) {
    {
        PendingLines lines;
        ASSERT_TRUE(lines.moveTo(path_, capacity, log_));
        lines.append("one");
        lines.append("two");
        auto handle = FileHandle::openForWriting(log_);
        lines.willWrite(*handle, lines.take().size());
        write(log_, "another's\n");
        ASSERT_TRUE(handle->write("one\n"));
        write(log_, "another's\n");
    }
    EXPECT_EQ(recovered(), "two\n");
}

TEST_F(PendingLinesTest, AreWrittenAnewFromALineThatSomethingElseCutOff) {
    crash(5);
    write(log_, "another's\n");
    EXPECT_EQ(recovered(), "two\nthree\n");
    EXPECT_EQ(readFile(log_), "before\none\ntanother's\n");
}

TEST_F(PendingLinesTest, AreNotTheOnesBeforeThoseThatAreBeingWritten) {
    {
        PendingLines lines;
        ASSERT_TRUE(lines.moveTo(path_, capacity, log_));
        lines.append("lost on a full disk");
        lines.append("next");
        const auto handle = FileHandle::openForWriting(log_);
        lines.take();
        lines.willWrite(*handle, 5);
        EXPECT_EQ(lines.taken(), "next\n");
    }
    EXPECT_EQ(recovered(), "next\n");
}

TEST_F(PendingLinesTest, AreRefusedWithoutRoom) {
    PendingLines lines;
    ASSERT_TRUE(lines.moveTo(path_, 8, log_));
    EXPECT_TRUE(lines.append("one"));
    EXPECT_FALSE(lines.append("four"));
    EXPECT_TRUE(lines.append("two"));
    EXPECT_FALSE(lines.append(""));
    EXPECT_EQ(lines.take(), "one\ntwo\n");
    EXPECT_TRUE(lines.append("three")) << "while those are written";
    EXPECT_EQ(lines.take(), "one\ntwo\n") << "until they are";
    lines.finish();
    EXPECT_EQ(lines.take(), "three\n");
    lines.finish();
    EXPECT_FALSE(lines.append("too long for all"));
}

TEST_F(PendingLinesTest, KeepTheirRoomIfTheNextProcessAsksForLess) {
    crash();
    PendingLines lines;
    ASSERT_TRUE(lines.moveTo(path_, 1, log_));
    EXPECT_EQ(textOf(lines), all_);
    EXPECT_TRUE(lines.append("four"));
}

TEST_F(PendingLinesTest, GetMoreRoomIfTheNextProcessAsksForIt) {
    crash();
    PendingLines lines;
    ASSERT_TRUE(lines.moveTo(path_, 100'000, log_));
    EXPECT_FALSE(lines.append(std::string(50'000, 'x'))) << "not before those are written that wait";
    EXPECT_EQ(lines.take(), all_);
    lines.finish();
    EXPECT_TRUE(lines.append(std::string(50'000, 'x')));
    EXPECT_EQ(textOf(lines), std::string(50'000, 'x') + "\n");
}

TEST_F(PendingLinesTest, LeaveAnotherKindOfFileAlone) {
    const std::string text = "a letter to grandmother\n";
    write(path_, text);
    PendingLines lines;
    const auto moved = lines.moveTo(path_, capacity, log_);
    ASSERT_FALSE(moved);
    EXPECT_EQ(moved.error().code, EEXIST);
    EXPECT_FALSE(lines.isMapped());
    EXPECT_EQ(readFile(path_), text);
}

TEST_F(PendingLinesTest, BelongToOneAtATime) {
    PendingLines lines;
    ASSERT_TRUE(lines.moveTo(path_, capacity, log_));
    const auto refused = [this] {
        PendingLines others;
        const auto moved = others.moveTo(path_, capacity, log_);
        return !moved && moved.error().code == EWOULDBLOCK;
    };
    EXPECT_TRUE(refused());
    EXPECT_EQ(resultOfForkedChild([&] { return refused() ? 0 : 1; }), 0);
    lines.moveToMemory();
    EXPECT_FALSE(refused());
}

TEST_F(PendingLinesTest, StayTheParentsInAForkedChild) {
    PendingLines lines;
    ASSERT_TRUE(lines.moveTo(path_, capacity, log_));
    lines.append("the parent's");
    EXPECT_EQ(resultOfForkedChild([&] {
                  lines.append("the child's");
                  return !lines.isMapped() && textOf(lines) == "the child's\n" ? 0 : 1;
              }),
              0);
    EXPECT_EQ(textOf(lines), "the parent's\n");
}

TEST_F(PendingLinesTest, AreForTheUserAlone) {
    const PendingLines lines;
    crash();
    struct stat status {};
    ASSERT_EQ(::stat(path_.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
}

TEST_F(PendingLinesTest, TellWhyTheyCannotBeKept) {
    PendingLines lines;
    EXPECT_EQ(lines.moveTo(folder_ / "missing/pending", capacity, log_).error().code, ENOENT);
    EXPECT_EQ(lines.moveTo(std::string("a\0b", 3), capacity, log_).error().code, EINVAL);
    std::filesystem::create_symlink(log_, folder_ / "link");
    EXPECT_EQ(lines.moveTo(folder_ / "link", capacity, log_).error().code, ELOOP);
    const auto folder = lines.moveTo(folder_.path(), capacity, log_);
    EXPECT_THAT(folder.error().description, HasSubstr("couldn’t be mapped into memory"));
    ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(lines.moveTo(folder_ / "pipe", capacity, log_).error().code, EINVAL);
    EXPECT_EQ(readFile(log_), "before\n");
}

/// Bytes in the place of a number of the header.
void damage(const std::string& path, std::streamoff place, std::uint64_t value) {
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(place);
    file.write(reinterpret_cast<const char*>(&value), sizeof value);
}

TEST_F(PendingLinesTest, AreGoneIfTheFileIsDamaged) {
    constexpr std::streamoff begin = 32;
    constexpr std::streamoff end = 40;
    for (const std::uint64_t value : {std::uint64_t{5'000}, ~std::uint64_t{0}}) {
        for (const std::streamoff place : {begin, end}) {
            std::filesystem::remove(path_);
            crash();
            damage(path_, place, value);
            EXPECT_EQ(recovered(), "");
        }
    }
}

TEST_F(PendingLinesTest, EndWithTheLastWholeLine) {
    crash();
    damage(path_, 40, all_.size() - 1);
    EXPECT_EQ(recovered(), "one\ntwo\n");
}

}  // namespace
}  // namespace velora::test
