// A mixed load for a long time: nothing is lost, and nothing grows.
//
// VELORA_LONG_RUN_SECONDS says for how long; 10 if it is not set.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/UserDefaults/UserDefaultsManager.h>

#include "reliability/LoggedLines.h"
#include "support/CountingFormatter.h"
#include "support/RecordingDestination.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

using testing::IsEmpty;

constexpr std::size_t threads = 3;
constexpr std::size_t ownReports = 20;

/// Checks the lines of one destination as its files are finished, and removes them.
class Account {
public:
    /// Takes the lines of the file at `path` for the next ones.
    void take(const std::string& path) {
        // Line by line: after a pause of the disk a file is large, and its memory would count as the logger's.
        std::ifstream file(path, std::ios::binary);
        for (std::string line; std::getline(file, line);) {
            takeLine(line, !file.eof());
        }
        std::filesystem::remove(path);
    }

    /// How many lines of each thread there were, without a gap.
    const std::array<std::int64_t, threads>& counts() const { return next_; }
    /// The first lines that were torn, missing or doubled.
    const std::vector<std::string>& wrong() const { return wrong_; }

private:
    void takeLine(const std::string& line, bool isWhole) {
        std::size_t thread = 0;
        long long number = 0;
        char end = 0;
        if (isWhole && std::sscanf(line.c_str(), "> thread %zu line %lld%c", &thread, &number, &end) == 3 &&
            end == '.' && thread < threads) {
            if (number != next_.at(thread) && wrong_.size() < ownReports) {
                wrong_.push_back(line + " instead of " + std::to_string(next_.at(thread)));
            }
            next_.at(thread) = number + 1;
        } else if (!(isWhole && (isInternal(line) || line == "> noise")) && wrong_.size() < ownReports) {
            wrong_.push_back(line);
        }
    }

    std::array<std::int64_t, threads> next_{};
    std::vector<std::string> wrong_;
};

/// A file destination of the load, which rotates by itself or is rotated.
class LoadedFile {
public:
    LoadedFile(const Mode& mode, const std::filesystem::path& folder)
        : name_(mode.name), folder_(folder / name_), path_(folder_ / "app.log") {
        std::filesystem::create_directory(folder_);
        if (mode.maxFileSize > 0) {
            file_ = make<AutoRotatingFileDestination>(
                nullptr, path_.string(), name_,
                AutoRotatingFileDestination::Options{
                    .maxFileSize = mode.maxFileSize,
                    .maxTimeInterval = 0,
                    .archiveSuffixDateFormatter = std::make_shared<CountingFormatter>(),
                    .targetMaxLogFiles = 255});
        } else {
            file_ = make<FileDestination>(nullptr, path_.string(), name_, /*shouldAppend=*/true);
        }
        hideColumns(*file_);
        file_->setOutputLevel(Level::info);
        if (mode.hasQueue) {
            file_->setLogQueue(DispatchQueue::make(name_));
        }
        file_->setWriteBufferCapacity(mode.bufferCapacity);
        if (mode.keepsPendingInFile) {
            EXPECT_TRUE(file_->setPendingLinesFile(folder_ / "pending"));
        }
        rotatesItself_ = mode.maxFileSize > 0;
    }

    const std::shared_ptr<FileDestination>& destination() const { return file_; }
    const std::string& name() const { return name_; }
    const Account& account() const { return account_; }

    /// Checks and removes the archives that are finished.
    void check() {
        if (!rotatesItself_) {
            file_->rotateFile(archive(next_).string());
        }
        // The one that was made last may still be being marked.
        while (std::filesystem::exists(archive(next_ + 1)) || (!rotatesItself_ && exists(archive(next_)))) {
            account_.take(archive(next_++));
        }
    }
    /// Checks all there is, once nothing is written any more.
    void checkAll() {
        while (std::filesystem::exists(archive(next_))) {
            account_.take(archive(next_++));
        }
        account_.take(path_);
    }

private:
    std::filesystem::path archive(int number) const { return folder_ / ("app_" + std::to_string(number) + ".log"); }

    std::string name_;
    std::filesystem::path folder_;
    std::filesystem::path path_;
    bool rotatesItself_ = false;
    std::shared_ptr<FileDestination> file_;
    int next_ = 1;
    Account account_;
};

/// What the process uses now.
struct Use {
    double megabytes = 0;
    std::int64_t descriptors = 0;

    static Use now() {
        std::ifstream statm("/proc/self/statm");
        std::int64_t all = 0;
        std::int64_t resident = 0;
        statm >> all >> resident;
        const std::filesystem::directory_iterator open("/proc/self/fd");
        return {.megabytes = static_cast<double>(resident * ::sysconf(_SC_PAGESIZE)) / 1e6,
                // Without the one that lists them, and that of the file read above.
                .descriptors = std::distance(begin(open), end(open)) - 2};
    }
};

double median(std::vector<double>::iterator begin, std::vector<double>::iterator end) {
    std::vector<double> values(begin, end);
    std::ranges::sort(values);
    return values.at(values.size() / 2);
}

