// QSettings against the number of stored keys.

#include <QSettings>
#include <QString>
#include <benchmark/benchmark.h>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "preferences/Keys.h"
#include "preferences/StoreSizes.h"
#include "support/Scratch.h"

namespace velora::bench {

namespace {

/// A store with so many keys, filled when it is first asked for.
QSettings& settingsWith(std::int64_t keys) {
    static std::map<std::int64_t, std::unique_ptr<QSettings>> stores;
    std::unique_ptr<QSettings>& store = stores[keys];
    if (store != nullptr) {
        return *store;
    }
    const std::string path = (scratchFolder() / ("qsettings-" + std::to_string(keys) + ".ini")).string();
    store = std::make_unique<QSettings>(QString::fromStdString(path), QSettings::IniFormat);
    store->setValue(pinCodeKey, 6);
    for (int index = 1; index < keys; ++index) {
        store->setValue(QString::fromStdString(fillerKey(index)), QString::fromStdString(fillerValue(index)));
    }
    store->sync();
    return *store;
}

void storedRead(benchmark::State& state) {
    QSettings& store = settingsWith(state.range(0));
    const QString key(pinCodeKey);
    for ([[maybe_unused]] auto step : state) {
        benchmark::DoNotOptimize(store.value(key, 6).toLongLong());
    }
}
BENCHMARK(storedRead)->Name("stored-read/QSettings stale")->Apply(storeSizes);

void storedWrite(benchmark::State& state) {
    QSettings& store = settingsWith(state.range(0));
    const QString key(pinCodeKey);
    static qlonglong value = 100;
    for ([[maybe_unused]] auto step : state) {
        store.setValue(key, ++value);
        store.sync();
    }
}
BENCHMARK(storedWrite)->Name("stored-write/QSettings")->Apply(storeSizes)->UseRealTime();

}  // namespace

}  // namespace velora::bench
