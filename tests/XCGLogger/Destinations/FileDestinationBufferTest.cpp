// What a file destination with a write buffer holds back, and when it writes it. Some tests run this program again as
// a process of its own, which runs one of the tests named DISABLED_.

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/ForkedChild.h"
#include "support/OwnProcess.h"
#include "support/RecordingDestination.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

using ::testing::ElementsAre;

constexpr std::size_t largeCapacity = 1'000'000;

/// The lines of a file without those that tell of its opening.
std::vector<std::string> logged(const std::string& path) {
    std::vector<std::string> lines = splitLines(readFile(path));
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("> line"); });
    return lines;
}

/// A logger with one file, without columns, that holds lines back.
class BufferedFile {
public:
    BufferedFile(const std::string& path, std::size_t capacity)
        : file(make<FileDestination>(nullptr, path, "file")), log(make<XCGLogger>("app", false)) {
        hideColumns(*file);
        file->setWriteBufferCapacity(capacity);
        log->add(file);
    }
    BufferedFile(const BufferedFile&) = delete;
    BufferedFile& operator=(const BufferedFile&) = delete;
    ~BufferedFile() { removeDestinations(*log); }

    std::shared_ptr<FileDestination> file;
    std::shared_ptr<XCGLogger> log;
};

class FileDestinationBufferTest : public testing::Test {
protected:
    const TemporaryFolder folder_;
    const std::string path_ = folder_ / "app.log";
};

TEST_F(FileDestinationBufferTest, IsOffAtFirst) {
    const BufferedFile buffered(path_, 0);
    EXPECT_EQ(buffered.file->writeBufferCapacity(), 0U);
    buffered.log->info("line 1");
    EXPECT_THAT(logged(path_), ElementsAre("> line 1"));
}

TEST_F(FileDestinationBufferTest, HoldsLinesBackUntilItsCapacityIsReached) {
    const BufferedFile buffered(path_, largeCapacity);
    buffered.file->setWriteBufferCapacity(30);  // writes the header
    EXPECT_EQ(buffered.file->writeBufferCapacity(), 30U);
    for (const char* const line : {"line 1", "line 2", "line 3"}) {  // 9 bytes each
        buffered.log->info(line);
        EXPECT_THAT(logged(path_), ElementsAre());
    }
    buffered.log->info("line 4");
    EXPECT_THAT(logged(path_), ElementsAre("> line 1", "> line 2", "> line 3", "> line 4"));
    buffered.log->info("line 5");
    EXPECT_EQ(logged(path_).size(), 4U);
}

TEST_F(FileDestinationBufferTest, WritesALineAtErrorWithAllBeforeIt) {
    for (const Level level : {Level::error, Level::severe, Level::alert, Level::emergency}) {
        const std::string path = path_ + std::string(description(level));
        const BufferedFile buffered(path, largeCapacity);
        buffered.log->info("line 1");
        buffered.log->warning("line 2");
        EXPECT_THAT(logged(path), ElementsAre());
        buffered.log->logln(level, "line 3");
        EXPECT_THAT(logged(path), ElementsAre("> line 1", "> line 2", "> line 3"));
        buffered.log->info("line 4");
        EXPECT_EQ(logged(path).size(), 3U);
    }
}

TEST_F(FileDestinationBufferTest, IsWrittenByFlush) {
    const BufferedFile buffered(path_, largeCapacity);
    buffered.log->info("line 1");
    std::vector<std::string> seen;
    buffered.file->flush([&] { seen = logged(path_); });
    EXPECT_THAT(seen, ElementsAre("> line 1"));
}

TEST_F(FileDestinationBufferTest, IsWrittenWhenItIsMadeSmallerOrTurnedOff) {
    const BufferedFile buffered(path_, largeCapacity);
    buffered.log->info("line 1");
    buffered.file->setWriteBufferCapacity(largeCapacity / 2);
    EXPECT_THAT(logged(path_), ElementsAre("> line 1"));
    buffered.log->info("line 2");
    buffered.file->setWriteBufferCapacity(0);
    EXPECT_THAT(logged(path_), ElementsAre("> line 1", "> line 2"));
    buffered.log->info("line 3");
    EXPECT_EQ(logged(path_).size(), 3U);
}

