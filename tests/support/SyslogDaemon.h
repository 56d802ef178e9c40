#pragma once

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "support/DevLog.h"
#include "support/RsyslogProcess.h"
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
    /// Starts the daemon and waits until it takes messages. Returns why that is impossible here, or nothing when
    /// the daemon runs.
    std::optional<std::string> start() {
        if (!RsyslogProcess::isInstalled()) {
            return std::string("there is no ") + RsyslogProcess::program;
        }
        if (auto reason = leadDevLogTo(socketPath())) {
            return reason;
        }
        writeConfiguration();
        return process_.start(folder_.path(), [this] { return isListening(); });
    }

    /// Ends the daemon, which first writes out what it has received.
    void stop() { process_.stop(); }

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
    static constexpr const char* endOfEntry = "<<end of entry>>\n";

    std::string socketPath() const { return folder_ / "socket"; }

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

    bool isListening() const {
        const int client = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        socketPath().copy(address.sun_path, sizeof address.sun_path - 1);
        const bool isConnected = ::connect(client, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        ::close(client);
        return isConnected;
    }

    TemporaryFolder folder_;
    RsyslogProcess process_;
};

}  // namespace velora::test
