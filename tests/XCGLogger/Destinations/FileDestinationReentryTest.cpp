// What is called by a rotation, or beside one, may use this file, other files and other threads.

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/TestDestination.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "XCGLogger/Destinations/FileDestinationThreadsTestSupport.h"
#include "support/CountingFormatter.h"
#include "support/ForkedChild.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

class FileDestinationReentryTest : public FileDestinationThreadsTest {
protected:
    /// A small rotating file, with an identifier so long, if asked for, that no archive can be marked with it.
    std::shared_ptr<AutoRotatingFileDestination> addRotating(const std::string& name, bool isUnmarkable,
                                                             std::uint64_t maxFileSize = 2'000) {
        const std::string identifier = isUnmarkable ? name + std::string(70'000, 'i') : name;
        auto file = make<AutoRotatingFileDestination>(
            nullptr, folder_ / (name + ".log"), identifier,
            AutoRotatingFileDestination::Options{.maxFileSize = maxFileSize,
                                                 .maxTimeInterval = 0,
                                                 .archiveSuffixDateFormatter = std::make_shared<CountingFormatter>(),
                                                 .targetMaxLogFiles = 255});
        hideColumns(*file);
        log_.add(file);
        return file;
    }

    void logOnSeveralThreads() {
        runThreads(4, [this](int thread) {
            for (int i = 0; i < 1'000; ++i) {
                log_.info(text(thread, i));
            }
        });
    }

    std::size_t archivesOf(const std::string& name) const {
        std::size_t count = 0;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
            count += entry.path().filename().string().starts_with(name + "_") ? 1 : 0;
        }
        return count;
    }
};

