#pragma once

#include <atomic>
#include <cstdio>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/RecordingDestination.h"
#include "support/TemporaryFolder.h"

namespace velora::test {

/// The text that thread `thread` logs as its line `i`; its length varies, its end tells whether it is whole.
inline std::string text(int thread, int i) {
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

inline void runThreads(int count, const std::function<void(int thread)>& work) {
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
inline void expectEveryLineOnce(const std::vector<std::string>& files, int threadCount, int lineCount) {
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
    void logWhileRotating(const std::shared_ptr<DispatchQueue>& queue, int lines = lineCount,
                          std::size_t maxPendingBytes = 1'000'000) {
        const auto file = addFile();
        file->setLogQueue(queue);
        file->setMaxPendingBytes(maxPendingBytes);
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

}  // namespace velora::test
