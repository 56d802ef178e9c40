// What velora-log does on a terminal: colours, and a bar for long scans.

#include <array>
#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <regex>
#include <string>
#include <support/TemporaryFolder.h>
#include <sys/wait.h>
#include <thread>
#include <tools/VeloraLogTestSupport.h>
#include <unistd.h>
#include <vector>

namespace velora::test {
namespace {

using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

TEST_F(VeloraLog, ColoursLevelsWhenToldTo) {
    const std::string line = "2026-11-22 00:00:00.000 [Error] [a.cpp:1] f > x\n";
    EXPECT_EQ(shown(line), line) << "a pipe gets no colours";
    EXPECT_EQ(shown(line, {"--color", "always"}), "2026-11-22 00:00:00.000 \x1b[31m[Error]\x1b[m [a.cpp:1] f > x\n");
    EXPECT_EQ(shown(line, {"--color=never"}), line);
}

/// What `child` prints to its terminal, of which this is the other side, until it ends.
std::string everythingOn(int terminal, pid_t child) {
    std::string text;
    char buffer[4096];
    for (ssize_t size = ::read(terminal, buffer, sizeof buffer); size > 0;
         size = ::read(terminal, buffer, sizeof buffer)) {
        text.append(buffer, static_cast<std::size_t>(size));
    }
    ::close(terminal);
    ::waitpid(child, nullptr, 0);
    return text;
}

/// What the program prints to a terminal that is its standard output and, if told, its standard error. `input` is
/// written to its standard input in pieces, some time apart.
std::string onTerminal(std::vector<std::string> arguments, bool alsoOutput,
                       const std::vector<std::string>& input = {}) {
    int terminal = -1;
    int inputPipe[2] = {-1, -1};
    EXPECT_EQ(::pipe2(inputPipe, O_CLOEXEC), 0);
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        ::dup2(inputPipe[0], STDIN_FILENO);
        if (!alsoOutput) {
            ::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO);
        }
        std::vector<char*> argv{const_cast<char*>(VELORA_LOG_PROGRAM)};
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        ::execv(VELORA_LOG_PROGRAM, argv.data());
        ::_exit(127);
    }
    ::close(inputPipe[0]);
    for (const std::string& piece : input) {
        EXPECT_EQ(::write(inputPipe[1], piece.data(), piece.size()), static_cast<ssize_t>(piece.size()));
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
    }
    ::close(inputPipe[1]);
    return everythingOn(terminal, child);
}

TEST_F(VeloraLog, ColoursLevelsOnATerminalUnlessToldOtherwise) {
    ::setenv("TERM", "xterm", 1);
    writeFile(path, "2026-11-22 00:00:00.000 [Error] > x\n");
    EXPECT_THAT(onTerminal({"show", path}, true), HasSubstr("\x1b[31m[Error]\x1b[m"));
    EXPECT_THAT(onTerminal({"show", "--color=never", path}, true), Not(HasSubstr("\x1b")));
    ::setenv("NO_COLOR", "1", 1);
    EXPECT_THAT(onTerminal({"show", path}, true), Not(HasSubstr("\x1b")));
    EXPECT_THAT(onTerminal({"show", "--color=always", path}, true), HasSubstr("\x1b[31m[Error]\x1b[m"));
    ::unsetenv("NO_COLOR");
    ::setenv("TERM", "dumb", 1);
    EXPECT_THAT(onTerminal({"show", path}, true), Not(HasSubstr("\x1b")));
}

TEST_F(VeloraLog, ShowsHowFarALongScanIsAndTakesTheBarAway) {
    const std::vector<std::string> pieces(60, std::string(60'000, 'x') + "\n");
    std::vector<std::string> slow(3);
    for (const std::string& piece : pieces) {
        slow.back() += piece;
    }
    // Two pauses first; then enough for several blocks.
    slow[0] = slow[1] = "x\n";
    const std::string bar = onTerminal({"stats", "-"}, false, slow);
    EXPECT_THAT(bar, ContainsRegex("\r\x1b\\[K[0-9]+ MB"));
    EXPECT_THAT(bar, EndsWith("\r\x1b[K"));
    writeFile(path, "x\n");
    EXPECT_EQ(onTerminal({"stats", path}, false), "") << "a short scan needs none";
}

/// What `show` prints to a terminal that is its standard error, if nobody reads its output for a while.
std::string onTerminalWithSlowReader(const std::string& path) {
    int terminal = -1;
    std::array<int, 2> output{};
    EXPECT_EQ(::pipe2(output.data(), O_CLOEXEC), 0);
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        ::dup2(output[1], STDOUT_FILENO);
        ::execl(VELORA_LOG_PROGRAM, VELORA_LOG_PROGRAM, "show", path.c_str(), nullptr);
        ::_exit(127);
    }
    ::close(output[1]);
    pollfd waiting{.fd = output[0], .events = POLLIN, .revents = 0};
    EXPECT_EQ(::poll(&waiting, 1, 60'000), 1);
    // It has begun, and stands still as soon as the pipe is full.
    std::this_thread::sleep_for(std::chrono::milliseconds(600));
    std::jthread reading([end = output[0]] {
        std::array<char, 65'536> piece{};
        while (::read(end, piece.data(), piece.size()) > 0) {
        }
        ::close(end);
    });
    return everythingOn(terminal, child);
}

TEST_F(VeloraLog, ShowsWhatPartOfAFileItHasRead) {
    std::string content;
    while (content.size() < 5'000'000) {
        content += "2026-11-22 00:00:00.000 [Info] > " + std::string(66, 'x') + "\n";
    }
    writeFile(path, content);
    const std::string bar = onTerminalWithSlowReader(path);
    static const std::regex form(R"(\r\x1b\[K\[(#*)(\.*)\] ( ?[ 0-9][0-9]) %  ([0-9]) of 5 MB)");
    int drawn = 0;
    for (auto match = std::sregex_iterator(bar.begin(), bar.end(), form); match != std::sregex_iterator(); ++match) {
        const int percent = std::stoi(match->str(3));
        EXPECT_EQ(match->length(1) + match->length(2), 30) << match->str();
        // The percentage is rounded down.
        EXPECT_GE(match->length(1), percent * 30 / 100) << match->str();
        EXPECT_LE(match->length(1), (percent + 1) * 30 / 100) << match->str();
        EXPECT_GE(std::stoi(match->str(4)), percent * 5 / 100) << match->str();
        EXPECT_LE(std::stoi(match->str(4)), (percent + 1) * 5 / 100) << match->str();
        EXPECT_GT(percent, 0);
        ++drawn;
    }
    EXPECT_GT(drawn, 0) << bar;
    EXPECT_THAT(bar, EndsWith("\r\x1b[K"));
}

}  // namespace
}  // namespace velora::test
