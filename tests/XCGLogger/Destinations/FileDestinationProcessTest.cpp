// What processes that fork, end or are killed make of one file. Some tests run this program again as a process of its
// own, which runs one of the tests named DISABLED_.

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "XCGLogger/Destinations/FileDestinationThreadsTestSupport.h"
#include "support/ForkedChild.h"
#include "support/OwnProcess.h"
#include "support/RecordingDestination.h"
#include "support/SharedNumber.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

using FileDestinationForkTest = FileDestinationThreadsTest;

TEST_F(FileDestinationForkTest, WritesLinesThatWaitAtAForkOnceAndInTheParent) {
    const auto file = addFile();
    const auto queue = DispatchQueue::make("file");
    file->setLogQueue(queue);
    {
        const Gate gate(*queue);
        for (int i = 0; i < 100; ++i) {
            log_.info(text(0, i));
        }
        EXPECT_EQ(resultOfForkedChild([&] {
                      log_.info(text(1, 0));
                      queue->drain();
                      return 0;
                  }),
                  0);
    }
    queue->drain();
    const std::vector<std::string> lines = splitLines(readFile(folder_ / "app.log"));
    ASSERT_EQ(lines.size(), 104U);
    EXPECT_EQ(lines[3], "> " + text(1, 0)) << "the child did not wait for the parent's";
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(lines.at(static_cast<std::size_t>(i) + 4), "> " + text(0, i));
    }
}

TEST_F(FileDestinationForkTest, GoesOnInAChildForkedWhileAnotherThreadLogs) {
    const auto file = addFile();
    // The thread allocates nothing: the sanitizers' allocator could be locked in the child for ever.
    logger_.recording->setOutputLevel(Level::none);
    std::vector<std::string> texts;
    texts.reserve(200);
    for (int i = 0; i < 200; ++i) {
        texts.push_back(text(0, i));
    }
    constexpr int children = 20;
    std::atomic<bool> isDone = false;
    std::size_t logged = 0;
    std::thread logging([&] {
        while (!isDone) {
            log_.info(texts[logged++ % texts.size()]);
        }
    });
    for (int child = 0; child < children; ++child) {
        const std::string childs = text(1, child);
        EXPECT_EQ(resultOfForkedChild([&] {
                      log_.info(childs);
                      return 0;
                  }),
                  0);
    }
    isDone = true;
    logging.join();
    std::size_t found = 0;
    int foundOfChildren = 0;
    for (const std::string& line : splitLines(readFile(folder_ / "app.log"))) {
        if (line.starts_with("> t 1 ")) {
            EXPECT_EQ(line, "> " + text(1, foundOfChildren++));
        } else if (line.starts_with("> t 0 ")) {
            EXPECT_EQ(line, "> " + texts[found++ % texts.size()]);
        }
    }
    EXPECT_EQ(found, logged);
    EXPECT_EQ(foundOfChildren, children);
}

/// Waits in the middle of a rotation, which is when it is told of one.
class PausingDestination : public BaseDestination {
public:
    using BaseDestination::BaseDestination;
    void output(LogDetails& /*logDetails*/, std::string& message) override {
        if (message.find("Rotated file") != std::string::npos) {
            reached.set_value();
            resumed.get_future().wait();
        }
    }
    std::promise<void> reached;
    std::promise<void> resumed;
};

TEST_F(FileDestinationForkTest, GoesOnInAChildForkedWhileAnotherThreadMovesTheFile) {
    const auto file = make<FileDestination>(nullptr, folder_ / "app.log", "file", true);
    hideColumns(*file);
    log_.add(file);
    const auto pausing = make<PausingDestination>(nullptr, "pausing");
    log_.add(pausing);
    log_.info("before");
    std::thread rotating([&] { EXPECT_TRUE(file->rotateFile(folder_ / "archive.log")); });
    pausing->reached.get_future().wait();
    log_.remove(pausing);
    EXPECT_EQ(resultOfForkedChild([&] {
                  log_.info("of the child");
                  const bool hasGoneOn = file->isOpen();
                  return hasGoneOn && file->rotateFile(folder_ / "childs.log") ? 0 : 1;
              }),
              0);
    pausing->resumed.set_value();
    rotating.join();
    log_.info("after");
    EXPECT_THAT(splitLines(readFile(folder_ / "archive.log")), testing::Contains("> before"));
    EXPECT_THAT(splitLines(readFile(folder_ / "childs.log")), testing::Contains("> of the child"));
    EXPECT_EQ(splitLines(readFile(folder_ / "app.log")).back(), "> after");
}