TEST_F(FileDestinationBufferTest, KeepsTheOrderWhenItIsTurnedOnAndOffWhileLinesAreLogged) {
    constexpr int lines = 60'000;
    {
        const BufferedFile buffered(path_, largeCapacity);
        std::atomic<bool> isDone = false;
        std::jthread turning([&] {
            while (!isDone) {
                buffered.file->setWriteBufferCapacity(0);
                buffered.file->setWriteBufferCapacity(largeCapacity);
            }
        });
        for (int line = 0; line < lines; ++line) {
            buffered.log->info("line {}", line);
        }
        isDone = true;
    }
    std::vector<std::string> expected;
    for (int line = 0; line < lines; ++line) {
        expected.push_back("> line " + std::to_string(line));
    }
    EXPECT_TRUE(logged(path_) == expected);
}

TEST_F(FileDestinationBufferTest, IsWrittenWhenTheFileIsClosedOrChanged) {
    BufferedFile buffered(path_, largeCapacity);
    buffered.log->info("line 1");
    buffered.file->setWriteToFileURL(folder_ / "other.log");
    EXPECT_THAT(logged(path_), ElementsAre("> line 1"));
    buffered.log->info("line 2");
    buffered.log->remove(buffered.file);
    EXPECT_THAT(logged(folder_ / "other.log"), ElementsAre("> line 2"));
}

TEST_F(FileDestinationBufferTest, IsWrittenToTheArchiveByARotation) {
    const BufferedFile buffered(path_, largeCapacity);
    buffered.log->info("line 1");
    EXPECT_TRUE(buffered.file->rotateFile(folder_ / "archive.log"));
    buffered.log->info("line 2");
    EXPECT_THAT(logged(folder_ / "archive.log"), ElementsAre("> line 1"));
    buffered.file->flush();
    EXPECT_THAT(logged(path_), ElementsAre("> line 2"));
}

TEST_F(FileDestinationBufferTest, LosesNoLineToRotationsBySize) {
    const auto log = make<XCGLogger>("app", false);
    const auto file = make<AutoRotatingFileDestination>(
        nullptr, path_, "file",
        AutoRotatingFileDestination::Options{.maxFileSize = 500, .maxTimeInterval = 0, .targetMaxLogFiles = 250});
    hideColumns(*file);
    file->setWriteBufferCapacity(4'096);
    file->setArchiveFolderURL(URL::fileURL(folder_ / "archives", true));
    file->setArchiveSuffixDateFormatter(std::make_shared<DateFormatter>("_HHmmss.SSSSSSSSS"));
    log->add(file);
    constexpr int count = 300;
    for (int i = 0; i < count; ++i) {
        log->info("line {}", i);
    }
    log->remove(file);
    std::vector<std::string> files;
    for (const auto& entry :
         std::filesystem::recursive_directory_iterator(std::filesystem::path(path_).parent_path())) {
        if (entry.is_regular_file()) {
            files.push_back(entry.path());
        }
    }
    std::vector<std::string> lines;
    for (const std::string& each : files) {
        for (std::string& line : logged(each)) {
            lines.push_back(std::move(line));
        }
    }
    EXPECT_GT(files.size(), 5U);
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(count));
}

TEST_F(FileDestinationBufferTest, HoldsBatchesOfAQueueBackToo) {
    const auto queue = DispatchQueue::make("buffered");
    BufferedFile buffered(path_, largeCapacity);
    buffered.file->setLogQueue(queue);
    buffered.log->info("line 1");
    queue->drain();
    EXPECT_THAT(logged(path_), ElementsAre());
    buffered.log->error("line 2");
    queue->drain();
    EXPECT_THAT(logged(path_), ElementsAre("> line 1", "> line 2"));
    buffered.log->info("line 3");
    buffered.file->flush();
    queue->drain();
    EXPECT_EQ(logged(path_).size(), 3U);
    buffered.file->setWriteBufferCapacity(1);
    buffered.log->info("line 4");
    queue->drain();
    EXPECT_EQ(logged(path_).size(), 4U);
}

