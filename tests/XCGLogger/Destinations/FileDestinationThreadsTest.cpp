// What several threads, and processes that fork or die, make of one file. Some tests run this program again as a
// process of its own, which runs one of the tests named DISABLED_.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/ForkedChild.h"
#include "support/OwnProcess.h"
#include "support/RecordingDestination.h"
#include "support/TemporaryFolder.h"

#if defined(__SANITIZE_THREAD__)
// Lets a child of a process with threads start threads: that is what the fork tests are about.
extern "C" __attribute__((visibility("default"))) const char* __tsan_default_options() {  // NOLINT
    return "die_after_fork=0";
}
#endif

namespace velora::test {
namespace {

/// The text that thread `thread` logs as its line `i`; its length varies, its end tells whether it is whole.
std::string text(int thread, int i) {
    return "t " + std::to_string(thread) + " " + std::to_string(i) + " " +
           std::string(static_cast<std::size_t>((i * 7 + thread) % 150), 'x') + ".";
}

/// Ends a test that has come to a standstill, and with it this program.
class Watchdog {
public:
    Watchdog() { ::alarm(300); }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;
    ~Watchdog() { ::alarm(0); }
};

void runThreads(int count, const std::function<void(int thread)>& work) {
    std::vector<std::thread> threads;
    threads.reserve(static_cast<std::size_t>(count));
    for (int thread = 0; thread < count; ++thread) {
        threads.emplace_back(work, thread);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

/// Checks that `files`, read one after the other, hold every line of every thread once, whole and in the order of
/// its thread, and that each other line is one of the engine's own, whole too.
void expectEveryLineOnce(const std::vector<std::string>& files, int threadCount, int lineCount) {
    std::vector<int> next(static_cast<std::size_t>(threadCount), 0);
    for (const std::string& file : files) {
        const std::string bytes = readFile(file);
        EXPECT_TRUE(bytes.empty() || bytes.back() == '\n') << file;
        for (const std::string& line : splitLines(bytes)) {
            int thread = -1;
            int i = -1;
            if (std::sscanf(line.c_str(), "> t %d %d ", &thread, &i) == 2 && thread >= 0 && thread < threadCount) {
                const int expected = next[static_cast<std::size_t>(thread)]++;
                EXPECT_EQ(line, "> " + text(thread, expected)) << file;
            } else {
                EXPECT_THAT(line, testing::ContainsRegex("^> (Rotated file /.*|XCGLogger Version: 7.0.1 - Level: Debug|"
                                                         "XCGLogger writing log to: file:///.*|.* PID: [0-9]+)$"))
                    << file;
            }
        }
    }
    EXPECT_EQ(next, std::vector<int>(static_cast<std::size_t>(threadCount), lineCount));
}

class FileDestinationThreadsTest : public testing::Test {
protected:
    std::shared_ptr<FileDestination> addFile(const std::string& name = "app.log") {
        auto file = make<FileDestination>(nullptr, folder_ / name, name);
        hideColumns(*file);
        log_.add(file);
        return file;
    }

    /// Rotates `file` until `isDone`, and returns the archives in their order.
    std::vector<std::string> rotateUntil(const std::atomic<bool>& isDone, FileDestination& file, std::size_t limit) {
        std::vector<std::string> archives;
        int closures = 0;
        while (!isDone && archives.size() < limit) {
            archives.push_back(folder_ / (file.identifier() + "." + std::to_string(archives.size())));
            EXPECT_TRUE(file.rotateFile(archives.back(), [&](bool success) { closures += success ? 1 : 0; }));
            file.flush();
            ++rotations_;
        }
        EXPECT_EQ(static_cast<std::size_t>(closures), archives.size());
        return archives;
    }

    static constexpr int threadCount = 8;
    static constexpr int lineCount = 1'000;

    /// Logs on several threads while another one rotates and flushes.
    void logWhileRotating(const std::shared_ptr<DispatchQueue>& queue, int lines = lineCount) {
        const auto file = addFile();
        file->setLogQueue(queue);
        std::atomic<bool> isDone = false;
        std::vector<std::string> files;
        std::thread rotating([&] { files = rotateUntil(isDone, *file, 200); });
        runThreads(threadCount, [&](int thread) {
            for (int i = 0; i < lines; ++i) {
                // Some rotations at least fall between the lines, however busy the machine is.
                while (rotations_ < i / (lines / 4)) {
                    std::this_thread::yield();
                }
                log_.info(text(thread, i));
            }
        });
        isDone = true;
        rotating.join();
        log_.remove(file);
        EXPECT_GE(files.size(), 3U);
        files.push_back(folder_ / "app.log");
        expectEveryLineOnce(files, threadCount, lines);
    }

    const Watchdog watchdog_;
    TemporaryFolder folder_;
    const RecordedLogger<> logger_{"app"};
    XCGLogger& log_ = *logger_.log;
    std::atomic<int> rotations_ = 0;
};

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
    const auto queue = DispatchQueue::make("small", 2);
    const auto beside = logger_.addRecording<WritingDestination>("on the same queue");
    beside->setLogQueue(queue);
    logWhileRotating(queue, 200);
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

// --- Batches ---

/// How often the calling thread has called write(2) and its like.
std::uint64_t writeCalls() {
    std::ifstream stream("/proc/thread-self/io");
    std::string name;
    std::uint64_t count = 0;
    while (stream >> name >> count) {
        if (name == "syscw:") {
            return count;
        }
    }
    return 0;
}

std::optional<std::string> reasonNotToCount() {
#if defined(__SANITIZE_ADDRESS__)
    return "the sanitizers call write(2) themselves";
#else
    return ::access("/proc/thread-self/io", R_OK) == 0 ? std::nullopt
                                                       : std::optional<std::string>("the kernel does not count calls");
#endif
}

class BatchTest : public FileDestinationThreadsTest {
protected:
    /// How often the queue's thread calls write(2) for what `log` logs.
    template <typename Log>
    std::uint64_t writesOnQueue(Log log) {
        std::uint64_t before = 0;
        std::uint64_t after = 0;
        queue_->sync([&] { before = writeCalls(); });
        {
            const Gate gate(*queue_);
            log();
        }
        queue_->sync([] {});  // ends the batch
        queue_->sync([&] { after = writeCalls(); });
        return after - before;
    }

    std::shared_ptr<DispatchQueue> queue_ = DispatchQueue::make("batch");
};

TEST_F(BatchTest, IsWrittenWithOneCall) {
    if (const auto reason = reasonNotToCount()) {
        GTEST_SKIP() << *reason;
    }
    const auto file = addFile();
    file->setLogQueue(queue_);
    constexpr int lines = 300;
    static_assert(lines < static_cast<int>(DispatchQueue::maximumBatch));
    EXPECT_EQ(writesOnQueue([this] {
                  for (int i = 0; i < lines; ++i) {
                      log_.info(text(0, i));
                  }
              }),
              1U);
    expectEveryLineOnce({folder_ / "app.log"}, 1, lines);
}

TEST_F(BatchTest, IsWrittenInPiecesIfItIsLarge) {
    if (const auto reason = reasonNotToCount()) {
        GTEST_SKIP() << *reason;
    }
    const auto file = addFile();
    file->setLogQueue(queue_);
    const std::string message(30'000, 'x');
    const std::uint64_t writes = writesOnQueue([&] {
        for (int i = 0; i < 300; ++i) {
            log_.info(message);
        }
    });
    EXPECT_GT(writes, 10U) << "nine megabytes are not gathered";
    EXPECT_LT(writes, 200U);
    EXPECT_EQ(std::filesystem::file_size(folder_ / "app.log") / 30'000, 300U);
}

TEST_F(BatchTest, IsWrittenToEachFileOfAQueue) {
    const auto a = addFile("a");
    const auto b = addFile("b");
    a->setLogQueue(queue_);
    b->setLogQueue(queue_);
    for (int i = 0; i < 100; ++i) {
        log_.info(text(0, i));
    }
    queue_->drain();
    expectEveryLineOnce({folder_ / "a"}, 1, 100);
    expectEveryLineOnce({folder_ / "b"}, 1, 100);
}

TEST_F(BatchTest, IsWrittenWhenTheLastReferenceToTheFileGoesWithIt) {
    auto file = make<FileDestination>(logger_.log, folder_ / "app.log", "unregistered");
    hideColumns(*file);
    file->setLogQueue(queue_);
    {
        const Gate gate(*queue_);
        for (int i = 0; i < 100; ++i) {
            LogDetails record = aRecord(text(0, i));
            file->process(record);
        }
        file.reset();
    }
    queue_->drain();
    const std::vector<std::string> lines = splitLines(readFile(folder_ / "app.log"));
    ASSERT_EQ(lines.size(), 103U);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(lines.at(static_cast<std::size_t>(i) + 3), "> " + text(0, i));
    }
}

TEST_F(BatchTest, KeepsItsFileAliveUntilItEnds) {
    auto file = make<FileDestination>(logger_.log, folder_ / "app.log", "unregistered");
    hideColumns(*file);
    file->setLogQueue(queue_);
    const std::weak_ptr<FileDestination> weak = file;
    std::atomic<bool> isWritten = false;
    std::atomic<bool> mayEnd = false;
    {
        const Gate gate(*queue_);
        LogDetails record = aRecord(text(0, 0));
        file->process(record);
        queue_->async([&] {
            isWritten = true;
            while (!mayEnd) {
                std::this_thread::yield();
            }
        });
    }
    while (!isWritten) {
        std::this_thread::yield();
    }
    file.reset();
    EXPECT_FALSE(weak.expired());
    mayEnd = true;
    queue_->drain();
    EXPECT_TRUE(weak.expired());
    EXPECT_TRUE(readFile(folder_ / "app.log").ends_with("> " + text(0, 0) + "\n"));
}

TEST_F(BatchTest, HoldsNoLineBackOnceTheQueueIsIdle) {
    const auto file = addFile();
    file->setLogQueue(queue_);
    log_.info(text(0, 0));
    // Nothing else is asked of the queue; the test program's time limit is the only one.
    while (!readFile(folder_ / "app.log").ends_with("> " + text(0, 0) + "\n")) {
        std::this_thread::yield();
    }
}

// --- Processes ---

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

/// A counter that a process shares with the children it forks.
class SharedCounter {
public:
    SharedCounter()
        : memory_(::mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)),
          counter_(new (memory_) std::atomic<int>(0)) {}
    SharedCounter(const SharedCounter&) = delete;
    SharedCounter& operator=(const SharedCounter&) = delete;
    ~SharedCounter() { ::munmap(memory_, sizeof(std::atomic<int>)); }
    std::atomic<int>& operator*() const { return *counter_; }

private:
    void* memory_;
    std::atomic<int>* counter_;
};

TEST_F(FileDestinationThreadsTest, HasEveryLineWhoseCallReturnedWhenTheProcessIsKilled) {
    constexpr int runs = 40;
    const SharedCounter returned;
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
