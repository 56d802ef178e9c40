// What becomes of lines when a process ends, forks or becomes a daemon, in each way of writing. Each test runs this
// program again as a process that ends in one way.

#include <algorithm>
#include <array>
#include <atomic>
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
#include <vector>

#include "reliability/LoggedLines.h"
#include "support/OwnProcess.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

using testing::IsEmpty;

constexpr int lines = 2'000;

std::string textFromEnvironment(const char* name) {
    const char* const text = std::getenv(name);
    return text == nullptr ? "" : text;
}

Mode modeOfThisProcess() {
    const std::string name = textFromEnvironment("VELORA_TEST_MODE");
    const auto* const mode = std::ranges::find_if(allModes, [&](const Mode& each) { return each.name == name; });
    return mode == allModes.end() ? Mode() : *mode;
}

/// A logger that nobody takes apart, as a host's usually is, to the file that the environment names.
LoggedFile& hostsFile() {
    static auto& file = []() -> LoggedFile& {
        ::alarm(120);  // an end that hangs is a failure, not a test that never ends
        auto& made = *new LoggedFile(modeOfThisProcess(), textFromEnvironment("VELORA_TEST_LOG"));
        made.open();
        return made;
    }();
    return file;
}

TEST(AProcess, DISABLED_ThatReturnsFromMain) {
    hostsFile().log(0, lines);
}

TEST(AProcess, DISABLED_ThatExits) {
    hostsFile().log(0, lines);
    std::exit(0);
}

TEST(AProcess, DISABLED_ThatExitsOnAnotherThread) {
    hostsFile().log(0, lines);
    std::thread([] { std::exit(0); }).join();
}

TEST(AProcess, DISABLED_ThatExitsFromWorkOfItsQueue) {
    hostsFile().log(0, lines);
    if (const auto& queue = hostsFile().file().logQueue()) {
        queue->async([] { std::exit(0); });
        for (;;) {
            ::pause();
        }
    }
    std::exit(0);
}

struct LogsWhenDestroyed {
    int first;
    ~LogsWhenDestroyed() { hostsFile().log(first, first + 10); }
};

TEST(AProcess, DISABLED_ThatLogsInStaticDestructors) {
    // Made before and after the objects of the library.
    static const LogsWhenDestroyed last{lines + 10};
    hostsFile().log(0, lines);
    static const LogsWhenDestroyed first{lines};
}

TEST(AProcess, DISABLED_ThatLogsWhenItsExitBegins) {
    hostsFile().log(0, lines);
    std::atexit([] { hostsFile().log(lines, lines + 10); });
}

TEST(AProcess, DISABLED_ThatEndsAtOnce) {
    hostsFile().log(0, lines);
    ::_exit(0);
}

TEST(AProcess, DISABLED_ThatExitsQuickly) {
    hostsFile().log(0, lines);
    std::quick_exit(0);
}

TEST(AProcess, DISABLED_ThatExitsQuicklyWithAHandlerThatFlushes) {
    std::at_quick_exit([] { hostsFile().settle(); });
    hostsFile().log(0, lines);
    std::quick_exit(0);
}

constexpr int threadsAtExit = 3;
constexpr int firstOfThread = 1'000'000;

