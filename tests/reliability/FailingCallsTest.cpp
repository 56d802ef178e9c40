// What becomes of lines when single system calls of a file destination fail. This program has system calls of its own.

#include <cerrno>
#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "reliability/FaultyCalls.h"
#include "reliability/LoggedLines.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

class FailingCalls : public testing::TestWithParam<Mode> {
protected:
    FailingCalls() {
        FaultyCalls::below(folder_.path());
        file_.keepPending();
    }

    std::string reportOfWriting(int code) const {
        return "Objective-C Exception occurred: The file “" + path_ + "” couldn’t be written: " + std::strerror(code);
    }
    bool isRotating() const { return GetParam().maxFileSize > 0; }
    bool hasBuffer() const { return GetParam().bufferCapacity > 0; }

    FaultyCalls faults_;
    TemporaryFolder folder_;
    const std::string path_ = folder_ / "app.log";
    LoggedFile file_{GetParam(), path_};
};

INSTANTIATE_TEST_SUITE_P(InEachMode, FailingCalls, testing::ValuesIn(allModes), nameOf);

TEST_P(FailingCalls, InterruptedWritesAreContinued) {
    file_.open();
    FaultyCalls::fail(Call::write, {.code = EINTR, .percent = 60});
    EXPECT_EQ(printedBy([&] { file_.logAndSettle(0, 300); }), "");
    EXPECT_GT(FaultyCalls::failures(Call::write), 0);
    EXPECT_THAT(file_.found().numbers, testing::ElementsAreArray(numbersFrom(0, 300)));
    EXPECT_THAT(file_.found().torn, IsEmpty());
}

TEST_P(FailingCalls, PartialWritesAreContinued) {
    file_.open();
    FaultyCalls::fail(Call::write, {.code = 0, .percent = 60});
    EXPECT_EQ(printedBy([&] { file_.logAndSettle(0, 300); }), "");
    EXPECT_GT(FaultyCalls::failures(Call::write), 0);
    EXPECT_EQ(file_.found().numbers, numbersFrom(0, 300));
    EXPECT_THAT(file_.found().torn, IsEmpty());
}

TEST_P(FailingCalls, PartialWritesOfSeveralThreadsTearNoLine) {
    file_.open();
    FaultyCalls::fail(Call::write, {.code = 0, .percent = 60});
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&, thread] { file_.log(thread * 1'000, thread * 1'000 + 200); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    file_.settle();
    const FoundLines found = file_.found();
    EXPECT_THAT(found.torn, IsEmpty());
    for (int thread = 0; thread < 3; ++thread) {
        std::vector<int> numbers;
        for (const int number : found.numbers) {
            if (number / 1'000 == thread) {
                numbers.push_back(number);
            }
        }
        EXPECT_EQ(numbers, numbersFrom(thread * 1'000, thread * 1'000 + 200));
    }
}

TEST_P(FailingCalls, EachWriteThatFailsIsReportedAndLosesItsLineOnly) {
    file_.open();
    file_.logAndSettle(0, 10);
    int next = 10;
    for (const int code : {EIO, ENOSPC, EDQUOT, EROFS, EFBIG}) {
        FaultyCalls::fail(Call::write, {.code = code});
        EXPECT_EQ(printedBy([&] { file_.logAndSettle(next, next + 1); }), reportOfWriting(code) + "\n");
        FaultyCalls::end();
        file_.logAndSettle(next + 1, next + 3);
        next += 3;
    }
    std::vector<int> kept = numbersFrom(0, 10);
    for (int number = 10; number < next; number += 3) {
        kept.insert(kept.end(), {number + 1, number + 2});
    }
    EXPECT_EQ(file_.found().numbers, kept);
    EXPECT_THAT(file_.found().torn, IsEmpty());
}

TEST_P(FailingCalls, LinesWrittenTogetherAreTriedOneByOneAfterAFailure) {
    file_.open();
    file_.settle();
    if (!hasBuffer()) {
        return;
    }
    file_.log(0, 20);
    // A write that fails is tried once more before its line is given up.
    FaultyCalls::fail(Call::write, {.code = EIO, .times = 3});
    const auto lost = static_cast<int>(reportsIn(printedBy([&] { file_.settle(); })).size());
    EXPECT_GE(lost, 1);
    EXPECT_LE(lost, 3);
    EXPECT_EQ(file_.found().numbers, numbersFrom(lost, 20));
}

