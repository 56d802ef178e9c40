#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <sys/ioctl.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/Descriptor.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/ConsoleDestination.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/ForkedChild.h"
#include "support/RecordingDestination.h"

namespace velora::test {
namespace {

using testing::MatchesRegex;

class ConsoleDestinationTest : public testing::Test {
protected:
    /// What `work` prints to standard output.
    template <typename Work>
    std::string printed(Work work) {
        testing::internal::CaptureStdout();
        work();
        return testing::internal::GetCapturedStdout();
    }

    const RecordedLogger<> logger_;
    XCGLogger& log_ = *logger_.log;
    std::shared_ptr<ConsoleDestination> console_ = logger_.addRecording<ConsoleDestination>("console");
};

TEST_F(ConsoleDestinationTest, PrintsOneLineForEachCall) {
    EXPECT_EQ(printed([this] {
                  log_.info("one");
                  log_.info("");
                  log_.info("100 % {} \\n");
                  log_.info("grüße");
              }),
              "> one\n> \n> 100 % {} \\n\n> grüße\n");
}

TEST_F(ConsoleDestinationTest, PrintsALineWithItsDefaultColumns) {
    const auto console = make<ConsoleDestination>(nullptr, "with defaults");
    log_.remove(console_);
    log_.add(console);
    EXPECT_THAT(printed([this] { log_.info("hello", SourceLocation("main", "/src/main.cpp", 12)); }),
                MatchesRegex("[0-9-]+ [0-9:.]+ \\[Info\\] \\[main.cpp:12\\] main > hello\n"));
}

TEST_F(ConsoleDestinationTest, EndsEachLineWithALineFeedOfItsOwn) {
    EXPECT_EQ(printed([this] { log_.info("two\nlines\n"); }), "> two\nlines\n\n");
}

TEST_F(ConsoleDestinationTest, PrintsBytesAsTheyAre) {
    const std::string message = "nul " + std::string(1, '\0') + " and no text \xff\xc3";
    EXPECT_EQ(printed([&] { log_.info(message); }), "> " + message + "\n");
}

TEST_F(ConsoleDestinationTest, KeepsItsPlaceAmongWhatTheHostPrints) {
    EXPECT_EQ(printed([this] {
                  std::fputs("host, ", stdout);
                  log_.info("log");
                  std::fputs("host again", stdout);
              }),
              "host, > log\nhost again");
}

TEST_F(ConsoleDestinationTest, HasPrintedTheLineWhenTheCallReturns) {
    std::vector<int> ends(2);
    ASSERT_EQ(::pipe2(ends.data(), O_NONBLOCK | O_CLOEXEC), 0);
    std::fflush(stdout);
    const int standardOutput = ::dup(STDOUT_FILENO);
    ::dup2(ends[1], STDOUT_FILENO);
    log_.info("at once");
    std::string bytes(100, '\0');
    const ssize_t count = ::read(ends[0], bytes.data(), bytes.size());
    ::dup2(standardOutput, STDOUT_FILENO);
    for (const int descriptor : {ends[0], ends[1], standardOutput}) {
        ::close(descriptor);
    }
    ASSERT_GT(count, 0);
    EXPECT_EQ(bytes.substr(0, static_cast<std::size_t>(count)), "> at once\n");
}

TEST_F(ConsoleDestinationTest, PrintsOnItsQueue) {
    const auto queue = DispatchQueue::make("console");
    console_->setLogQueue(queue);
    EXPECT_EQ(printed([&] {
                  {
                      const Gate gate(*queue);
                      log_.info("one");
                      log_.info("two");
                      std::fputs("main\n", stdout);
                  }
                  queue->drain();
              }),
              "main\n> one\n> two\n");
}

TEST_F(ConsoleDestinationTest, NeverMixesLinesOfSeveralThreads) {
    constexpr int threadCount = 4;
    constexpr int lineCount = 500;
    const auto text = [](int thread, int i) {
        return std::to_string(thread) + " " + std::to_string(i) + std::string(static_cast<std::size_t>(i % 97), 'x');
    };
    const std::string output = printed([&] {
        std::vector<std::thread> threads;
        threads.reserve(threadCount);
        for (int thread = 0; thread < threadCount; ++thread) {
            threads.emplace_back([&, thread] {
                for (int i = 0; i < lineCount; ++i) {
                    log_.info(text(thread, i));
                }
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    });
    std::vector<std::string> expected;
    for (int thread = 0; thread < threadCount; ++thread) {
        for (int i = 0; i < lineCount; ++i) {
            expected.push_back("> " + text(thread, i));
        }
    }
    std::vector<std::string> lines = splitLines(output);
    std::ranges::sort(lines);
    std::ranges::sort(expected);
    EXPECT_EQ(lines, expected);
}

TEST_F(ConsoleDestinationTest, PrintsAMessageOfTenMegabytes) {
    std::string message;
    message.resize(10'000'000, 'x');
    EXPECT_TRUE(printed([&] { log_.info(message); }) == "> " + message + "\n");
}

TEST_F(ConsoleDestinationTest, IgnoresAnOutputThatTakesNothing) {
    EXPECT_EQ(resultOfForkedChild([this] {
                  ::dup2(::open("/dev/full", O_WRONLY | O_CLOEXEC), STDOUT_FILENO);
                  log_.info("lost");
                  std::vector<int> ends(2);
                  if (::pipe2(ends.data(), O_CLOEXEC) != 0) {
                      return 1;
                  }
                  ::signal(SIGPIPE, SIG_IGN);
                  ::dup2(ends[1], STDOUT_FILENO);
                  ::close(ends[0]);
                  log_.info("lost");
                  ::close(STDOUT_FILENO);
                  log_.info("lost");
                  return logger_.recording->lines().size() == 3 ? 0 : 2;
              }),
              0);
}

/// Makes standard output a pipe of one page whose writing end is non-blocking, and reads it slowly on a thread.
class SlowNonBlockingOutput {
public:
    SlowNonBlockingOutput() {
        std::fflush(stdout);
        EXPECT_EQ(::pipe2(ends_.data(), O_CLOEXEC), 0);
        EXPECT_GT(::fcntl(ends_[1], F_SETPIPE_SZ, 4096), 0);
        EXPECT_EQ(::fcntl(ends_[1], F_SETFL, O_NONBLOCK), 0);
        ::dup2(ends_[1], STDOUT_FILENO);
    }
    SlowNonBlockingOutput(const SlowNonBlockingOutput&) = delete;
    SlowNonBlockingOutput& operator=(const SlowNonBlockingOutput&) = delete;
    ~SlowNonBlockingOutput() { static_cast<void>(finish()); }

    void startReading() {
        reader_ = std::thread([this] {
            std::string block(4096, '\0');
            ssize_t size = 0;
            while ((size = retrying([&] { return ::read(ends_[0], block.data(), block.size()); })) > 0) {
                bytes_.append(block, 0, static_cast<std::size_t>(size));
                std::this_thread::sleep_for(std::chrono::microseconds(50));
            }
        });
    }
    /// Gives standard output back; returns all that came through the pipe.
    std::string finish() {
        if (standardOutput_ >= 0) {
            ::dup2(standardOutput_, STDOUT_FILENO);
            ::close(std::exchange(standardOutput_, -1));
            ::close(ends_[1]);
            if (reader_.joinable()) {
                reader_.join();
            }
            ::close(ends_[0]);
        }
        return bytes_;
    }
    [[nodiscard]] int readingEnd() const { return ends_[0]; }

private:
    int standardOutput_ = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
    std::array<int, 2> ends_{-1, -1};
    std::thread reader_;
    std::string bytes_;
};

/// What line `i` of a thread says: mostly short, some longer than the pipe.
std::string sizedText(int i) {
    constexpr int everyLong = 500;
    return std::to_string(i) + std::string(static_cast<std::size_t>(i % everyLong == 0 ? 50'000 : i % 60), 'x');
}

TEST_F(ConsoleDestinationTest, WaitsForRoomInAPipeThatDoesNotBlock) {
    SlowNonBlockingOutput output;
    output.startReading();
    constexpr int count = 20'000;
    std::string expected;
    for (int i = 0; i < count; ++i) {
        if (i % 10 == 0) {
            std::fputs("host\n", stdout);
            expected += "host\n";
        }
        log_.info(sizedText(i));
        expected += "> " + sizedText(i) + "\n";
    }
    const std::string bytes = output.finish();
    EXPECT_EQ(std::ranges::count(bytes, '\n'), std::ranges::count(expected, '\n'));
    EXPECT_TRUE(bytes == expected);
}

TEST_F(ConsoleDestinationTest, KeepsLinesWholeWhileSignalsInterruptTheWaitForRoom) {
    struct sigaction before {};
    struct sigaction interrupting {};
    interrupting.sa_handler = [](int) {};  // without SA_RESTART
    ASSERT_EQ(::sigaction(SIGALRM, &interrupting, &before), 0);
    const itimerval often{.it_interval = {.tv_sec = 0, .tv_usec = 1'000}, .it_value = {.tv_sec = 0, .tv_usec = 1'000}};
    ASSERT_EQ(::setitimer(ITIMER_REAL, &often, nullptr), 0);
    SlowNonBlockingOutput output;
    output.startReading();
    constexpr int count = 2'000;
    const auto logAll = [this](char name) {
        for (int i = 0; i < count; ++i) {
            log_.info(name + sizedText(i));
        }
    };
    std::thread other(logAll, 'b');
    logAll('a');
    other.join();
    const std::string bytes = output.finish();
    constexpr itimerval never{};
    ::setitimer(ITIMER_REAL, &never, nullptr);
    ::sigaction(SIGALRM, &before, nullptr);
    std::vector<std::string> lines = splitLines(bytes);
    std::vector<std::string> expected;
    for (const char name : {'a', 'b'}) {
        for (int i = 0; i < count; ++i) {
            expected.push_back(std::string("> ") + name + sizedText(i));
        }
    }
    std::ranges::sort(lines);
    std::ranges::sort(expected);
    EXPECT_TRUE(lines == expected);
}

TEST_F(ConsoleDestinationTest, GivesUpOnceTheReaderOfAFullPipeHasGone) {
    EXPECT_EQ(resultOfForkedChild([this] {
                  ::signal(SIGPIPE, SIG_IGN);
                  const SlowNonBlockingOutput output;
                  std::thread other([&output] {
                      std::this_thread::sleep_for(std::chrono::milliseconds(20));
                      ::close(output.readingEnd());
                  });
                  log_.info(std::string(100'000, 'x'));
                  log_.info("lost as well");
                  other.join();
                  return 0;
              }),
              0);
}

TEST_F(ConsoleDestinationTest, PrintsInAChildForkedWhileAnotherThreadWaitsForRoom) {
    SlowNonBlockingOutput output;
    std::thread other([this] { log_.info(std::string(100'000, 'x')); });
    int size = 0;
    while (size == 0) {
        ASSERT_EQ(::ioctl(output.readingEnd(), FIONREAD, &size), 0);
    }
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    EXPECT_EQ(resultOfForkedChild([&] {
                  ::dup2(ends[1], STDOUT_FILENO);
                  log_.info("child");
                  return 0;
              }),
              0);
    std::string bytes(100, '\0');
    const ssize_t count = ::read(ends[0], bytes.data(), bytes.size());
    EXPECT_EQ(bytes.substr(0, static_cast<std::size_t>(std::max<ssize_t>(count, 0))), "> child\n");
    output.startReading();
    other.join();
    EXPECT_TRUE(output.finish() == "> " + std::string(100'000, 'x') + "\n");
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST_F(ConsoleDestinationTest, DescribesItself) {
    EXPECT_EQ(make<ConsoleDestination>(nullptr, "id")->debugDescription(),
              "ConsoleDestination: id - Level: Debug showLogIdentifier: false showFunctionName: true showThreadName: "
              "false showLevel: true showFileName: true showLineNumber: true showDate: true");
    class Own : public ConsoleDestination {
    public:
        using ConsoleDestination::ConsoleDestination;
    };
    EXPECT_EQ(make<Own>(nullptr, "id")->debugDescription(),
              "Own: id - Level: Debug showLogIdentifier: false showFunctionName: true showThreadName: "
              "false showLevel: true showFileName: true showLineNumber: true showDate: true");
}

}  // namespace
}  // namespace velora::test