TEST(AProcess, DISABLED_ThatExitsWhileThreadsLog) {
    static std::array<std::atomic<int>, threadsAtExit> logged{};
    if (auto* const rotating = dynamic_cast<AutoRotatingFileDestination*>(&hostsFile().file())) {
        // Not so many archives that early ones are deleted.
        rotating->setTargetMaxFileSize(100'000);
    }
    for (int thread = 0; thread < threadsAtExit; ++thread) {
        std::thread([thread] {
            for (int number = (thread + 1) * firstOfThread;; ++number) {
                hostsFile().log(number, number + 1);
                ++logged.at(static_cast<std::size_t>(thread));
            }
        }).detach();
    }
    while (!std::ranges::all_of(logged, [](const std::atomic<int>& each) { return each > 100; })) {
        std::this_thread::yield();
    }
    hostsFile().log(0, lines);
}

TEST(AProcess, DISABLED_WhoseChildrenLogAndEnd) {
    hostsFile().log(0, lines);
    int next = lines;
    for (int child = 0; child < 4; ++child) {
        const pid_t process = ::fork();
        if (process == 0) {
            const int first = firstOfThread * (child + 1);
            hostsFile().log(first, first + 200);
            if (child == 0) {
                std::exit(0);
            }
            if (child == 1) {
                hostsFile().settle();
                ::_exit(0);
            }
            if (child == 2) {
                hostsFile().settle();
                ::execl("/bin/true", "true", nullptr);
            }
            hostsFile().settle();
            std::quick_exit(0);
        }
        hostsFile().log(next, next + 100);
        next += 100;
        int status = -1;
        EXPECT_EQ(::waitpid(process, &status, 0), process);
        EXPECT_EQ(status, 0);
    }
}

/// Becomes a daemon as daemon(7) tells: a child in a session of its own, and a child of that.
void becomeADaemon() {
    if (::fork() != 0) {
        ::_exit(0);
    }
    ::setsid();
    if (::fork() != 0) {
        ::_exit(0);
    }
}

void noteTheEnd() {
    writeFile(textFromEnvironment("VELORA_TEST_LOG") + ".end", "");
}

TEST(AProcess, DISABLED_ThatBecomesADaemonAndThenLogs) {
    becomeADaemon();
    std::atexit(noteTheEnd);
    hostsFile().log(0, lines);
}

TEST(AProcess, DISABLED_ThatLogsAndBecomesADaemon) {
    std::atexit(noteTheEnd);
    hostsFile().log(0, lines);
    hostsFile().settle();
    becomeADaemon();
    hostsFile().log(lines, 2 * lines);
}

class EndOfAProcess : public testing::TestWithParam<Mode> {
protected:
    /// Has a process end in a way, and returns the lines it left in its file.
    FoundLines linesOfProcess(const std::string& way) {
        run(way);
        return linesThere();
    }
    void run(const std::string& way) const {
        ::setenv("VELORA_TEST_MODE", GetParam().name, 1);
        EXPECT_EQ(statusOfProcess("AProcess.DISABLED_" + way, path_), 0);
    }
    FoundLines linesThere() const {
        LoggedFile file(mode(), path_);
        file.recover();
        return file.found();
    }
    static Mode mode() { return GetParam(); }

    /// Waits until a daemon has left its sign, for at most two minutes.
    bool waitForTheEnd() const {
        for (int tries = 0; tries < 12'000 && !std::filesystem::exists(path_ + ".end"); ++tries) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return std::filesystem::exists(path_ + ".end");
    }

    TemporaryFolder folder_;
    const std::string path_ = folder_ / "app.log";
};

INSTANTIATE_TEST_SUITE_P(InEachMode, EndOfAProcess, testing::ValuesIn(allModes), nameOf);

TEST_P(EndOfAProcess, LosesNothingWhenItIsANormalOne) {
    for (const char* const way : {"ThatReturnsFromMain", "ThatExits", "ThatExitsOnAnotherThread",
                                  "ThatExitsFromWorkOfItsQueue", "ThatExitsQuicklyWithAHandlerThatFlushes"}) {
        const FoundLines found = linesOfProcess(way);
        EXPECT_EQ(found.numbers, numbersFrom(0, lines)) << way;
        EXPECT_THAT(found.torn, IsEmpty()) << way;
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
            std::filesystem::remove(entry.path());
        }
    }
}

TEST_P(EndOfAProcess, LosesNoLineThatStaticDestructorsLog) {
    const FoundLines found = linesOfProcess("ThatLogsInStaticDestructors");
    EXPECT_EQ(found.numbers, numbersFrom(0, lines + 20));
    EXPECT_THAT(found.torn, IsEmpty());
}

TEST_P(EndOfAProcess, LosesNoLineThatAnExitHandlerLogs) {
    const FoundLines found = linesOfProcess("ThatLogsWhenItsExitBegins");
    EXPECT_EQ(found.numbers, numbersFrom(0, lines + 10));
    EXPECT_THAT(found.torn, IsEmpty());
}

TEST_P(EndOfAProcess, WithoutExitHandlersLosesOnlyWhatWasHeldBack) {
    for (const char* const way : {"ThatEndsAtOnce", "ThatExitsQuickly"}) {
        const FoundLines found = linesOfProcess(way);
        const auto there = static_cast<int>(found.numbers.size());
        EXPECT_EQ(found.numbers, numbersFrom(0, there)) << way;
        // The thread of a queue may be in the middle of a write.
        EXPECT_LE(found.torn.size(), GetParam().hasQueue ? 1U : 0U) << way;
        if (!losesWhatWaits(GetParam())) {
            EXPECT_EQ(there, lines) << way;
        }
        for (const auto& entry : std::filesystem::directory_iterator(folder_.path())) {
            std::filesystem::remove(entry.path());
        }
    }
}

TEST_P(EndOfAProcess, KeepsEveryLineLoggedBeforeAndTearsNoneOfThreadsThatStillLog) {
    const FoundLines found = linesOfProcess("ThatExitsWhileThreadsLog");
    std::array<std::vector<int>, threadsAtExit + 1> ofThread;
    for (const int number : found.numbers) {
        ofThread.at(static_cast<std::size_t>(number / firstOfThread)).push_back(number);
    }
    // The process may end in the middle of what such a thread does.
    EXPECT_LE(found.torn.size(), 1U);
    EXPECT_EQ(ofThread[0], numbersFrom(0, lines));
    for (int thread = 1; thread <= threadsAtExit; ++thread) {
        const std::vector<int>& numbers = ofThread.at(static_cast<std::size_t>(thread));
        EXPECT_GE(numbers.size(), 100U);
        EXPECT_EQ(numbers,
                  numbersFrom(thread * firstOfThread, thread * firstOfThread + static_cast<int>(numbers.size())));
    }
}

/// Processes that rotate one file at once would take it away from each other.
class ForkedChildren : public EndOfAProcess {};

INSTANTIATE_TEST_SUITE_P(InEachModeWithoutRotation, ForkedChildren, testing::ValuesIn(notRotatingModes), nameOf);

TEST_P(ForkedChildren, LoseAndDoubleNothing) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "ThreadSanitizer does not support starting threads in a forked child of a process with threads";
#endif
    const FoundLines found = linesOfProcess("WhoseChildrenLogAndEnd");
    std::array<std::vector<int>, 5> ofProcess;
    for (const int number : found.numbers) {
        ofProcess.at(static_cast<std::size_t>(number / firstOfThread)).push_back(number);
    }
    EXPECT_EQ(ofProcess[0], numbersFrom(0, lines + 400));
    for (int child = 1; child <= 4; ++child) {
        EXPECT_EQ(ofProcess.at(static_cast<std::size_t>(child)),
                  numbersFrom(child * firstOfThread, child * firstOfThread + 200));
    }
    EXPECT_THAT(found.torn, IsEmpty());
}

TEST_P(EndOfAProcess, ThatBecameADaemonLosesNothing) {
    run("ThatBecomesADaemonAndThenLogs");
    ASSERT_TRUE(waitForTheEnd());
    EXPECT_EQ(linesThere().numbers, numbersFrom(0, lines));
    EXPECT_THAT(linesThere().torn, IsEmpty());
}

TEST_P(EndOfAProcess, ThatBecameADaemonAfterItLoggedLosesNothing) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "ThreadSanitizer does not support starting threads in a forked child of a process with threads";
#endif
    run("ThatLogsAndBecomesADaemon");
    ASSERT_TRUE(waitForTheEnd());
    EXPECT_EQ(linesThere().numbers, numbersFrom(0, 2 * lines));
    EXPECT_THAT(linesThere().torn, IsEmpty());
}

}  // namespace
}  // namespace velora::test