TEST_P(FailingCalls, LinesThatCannotBeBroughtToTheDiskAreReportedAndInTheFile) {
    file_.open();
    FaultyCalls::fail(Call::synchronize, {.code = EIO, .times = 1});
    EXPECT_EQ(printedBy([&] { file_.logAndSettle(0, 5); }),
              "Objective-C Exception occurred: The file “" + path_ +
                  "” couldn’t be brought to the disk: Input/output error\n");
    EXPECT_EQ(printedBy([&] { file_.logAndSettle(5, 10); }), "");
    EXPECT_EQ(file_.found().numbers, numbersFrom(0, 10));
}

TEST_P(FailingCalls, AnInterruptedSynchronizationIsContinued) {
    file_.open();
    FaultyCalls::fail(Call::synchronize, {.code = EINTR, .times = 3});
    EXPECT_EQ(printedBy([&] { file_.logAndSettle(0, 5); }), "");
    EXPECT_EQ(FaultyCalls::failures(Call::synchronize), 3);
}

TEST_P(FailingCalls, AFileThatClosesWithLossIsReported) {
    file_.open();
    file_.logAndSettle(0, 5);
    FaultyCalls::fail(Call::close, {.code = EIO, .times = 1});
    EXPECT_EQ(printedBy([&] { file_.close(); }), "Objective-C Exception occurred: The file “" + path_ +
                                                     "” couldn’t be closed without loss: Input/output error\n");
    EXPECT_FALSE(file_.file().isOpen());
    EXPECT_EQ(file_.found().numbers, numbersFrom(0, 5));
}

TEST_P(FailingCalls, AnInterruptedOpeningIsTriedAgain) {
    FaultyCalls::fail(Call::open, {.code = EINTR, .times = 3});
    file_.open();
    EXPECT_EQ(FaultyCalls::failures(Call::open), 3);
    EXPECT_THAT(file_.errors(), IsEmpty());
    file_.logAndSettle(0, 5);
    EXPECT_EQ(file_.found().numbers, numbersFrom(0, 5));
}

TEST_P(FailingCalls, AnInterruptedOpeningOfTheFileForPendingLinesIsTriedAgain) {
    FaultyCalls::fail(Call::open, {.code = EINTR, .times = 3});
    const auto kept = file_.file().setPendingLinesFile(folder_ / "pending");
    EXPECT_TRUE(kept) << kept.error().description;
    EXPECT_EQ(FaultyCalls::failures(Call::open), 3);
}

