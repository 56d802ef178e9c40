#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

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