TEST_F(FileDestinationReentryTest, TwoBufferedFilesThatCannotMarkTheirArchivesReportToEachOther) {
    const auto a = addRotating("a", /*isUnmarkable=*/true);
    const auto b = addRotating("b", /*isUnmarkable=*/true);
    a->setWriteBufferCapacity(1'000);
    b->setWriteBufferCapacity(1'000);
    logOnSeveralThreads();
    EXPECT_GT(archivesOf("a"), 2U);
    EXPECT_GT(archivesOf("b"), 2U);
}

TEST_F(FileDestinationReentryTest, CompletionsOfTwoFilesLogErrorsToEachOther) {
    const auto a = addRotating("a", /*isUnmarkable=*/false);
    const auto b = addRotating("b", /*isUnmarkable=*/false);
    for (const auto& file : {a, b}) {
        file->setWriteBufferCapacity(1'000);
        file->setAutoRotationCompletion([this](bool /*success*/) { log_.error("of a completion"); });
    }
    logOnSeveralThreads();
    EXPECT_GT(archivesOf("a"), 2U);
}

TEST_F(FileDestinationReentryTest, CompletionsOfTwoFilesLookAtEachOther) {
    const auto a = addRotating("a", /*isUnmarkable=*/false);
    const auto b = addRotating("b", /*isUnmarkable=*/false);
    const auto lookAt = [](const auto& other) {
        return [&other = *other](bool /*success*/) {
            EXPECT_TRUE(other.isOpen());
            static_cast<void>(other.currentLogFileSize());
            other.flush();
        };
    };
    a->setAutoRotationCompletion(lookAt(b));
    b->setAutoRotationCompletion(lookAt(a));
    logOnSeveralThreads();
    EXPECT_GT(archivesOf("a"), 2U);
}

TEST_F(FileDestinationReentryTest, CompletionsOfTwoFilesRotateEachOther) {
    const auto a = addFile("a");
    const auto b = addFile("b");
    std::array<std::atomic<int>, 2> inner{};
    const auto rotate = [this, &inner](FileDestination& file, FileDestination& other, std::size_t index) {
        for (int i = 0; i < 50; ++i) {
            const std::string name = folder_ / (file.identifier() + "." + std::to_string(i));
            file.rotateFile(name, [&, i](bool /*success*/) {
                const std::string others = folder_ / (other.identifier() + ".by-other." + std::to_string(i));
                inner.at(index) += other.rotateFile(others) ? 1 : 0;
            });
        }
    };
    std::thread beside([&] { rotate(*a, *b, 0); });
    rotate(*b, *a, 1);
    beside.join();
    EXPECT_GT(inner[0] + inner[1], 0);
}

TEST_F(FileDestinationReentryTest, ATestDestinationOnTheFilesQueueHearsOfARotationByAnotherThread) {
    const auto queue = DispatchQueue::make("shared");
    const auto file = addFile();
    file->setLogQueue(queue);
    const auto expected = make<TestDestination>(nullptr, "expected");
    expected->setLogQueue(queue);
    log_.add(expected);
    std::atomic<bool> isDone = false;
    std::vector<std::string> archives;
    std::thread rotating([&] { archives = rotateUntil(isDone, *file, 30); });
    for (int i = 0; i < 500; ++i) {
        log_.info(text(0, i));
    }
    isDone = true;
    rotating.join();
    log_.remove(file);
    log_.remove(expected);
    archives.push_back(folder_ / "app.log");
    expectEveryLineOnce(archives, 1, 500);
}

TEST_F(FileDestinationReentryTest, AFilterOfAnotherDestinationWaitsForAThreadThatLogsHere) {
    const auto file = addFile();
    logger_.recording->setFilters({{filter([this](LogDetails& logDetails, std::string& /*message*/) {
        if (logDetails.message.starts_with("Rotated file")) {
            std::thread([this] { log_.info("of another thread"); }).join();
        }
        return false;
    })}});
    EXPECT_TRUE(file->rotateFile(folder_ / "archive.log"));
    EXPECT_THAT(readFile(folder_ / "archive.log"), testing::EndsWith("> of another thread\n"))
        << "in the file that was open when its call returned";
    EXPECT_THAT(readFile(folder_ / "app.log"), testing::Not(testing::HasSubstr("another thread")));
}

TEST_F(FileDestinationReentryTest, AFileOnAQueueThatIsSmallerThanItsHeaderRotatesOnceForEachLine) {
    const auto queue = DispatchQueue::make("file");
    const auto file = addRotating("small", /*isUnmarkable=*/false, /*maxFileSize=*/5);
    file->setLogQueue(queue);
    std::atomic<int> rotations = 0;
    file->setAutoRotationCompletion([&rotations](bool /*success*/) { ++rotations; });
    for (int line = 1; line <= 3; ++line) {
        log_.info("long enough");
        for (int round = 0; round < 5; ++round) {
            queue->drain();
        }
        EXPECT_EQ(rotations, line);
    }
}

TEST_F(FileDestinationReentryTest, TwoSmallFilesDoNotRotateEachOtherForEver) {
    const auto a = addRotating("a", /*isUnmarkable=*/false, /*maxFileSize=*/5);
    const auto b = addRotating("b", /*isUnmarkable=*/false, /*maxFileSize=*/5);
    log_.info("long enough");
    EXPECT_LE(archivesOf("a") + archivesOf("b"), 4U);
    log_.info("long enough");
    EXPECT_LE(archivesOf("a") + archivesOf("b"), 8U);
}

TEST_F(FileDestinationReentryTest, AChildForkedWhileAnotherThreadRotatesWritesToAFileOfTheLog) {
    const auto file = addFile();
    std::atomic<bool> isDone = false;
    std::vector<std::string> files;
    std::thread rotating([&] { files = rotateUntil(isDone, *file, 10'000); });
    constexpr int children = 100;
    for (int child = 0; child < children; ++child) {
        EXPECT_EQ(resultOfForkedChild([&] {
                      log_.info(text(0, child));
                      return 0;
                  }),
                  0);
    }
    isDone = true;
    rotating.join();
    files.push_back(folder_ / "app.log");
    std::vector<int> found(children, 0);
    for (const std::string& each : files) {
        for (const std::string& line : splitLines(readFile(each))) {
            int child = -1;
            // NOLINTNEXTLINE(cert-err34-c): the number of conversions is checked
            if (std::sscanf(line.c_str(), "> t 0 %d ", &child) == 1) {
                EXPECT_EQ(line, "> " + text(0, child));
                ++found.at(static_cast<std::size_t>(child));
            }
        }
    }
    EXPECT_EQ(found, std::vector<int>(children, 1));
}

TEST_F(FileDestinationReentryTest, AForkDoesNotWaitForTheReaderOfAPipe) {
    const std::string path = folder_ / "pipe";
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK);
    const auto file = addFile("pipe");
    std::atomic<int> logged = 0;
    std::thread logging([&] {
        for (int i = 0; i < 2'000; ++i) {
            log_.info(text(0, i));
            logged = i + 1;
        }
    });
    for (int before = -1; before != logged;) {
        before = logged;
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    EXPECT_LT(logged, 2'000) << "the pipe is full";
    EXPECT_EQ(resultOfForkedChild([] { return 0; }), 0);
    ::fcntl(reader, F_SETFL, 0);
    std::thread reading([reader] {
        std::array<char, 65'536> bytes{};
        while (::read(reader, bytes.data(), bytes.size()) > 0) {
        }
    });
    logging.join();
    log_.remove(file);
    reading.join();
    ::close(reader);
}

}  // namespace
}  // namespace velora::test
