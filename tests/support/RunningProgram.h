#pragma once

#include <array>
#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <ostream>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace velora::test {

/// One run of the program, whose standard output is read through a pipe and whose errors go to a file.
class RunningProgram {
public:
    RunningProgram(const std::string& path, std::vector<std::string> arguments, const std::string& input,
                   const std::string& errors) {
        std::array<int, 2> output{};
        EXPECT_EQ(::pipe2(output.data(), O_CLOEXEC), 0);
        std::vector<char*> argv{const_cast<char*>(path.c_str())};
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, input.c_str(), O_RDONLY, 0);
        ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        EXPECT_EQ(::posix_spawn(&process_, argv[0], &actions, nullptr, argv.data(), environ), 0);
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(output[1]);
        output_ = output[0];
    }
    RunningProgram(const RunningProgram&) = delete;
    RunningProgram& operator=(const RunningProgram&) = delete;
    ~RunningProgram() {
        ::close(output_);
        if (process_ > 0) {
            ::kill(process_, SIGKILL);
            wait();
        }
    }

    /// What is printed up to the next end of line, or up to the end; empty if nothing comes for a minute.
    std::string line() const {
        std::string text;
        for (char character = 0; waitForOutput(60'000) && ::read(output_, &character, 1) == 1 && character != '\n';) {
            text += character;
        }
        return text;
    }
    std::string everything() const {
        std::string text;
        std::array<char, 65'536> piece{};
        for (ssize_t size = 1; size > 0 && waitForOutput(60'000);) {
            size = ::read(output_, piece.data(), piece.size());
            text.append(piece.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
        }
        return text;
    }

    /// Whether something was printed that has not been read.
    bool isReadable() const { return waitForOutput(0); }

    void send(int signal) const { ::kill(process_, signal); }
    /// The exit status; -1 if the program was killed.
    int wait() {
        int status = 0;
        ::waitpid(std::exchange(process_, 0), &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    bool waitForOutput(int milliseconds) const {
        pollfd waiting{.fd = output_, .events = POLLIN, .revents = 0};
        return ::poll(&waiting, 1, milliseconds) == 1;
    }

    pid_t process_ = 0;
    int output_ = -1;
};

/// How a run ended.
struct Result {
    int status;
    std::string output;
    std::string errors;
    bool operator==(const Result&) const = default;
};

inline void PrintTo(const Result& result, std::ostream* stream) {
    *stream << "status " << result.status << ", output '" << result.output << "', errors '" << result.errors << "'";
}

}  // namespace velora::test
