#pragma once

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "support/TemporaryFolder.h"

namespace velora::test {

/// Looks again and again whether `condition` holds, for at most so long. Returns whether it held.
template <class Condition>
bool waitUntil(Condition condition, std::chrono::seconds limit = std::chrono::seconds(30)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

/// A real rsyslogd with a configuration of a test's own. Its process identifier and its output lie in the folder of
/// the configuration. It ends with the object, and with the test program. One thread at a time.
class RsyslogProcess {
public:
    static constexpr const char* program = "/usr/sbin/rsyslogd";

    RsyslogProcess() = default;
    RsyslogProcess(const RsyslogProcess&) = delete;
    RsyslogProcess& operator=(const RsyslogProcess&) = delete;
    ~RsyslogProcess() { stop(); }

    static bool isInstalled() { return ::access(program, X_OK) == 0; }

    /// Starts it with the file rsyslog.conf in `folder`, and waits until `isReady` holds or it has ended. Returns why
    /// it does not run, or nothing.
    template <class Condition>
    std::optional<std::string> start(const std::string& folder, Condition isReady) {
        run(folder);
        bool hasEnded = false;
        const bool isRunning = waitUntil([&] {
            hasEnded = ::waitpid(process_, nullptr, WNOHANG) == process_;
            return hasEnded || isReady();
        });
        if (hasEnded) {
            process_ = -1;
        }
        if (isRunning && !hasEnded) {
            return std::nullopt;
        }
        return "rsyslogd does not start here: " + readFile(folder + "/output");
    }

    /// Ends it; it first writes out what it has received. A signal that comes at a bad moment makes it wait for
    /// minutes, another one wakes it.
    void stop() {
        for (int attempt = 0; process_ > 0 && attempt < 3; ++attempt) {
            ::kill(process_, SIGTERM);
            if (waitUntil([this] { return ::waitpid(process_, nullptr, WNOHANG) == process_; },
                          std::chrono::seconds(10))) {
                process_ = -1;
            }
        }
        if (process_ > 0) {
            ::kill(process_, SIGKILL);
            ::waitpid(process_, nullptr, 0);
            process_ = -1;
        }
    }

private:
    void run(const std::string& folder) {
        const std::string configuration = folder + "/rsyslog.conf";
        const std::string pidFile = folder + "/pid";
        const std::string output = folder + "/output";
        process_ = ::fork();
        if (process_ == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            const int file = ::open(output.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
            ::dup2(file, STDOUT_FILENO);
            ::dup2(file, STDERR_FILENO);
            ::execl(program, program, "-n", "-f", configuration.c_str(), "-i", pidFile.c_str(),
                    static_cast<char*>(nullptr));
            ::_exit(127);
        }
    }

    pid_t process_ = -1;
};

}  // namespace velora::test
