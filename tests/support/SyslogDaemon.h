#pragma once

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <optional>
#include <string>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "support/MountNamespace.h"
#include "support/TemporaryFolder.h"

namespace velora::test {

/// A real system log daemon (rsyslogd) of a test's own, which receives what this process, and only this one, sends by
/// syslog(3).
///
/// syslog(3) always sends to /dev/log. So the first daemon of a process moves the process into a mount
/// namespace of its own, in which /dev has little but a link /dev/log to the daemon's socket; the system's own
/// log sees nothing. Make the daemon before anything else logs or starts threads. Needs root, or a kernel that lets
/// users have namespaces of their own:
///
///     SyslogDaemon daemon;
///     if (const auto reason = daemon.start()) {
///         GTEST_SKIP() << *reason;
///     }
///     systemLog("hello");
///     EXPECT_TRUE(daemon.waitForEntry("hello"));
class SyslogDaemon {
public:
    SyslogDaemon() = default;
    SyslogDaemon(const SyslogDaemon&) = delete;
    SyslogDaemon& operator=(const SyslogDaemon&) = delete;
    ~SyslogDaemon() { stop(); }

    /// Starts the daemon and waits until it takes messages. Returns why that is impossible here, or nothing when
    /// the daemon runs.
    std::optional<std::string> start() {
        if (::access(program, X_OK) != 0) {
            return std::string("there is no ") + program;
        }
        if (auto reason = enterNamespace()) {
            return reason;
        }
        ::unlink("/dev/log");
        if (::symlink(socketPath().c_str(), "/dev/log") != 0) {
            return failureOf("/dev/log cannot be made");
        }
        writeConfiguration();
        run();
        return waitForSocket();
    }

    /// Ends the daemon, which first writes out what it has received.
    void stop() {
        if (process_ > 0) {
            ::kill(process_, SIGTERM);
            ::waitpid(process_, nullptr, 0);
            process_ = -1;
        }
    }

    /// The entries of the facility `user` and the priority `notice` received so far, in their order: what was given to
    /// syslog(3), without date and program name.
    std::vector<std::string> entries() const {
        std::vector<std::string> entries;
        const std::string log = readFile(folder_ / "log");
        for (std::size_t start = 0;;) {
            const std::size_t end = log.find(endOfEntry, start);
            if (end == std::string::npos) {
                return entries;
            }
            entries.push_back(log.substr(start, end - start));
            start = end + std::strlen(endOfEntry);
        }
    }

    /// Waits for an entry that is exactly `text`, for at most half a minute, and returns whether it came.
    bool waitForEntry(const std::string& text) const {
        return waitUntil([&] {
            const auto received = entries();
            return std::find(received.begin(), received.end(), text) != received.end();
        });
    }

    /// Waits for `count` entries, for at most half a minute, and returns those that have come.
    std::vector<std::string> waitForEntries(std::size_t count) const {
        waitUntil([&] { return entries().size() >= count; });
        return entries();
    }

private:
    static constexpr const char* program = "/usr/sbin/rsyslogd";
    static constexpr const char* endOfEntry = "<<end of entry>>\n";

    template <class Condition>
    static bool waitUntil(Condition condition) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (!condition()) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        return true;
    }

    std::string socketPath() const { return folder_ / "socket"; }

    /// Moves this process to a mount namespace with a /dev of its own, once. Returns why that is impossible.
    static std::optional<std::string> enterNamespace() {
        static const std::optional<std::string> failure = makeNamespace();
        return failure;
    }

    static std::optional<std::string> makeNamespace() {
        auto failure = enterMountNamespace();
        return failure ? failure : replaceDev();
    }

    /// Puts a memory file system over /dev, with the devices that programs need.
    static std::optional<std::string> replaceDev() {
        constexpr std::array names{"null", "zero", "full", "random", "urandom"};
        std::array<int, names.size()> devices{};
        for (std::size_t i = 0; i < names.size(); ++i) {
            devices[i] = ::open((std::string("/dev/") + names[i]).c_str(), O_PATH | O_CLOEXEC);
        }
        if (::mount("dev", "/dev", "tmpfs", MS_NOSUID | MS_NOEXEC, "mode=755") != 0) {
            return failureOf("nothing can be mounted on /dev");
        }
        for (std::size_t i = 0; i < names.size(); ++i) {
            const std::string path = std::string("/dev/") + names[i];
            writeFile(path, "");
            const std::string device = "/proc/self/fd/" + std::to_string(devices[i]);
            if (::mount(device.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) != 0) {
                return failureOf(path + " cannot be mounted");
            }
            ::close(devices[i]);
        }
        return std::nullopt;
    }

    void writeConfiguration() const {
        writeFile(folder_ / "rsyslog.conf",
                  "global(workDirectory=\"" + folder_.path().string() +
                      "\"\n"
                      "       maxMessageSize=\"1m\"\n"
                      "       processInternalMessages=\"off\"\n"
                      "       net.enableDNS=\"off\"\n"
                      "       parser.dropTrailingLFOnReception=\"off\"\n"
                      "       parser.escapeControlCharactersOnReceive=\"off\")\n"
                      "module(load=\"imuxsock\" SysSock.Use=\"off\")\n"
                      "input(type=\"imuxsock\" Socket=\"" +
                      socketPath() +
                      "\" RateLimit.Interval=\"0\")\n"
                      // %msg% begins with the space that stands between the program's name and the message.
                      "template(name=\"message\" type=\"string\" string=\"%msg:2:$%<<end of entry>>\\n\")\n"
                      // The daemon's messages about itself have another facility.
                      "if $pri-text == 'user.notice' then\n"
                      "action(type=\"omfile\" file=\"" +
                      (folder_ / "log") + "\" template=\"message\" asyncWriting=\"off\" flushOnTXEnd=\"on\")\n");
    }

    void run() {
        const std::string configuration = folder_ / "rsyslog.conf";
        const std::string pidFile = folder_ / "pid";
        const std::string output = folder_ / "output";
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

    bool isListening() const {
        const int client = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        socketPath().copy(address.sun_path, sizeof address.sun_path - 1);
        const bool isConnected = ::connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        ::close(client);
        return isConnected;
    }

    std::optional<std::string> waitForSocket() {
        bool hasEnded = false;
        const bool isReady = waitUntil([&] {
            hasEnded = ::waitpid(process_, nullptr, WNOHANG) == process_;
            return hasEnded || isListening();
        });
        if (hasEnded) {
            process_ = -1;
        }
        if (isReady && !hasEnded) {
            return std::nullopt;
        }
        return "the system log daemon does not start here: " + readFile(folder_ / "output");
    }

    TemporaryFolder folder_;
    pid_t process_ = -1;
};

}  // namespace velora::test