TEST_F(FileDestinationBufferTest, IsWrittenOnceIfTheProcessForks) {
    const BufferedFile buffered(path_, largeCapacity);
    buffered.log->info("line 1");
    EXPECT_EQ(resultOfForkedChild([&] {
                  buffered.log->info("line of the child");
                  buffered.file->flush();
                  return 0;
              }),
              0);
    EXPECT_THAT(logged(path_), ElementsAre("> line of the child"));
    buffered.log->info("line 2");
    buffered.file->flush();
    EXPECT_THAT(logged(path_), ElementsAre("> line of the child", "> line 1", "> line 2"));
}

TEST_F(FileDestinationBufferTest, KeepsEveryLineOfSeveralThreadsWhole) {
    constexpr int threads = 4;
    constexpr int linesPerThread = 2'000;
    {
        const BufferedFile buffered(path_, 1'000);
        std::vector<std::thread> running;
        for (int thread = 0; thread < threads; ++thread) {
            running.emplace_back([&, thread] {
                for (int i = 0; i < linesPerThread; ++i) {
                    buffered.log->info("line {} {}", thread, i);
                }
            });
        }
        for (std::thread& each : running) {
            each.join();
        }
    }
    std::array<int, threads> next{};
    for (const std::string& line : logged(path_)) {
        int thread = 0;
        int i = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "> line %d %d", &thread, &i), 2);
        EXPECT_EQ(i, next.at(static_cast<std::size_t>(thread))++);
    }
    EXPECT_THAT(next, testing::Each(linesPerThread));
}

/// A logger that nobody takes apart, to the file that the environment names.
XCGLogger& logForEver() {
    const char* const path = std::getenv("VELORA_TEST_LOG");
    if (path == nullptr) {
        std::abort();
    }
    static const auto& buffered = *new BufferedFile(path, 100);
    return *buffered.log;
}

struct LogsWhenDestroyed {
    ~LogsWhenDestroyed() { logForEver().info("line of a static destructor"); }
};

TEST(ABufferingProcess, DISABLED_ThatReturnsFromMain) {
    logForEver().info("line 1");
}

TEST(ABufferingProcess, DISABLED_ThatExits) {
    logForEver().info("line 1");
    std::exit(0);
}

TEST(ABufferingProcess, DISABLED_ThatLogsInAStaticDestructor) {
    static const LogsWhenDestroyed last;
    logForEver().info("line 1");
}

TEST(ABufferingProcess, DISABLED_ThatIsKilled) {
    for (int i = 0; i < 1'000; ++i) {
        logForEver().info("line {}", i);
    }
    ::raise(SIGKILL);
}

TEST_F(FileDestinationBufferTest, IsWrittenWhenTheProcessEnds) {
    for (const char* const name : {"ThatReturnsFromMain", "ThatExits"}) {
        const std::string path = folder_ / name;
        EXPECT_EQ(statusOfProcess(std::string("ABufferingProcess.DISABLED_") + name, path), 0);
        EXPECT_THAT(logged(path), ElementsAre("> line 1"));
    }
}

TEST_F(FileDestinationBufferTest, HoldsNothingBackThatStaticDestructorsLog) {
    EXPECT_EQ(statusOfProcess("ABufferingProcess.DISABLED_ThatLogsInAStaticDestructor", path_), 0);
    EXPECT_THAT(logged(path_), ElementsAre("> line 1", "> line of a static destructor"));
}

TEST_F(FileDestinationBufferTest, CostsAtMostItsCapacityWhenTheProcessIsKilled) {
    EXPECT_EQ(statusOfProcess("ABufferingProcess.DISABLED_ThatIsKilled", path_), SIGKILL);
    const std::vector<std::string> lines = logged(path_);
    constexpr std::size_t sizeOfALine = 11;  // "> line 999\n"
    EXPECT_LT((1'000 - lines.size()) * sizeOfALine, 100U);
    for (std::size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i], "> line " + std::to_string(i));
    }
}

}  // namespace
}  // namespace velora::test
