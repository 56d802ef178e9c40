// The store between real processes: this program starts itself again in the roles below.

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

#include "DefaultsStoreTestSupport.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

using std::chrono::milliseconds;

constexpr int processes = 8;
constexpr int threadsPerProcess = 4;

std::string keyOf(int process, int thread) {
    return "process " + std::to_string(process) + " thread " + std::to_string(thread);
}

/// Another process in a role, with pipes to its standard input and output.
class Process {
public:
    explicit Process(std::vector<std::string> arguments) {
        std::array<int, 2> input{};
        std::array<int, 2> output{};
        if (::pipe2(input.data(), O_CLOEXEC) != 0 || ::pipe2(output.data(), O_CLOEXEC) != 0) {
            std::abort();
        }
        std::vector<char*> argv{const_cast<char*>("/proc/self/exe")};
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        ::posix_spawn_file_actions_init(&actions);
        ::posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
        ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
        if (::posix_spawn(&process_, "/proc/self/exe", &actions, nullptr, argv.data(), environ) != 0) {
            std::abort();
        }
        ::posix_spawn_file_actions_destroy(&actions);
        ::close(input[0]);
        ::close(output[1]);
        input_ = input[1];
        output_ = output[0];
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process() {
        closeInput();
        ::close(output_);
        if (process_ > 0) {
            kill();
        }
    }

    void send(std::int64_t number) const { ASSERT_EQ(::write(input_, &number, sizeof number), 8); }
    /// The next number that the process sent; -1 at the end.
    std::int64_t receive() const {
        std::int64_t number = 0;
        return ::read(output_, &number, sizeof number) == 8 ? number : -1;
    }
    void closeInput() { ::close(std::exchange(input_, -1)); }
    void kill() {
        ::kill(process_, SIGKILL);
        wait();
    }
    int wait() {
        int status = 0;
        ::waitpid(process_, &status, 0);
        process_ = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t process_ = 0;
    int input_ = -1;
    int output_ = -1;
};

void tell(std::int64_t number) {
    if (::write(STDOUT_FILENO, &number, sizeof number) != 8) {
        ::_exit(3);
    }
}

/// Stores each number that it is sent, and sends it back when it is stored.
int storeWhatIsSent(const std::string& file) {
    DefaultsStore store(file);
    for (std::int64_t number = 0; ::read(STDIN_FILENO, &number, sizeof number) == 8;) {
        store.setInteger("number", number);
        tell(number);
    }
    return 0;
}

/// Counts up the stored number for ever, and sends each number when it is stored.
int countForEver(const std::string& file) {
    DefaultsStore store(file);
    for (std::int64_t number = store.integer("number") + 1;; ++number) {
        if (!store.setInteger("number", number)) {
            return 1;
        }
        tell(number);
    }
}

/// Four threads count up a key each until the input ends; sends the last numbers.
int countInThreads(const std::string& file, int process) {
    DefaultsStore store(file);
    std::atomic<bool> stop{false};
    std::atomic<bool> failed{false};
    std::array<std::int64_t, threadsPerProcess> last{};
    {
        std::vector<std::jthread> threads;
        threads.reserve(threadsPerProcess);
        for (int thread = 0; thread < threadsPerProcess; ++thread) {
            threads.emplace_back([&, thread, key = keyOf(process, thread)] {
                for (std::int64_t number = 1; !stop; ++number) {
                    if (!store.setInteger(key, number) || store.integer(key) != number) {
                        failed = true;
                    }
                    last[static_cast<std::size_t>(thread)] = number;
                }
            });
        }
        char end = 0;
        while (::read(STDIN_FILENO, &end, 1) > 0) {
        }
        stop = true;
    }
    for (const std::int64_t number : last) {
        tell(number);
    }
    return failed ? 1 : 0;
}

/// Whether no value is older than what was `seen`, or missing again, and each is whole. Takes over what there is now.
bool areNewer(const std::vector<DefaultsStore::Entry>& values, std::map<std::string, std::int64_t>& seen) {
    for (const DefaultsStore::Entry& entry : values) {
        const std::int64_t number = std::stoll(entry.json);
        if (std::to_string(number) != entry.json || number < seen[entry.key]) {
            return false;
        }
        seen[entry.key] = number;
    }
    return values.size() == seen.size();
}

/// Two threads read all values until the input ends. Fails if one is torn, older than before or missing.
int readInThreads(const std::string& file) {
    const DefaultsStore store(file);
    std::atomic<bool> stop{false};
    std::atomic<bool> failed{false};
    const auto reading = [&] {
        std::map<std::string, std::int64_t> seen;
        while (!stop) {
            bool fine = areNewer(store.allValues(), seen);
            for (auto& [key, number] : seen) {
                const std::int64_t now = store.integer(key);
                fine = fine && now >= number;
                number = now;
            }
            failed = failed || !fine;
        }
    };
    {
        const std::jthread first(reading);
        const std::jthread second(reading);
        char end = 0;
        while (::read(STDIN_FILENO, &end, 1) > 0) {
        }
        stop = true;
    }
    return failed ? 1 : 0;
}

/// Forks a child that outlives it while a thread writes, and tells the child's id.
int forkWhileWriting(const std::string& file) {
    DefaultsStore store(file);
    std::jthread writer([&store] {
        for (std::int64_t number = 0;; ++number) {
            store.setInteger("number", number);
        }
    });
    std::this_thread::sleep_for(milliseconds(20));
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(STDOUT_FILENO);
        ::close(STDIN_FILENO);
        ::pause();
    }
    tell(child);
    ::pause();
    return 0;
}

class DefaultsStoreProcesses : public ::testing::Test {
protected:
    TemporaryFolder folder;
    std::string file = folder / "UserDefaults.json";
};

TEST_F(DefaultsStoreProcesses, ReadWhatAnotherOneWroteOnTheNextCall) {
    constexpr int writes = 400;
    constexpr int readsEach = 2500;
    const Process writer({"storeWhatIsSent", file});
    const DefaultsStore store(file);
    for (std::int64_t number = 1; number <= writes; ++number) {
        writer.send(number);
        ASSERT_EQ(writer.receive(), number);
        for (int read = 0; read < readsEach; ++read) {
            ASSERT_EQ(store.integer("number"), number);
        }
    }
}

TEST_F(DefaultsStoreProcesses, LoseNoneOfTheirWritesWhileOthersRead) {
    DefaultsStore store(file);
    const Reports reports(store);
    std::vector<std::unique_ptr<Process>> writers;
    writers.reserve(processes);
    for (int process = 0; process < processes; ++process) {
        writers.push_back(
            std::make_unique<Process>(std::vector<std::string>{"countInThreads", file, std::to_string(process)}));
    }
    std::vector<std::unique_ptr<Process>> readers;
    readers.push_back(std::make_unique<Process>(std::vector<std::string>{"readInThreads", file}));
    readers.push_back(std::make_unique<Process>(std::vector<std::string>{"readInThreads", file}));
    std::map<std::string, std::int64_t> seen;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    while (std::chrono::steady_clock::now() < end) {
        for (int process = 0; process < processes; ++process) {
            for (int thread = 0; thread < threadsPerProcess; ++thread) {
                const std::string key = keyOf(process, thread);
                const std::int64_t number = store.integer(key);
                ASSERT_GE(number, seen[key]) << key;
                seen[key] = number;
            }
        }
    }
    std::int64_t total = 0;
    for (int process = 0; process < processes; ++process) {
        auto& writer = *writers[static_cast<std::size_t>(process)];
        writer.closeInput();
        for (int thread = 0; thread < threadsPerProcess; ++thread) {
            const std::int64_t last = writer.receive();
            EXPECT_EQ(store.integer(keyOf(process, thread)), last);
            total += last;
        }
        EXPECT_EQ(writer.wait(), 0);
    }
    for (const std::unique_ptr<Process>& reader : readers) {
        reader->closeInput();
        EXPECT_EQ(reader->wait(), 0) << "another process read a torn, an older or no value";
    }
    EXPECT_GT(total, processes * threadsPerProcess);
    EXPECT_EQ(store.allValues().size(), static_cast<std::size_t>(processes * threadsPerProcess));
    EXPECT_TRUE(reports.lines().empty());
    EXPECT_EQ(filesBeginningWith(folder.path(), "").size(), 2U);
}

TEST_F(DefaultsStoreProcesses, MayBeKilledAtAnyMoment) {
    DefaultsStore store(file);
    const Reports reports(store);
    std::mt19937 random(815);
    const char* const kills = std::getenv("VELORA_KILLS");
    const int rounds = kills == nullptr ? 100 : std::atoi(kills);
    for (int round = 0; round < rounds; ++round) {
        Process writer({"countForEver", file});
        std::int64_t acknowledged = writer.receive();
        ASSERT_GT(acknowledged, 0);
        const auto pause = std::chrono::microseconds(random() % 8000);
        const auto end = std::chrono::steady_clock::now() + pause;
        std::int64_t seen = 0;
        while (std::chrono::steady_clock::now() < end) {
            const std::int64_t number = store.integer("number");
            ASSERT_GE(number, seen);
            seen = number;
        }
        writer.kill();
        for (std::int64_t number = writer.receive(); number > 0; number = writer.receive()) {
            acknowledged = number;
        }
        const std::int64_t stored = store.integer("number");
        ASSERT_GE(stored, std::max(seen, acknowledged));
        ASSERT_LE(stored, acknowledged + 1);
        ASSERT_EQ(DefaultsStore(file).integer("number"), stored);
        ASSERT_LE(filesBeginningWith(folder.path(), "").size(), 3U);
    }
    std::cout << "killed " << rounds << " times, " << store.integer("number") << " writes had returned\n";
    ASSERT_TRUE(store.setBool("done", true));
    EXPECT_TRUE(reports.lines().empty());
    EXPECT_THAT(filesBeginningWith(folder.path(), ""),
                ::testing::UnorderedElementsAre("UserDefaults.json", "UserDefaults.json.lock"));
}

TEST_F(DefaultsStoreProcesses, LeaveNoLockToAForkedChild) {
    for (int round = 0; round < 10; ++round) {
        Process writer({"forkWhileWriting", file});
        const auto child = static_cast<pid_t>(writer.receive());
        ASSERT_GT(child, 0);
        writer.kill();
        EXPECT_TRUE(DefaultsStore(file).setInteger("mine", round));
        ::kill(child, SIGKILL);
    }
}

TEST_F(DefaultsStoreProcesses, GoOnOnBothSidesOfAFork) {
    DefaultsStore store(file);
    std::atomic<bool> stop{false};
    std::vector<std::jthread> threads;
    threads.reserve(3);
    for (int thread = 0; thread < 3; ++thread) {
        threads.emplace_back([&, key = "parent " + std::to_string(thread)] {
            for (std::int64_t number = 1; !stop; ++number) {
                store.setInteger(key, number);
                store.registerDefault(key, number);
                EXPECT_EQ(store.integer(key), number);
            }
        });
    }
    for (int round = 1; round <= 30; ++round) {
        EXPECT_EQ(inChildProcess([&] {
                      const bool wrote = store.setInteger("child", round) && store.integer("child") == round;
                      return wrote && store.integer("parent 0") >= 0 ? 0 : 1;
                  }),
                  0);
        EXPECT_EQ(store.integer("child"), round);
    }
    stop = true;
}

TEST_F(DefaultsStoreProcesses, SeeAnEditByHandWithin50Milliseconds) {
    DefaultsStore store(file);
    store.setInteger("number", 0);
    for (int round = 1; round < 20; ++round) {
        ASSERT_GE(store.integer("number"), 0);
        // In place and of the same size, like some editors do, or by a new file, like others.
        writeFile(round % 2 == 0 ? file : folder / "edited", "{\"number\": " + std::to_string(100 + round) + "}");
        if (round % 2 != 0) {
            std::filesystem::rename(folder / "edited", file);
        }
        std::this_thread::sleep_for(milliseconds(50));
        ASSERT_EQ(store.integer("number"), 100 + round);
    }
}

TEST_F(DefaultsStoreProcesses, SeeTheSecondOfTwoEditsInQuickSuccession) {
    DefaultsStore store(file);
    for (int round = 10; round < 60; ++round) {
        writeFile(file, "{\"number\": " + std::to_string(round) + "}");
        store.integer("number");
        writeFile(file, "{\"number\": " + std::to_string(round + 1) + "}");
        std::this_thread::sleep_for(milliseconds(50));
        ASSERT_EQ(store.integer("number"), round + 1);
    }
}

TEST_F(DefaultsStoreProcesses, WatchEachOther) {
    const Process writer({"storeWhatIsSent", file});
    const DefaultsStore store(file);
    std::uint64_t generation = store.generation();
    for (std::int64_t number = 1; number < 20; ++number) {
        writer.send(number);
        while (store.integer("number") != number) {
            generation = store.waitForChange(generation, std::chrono::seconds(30));
        }
        ASSERT_EQ(writer.receive(), number);
    }
}

}  // namespace

int runRole(const std::vector<std::string>& arguments) {
    const std::string& role = arguments.at(0);
    const std::string& file = arguments.at(1);
    if (role == "storeWhatIsSent") {
        return storeWhatIsSent(file);
    }
    if (role == "countForEver") {
        return countForEver(file);
    }
    if (role == "countInThreads") {
        return countInThreads(file, std::stoi(arguments.at(2)));
    }
    if (role == "readInThreads") {
        return readInThreads(file);
    }
    return role == "forkWhileWriting" ? forkWhileWriting(file) : 2;
}

}  // namespace velora::test

int main(int count, char** arguments) {
    // gtest's own options begin with a dash.
    if (count > 2 && arguments[1][0] != '-') {
        return velora::test::runRole({arguments + 1, arguments + count});
    }
    ::testing::InitGoogleTest(&count, arguments);
    return RUN_ALL_TESTS();
}
