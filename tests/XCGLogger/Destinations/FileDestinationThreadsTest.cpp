// What several threads make of one file.

#include <array>
#include <atomic>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "XCGLogger/Destinations/FileDestinationThreadsTestSupport.h"
#include "support/RecordingDestination.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

TEST_F(FileDestinationThreadsTest, WritesEveryLineOnceInOrderAndWhole) {
    const auto file = addFile();
    runThreads(threadCount, [this](int thread) {
        for (int i = 0; i < lineCount; ++i) {
            log_.info(text(thread, i));
        }
    });
    expectEveryLineOnce({folder_ / "app.log"}, threadCount, lineCount);
}

TEST_F(FileDestinationThreadsTest, WritesEveryLineToOneFileWhileAnotherThreadRotates) {
    logWhileRotating(nullptr);
}

TEST_F(FileDestinationThreadsTest, WritesEveryQueuedLineToOneFileWhileAnotherThreadRotates) {
    logWhileRotating(DispatchQueue::make("file"));
}

TEST_F(FileDestinationThreadsTest, RotatesWhileTheQueueHasNoRoom) {
    const auto queue = DispatchQueue::make("small");
    const auto beside = logger_.addRecording<WritingDestination>("on the same queue");
    beside->setLogQueue(queue);
    beside->setMaxPendingBytes(1);
    logWhileRotating(queue, 200, /*maxPendingBytes=*/1);
}

TEST_F(FileDestinationThreadsTest, BearsThatOtherThreadsFlushAndAskWhetherItIsOpen) {
    const auto file = addFile();
    std::atomic<bool> isDone = false;
    std::thread asking([&] {
        while (!isDone) {
            file->flush();
            EXPECT_TRUE(file->isOpen());
        }
    });
    runThreads(2, [this](int thread) {
        for (int i = 0; i < lineCount; ++i) {
            log_.info(text(thread, i));
        }
    });
    isDone = true;
    asking.join();
    expectEveryLineOnce({folder_ / "app.log"}, 2, lineCount);
}

/// Two files of one logger are rotated by two threads at once: each rotation logs to the other file, which the other
/// thread may be holding just then.
class TwoFilesTest : public FileDestinationThreadsTest {
protected:
    void rotateBoth(const std::shared_ptr<DispatchQueue>& queue) {
        constexpr int rotations = 100;
        constexpr int loggingThreads = 2;
        const std::array files{addFile("a"), addFile("b")};
        for (const auto& file : files) {
            file->setLogQueue(queue);
        }
        const std::atomic<bool> never = false;
        std::array<std::vector<std::string>, 2> archives;
        runThreads(2 + loggingThreads, [&](int thread) {
            if (thread < 2) {
                const auto index = static_cast<std::size_t>(thread);
                archives.at(index) = rotateUntil(never, *files.at(index), rotations);
            } else {
                for (int i = 0; i < lineCount; ++i) {
                    log_.info(text(thread - 2, i));
                }
            }
        });
        for (std::size_t index = 0; index < 2; ++index) {
            log_.remove(files.at(index));
            archives.at(index).push_back(folder_ / files.at(index)->identifier());
            expectEveryLineOnce(archives.at(index), loggingThreads, lineCount);
        }
        for (std::size_t index = 0; index < 2; ++index) {
            EXPECT_EQ(announced(archives.at(index), *files.at(1 - index)),
                      announcedInOrder(*files.at(1 - index), rotations));
        }
    }

    /// What of the rotations of `other` stands in `archives`.
    std::vector<std::string> announced(const std::vector<std::string>& archives, const FileDestination& other) const {
        std::vector<std::string> lines;
        const std::string beginning = "> Rotated file " + (folder_ / other.identifier()) + " to ";
        for (const std::string& archive : archives) {
            for (const std::string& line : splitLines(readFile(archive))) {
                if (line.starts_with(beginning)) {
                    lines.push_back(line);
                }
            }
        }
        return lines;
    }
    std::vector<std::string> announcedInOrder(const FileDestination& file, int rotations) const {
        std::vector<std::string> lines;
        lines.reserve(static_cast<std::size_t>(rotations));
        const std::string path = folder_ / file.identifier();
        for (int i = 0; i < rotations; ++i) {
            lines.push_back(fmt::format("> Rotated file {0} to {0}.{1}", path, i));
        }
        return lines;
    }
};

TEST_F(TwoFilesTest, RotateAtOnceAndLoseNoLine) {
    rotateBoth(nullptr);
}

TEST_F(TwoFilesTest, RotateAtOnceOnOneQueueAndLoseNoLine) {
    rotateBoth(DispatchQueue::make("files"));
}

TEST_F(TwoFilesTest, KeepTheOrderOfTheLinesOfAThreadThatDoesNotWaitForAFile) {
    const auto a = addFile("a");
    const auto b = addFile("b");
    std::atomic<bool> isDone = false;
    std::thread other([&] {
        // Holds `b` again and again, mostly briefly, so that the closure below finds it now taken and now free.
        for (int i = 0; !isDone; ++i) {
            EXPECT_TRUE(b->isOpen());
            if (i % 100 == 0) {
                b->flush();
            }
        }
    });
    constexpr int rounds = 50;
    constexpr int linesPerRound = 40;
    for (int round = 0; round < rounds; ++round) {
        a->rotateFile(folder_ / ("a." + std::to_string(round)), [&](bool /*success*/) {
            for (int i = 0; i < linesPerRound; ++i) {
                log_.info(text(0, round * linesPerRound + i));
            }
        });
    }
    isDone = true;
    other.join();
    expectEveryLineOnce({folder_ / "b"}, 1, rounds * linesPerRound);
}

}  // namespace
}  // namespace velora::test
