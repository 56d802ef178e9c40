// What a queue has gathered for a file when its batch ends.

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "XCGLogger/Destinations/FileDestinationThreadsTestSupport.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

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
    file->setMaxPendingBytes(20'000'000);
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

TEST_F(BatchTest, HoldsNoLineBackOnceTheQueueIsIdle) {
    const auto file = addFile();
    file->setLogQueue(queue_);
    log_.info(text(0, 0));
    // Nothing else is asked of the queue; the test program's time limit is the only one.
    while (!readFile(folder_ / "app.log").ends_with("> " + text(0, 0) + "\n")) {
        std::this_thread::yield();
    }
}

}  // namespace
}  // namespace velora::test
