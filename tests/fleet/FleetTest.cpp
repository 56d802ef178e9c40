// The configurations in examples/fleet, read by two real rsyslogd: one on a host that logs, one at the centre.

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <netinet/in.h>
#include <numeric>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AppleSystemLogDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "support/DevLog.h"
#include "support/RsyslogProcess.h"
#include "support/TemporaryFolder.h"

using velora::AppleSystemLogDestination;
using velora::AutoRotatingFileDestination;
using velora::make;
using velora::XCGLogger;
using velora::test::RsyslogProcess;
using velora::test::TemporaryFolder;
using velora::test::waitUntil;

namespace {

constexpr std::chrono::seconds patience{300};
constexpr std::string_view textOfLine = "> line ";
constexpr int rotationsOfFile = 7;

/// How many lines go through rotations; fewer where a sanitizer makes each slow.
int lineCount() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return 10'000;
#else
    return 100'000;
#endif
}

sockaddr_in loopback(std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

/// Whether `call`, bind(2) or connect(2), succeeds for a new socket and a port of the loopback interface.
template <typename Call>
bool succeeds(Call call, std::uint16_t port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    const bool hasSucceeded = call(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(socket);
    return hasSucceeded;
}

/// None of those that the kernel gives to connections: a host that tries to reach a centre which is not there could
/// be given the centre's own, and be connected to itself.
std::uint16_t freePort() {
    constexpr std::uint16_t first = 20'000;
    constexpr std::uint16_t count = 10'000;
    auto port = static_cast<std::uint16_t>(first + ::getpid() % count);
    while (!succeeds(::bind, port)) {
        port = static_cast<std::uint16_t>(first + (port + 1) % count);
    }
    return port;
}

using Replacements = std::vector<std::pair<std::string, std::string>>;

/// The example, with what a test must not touch replaced.
std::string example(const std::string& name, const Replacements& replacements) {
    std::string text = velora::test::readFile(std::string(VELORA_FLEET_EXAMPLES "/") + name);
    for (const auto& [from, to] : replacements) {
        std::size_t place = text.find(from);
        if (place == std::string::npos) {
            throw std::runtime_error(std::string(name).append(" has no ").append(from));
        }
        for (; place != std::string::npos; place = text.find(from, place + to.size())) {
            text.replace(place, from.size(), to);
        }
    }
    return text;
}

/// The numbers of the lines in `text`, in their order; other lines are left out.
std::vector<int> numbersOf(const std::string& text) {
    std::vector<int> numbers;
    for (std::size_t place = text.find(textOfLine); place != std::string::npos;
         place = text.find(textOfLine, place + 1)) {
        numbers.push_back(std::atoi(text.c_str() + place + textOfLine.size()));
    }
    return numbers;
}

std::vector<int> numbersFrom(int first, int last) {
    std::vector<int> numbers(static_cast<std::size_t>(last - first + 1));
    std::iota(numbers.begin(), numbers.end(), first);
    return numbers;
}

/// Says where the two part, instead of printing all of them.
testing::AssertionResult areSame(const std::vector<int>& arrived, const std::vector<int>& logged) {
    const auto [one, other] = std::mismatch(arrived.begin(), arrived.end(), logged.begin(), logged.end());
    if (one == arrived.end() && other == logged.end()) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << arrived.size() << " lines arrived of " << logged.size() << "; after "
                                       << one - arrived.begin() << " good ones comes "
                                       << (one == arrived.end() ? "nothing" : std::to_string(*one));
}

/// A host and a centre on loopback, with all their files in a temporary folder.
class Fleet {
public:
    Fleet() : hostFolder_(folder_ / "host"), centreFolder_(folder_ / "centre"), port_(std::to_string(freePort())) {
        std::filesystem::create_directories(hostFolder_);
        std::filesystem::create_directories(centreFolder_);
        std::filesystem::create_directories(folder_ / "logs");
    }

    std::optional<std::string> startCentre() {
        writeConfiguration(
            centreFolder_, "",
            example("centre.conf", {{"/var/log/fleet", folder_ / "received"},
                                    {"port=\"10514\"", R"(address="127.0.0.1" port=")" + port_ + "\""}}));
        return centre_.start(centreFolder_, [this] { return succeeds(::connect, port()); });
    }

    std::optional<std::string> startHost(Replacements more = {}) {
        more.insert(more.end(), {{"/var/log/velora", folder_ / "logs"},
                                 {"log.example.org", "127.0.0.1"},
                                 {"10514", port_},
                                 {"resumeInterval=\"5\"", "resumeInterval=\"1\""},
                                 {"velora-host", program_invocation_short_name}});
        writeConfiguration(hostFolder_,
                           "module(load=\"imuxsock\" SysSock.Use=\"off\")\n"
                           "input(type=\"imuxsock\" Socket=\"" +
                               systemLogSocket() + "\")\n",
                           example("host.conf", more));
        return host_.start(hostFolder_, [this] { return std::filesystem::exists(systemLogSocket()); });
    }

    std::string systemLogSocket() const { return hostFolder_ + "/socket"; }
    std::string liveFile(const std::string& program) const { return folder_ / ("logs/" + program + "/session.log"); }

    /// The numbers of the lines that have arrived from the source of that name.
    std::vector<int> arrived(const std::string& name) const {
        return numbersOf(velora::test::readFile(received(name)));
    }

    /// Waits until line `number` is the last that has arrived.
    bool waitForLine(const std::string& name, int number) const {
        return waitUntil(
            [&] {
                const std::vector<int> numbers = numbersOf(endOf(received(name)));
                return !numbers.empty() && numbers.back() == number;
            },
            patience);
    }

    /// Ends both, which write out what they hold.
    void stop() {
        host_.stop();
        centre_.stop();
    }

    bool hasSpooledToDisk() const {
        for (const auto& entry : std::filesystem::directory_iterator(hostFolder_)) {
            if (entry.path().filename().string().starts_with("velora-to-centre.0")) {
                return true;
            }
        }
        return false;
    }

    /// The error messages of both.
    std::string diagnostics() const {
        return velora::test::readFile(hostFolder_ + "/output") + velora::test::readFile(centreFolder_ + "/output");
    }

private:
    std::uint16_t port() const { return static_cast<std::uint16_t>(std::stoi(port_)); }

    std::string received(const std::string& name) const { return folder_ / ("received/host-a/" + name + ".log"); }

    static std::string endOf(const std::string& path) {
        std::ifstream stream(path, std::ios::binary | std::ios::ate);
        constexpr std::streamoff length = 1'000;
        stream.seekg(std::max<std::streamoff>(0, stream.tellg() - length));
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    /// As on a Debian system: a main file with the daemon's folder and its inputs, which includes the example.
    static void writeConfiguration(const std::string& folder, const std::string& inputs, const std::string& included) {
        velora::test::writeFile(folder + "/60-velora.conf", included);
        velora::test::writeFile(folder + "/rsyslog.conf", "global(workDirectory=\"" + folder +
                                                              "\" localHostname=\"host-a\" net.enableDNS=\"off\")\n" +
                                                              inputs + "include(file=\"" + folder +
                                                              "/60-velora.conf\")\n");
    }

    TemporaryFolder folder_;
    std::string hostFolder_;
    std::string centreFolder_;
    std::string port_;
    RsyslogProcess centre_;
    RsyslogProcess host_;
};

/// A file that rotates about `rotationsOfFile` times over so many lines, and keeps few archives.
std::shared_ptr<AutoRotatingFileDestination> rotatingFile(const std::string& path, int lines, int& rotations) {
    constexpr int charactersOfLine = 70;
    auto file = make<AutoRotatingFileDestination>(
        nullptr, path, "fleet",
        AutoRotatingFileDestination::Options{
            .maxFileSize = static_cast<std::uint64_t>(lines / rotationsOfFile * charactersOfLine),
            .maxTimeInterval = 0,
            .targetMaxLogFiles = 2});
    // Archives of one second get distinct names.
    file->setArchiveSuffixDateFormatter(std::make_shared<velora::DateFormatter>("_yyyy-MM-dd_HHmmss.SSSSSS"));
    file->setAutoRotationCompletion([&rotations](bool success) { rotations += success ? 1 : 1'000'000; });
    return file;
}

class FleetTest : public testing::Test {
protected:
    void SetUp() override {
        if (!RsyslogProcess::isInstalled()) {
            GTEST_SKIP() << "rsyslog is not installed: there is no " << RsyslogProcess::program;
        }
    }

    /// Logs the lines after number `before` to the file of the program, and waits for their arrival.
    void logThroughRotations(const std::string& program, int before, int lines) {
        const auto logger = make<XCGLogger>(program, false);
        int rotations = 0;
        ASSERT_TRUE(logger->add(rotatingFile(fleet.liveFile(program), lines, rotations)));
        int rotationsSeen = -1;
        for (int line = before + 1; line <= before + lines; ++line) {
            logger->info("line {}", line);
            // A file that lives for less time than rsyslog takes to open it would not be seen.
            if (rotations != std::exchange(rotationsSeen, rotations)) {
                ASSERT_TRUE(fleet.waitForLine(program + ".session", line)) << "line " << line << '\n'
                                                                           << fleet.diagnostics();
            }
        }
        EXPECT_TRUE(logger->remove("fleet"));
        EXPECT_TRUE(fleet.waitForLine(program + ".session", before + lines)) << fleet.diagnostics();
        EXPECT_GE(rotations, 5);
        EXPECT_LT(rotations, 1'000'000) << "a rotation failed";
    }

    Fleet fleet;
    std::shared_ptr<XCGLogger> log = make<XCGLogger>("fleet", false);
};

// First, because it changes what /dev is for this process.
TEST_F(FleetTest, BringsTheLinesOfTheSystemLogToTheCentreOnceAndInOrder) {
    if (const auto reason = velora::test::leadDevLogTo(fleet.systemLogSocket())) {
        GTEST_SKIP() << *reason;
    }
    ASSERT_EQ(fleet.startCentre(), std::nullopt);
    ASSERT_EQ(fleet.startHost(), std::nullopt);
    ASSERT_TRUE(log->add(make<AppleSystemLogDestination>(nullptr, "system log")));

    const int lines = lineCount() / 10;
    for (int line = 1; line <= lines; ++line) {
        log->info("line {}", line);
    }
    EXPECT_TRUE(log->remove("system log"));

    EXPECT_TRUE(fleet.waitForLine(program_invocation_short_name, lines)) << fleet.diagnostics();
    fleet.stop();
    EXPECT_TRUE(areSame(fleet.arrived(program_invocation_short_name), numbersFrom(1, lines)));
}

TEST_F(FleetTest, BringsTheFilesOfTwoProgramsThroughTheirRotationsToTheCentreOnceAndInOrder) {
    ASSERT_EQ(fleet.startCentre(), std::nullopt);
    ASSERT_EQ(fleet.startHost(), std::nullopt);
    const int lines = lineCount() / 2;

    std::thread agent([this, lines] { logThroughRotations("agent", lines, lines); });
    logThroughRotations("app", 0, lines);
    agent.join();

    fleet.stop();
    EXPECT_TRUE(areSame(fleet.arrived("app.session"), numbersFrom(1, lines)));
    EXPECT_TRUE(areSame(fleet.arrived("agent.session"), numbersFrom(lines + 1, 2 * lines)));
}

TEST_F(FleetTest, SpoolsToDiskWhatTheCentreCannotTake) {
    ASSERT_EQ(fleet.startHost({{"\"100000\"", "\"1000\""}, {"\"80000\"", "\"800\""}, {"\"20000\"", "\"200\""}}),
              std::nullopt);
    constexpr int lines = 5'000;
    int rotations = 0;
    ASSERT_TRUE(log->add(rotatingFile(fleet.liveFile("app"), 100'000, rotations)));
    for (int line = 1; line <= lines; ++line) {
        log->info("line {}", line);
    }
    ASSERT_TRUE(waitUntil([this] { return fleet.hasSpooledToDisk(); })) << fleet.diagnostics();

    ASSERT_EQ(fleet.startCentre(), std::nullopt);
    // What was queued in memory and what was queued on disk may overtake each other, and rsyslog may send a line again.
    std::set<int> arrived;
    EXPECT_TRUE(waitUntil(
        [&] {
            // The program goes on. Of what is queued on disk, rsyslog now and then leaves the end until more comes.
            log->info("a line without a number");
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            const std::vector<int> numbers = fleet.arrived("app.session");
            arrived = {numbers.begin(), numbers.end()};
            return arrived.size() >= lines;
        },
        patience))
        << fleet.diagnostics();
    EXPECT_TRUE(log->remove("fleet"));
    EXPECT_TRUE(areSame({arrived.begin(), arrived.end()}, numbersFrom(1, lines)));
}

}  // namespace
