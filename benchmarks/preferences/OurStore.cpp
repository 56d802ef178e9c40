// The store of our preferences by itself: against the number of keys, types of values, and while another process
// writes.

#include <benchmark/benchmark.h>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

#include "preferences/Keys.h"
#include "preferences/StoreSizes.h"
#include "support/Scratch.h"

namespace velora::bench {

namespace {

constexpr const char* truthKey = "Preferences_Connection_IncomingConnectionAllow";
constexpr const char* textKey = "Preferences_General_ComputerDisplayName";

/// A store with so many keys, filled when it is first asked for and read once.
DefaultsStore& storeWith(std::int64_t keys) {
    static std::map<std::int64_t, std::unique_ptr<DefaultsStore>> stores;
    std::unique_ptr<DefaultsStore>& store = stores[keys];
    if (store != nullptr) {
        return *store;
    }
    const std::string path = (scratchFolder() / ("store-" + std::to_string(keys) + ".json")).string();
    std::ofstream file(path);
    file << '{';
    for (int index = 3; index < keys; ++index) {
        file << '"' << fillerKey(index) << R"(": ")" << fillerValue(index) << R"(", )";
    }
    file << '"' << pinCodeKey << R"(": 6, ")" << truthKey << R"(": true, ")" << textKey << R"(": "Ann's computer"})";
    file.close();
    store = std::make_unique<DefaultsStore>(path);
    store->integer(pinCodeKey);
    return *store;
}

void storedRead(benchmark::State& state) {
    DefaultsStore& store = storeWith(state.range(0));
    for ([[maybe_unused]] auto step : state) {
        benchmark::DoNotOptimize(store.integer(pinCodeKey));
    }
}
BENCHMARK(storedRead)->Name("stored-read/ours")->Apply(storeSizes);

void storedWrite(benchmark::State& state) {
    DefaultsStore& store = storeWith(state.range(0));
    static std::int64_t value = 100;
    for ([[maybe_unused]] auto step : state) {
        store.setInteger(pinCodeKey, ++value);
    }
    if (store.allValues().size() != static_cast<std::size_t>(state.range(0))) {
        state.SkipWithError("the store does not hold every key");
    }
}
BENCHMARK(storedWrite)->Name("stored-write/ours")->Apply(storeSizes)->UseRealTime();

/// The store that an application has.
DefaultsStore& usualStore() {
    return storeWith(usualKeys);
}

void readBool(benchmark::State& state) {
    const DefaultsStore& store = usualStore();
    for ([[maybe_unused]] auto step : state) {
        benchmark::DoNotOptimize(store.boolean(truthKey));
    }
}
BENCHMARK(readBool)->Name("read-bool/ours");
BENCHMARK(readBool)->Name("read-bool-threads/ours")->Threads(2);

void readString(benchmark::State& state) {
    const DefaultsStore& store = usualStore();
    for ([[maybe_unused]] auto step : state) {
        benchmark::DoNotOptimize(store.string(textKey));
    }
}
BENCHMARK(readString)->Name("read-string/ours");

void registerThenRead(benchmark::State& state) {
    DefaultsStore& store = usualStore();
    constexpr std::string_view key = "Preferences_General_EnableDisconnectionWarnings";
    for ([[maybe_unused]] auto step : state) {
        store.registerDefault(key, true);
        benchmark::DoNotOptimize(store.boolean(key));
    }
}
BENCHMARK(registerThenRead)->Name("register-and-read/ours");

/// Another process that writes an integer over and over, `pause` microseconds apart.
class Writer {
public:
    Writer(const std::string& file, useconds_t pause) : process_(::fork()) {
        if (process_ == 0) {
            DefaultsStore store(file);
            for (std::int64_t value = 0;; ++value) {
                store.setInteger(pinCodeKey, value);
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

void readWhileWritten(benchmark::State& state) {
    const DefaultsStore& store = usualStore();
    const Writer writer(store.path(), static_cast<useconds_t>(state.range(0)));
    for ([[maybe_unused]] auto step : state) {
        benchmark::DoNotOptimize(store.integer(pinCodeKey));
    }
}
BENCHMARK(readWhileWritten)->Name("read-while-written/ours")->ArgName("us_apart")->Arg(0)->Arg(10'000);

}  // namespace

}  // namespace velora::bench