TEST_P(FailingCalls, AFileThatCannotBeOpenedIsReportedOnceAndOpenedWhenThatIsPossible) {
    for (const int code : {EMFILE, ENFILE, EIO}) {
        file_.close();
        FaultyCalls::fail(Call::open, {.code = code});
        const std::size_t errors = file_.errors().size();
        file_.open();
        ASSERT_EQ(file_.errors().size(), errors + 1);
        EXPECT_THAT(file_.errors().back(),
                    AllOf(StartsWith("Attempt to open log file for "),
                          HasSubstr("couldn’t be opened for writing: " + std::string(std::strerror(code)))));
        file_.logAndSettle(0, 5);
        FaultyCalls::passTime(untilTheNextLook);
        file_.logAndSettle(5, 10);
        EXPECT_FALSE(file_.file().isOpen());
        EXPECT_EQ(file_.errors().size(), errors + 1) << "one error, however often it is tried";
        FaultyCalls::end();
        FaultyCalls::passTime(untilTheNextLook);
        file_.logAndSettle(code * 1'000, code * 1'000 + 3);
        EXPECT_TRUE(file_.file().isOpen());
    }
    std::vector<int> kept;
    for (const int code : {EMFILE, ENFILE, EIO}) {
        kept.insert(kept.end(), {code * 1'000, code * 1'000 + 1, code * 1'000 + 2});
    }
    EXPECT_EQ(file_.found().numbers, kept) << "and nothing that was in the file is lost by opening it";
    EXPECT_THAT(file_.found().torn, IsEmpty());
}

TEST_P(FailingCalls, AFileThatCannotBeLookedAtIsNotEmptied) {
    file_.open();
    file_.logAndSettle(0, 5);
    FaultyCalls::fail(Call::stat, {.code = EIO});
    FaultyCalls::passTime(untilTheNextLook);
    file_.logAndSettle(5, 10);
    EXPECT_GT(FaultyCalls::failures(Call::stat), 0);
    FaultyCalls::end();
    FaultyCalls::passTime(untilTheNextLook);
    file_.logAndSettle(10, 15);
    EXPECT_EQ(file_.found().numbers, numbersFrom(0, 15));
    EXPECT_THAT(file_.found().torn, IsEmpty());
}

TEST_P(FailingCalls, AFileToAppendToThatCannotBeLookedAtIsNotEmptied) {
    file_.open();
    file_.logAndSettle(0, 5);
    file_.close();
    FaultyCalls::fail(Call::stat, {.code = EACCES});
    file_.open();
    FaultyCalls::end();
    file_.logAndSettle(5, 10);
    EXPECT_EQ(file_.found().numbers, numbersFrom(0, 10));
}

TEST_P(FailingCalls, ARemovedFileThatCannotBeMadeAnewIsWrittenOnUntilItCan) {
    file_.open();
    file_.logAndSettle(0, 5);
    const std::string moved = folder_ / "moved";
    std::filesystem::rename(path_, moved);
    FaultyCalls::fail(Call::open, {.code = EMFILE});
    FaultyCalls::passTime(untilTheNextLook);
    file_.logAndSettle(5, 10);
    EXPECT_EQ(linesOf(readFile(moved)).numbers, numbersFrom(0, 10));
    FaultyCalls::end();
    FaultyCalls::passTime(untilTheNextLook);
    file_.logAndSettle(10, 15);
    EXPECT_EQ(linesOf(readFile(moved)).numbers, numbersFrom(0, 10));
    EXPECT_EQ(file_.found().numbers, numbersFrom(10, 15));
}

TEST_P(FailingCalls, AFileThatCannotBeMovedIsGoneOnWith) {
    file_.open();
    file_.logAndSettle(0, 5);
    FaultyCalls::fail(Call::rename, {.code = EROFS, .times = 1});
    EXPECT_FALSE(file_.file().rotateFile(folder_ / "archive"));
    EXPECT_THAT(file_.errors(),
                ElementsAre("Unable to rotate file " + path_ + " to " + (folder_ / "archive") + ": The file “" + path_ +
                            "” couldn’t be moved to “" + (folder_ / "archive") + "”: Read-only file system"));
    file_.logAndSettle(5, 10);
    EXPECT_EQ(file_.found().numbers, numbersFrom(0, 10));
    EXPECT_TRUE(file_.file().rotateFile(folder_ / "archive"));
    file_.logAndSettle(10, 15);
    EXPECT_EQ(linesOf(readFile(folder_ / "archive")).numbers, numbersFrom(0, 10));
    EXPECT_EQ(linesOf(readFile(path_)).numbers, numbersFrom(10, 15));
}

TEST_P(FailingCalls, AFileSystemThatTurnsReadOnlyIsReportedForEachLineAndGoneOnWithWhenItIsWritableAgain) {
    file_.open();
    file_.logAndSettle(0, 5);
    for (const Call call : {Call::open, Call::write, Call::rename, Call::setAttribute}) {
        FaultyCalls::fail(call, {.code = EROFS});
    }
    EXPECT_THAT(reportsIn(printedBy([&] { file_.logAndSettle(5, 10); })),
                AllOf(SizeIs(5), Each(reportOfWriting(EROFS))));
    EXPECT_FALSE(file_.file().rotateFile(folder_ / "archive"));
    EXPECT_THAT(file_.errors(), ElementsAre(StartsWith("Attempt to open log file for appending failed: "),
                                            StartsWith("Unable to rotate file ")));
    EXPECT_EQ(printedBy([&] { file_.logAndSettle(10, 15); }), "") << "there is no file to write to";
    FaultyCalls::end();
    FaultyCalls::passTime(untilTheNextLook);
    file_.logAndSettle(15, 20);
    std::vector<int> kept = numbersFrom(0, 5);
    kept.insert(kept.end(), {15, 16, 17, 18, 19});
    EXPECT_EQ(file_.found().numbers, kept);
    EXPECT_THAT(file_.found().torn, IsEmpty());
}

TEST_P(FailingCalls, AFileThatCannotBeReopenedAfterARotationIsReportedAndOpenedWhenThatIsPossible) {
    file_.open();
    file_.logAndSettle(0, 5);
    FaultyCalls::fail(Call::open, {.code = EMFILE});
    EXPECT_TRUE(file_.file().rotateFile(folder_ / "archive"));
    EXPECT_THAT(file_.errors(), ElementsAre("Attempt to open log file for writing failed: The file “" + path_ +
                                            "” couldn’t be opened for writing: Too many open files"));
    file_.logAndSettle(5, 10);
    FaultyCalls::end();
    FaultyCalls::passTime(untilTheNextLook);
    file_.logAndSettle(10, 15);
    EXPECT_EQ(linesOf(readFile(folder_ / "archive")).numbers, numbersFrom(0, 5));
    EXPECT_EQ(linesOf(readFile(path_)).numbers, numbersFrom(10, 15));
    EXPECT_THAT(linesOf(readFile(path_)).internal, Contains(HasSubstr("log to: file://")));
    EXPECT_THAT(linesOf(readFile(path_)).torn, IsEmpty());
}

TEST_P(FailingCalls, AnArchiveThatCannotBeMarkedIsReportedAndKept) {
    file_.open();
    file_.logAndSettle(0, 5);
    FaultyCalls::fail(Call::setAttribute, {.code = ENOSPC, .times = 1});
    EXPECT_TRUE(file_.file().rotateFile(folder_ / "archive"));
    EXPECT_THAT(file_.errors(), ElementsAre(AllOf(StartsWith("Unable to set extended file attributes on file "),
                                                  HasSubstr("No space left on device"))));
    file_.logAndSettle(5, 10);
    EXPECT_EQ(linesOf(readFile(folder_ / "archive")).numbers, numbersFrom(0, 5));
    EXPECT_EQ(linesOf(readFile(path_)).numbers, numbersFrom(5, 10));
}

/// All lines of all files in the folder, in the order of their numbers.
FoundLines everythingIn(const std::filesystem::path& folder) {
    FoundLines all;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        if (entry.path().extension() == ".pending") {
            continue;
        }
        all.append(linesOf(readFile(entry.path())));
    }
    std::ranges::sort(all.numbers);
    return all;
}

void everythingFailsAtTimes() {
    constexpr int seldom = 5;
    FaultyCalls::fail(Call::open, {.code = EMFILE, .percent = 20});
    FaultyCalls::fail(Call::close, {.code = EIO, .percent = seldom});
    FaultyCalls::fail(Call::write, {.code = EIO, .percent = seldom});
    FaultyCalls::fail(Call::synchronize, {.code = EIO, .percent = 20});
    FaultyCalls::fail(Call::stat, {.code = EIO, .percent = 20});
    FaultyCalls::fail(Call::rename, {.code = EIO, .percent = 20});
    FaultyCalls::fail(Call::setAttribute, {.code = EIO, .percent = 20});
}

TEST_P(FailingCalls, AtRandomTearAndDoubleNothingAndEndWithoutATrace) {
    constexpr int lines = 2'000;
    file_.open();
    for (std::uint64_t seed = 1; seed <= 3; ++seed) {
        FaultyCalls::seed(seed);
        everythingFailsAtTimes();
        const int first = static_cast<int>(seed) * 10'000;
        const std::string printed = printedBy([&] {
            for (int number = first; number < first + lines; number += 20) {
                file_.logAndSettle(number, number + 20);
                FaultyCalls::passTime(number % 3);
            }
        });
        EXPECT_THAT(reportsIn(printed), Each(StartsWith("Objective-C Exception occurred: The file “")));
        FaultyCalls::end();
        FaultyCalls::passTime(untilTheNextLook);
        file_.logAndSettle(first + lines, first + lines + 20);
        const FoundLines found = everythingIn(folder_.path());
        EXPECT_THAT(found.torn, IsEmpty());
        EXPECT_EQ(std::ranges::adjacent_find(found.numbers), found.numbers.end()) << "a line stands twice";
        const std::vector<int> last(found.numbers.end() - 20, found.numbers.end());
        EXPECT_EQ(last, numbersFrom(first + lines, first + lines + 20)) << "of seed " << seed;
        EXPECT_GT(found.numbers.size(), seed * lines / 2) << "most lines come through";
    }
}

}  // namespace
}  // namespace velora::test
