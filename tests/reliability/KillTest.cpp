// Which lines are in the file when a program that logs at full speed is killed (SIGKILL) at a random moment.
//
// VELORA_KILLS says how often in each mode; 20 if it is not set.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <random>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "reliability/LoggedLines.h"
#include "support/SharedNumber.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

/// What a killed process left behind.
struct Remains {
    /// How many log calls had returned.
    int returned = 0;
    FoundLines found;
    std::string log;
    /// The newest archive, if there is one: lines are written to it until the new file, with its header, takes over.
    std::string archive;
};

class KilledProcess : public testing::TestWithParam<Mode> {
protected:
    static Mode mode() {
        Mode mode = GetParam();
        // Long enough that no archive is deleted.
        mode.maxFileSize = mode.maxFileSize == 0 ? 0 : 20'000;
        return mode;
    }

    [[noreturn]] void logForEver(const std::string& path) const {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        LoggedFile file(mode(), path);
        file.open();
        for (int number = 0;; ++number) {
            file.logger().info(numberedText(number));
            (*returned_).store(number + 1, std::memory_order_relaxed);
        }
    }

    /// Has a process log and kills it some time later.
    Remains killOne(std::chrono::microseconds time) {
        const TemporaryFolder folder;
        const std::string path = folder / "app.log";
        *returned_ = 0;
        const pid_t child = ::fork();
        if (child == 0) {
            logForEver(path);
        }
        while (*returned_ == 0) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(time);
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        LoggedFile reader(mode(), path);
        reader.recover();
        Remains remains{.returned = *returned_, .found = reader.found(), .log = readFile(path), .archive = {}};
        if (!reader.archives().empty()) {
            remains.archive = readFile(reader.archives().back());
        }
        return remains;
    }

    SharedNumber returned_;
};

INSTANTIATE_TEST_SUITE_P(InEachMode, KilledProcess, testing::ValuesIn(allModes), nameOf);

std::size_t bytesOf(const std::vector<int>& numbers) {
    std::size_t bytes = 0;
    for (const int number : numbers) {
        bytes += numberedText(number).size() + 3;  // "> " and the line feed
    }
    return bytes;
}

/// Whether `text` is the beginning of the line of `number`, or of one that the library writes of itself.
bool isTheBeginningOfALine(const std::string& text, int number) {
    const auto agreesWith = [&text](std::string_view beginning) {
        return text.starts_with(beginning) || beginning.starts_with(text);
    };
    // The header begins with the name of the program.
    return ("> " + numberedText(number)).starts_with(text) || agreesWith("> XCGLogger ") ||
           agreesWith("> Rotated file ") || agreesWith("> KillTest PID: ");
}

/// The lines whose calls had returned and that are not there, in each of several runs.
class Losses {
public:
    void add(const std::vector<int>& lost, int returned) {
        lines_.push_back(lost.size());
        bytes_.push_back(bytesOf(lost));
        returned_ += returned;
    }
    void print(const char* mode) {
        std::cout << mode << ": killed " << lines_.size() << " times, " << returned_ << " calls had returned; lost "
                  << median(lines_) << " lines (median), " << *std::ranges::max_element(lines_) << " (most); "
                  << median(bytes_) << " bytes (median), " << *std::ranges::max_element(bytes_) << " (most)\n";
    }

private:
    static std::size_t median(std::vector<std::size_t>& values) {
        std::ranges::sort(values);
        return values.at(values.size() / 2);
    }

    std::vector<std::size_t> lines_;
    std::vector<std::size_t> bytes_;
    long long returned_ = 0;
};

TEST_P(KilledProcess, HasLostNothingButTheTailThatItsModeHoldsBack) {
    const int kills = numberFromEnvironment("VELORA_KILLS", 20);
    const unsigned seed = std::random_device()();
    SCOPED_TRACE("seed " + std::to_string(seed));
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> microseconds(0, 20'000);
    Losses losses;
    for (int kill = 0; kill < kills; ++kill) {
        const Remains remains = killOne(std::chrono::microseconds(microseconds(random)));
        const auto& [returned, found, log, archive] = remains;
        const auto there = static_cast<int>(found.numbers.size());
        ASSERT_EQ(found.numbers, numbersFrom(0, there)) << "a line is missing or doubled before the end";
        // The kernel may end a write at a page's end when it kills the process.
        ASSERT_LE(found.torn.size(), 1U);
        if (!found.torn.empty()) {
            const std::string& end = log.find("> line ") == std::string::npos && !archive.empty() ? archive : log;
            ASSERT_TRUE(end.ends_with(found.torn.front()) || log.ends_with(found.torn.front()))
                << "torn, but not at the end: " << found.torn.front();
            ASSERT_TRUE(isTheBeginningOfALine(found.torn.front(), there)) << found.torn.front();
        }
        const std::vector<int> lost = numbersFrom(there, std::max(there, returned));
        losses.add(lost, returned);
        if (!losesWhatWaits(GetParam())) {
            ASSERT_TRUE(lost.empty()) << "a call had returned, and its line is not there";
        } else if (!GetParam().hasQueue) {
            ASSERT_LT(bytesOf(lost), GetParam().bufferCapacity);
        } else {
            // The pending lines, those that are being written, and what a buffer holds back.
            constexpr std::size_t maxPendingBytes = 1'048'576;
            constexpr std::size_t fewestBytesOfALine = 100;
            ASSERT_LE(lost.size(), 2 * maxPendingBytes / fewestBytesOfALine + GetParam().bufferCapacity / 20);
        }
    }
    losses.print(GetParam().name);
}

}  // namespace
}  // namespace velora::test
