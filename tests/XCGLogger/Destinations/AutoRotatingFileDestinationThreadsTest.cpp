#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <support/TemporaryFolder.h>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {
namespace {

constexpr int threadCount = 8;

/// Lines for each thread: some seconds' worth, or what the environment asks for.
int linesPerThread() {
    const char* const asked = std::getenv("VELORA_TEST_LINES_PER_THREAD");
    return asked == nullptr ? 5'000 : std::atoi(asked);
}

/// Names archives in the order in which they are made.
class PaddedCountingFormatter : public DateFormatter {
public:
    PaddedCountingFormatter() : DateFormatter("yyyy") {}
    void append(Date /*date*/, std::string& out) const override {
        const std::string number = std::to_string(++count_);
        out += "_" + std::string(8 - number.size(), '0') + number;
    }

private:
    mutable std::atomic<int> count_ = 0;
};

/// Logs from many threads and keeps every archive.
class RotationUnderLoad {
public:
    RotationUnderLoad(const std::filesystem::path& folder, std::uint64_t maxFileSize)
        : folder_(folder),
          log(make<XCGLogger>("log", false)),
          file(make<KeepingDestination>(
              nullptr, folder / "app.log", "rotating",
              AutoRotatingFileDestination::Options{
                  .maxFileSize = maxFileSize,
                  .maxTimeInterval = 0,
                  .archiveSuffixDateFormatter = std::make_shared<PaddedCountingFormatter>()})) {
        log->add(file);
        file->setShowDate(false);
    }
    RotationUnderLoad(const RotationUnderLoad&) = delete;
    RotationUnderLoad& operator=(const RotationUnderLoad&) = delete;
    ~RotationUnderLoad() { log->remove(file); }

    void logFromAllThreads() {
        std::vector<std::thread> threads;
        threads.reserve(threadCount);
        for (int thread = 0; thread < threadCount; ++thread) {
            threads.emplace_back([this, thread] {
                for (int line = 0; line < linesPerThread(); ++line) {
                    log->info("t{} l{} end", thread, line);
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    /// Every line of every thread must stand, whole, in exactly one file, in order.
    void expectEveryLineOnceInOrder() const {
        std::vector<std::filesystem::path> files;
        for (const auto& entry : std::filesystem::directory_iterator(folder_)) {
            if (entry.path().filename() != "app.log") {
                files.push_back(entry.path());
            }
        }
        std::sort(files.begin(), files.end());
        EXPECT_GT(files.size(), 5U);
        files.push_back(folder_ / "app.log");
        std::vector<int> next(threadCount, 0);
        int wrong = 0;
        for (const auto& path : files) {
            std::ifstream stream(path);
            for (std::string text; std::getline(stream, text);) {
                const std::size_t message = text.find("> t");
                if (message == std::string::npos) {
                    wrong += text.find("> ") == std::string::npos ? 1 : 0;
                    continue;
                }
                int thread = -1;
                int line = -1;
                int length = 0;
                // NOLINTNEXTLINE(cert-err34-c): the number of conversions is checked
                const int read = std::sscanf(text.c_str() + message, "> t%d l%d end%n", &thread, &line, &length);
                if (read != 2 || message + static_cast<std::size_t>(length) != text.size() || thread < 0 ||
                    thread >= threadCount || next.at(static_cast<std::size_t>(thread))++ != line) {
                    ++wrong;
                }
            }
        }
        EXPECT_EQ(wrong, 0);
        EXPECT_EQ(next, std::vector<int>(threadCount, linesPerThread()));
    }

private:
    /// Never prunes, so that every line can be accounted for.
    class KeepingDestination : public AutoRotatingFileDestination {
    public:
        using AutoRotatingFileDestination::AutoRotatingFileDestination;
        void cleanUpLogFiles() override {}
    };

    std::filesystem::path folder_;

public:
    std::shared_ptr<XCGLogger> log;
    std::shared_ptr<AutoRotatingFileDestination> file;
};

TEST(AutoRotatingFileDestinationThreads, KeepEveryLineInOrderAcrossRotationsWithoutAQueue) {
    const TemporaryFolder folder;
    RotationUnderLoad load(folder.path(), 20'000);
    load.logFromAllThreads();
    load.expectEveryLineOnceInOrder();
}

TEST(AutoRotatingFileDestinationThreads, KeepEveryLineInOrderAcrossRotationsWithAQueue) {
    const TemporaryFolder folder;
    RotationUnderLoad load(folder.path(), 20'000);
    const auto queue = DispatchQueue::make("writing");
    load.file->setLogQueue(queue);
    load.logFromAllThreads();
    // The last rotation's own lines come behind it on the queue, and may rotate once more.
    for (int round = 0; round < 3; ++round) {
        queue->drain();
    }
    load.expectEveryLineOnceInOrder();
}

TEST(AutoRotatingFileDestinationThreads, KeepEveryLineWhileAnotherThreadRotatesToo) {
    const TemporaryFolder folder;
    RotationUnderLoad load(folder.path(), 20'000);
    std::atomic<bool> isDone = false;
    std::thread rotating([&] {
        while (!isDone) {
            load.file->rotateFile();
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
    load.logFromAllThreads();
    isDone = true;
    rotating.join();
    load.expectEveryLineOnceInOrder();
}

TEST(AutoRotatingFileDestinationThreads, BearPurgingBesideLogging) {
    const TemporaryFolder folder;
    RotationUnderLoad load(folder.path(), 5'000);
    std::atomic<bool> isDone = false;
    std::thread purging([&] {
        while (!isDone) {
            load.file->purgeArchivedLogFiles();
            load.file->setTargetMaxLogFiles(3);
            static_cast<void>(load.file->shouldRotate());
        }
    });
    load.logFromAllThreads();
    isDone = true;
    purging.join();
    EXPECT_TRUE(load.file->isOpen());
}

TEST(AutoRotatingFileDestinationThreads, OfTwoDestinationsRotatingAtOnceNeitherWaitsForever) {
    const TemporaryFolder first;
    const TemporaryFolder second;
    RotationUnderLoad load(first.path(), 5'000);
    const auto other = make<AutoRotatingFileDestination>(
        nullptr, second / "other.log", "other",
        AutoRotatingFileDestination::Options{
            .maxFileSize = 5'000,
            .maxTimeInterval = 0,
            .archiveSuffixDateFormatter = std::make_shared<PaddedCountingFormatter>()});
    load.log->add(other);
    load.logFromAllThreads();
    load.expectEveryLineOnceInOrder();
    load.log->remove(other);
}

}  // namespace
}  // namespace velora::test
