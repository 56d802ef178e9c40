#pragma once

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>

#include "support/CountingFormatter.h"
#include "support/PrintedBy.h"
#include "support/RecordingDestination.h"
#include "support/TemporaryFolder.h"

namespace velora::test {

/// Longer than it takes a file destination to look again at its file.
inline constexpr auto longerThanTheNextLook = std::chrono::milliseconds(1'100);

/// How a file destination writes.
struct Mode {
    const char* name = "";
    bool hasQueue = false;
    std::size_t bufferCapacity = 0;
    /// Characters after which the file is rotated; 0 for a destination that does not rotate by itself.
    std::uint64_t maxFileSize = 0;
    /// Whether the lines that wait do so in a file.
    bool keepsPendingInFile = false;
};

inline constexpr std::size_t bufferOfTests = 4'096;

inline constexpr std::size_t roomForPendingOfTests = 16'384;

inline constexpr std::array notRotatingModes{
    Mode{.name = "Plain"},
    Mode{.name = "Queue", .hasQueue = true},
    Mode{.name = "Buffer", .bufferCapacity = bufferOfTests},
    Mode{.name = "QueueAndBuffer", .hasQueue = true, .bufferCapacity = bufferOfTests},
    Mode{.name = "QueueWithAFile", .hasQueue = true, .keepsPendingInFile = true},
    Mode{.name = "BufferWithAFile", .bufferCapacity = bufferOfTests, .keepsPendingInFile = true},
};
inline constexpr std::array rotatingModes{
    Mode{.name = "Rotating", .maxFileSize = 4'000},
    Mode{.name = "RotatingOnAQueue", .hasQueue = true, .maxFileSize = 4'000},
    Mode{.name = "RotatingWithABuffer", .bufferCapacity = bufferOfTests, .maxFileSize = 4'000},
    Mode{.name = "RotatingOnAQueueWithAFile", .hasQueue = true, .maxFileSize = 4'000, .keepsPendingInFile = true},
};
inline constexpr std::array allModes = [] {
    std::array<Mode, notRotatingModes.size() + rotatingModes.size()> all{};
    std::ranges::copy(rotatingModes, std::ranges::copy(notRotatingModes, all.begin()).out);
    return all;
}();

/// Whether the end of the process costs the lines that wait.
inline bool losesWhatWaits(const Mode& mode) {
    return (mode.hasQueue || mode.bufferCapacity > 0) && !mode.keepsPendingInFile;
}

inline void PrintTo(const Mode& mode, std::ostream* stream) {
    *stream << mode.name;
}

inline std::string nameOf(const testing::TestParamInfo<Mode>& info) {
    return info.param.name;
}

/// The text of the line of a number: all lines differ, and are of different lengths.
inline std::string numberedText(int number) {
    return "line " + std::to_string(number) + " " +
           std::string(20 + static_cast<std::size_t>(number) % 41, static_cast<char>('a' + number % 26)) + ".";
}

/// What the lines of a file are.
struct FoundLines {
    /// The numbers of the whole lines, in their order.
    std::vector<int> numbers;
    /// The lines of the library itself: the header, announcements, the append marker.
    std::vector<std::string> internal;
    /// What is neither: torn lines, and others that nobody logged.
    std::vector<std::string> torn;

    void append(const FoundLines& more) {
        numbers.insert(numbers.end(), more.numbers.begin(), more.numbers.end());
        internal.insert(internal.end(), more.internal.begin(), more.internal.end());
        torn.insert(torn.end(), more.torn.begin(), more.torn.end());
    }
};

inline bool isInternal(std::string_view line) {
    return line == "-- ** ** ** --" || line.starts_with("> XCGLogger ") || line.starts_with("> Rotated file ") ||
           line.find(" PID: ") != std::string_view::npos;
}

/// Sorts the lines of `text` into what was logged and what was not. A last line without a line feed is torn.
inline FoundLines linesOf(std::string_view text) {
    FoundLines found;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        const std::string line(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        int number = -1;
        if (end != std::string_view::npos && std::sscanf(line.c_str(), "> line %d ", &number) == 1 &&
            line == "> " + numberedText(number)) {
            found.numbers.push_back(number);
        } else {
            (end != std::string_view::npos && isInternal(line) ? found.internal : found.torn).push_back(line);
        }
    }
    return found;
}

/// The numbers from `first` to `last`, without `last`.
inline std::vector<int> numbersFrom(int first, int last) {
    std::vector<int> numbers;
    for (int number = first; number < last; ++number) {
        numbers.push_back(number);
    }
    return numbers;
}

/// A logger with one file destination of a mode, which logs numbered lines.
class LoggedFile {
public:
    /// The options of the rotation but the size come from `options`.
    LoggedFile(const Mode& mode, const std::string& path, bool shouldAppend = true) : path_(path) {
        if (mode.maxFileSize > 0) {
            file_ = make<AutoRotatingFileDestination>(
                nullptr, path, "file",
                AutoRotatingFileDestination::Options{
                    .shouldAppend = shouldAppend,
                    .maxFileSize = mode.maxFileSize,
                    .maxTimeInterval = 0,
                    .archiveSuffixDateFormatter = std::make_shared<CountingFormatter>(),
                    .targetMaxLogFiles = 255});
        } else {
            file_ = make<FileDestination>(nullptr, path, "file", shouldAppend);
        }
        hideColumns(*file_);
        if (mode.hasQueue) {
            file_->setLogQueue(DispatchQueue::make("reliability"));
        }
        if (mode.bufferCapacity > 0) {
            file_->setWriteBufferCapacity(mode.bufferCapacity);
        }
        if (mode.keepsPendingInFile) {
            pendingPath_ = path + ".pending";
        }
    }

    /// Has lines that wait in a file do so elsewhere than beside the log.
    void keepPendingIn(const std::string& folder) {
        if (!pendingPath_.empty()) {
            pendingPath_ = folder + "/pending";
        }
    }

    /// Has lines wait in a file from now on, if that is the mode. A process that is ending may still have it.
    void keepPending() {
        if (pendingPath_.empty() || std::exchange(isPendingKept_, true)) {
            return;
        }
        auto kept = file_->setPendingLinesFile(pendingPath_, roomForPendingOfTests);
        for (int tries = 0; tries < 1'000 && !kept && kept.error().code == EWOULDBLOCK; ++tries) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
            kept = file_->setPendingLinesFile(pendingPath_, roomForPendingOfTests);
        }
        EXPECT_TRUE(kept) << kept.error().description;
    }
    /// Has the logger open the file.
    void open() {
        keepPending();
        logger_.log->add(file_);
    }
    void close() { logger_.log->remove(file_); }
    /// Writes to the log what a process that has ended left in a file, if this mode has one.
    void recover() {
        if (!pendingPath_.empty()) {
            open();
            settle();
            close();
        }
    }

    /// Logs the numbered lines from `first` to `last`, without `last`.
    void log(int first, int last) {
        for (int number = first; number < last; ++number) {
            logger_.log->info(numberedText(number));
        }
    }
    /// Waits until what was logged is in the file.
    void settle() {
        file_->flush();
        if (const auto& queue = file_->logQueue()) {
            queue->drain();
            // The announcement of a file that was just opened comes to the queue behind the lines that wait there.
            file_->flush();
            queue->drain();
        }
    }
    void logAndSettle(int first, int last) {
        log(first, last);
        settle();
    }

    /// The lines of all archives in the order of their making, then those of the file.
    FoundLines found() const {
        FoundLines all;
        for (const std::string& path : archives()) {
            all.append(linesOf(readFile(path)));
        }
        all.append(linesOf(readFile(path_)));
        return all;
    }
    /// The paths of the archives that the destination made by itself, whether marked or not, in that order.
    std::vector<std::string> archives() const {
        std::vector<std::string> paths;
        // Pruned ones are missing.
        for (int number = 1; number < 10'000; ++number) {
            const std::string path =
                path_.substr(0, path_.rfind('.')) + "_" + std::to_string(number) + path_.substr(path_.rfind('.'));
            if (std::filesystem::exists(path)) {
                paths.push_back(path);
            }
        }
        return paths;
    }
    /// What the logger's other destination was told.
    std::vector<std::string> errors() const {
        std::vector<std::string> errors;
        const std::vector<LogDetails> records = logger_.recording->records();
        for (const LogDetails& record : records) {
            if (record.level >= Level::error) {
                errors.push_back(record.message);
            }
        }
        return errors;
    }

    FileDestination& file() { return *file_; }
    const std::string& path() const { return path_; }
    XCGLogger& logger() { return *logger_.log; }
    const RecordingDestination& others() const { return *logger_.recording; }

private:
    std::string path_;
    std::string pendingPath_;
    bool isPendingKept_ = false;
    RecordedLogger<> logger_{"app"};
    std::shared_ptr<FileDestination> file_;
};

/// The reports in what was printed.
inline std::vector<std::string> reportsIn(std::string_view printed) {
    std::vector<std::string> reports;
    while (!printed.empty()) {
        const std::size_t end = printed.find('\n');
        reports.emplace_back(printed.substr(0, end));
        printed.remove_prefix(end == std::string_view::npos ? printed.size() : end + 1);
    }
    return reports;
}

/// A number from the environment, or `usual`.
inline int numberFromEnvironment(const char* name, int usual) {
    const char* const text = std::getenv(name);
    return text == nullptr ? usual : std::atoi(text);
}

}  // namespace velora::test
