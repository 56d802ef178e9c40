// What a file destination whose pending lines wait in a file leaves for the next process, whenever and however this
// one ends. The number of processes that are killed is small by default; VELORA_TEST_KILLS asks for more.

#include <algorithm>
#include <any>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <random>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/ForkedChild.h"
#include "support/RecordingDestination.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

using testing::ElementsAre;

using MakeFile = std::function<std::shared_ptr<FileDestination>()>;

/// The lines of a file without those that tell of its opening.
std::vector<std::string> linesLogged(const std::string& path) {
    std::vector<std::string> lines = splitLines(readFile(path));
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("> line"); });
    return lines;
}

class FileDestinationPendingLinesTest : public testing::Test {
protected:
    /// A file destination without columns, whose lines wait in a file for `queue`, or for `bytes` to come together.
    std::shared_ptr<FileDestination> makeFile(std::shared_ptr<DispatchQueue> queue, std::size_t bytes = 0,
                                              bool shouldAppend = true) const {
        auto file = make<FileDestination>(nullptr, path_, "file", shouldAppend, std::nullopt);
        prepare(*file, std::move(queue), bytes);
        return file;
    }
    std::shared_ptr<FileDestination> makeRotatingFile(std::shared_ptr<DispatchQueue> queue) const {
        AutoRotatingFileDestination::Options options;
        options.shouldAppend = true;
        options.appendMarker = std::nullopt;
        options.maxFileSize = 100'000;
        options.maxTimeInterval = 0;
        options.targetMaxLogFiles = 255;
        auto file = make<AutoRotatingFileDestination>(nullptr, path_, "file", options);
        prepare(*file, std::move(queue), 0);
        return file;
    }
    void prepare(FileDestination& file, std::shared_ptr<DispatchQueue> queue, std::size_t bytes) const {
        hideColumns(file);
        file.setLogQueue(std::move(queue));
        file.setWriteBufferCapacity(bytes);
        const auto kept = file.setPendingLinesFile(pending_);
        EXPECT_TRUE(kept) << kept.error().description;
    }

    const TemporaryFolder folder_;
    const std::string path_ = folder_ / "app.log";
    const std::string pending_ = folder_ / "pending-lines";
};

/// A logger with one destination, which it gives back when it goes.
class OneFile {
public:
    explicit OneFile(std::shared_ptr<FileDestination> destination) : file(std::move(destination)) { log->add(file); }
    OneFile(const OneFile&) = delete;
    OneFile& operator=(const OneFile&) = delete;
    ~OneFile() { removeDestinations(*log); }

    std::shared_ptr<FileDestination> file;
    std::shared_ptr<XCGLogger> log = make<XCGLogger>("app", false);
};

TEST_F(FileDestinationPendingLinesTest, WritesOnTheQueueWhatWaitsInTheFile) {
    const auto queue = DispatchQueue::make("lines");
    const OneFile one(makeFile(queue));
    {
        queue->drain();  // what tells of the opening
        const Gate gate(*queue);
        one.log->info("line 1");
        one.log->info("line 2");
        EXPECT_THAT(linesLogged(path_), ElementsAre());
        EXPECT_THAT(readFile(pending_), testing::HasSubstr("> line 1\n> line 2\n"));
    }
    queue->drain();
    EXPECT_THAT(linesLogged(path_), ElementsAre("> line 1", "> line 2"));
    one.log->info("line 3");
    queue->drain();
    EXPECT_THAT(linesLogged(path_), ElementsAre("> line 1", "> line 2", "> line 3"));
}

TEST_F(FileDestinationPendingLinesTest, WritesWhatWaitsInTheFileWhenThatIsFull) {
    const auto queue = DispatchQueue::make("lines");
    const OneFile one(makeFile(queue));
    ASSERT_TRUE(one.file->setPendingLinesFile(folder_ / "small", 20));
    queue->drain();
    const Gate gate(*queue);
    one.log->info("line 1");
    one.log->info("line 2");
    EXPECT_THAT(linesLogged(path_), ElementsAre());
    one.log->info("line 3");
    EXPECT_THAT(linesLogged(path_), ElementsAre("> line 1", "> line 2"));
    one.log->info("line that has no room there at all");
    EXPECT_THAT(linesLogged(path_),
                ElementsAre("> line 1", "> line 2", "> line 3", "> line that has no room there at all"));
}

