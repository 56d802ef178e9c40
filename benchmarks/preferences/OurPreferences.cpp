// Our preferences in the rows that are compared: a typed property, as a host reads and writes it. Each read sees what
// any process wrote last; a write is durable (fdatasync) when it returns.

#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/UserDefaults/UserDefaultsManager.h>

#include "preferences/Keys.h"
#include "support/Scratch.h"

namespace velora::bench {

namespace {

std::string storeFile() {
    return (scratchFolder() / "UserDefaults.json").string();
}

UserDefaultsManager& preferences() {
    [[maybe_unused]] static const bool filled = [] {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): before any other thread could read the environment
        ::setenv("VELORA_DEFAULTS_FILE", storeFile().c_str(), 1);
        DefaultsStore& store = DefaultsStore::standard();
        store.setInteger(pinCodeKey, 8);
        for (int index = 1; index < usualKeys; ++index) {
            store.setString(fillerKey(index), fillerValue(index));
        }
        return true;
    }();
    return UserDefaultsManager::shared();
}

void read(benchmark::State& state) {
    const UserDefaultsManager& manager = preferences();
    for ([[maybe_unused]] auto step : state) {
        benchmark::DoNotOptimize(manager.pinCodeLength());
    }
}
BENCHMARK(read)->Name("preference-read/ours");
BENCHMARK(read)->Name("preference-read-threads/ours")->Threads(1)->Threads(8);

void write(benchmark::State& state) {
    UserDefaultsManager& manager = preferences();
    static std::int64_t value = 100;
    for ([[maybe_unused]] auto step : state) {
        manager.setPinCodeLength(++value);
    }
    std::ifstream file(storeFile());
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    if (text.find(std::to_string(value)) == std::string::npos ||
        DefaultsStore::standard().allValues().size() != usualKeys) {
        state.SkipWithError("the file does not hold what was written");
    }
}
BENCHMARK(write)->Name("preference-write/ours")->UseRealTime();

}  // namespace

}  // namespace velora::bench
