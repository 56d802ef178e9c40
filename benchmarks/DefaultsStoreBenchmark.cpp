// What a preference costs: fresh reads, reads while another process writes, and writes that are on the disk.
//
// The store lies in a folder of its own below the current one, so that the figures are those of a real disk and not of
// a memory file system.

#include <atomic>
#include <benchmark/benchmark.h>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

namespace {

using velora::DefaultsStore;

/// A folder with a store that holds as many keys as an application has.
class Folder {
public:
    Folder() : path_(std::filesystem::current_path() / ("defaults-benchmark-" + std::to_string(::getpid()))) {
        std::filesystem::create_directory(path_);
        std::string json = "{";
        for (int key = 0; key < 35; ++key) {
            json += (key == 0 ? "\"Preferences_Filler_Key" : ", \"Preferences_Filler_Key") + std::to_string(key) +
                    "\": \"value " + std::to_string(key) + "\"";
        }
        DefaultsStore store(file());
        store.importText(json + "}");
        store.setBool("Preferences_Connection_IncomingConnectionAllow", true);
        store.setInteger("Preferences_Security_PinCodeLength", 6);
        store.setString("Preferences_General_ComputerDisplayName", "Ann's computer");
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() { std::filesystem::remove_all(path_); }

    std::string file() const { return (path_ / "UserDefaults.json").string(); }

private:
    std::filesystem::path path_;
};

DefaultsStore& sharedStore() {
    static const Folder folder;
    static DefaultsStore store(folder.file());
    return store;
}

void readBool(benchmark::State& state) {
    const DefaultsStore& store = sharedStore();
    for ([[maybe_unused]] auto step : state) {
        benchmark::DoNotOptimize(store.boolean("Preferences_Connection_IncomingConnectionAllow"));
    }
}
BENCHMARK(readBool)->ThreadRange(1, 2);

void readInteger(benchmark::State& state) {
    const DefaultsStore& store = sharedStore();
    for ([[maybe_unused]] auto step : state) {
        benchmark::DoNotOptimize(store.integer("Preferences_Security_PinCodeLength"));
    }
}
BENCHMARK(readInteger);

void readString(benchmark::State& state) {
    const DefaultsStore& store = sharedStore();
    for ([[maybe_unused]] auto step : state) {
        benchmark::DoNotOptimize(store.string("Preferences_General_ComputerDisplayName"));
    }
}
BENCHMARK(readString);

void registerThenReadBool(benchmark::State& state) {
    DefaultsStore& store = sharedStore();
    for ([[maybe_unused]] auto step : state) {
        store.registerDefault("Preferences_General_EnableDisconnectionWarnings", true);
        benchmark::DoNotOptimize(store.boolean("Preferences_General_EnableDisconnectionWarnings"));
    }
}
BENCHMARK(registerThenReadBool);

/// Another process that writes an integer over and over, `pause` microseconds apart.
class Writer {
public:
    Writer(const std::string& file, useconds_t pause) : process_(::fork()) {
        if (process_ == 0) {
            DefaultsStore store(file);
            for (std::int64_t value = 0;; ++value) {
                store.setInteger("Preferences_Security_PinCodeLength", value);
                ::usleep(pause);
            }
        }
    }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;
    ~Writer() {
        ::kill(process_, SIGKILL);
        ::waitpid(process_, nullptr, 0);
    }

private:
    pid_t process_;
};

void readIntegerWhileAnotherProcessWrites(benchmark::State& state) {
    const DefaultsStore& store = sharedStore();
    const Writer writer(store.path(), static_cast<useconds_t>(state.range(0)));
    for ([[maybe_unused]] auto step : state) {
        benchmark::DoNotOptimize(store.integer("Preferences_Security_PinCodeLength"));
    }
}
BENCHMARK(readIntegerWhileAnotherProcessWrites)->ArgName("pause_us")->Arg(0)->Arg(10'000);

void writeDurably(benchmark::State& state) {
    const Folder folder;
    DefaultsStore store(folder.file());
    std::int64_t value = 0;
    for ([[maybe_unused]] auto step : state) {
        store.setInteger("Preferences_Security_PinCodeLength", ++value);
    }
}
BENCHMARK(writeDurably)->UseRealTime();

}  // namespace