TEST_F(FileDestinationPendingLinesTest, HoldsLinesBackInTheFileWithoutAQueue) {
    const OneFile one(makeFile(nullptr, 100'000));
    one.log->info("line 1");
    EXPECT_THAT(linesLogged(path_), ElementsAre());
    EXPECT_THAT(readFile(pending_), testing::HasSubstr("> line 1\n"));
    one.log->error("line 2");
    EXPECT_THAT(linesLogged(path_), ElementsAre("> line 1", "> line 2"));
}

TEST_F(FileDestinationPendingLinesTest, FiltersAndFormatsOnTheLoggingThread) {
    const auto queue = DispatchQueue::make("lines");
    const OneFile one(makeFile(queue));
    std::thread::id filtering;
    one.file->setFilters({{filter([&](const LogDetails& details, const std::string& /*line*/) {
        filtering = std::this_thread::get_id();
        return details.message == "line 2";
    })}});
    one.file->setFormatters({{appending("!")}});
    one.log->info("line 1");
    one.log->info("line 2");
    queue->drain();
    EXPECT_EQ(filtering, std::this_thread::get_id());
    EXPECT_THAT(linesLogged(path_), ElementsAre("> line 1!"));
}

TEST_F(FileDestinationPendingLinesTest, WritesTheRestBeforeARotationAndBeforeItCloses) {
    const auto queue = DispatchQueue::make("lines");
    {
        const OneFile one(makeFile(queue, 100'000));
        one.log->info("line 1");
        ASSERT_TRUE(one.file->rotateFile(folder_ / "archive.log"));
        EXPECT_THAT(linesLogged(folder_ / "archive.log"), ElementsAre("> line 1"));
        one.log->info("line 2");
    }
    EXPECT_THAT(linesLogged(path_), ElementsAre("> line 2"));
}

TEST_F(FileDestinationPendingLinesTest, LetsLinesWaitInMemoryAgain) {
    const auto queue = DispatchQueue::make("lines");
    const OneFile one(makeFile(queue));
    one.log->info("line 1");
    ASSERT_TRUE(one.file->setPendingLinesFile(std::nullopt));
    EXPECT_THAT(linesLogged(path_), ElementsAre("> line 1"));
    const Gate gate(*queue);
    one.log->info("line 2");
    EXPECT_THAT(readFile(pending_), testing::Not(testing::HasSubstr("line 2")));
}

TEST_F(FileDestinationPendingLinesTest, SaysWhyLinesWaitInMemory) {
    const auto file = makeFile(nullptr);
    const auto other = make<FileDestination>(nullptr, path_, "other");
    EXPECT_EQ(other->setPendingLinesFile(pending_).error().code, EWOULDBLOCK);
    EXPECT_EQ(other->setPendingLinesFile(FileTarget(std::any())).error().code, EINVAL);
    EXPECT_EQ(other->setPendingLinesFile(folder_ / "missing/pending").error().code, ENOENT);
}

/// Kills the process in the middle of what it does.
template <typename Work>
void inAKilledProcess(Work work) {
    const pid_t child = ::fork();
    if (child == 0) {
        work();
        ::raise(SIGKILL);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
}

TEST_F(FileDestinationPendingLinesTest, WritesFirstWhatACrashedProcessLeft) {
    for (const bool shouldAppend : {true, false}) {
        inAKilledProcess([&] {
            const OneFile one(makeFile(nullptr, 100'000, shouldAppend));
            one.log->info("line 1");
            one.log->info("line 2");
            ::raise(SIGKILL);
        });
        EXPECT_THAT(linesLogged(path_), ElementsAre());
        {
            const OneFile one(makeFile(nullptr, 100'000, shouldAppend));
            one.log->info("line 3");
        }
        EXPECT_THAT(linesLogged(path_), ElementsAre("> line 1", "> line 2", "> line 3"));
        const std::vector<std::string> lines = splitLines(readFile(path_));
        if (!shouldAppend) {
            EXPECT_EQ(lines.at(0), "> line 1") << "before the header";
        }
        std::filesystem::remove(path_);
    }
}

TEST_F(FileDestinationPendingLinesTest, WritesAtOnceWhatACrashedProcessLeftIfTheFileIsOpen) {
    inAKilledProcess([&] {
        const OneFile one(makeFile(nullptr, 100'000));
        one.log->info("line 1");
        ::raise(SIGKILL);
    });
    const OneFile one(make<FileDestination>(nullptr, path_, "file", true));
    ASSERT_TRUE(one.file->setPendingLinesFile(pending_));
    EXPECT_THAT(linesLogged(path_), ElementsAre("> line 1"));
}

TEST_F(FileDestinationPendingLinesTest, CompletesALineInWhichTheProcessWasKilled) {
    inAKilledProcess([&] {
        const OneFile one(makeFile(nullptr, 100'000));
        one.file->flush();
        for (int i = 0; i < 10; ++i) {
            one.log->info("line {}", i);
        }
        // The kernel writes up to this size, then ends the process with SIGXFSZ.
        const rlim_t size = std::filesystem::file_size(path_) + 50;
        const rlimit limit{size, size};
        ::setrlimit(RLIMIT_FSIZE, &limit);
        one.file->flush();
    });
    EXPECT_FALSE(readFile(path_).ends_with('\n'));
    EXPECT_EQ(linesLogged(path_).size(), 5U);
    { const OneFile one(makeFile(nullptr)); }
    std::vector<std::string> expected;
    for (int i = 0; i < 10; ++i) {
        expected.push_back("> line " + std::to_string(i));
    }
    EXPECT_EQ(linesLogged(path_), expected);
}

TEST_F(FileDestinationPendingLinesTest, BeginsALineOfALogThatEndsInsideOne) {
    inAKilledProcess([&] {
        const auto queue = DispatchQueue::make("lines");
        const OneFile one(makeFile(queue));
        queue->drain();
        const Gate gate(*queue);
        one.log->info("line 1");
        // As a disk that is full now leaves it.
        std::ofstream(path_, std::ios::app) << "> line 0 and a pa";
        ::raise(SIGKILL);
    });
    { const OneFile one(makeFile(nullptr)); }
    EXPECT_THAT(linesLogged(path_), ElementsAre("> line 0 and a pa", "> line 1"));
}

TEST_F(FileDestinationPendingLinesTest, LeavesItsLinesToTheParentInAForkedChild) {
    const auto queue = DispatchQueue::make("lines");
    const OneFile one(makeFile(queue));
    {
        queue->drain();  // what tells of the opening
        const Gate gate(*queue);
        one.log->info("line 1");
        EXPECT_EQ(resultOfForkedChild([&] {
                      one.log->info("line of the child");
                      queue->drain();
                      return 0;
                  }),
                  0);
        EXPECT_THAT(linesLogged(path_), ElementsAre("> line of the child"));
    }
    queue->drain();
    one.log->info("line 2");
    queue->drain();
    EXPECT_THAT(linesLogged(path_), ElementsAre("> line of the child", "> line 1", "> line 2"));
}

constexpr std::size_t threadCount = 2;

/// How many calls of each thread have returned, seen by a parent even if the process is killed.
class Returned {
public:
    Returned()
        : counts_(static_cast<Counts*>(
              ::mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
    Returned(const Returned&) = delete;
    Returned& operator=(const Returned&) = delete;
    ~Returned() { ::munmap(counts_, sizeof(Counts)); }

    std::atomic<int>& operator[](std::size_t thread) { return (*counts_)[thread]; }

private:
    using Counts = std::array<std::atomic<int>, threadCount>;
    Counts* counts_;
};

class KilledProcesses : public FileDestinationPendingLinesTest {
protected:
    /// Logs at full speed with several threads, in processes that are killed one after the other, and looks into the
    /// log of each when another process has opened it.
    void killAndCheck(const MakeFile& makeFile) {
        const char* const kills = std::getenv("VELORA_TEST_KILLS");
        std::mt19937 random(std::random_device{}());
        std::uniform_int_distribution<int> microseconds(0, 20'000);
        for (int left = kills == nullptr ? 8 : std::atoi(kills); left > 0; --left) {
            Returned returned;
            const pid_t child = ::fork();
            if (child == 0) {
                logUntilKilled(makeFile(), returned);
            }
            while (returned[0] == 0) {
                std::this_thread::yield();
            }
            std::this_thread::sleep_for(std::chrono::microseconds(microseconds(random)));
            kill(child);
            killWhileItRecovers(makeFile, std::chrono::microseconds(microseconds(random) / 10));
            { const OneFile next(makeFile()); }
            check(returned);
            if (HasFatalFailure()) {
                return;
            }
        }
        std::printf("%d lines in all\n", lines_);
    }

private:
    static void kill(pid_t child) {
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
    }

    /// The next process, too, is killed: before, while or just after it writes what the first one left.
    static void killWhileItRecovers(const MakeFile& makeFile, std::chrono::microseconds after) {
        const pid_t child = ::fork();
        if (child == 0) {
            const OneFile next(makeFile());
            while (true) {
                ::pause();
            }
        }
        std::this_thread::sleep_for(after);
        kill(child);
    }

    [[noreturn]] static void logUntilKilled(const std::shared_ptr<FileDestination>& file, Returned& returned) {
        const OneFile one(file);
        std::vector<std::thread> threads;
        for (std::size_t thread = 0; thread < threadCount; ++thread) {
            threads.emplace_back([&, thread] {
                for (int i = 0;; ++i) {
                    one.log->info("line {} {} with some words to make it as long as most lines are", thread, i);
                    returned[thread] = i + 1;
                }
            });
        }
        while (true) {
            ::pause();
        }
    }

    /// The log and its archives, the oldest first.
    std::vector<std::filesystem::path> files() const {
        std::vector<std::filesystem::path> files;
        for (const auto& each : std::filesystem::directory_iterator(folder_.path())) {
            if (each.path() != pending_ && each.path() != path_) {
                files.push_back(each.path());
            }
        }
        std::ranges::sort(files);  // there is one for a second at most, and it is in the name
        files.emplace_back(path_);
        return files;
    }

    /// Every line whose call had returned is in the log, once and in its order; so may be the one of the call in which
    /// a thread was killed.
    void check(Returned& returned) {
        std::array<int, threadCount> next{};
        for (const auto& file : files()) {
            for (const std::string& line : splitLines(readFile(file))) {
                int thread = 0;
                int number = 0;
                if (std::sscanf(line.c_str(), "> line %d %d with", &thread, &number) == 2) {
                    ASSERT_TRUE(line.ends_with(" lines are")) << line;
                    ASSERT_EQ(number, next.at(static_cast<std::size_t>(thread))++) << file;
                } else {
                    ASSERT_FALSE(line.starts_with("> line")) << line;
                }
            }
            std::filesystem::remove(file);
        }
        for (std::size_t thread = 0; thread < threadCount; ++thread) {
            ASSERT_GE(next[thread], returned[thread]);
            ASSERT_LE(next[thread], returned[thread] + 1);
            lines_ += next[thread];
        }
    }

    int lines_ = 0;
};

TEST_F(KilledProcesses, LoseNoLineAndWriteNoneTwiceWithAQueue) {
    killAndCheck([this] { return makeFile(DispatchQueue::make("lines")); });
}

TEST_F(KilledProcesses, LoseNoLineAndWriteNoneTwiceWithABuffer) {
    killAndCheck([this] { return makeFile(nullptr, 65'536); });
}

TEST_F(KilledProcesses, LoseNoLineAndWriteNoneTwiceWithBoth) {
    killAndCheck([this] { return makeFile(DispatchQueue::make("lines"), 65'536); });
}

TEST_F(KilledProcesses, LoseNoLineAndWriteNoneTwiceWhileTheFileRotates) {
    killAndCheck([this] { return makeRotatingFile(DispatchQueue::make("lines")); });
}

}  // namespace
}  // namespace velora::test