class LongRun : public testing::Test {
protected:
    LongRun() {
        log_.recording->setOutputLevel(Level::error);
        for (const Mode& mode :
             {Mode{.name = "Plain"}, Mode{.name = "Queue", .hasQueue = true},
              Mode{.name = "Buffer", .bufferCapacity = 65'536}, Mode{.name = "Rotating", .maxFileSize = 300'000},
              Mode{.name = "RotatingOnAQueue", .hasQueue = true, .maxFileSize = 300'000},
              Mode{.name = "QueueWithAFile", .hasQueue = true, .keepsPendingInFile = true}}) {
            files_.push_back(std::make_unique<LoadedFile>(mode, folder_.path()));
            log_.log->add(files_.back()->destination());
        }
    }

    /// Logs in bursts, so that the disk and the checking keep up for ever.
    void log(std::size_t thread) {
        constexpr int burst = 50;
        while (!shallEnd_) {
            for (int i = 0; i < burst; ++i) {
                log_.log->info("thread {} line {}.", thread, logged_.at(thread)++);
                log_.log->verbose("noise");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
    void changeLevels() {
        for (int turn = 0; !shallEnd_; ++turn) {
            files_.at(static_cast<std::size_t>(turn) % files_.size())
                ->destination()
                ->setOutputLevel(turn % 3 == 0 ? Level::verbose : Level::info);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    void writePreferences() {
        UserDefaultsManager& preferences = UserDefaultsManager::shared();
        for (std::int64_t turn = 0; !shallEnd_; ++turn) {
            preferences.setPinCodeLength(4 + turn % 5);
            preferences.setComputerDisplayName("computer " + std::to_string(turn));
            preferencesRead_ += preferences.pinCodeLength() == 4 + turn % 5 ? 1 : 0;
            preferencesWritten_ += 1;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    std::int64_t loggedSoFar() const {
        std::int64_t sum = 0;
        for (const auto& each : logged_) {
            sum += each;
        }
        return sum;
    }
    void checkFiles() {
        for (const auto& file : files_) {
            file->check();
        }
    }

    TemporaryFolder folder_;
    const RecordedLogger<> log_{"app"};
    std::vector<std::unique_ptr<LoadedFile>> files_;
    std::array<std::atomic<std::int64_t>, threads> logged_{};
    std::atomic<std::int64_t> preferencesWritten_ = 0;
    std::atomic<std::int64_t> preferencesRead_ = 0;
    std::atomic<bool> shallEnd_ = false;
};

TEST_F(LongRun, LosesNoLineAndGrowsInNothing) {
    using Clock = std::chrono::steady_clock;
    const std::string store = folder_ / "UserDefaults.json";
    ::setenv("VELORA_DEFAULTS_FILE", store.c_str(), 1);  // before any other thread runs
    const int seconds = numberFromEnvironment("VELORA_LONG_RUN_SECONDS", 10);
    constexpr int reports = 10;

    std::vector<std::thread> running;
    for (std::size_t thread = 0; thread < threads; ++thread) {
        running.emplace_back([this, thread] { log(thread); });
    }
    running.emplace_back([this] { changeLevels(); });
    running.emplace_back([this] { writePreferences(); });

    std::vector<Use> uses;
    std::vector<double> rates;
    const Clock::time_point start = Clock::now();
    for (int report = 1; report <= reports; ++report) {
        const std::int64_t before = loggedSoFar();
        const Clock::time_point began = Clock::now();
        while (Clock::now() < start + std::chrono::milliseconds(seconds * 1'000 / reports * report)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            checkFiles();
        }
        rates.push_back(static_cast<double>(loggedSoFar() - before) /
                        std::chrono::duration<double>(Clock::now() - began).count());
        uses.push_back(Use::now());
        std::printf("%6.0f s: %.1f MB resident, %lld descriptors, %.0f calls/s\n",
                    std::chrono::duration<double>(Clock::now() - start).count(), uses.back().megabytes,
                    static_cast<long long>(uses.back().descriptors), rates.back());
        std::fflush(stdout);
    }
    shallEnd_ = true;
    for (std::thread& thread : running) {
        thread.join();
    }
    DispatchQueue::drainAll();

    for (const auto& file : files_) {
        file->destination()->setWriteBufferCapacity(0);
        file->checkAll();
        EXPECT_THAT(file->account().wrong(), IsEmpty()) << file->name();
        for (std::size_t thread = 0; thread < threads; ++thread) {
            EXPECT_EQ(file->account().counts().at(thread), logged_.at(thread)) << file->name();
        }
    }
    EXPECT_THAT(log_.recording->lines(), IsEmpty()) << "errors of the library";
    EXPECT_EQ(preferencesRead_, preferencesWritten_);
    std::printf("%lld log calls to each of %zu files, %lld preferences written twice\n",
                static_cast<long long>(loggedSoFar()), files_.size(), static_cast<long long>(preferencesWritten_));

    // Generous: only what goes on growing is meant to be found.
    EXPECT_LE(uses.back().descriptors, uses.at(1).descriptors + 3);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
    EXPECT_LE(uses.back().megabytes, uses.at(1).megabytes + 20);
#endif
    // Of each half, since the disk may be busy with something else for a while.
    EXPECT_GE(median(rates.begin() + reports / 2, rates.end()), median(rates.begin(), rates.begin() + reports / 2) / 3);
}

}  // namespace
}  // namespace velora::test