constexpr int linesAtExit = 5'000;

/// Logs to the file that the environment names, by a queue, and leaves the rest to the end of the process.
void logAndLeaveTheRestToTheEnd() {
    const char* const path = std::getenv("VELORA_TEST_LOG");
    ASSERT_NE(path, nullptr);
    static const auto log = make<XCGLogger>("app", false);
    const auto file = make<FileDestination>(nullptr, path, "file");
    hideColumns(*file);
    file->setLogQueue(XCGLogger::logQueue());
    log->add(file);
    // Still runs when the lines were logged and the process begins to end.
    file->logQueue()->async([] { std::this_thread::sleep_for(std::chrono::milliseconds(200)); });
    for (int i = 0; i < linesAtExit; ++i) {
        log->info(text(0, i));
    }
}

TEST(AProcess, DISABLED_ThatReturnsFromMain) {
    logAndLeaveTheRestToTheEnd();
}

TEST(AProcess, DISABLED_ThatCallsExit) {
    logAndLeaveTheRestToTheEnd();
    std::exit(0);
}

TEST(AProcess, DISABLED_ThatExitsWhileItsDestinationsGo) {
    logAndLeaveTheRestToTheEnd();
    if (!HasFatalFailure()) {
        static const RecordedLogger<> logger;
        const auto file = make<FileDestination>(nullptr, std::string(std::getenv("VELORA_TEST_LOG")) + "2", "second");
        hideColumns(*file);
        file->setLogQueue(DispatchQueue::make("second"));
        logger.log->add(file);
        for (int i = 0; i < linesAtExit; ++i) {
            logger.log->info(text(0, i));
        }
    }
}

TEST_F(FileDestinationThreadsTest, LosesNothingWhenAProcessEnds) {
    for (const char* const name : {"AProcess.DISABLED_ThatReturnsFromMain", "AProcess.DISABLED_ThatCallsExit"}) {
        const std::string path = folder_ / name;
        EXPECT_EQ(statusOfProcess(name, path), 0);
        expectEveryLineOnce({path}, 1, linesAtExit);
    }
}

TEST_F(FileDestinationThreadsTest, LosesNothingWhenAProcessEndsThatDestroysItsDestinations) {
    const std::string path = folder_ / "log";
    EXPECT_EQ(statusOfProcess("AProcess.DISABLED_ThatExitsWhileItsDestinationsGo", path), 0);
    expectEveryLineOnce({path}, 1, linesAtExit);
    expectEveryLineOnce({path + "2"}, 1, linesAtExit);
}

TEST_F(FileDestinationThreadsTest, HasEveryLineWhoseCallReturnedWhenTheProcessIsKilled) {
    constexpr int runs = 40;
    const SharedNumber returned;
    for (int run = 0; run < runs; ++run) {
        const std::string path = folder_ / ("run " + std::to_string(run));
        *returned = 0;
        const pid_t child = ::fork();
        if (child == 0) {
            const auto file = make<FileDestination>(nullptr, path, "killed");
            hideColumns(*file);
            log_.add(file);
            for (int i = 0;; ++i) {
                log_.info(text(0, i));
                *returned = i + 1;
            }
        }
        ASSERT_GT(child, 0);
        while (*returned < 50 + run * 17) {
            std::this_thread::yield();
        }
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        // The kernel may end a write at a page's end when it kills the process, so the line whose call
        // had not returned may be cut; every other one is whole.
        const std::string content = readFile(path);
        std::vector<std::string> lines = splitLines(content);
        lines.erase(lines.begin(), lines.begin() + 3);
        const int called = *returned;
        if (!content.ends_with('\n')) {
            EXPECT_TRUE(("> " + text(0, called)).starts_with(lines.back()));
            lines.pop_back();
        }
        const auto logged = static_cast<int>(lines.size());
        EXPECT_GE(logged, called);
        EXPECT_LE(logged, called + 1);
        for (int i = 0; i < logged; ++i) {
            EXPECT_EQ(lines.at(static_cast<std::size_t>(i)), "> " + text(0, i));
        }
    }
}

}  // namespace
}  // namespace velora::test
