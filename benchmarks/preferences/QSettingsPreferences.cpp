// QSettings in the rows that are compared. Reading alone does not see what other processes write; sync() looks for it,
// and writes the file through QSaveFile, which brings it to the disk before it is renamed into place.

#include <QSettings>
#include <QString>
#include <benchmark/benchmark.h>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>

#include "preferences/Keys.h"
#include "support/Scratch.h"

namespace velora::bench {

namespace {

std::string storeFile() {
    return (scratchFolder() / "qsettings.ini").string();
}

QSettings& settings() {
    static QSettings store(QString::fromStdString(storeFile()), QSettings::IniFormat);
    [[maybe_unused]] static const bool filled = [] {
        store.setValue(pinCodeKey, 8);
        store.setValue(flagKey, true);
        for (int index = 2; index < usualKeys; ++index) {
            store.setValue(QString::fromStdString(fillerKey(index)), QString::fromStdString(fillerValue(index)));
        }
        store.sync();
        return true;
    }();
    return store;
}

void readStale(benchmark::State& state) {
    const QSettings& store = settings();
    const QString key(pinCodeKey);
    for ([[maybe_unused]] auto step : state) {
        benchmark::DoNotOptimize(store.value(key, 6).toLongLong());
    }
}
BENCHMARK(readStale)->Name("preference-read/QSettings stale");

/// Each thread with an object of its own, as the documentation of QSettings wants it.
void readInThreads(benchmark::State& state) {
    settings();
    const QSettings store(QString::fromStdString(storeFile()), QSettings::IniFormat);
    const QString key(pinCodeKey);
    for ([[maybe_unused]] auto step : state) {
        benchmark::DoNotOptimize(store.value(key, 6).toLongLong());
    }
}
BENCHMARK(readInThreads)->Name("preference-read-threads/QSettings stale")->Threads(1)->Threads(8);

void readFresh(benchmark::State& state) {
    QSettings& store = settings();
    const QString key(pinCodeKey);
    for ([[maybe_unused]] auto step : state) {
        store.sync();
        benchmark::DoNotOptimize(store.value(key, 6).toLongLong());
    }
}
BENCHMARK(readFresh)->Name("preference-read/QSettings fresh");

/// Reads with `read(store)`, after looking for other processes' writes if `isFresh`.
template <typename Read>
void readOther(benchmark::State& state, bool isFresh, Read read) {
    QSettings& store = settings();
    for ([[maybe_unused]] auto step : state) {
        if (isFresh) {
            store.sync();
        }
        benchmark::DoNotOptimize(read(store));
    }
}

void readBool(benchmark::State& state, bool isFresh) {
    readOther(state, isFresh, [key = QString(flagKey)](const QSettings& store) { return store.value(key).toBool(); });
}
BENCHMARK_CAPTURE(readBool, stale, false)->Name("read-bool/QSettings stale");
BENCHMARK_CAPTURE(readBool, fresh, true)->Name("read-bool/QSettings fresh");

void readString(benchmark::State& state, bool isFresh) {
    readOther(state, isFresh, [key = QString::fromStdString(fillerKey(2))](const QSettings& store) {
        return store.value(key).toString();
    });
}
BENCHMARK_CAPTURE(readString, stale, false)->Name("read-string/QSettings stale");
BENCHMARK_CAPTURE(readString, fresh, true)->Name("read-string/QSettings fresh");

void write(benchmark::State& state) {
    QSettings& store = settings();
    const QString key(pinCodeKey);
    static qlonglong value = 100;
    for ([[maybe_unused]] auto step : state) {
        store.setValue(key, ++value);
        store.sync();
    }
    std::ifstream file(storeFile());
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    if (text.find(std::to_string(value)) == std::string::npos || store.allKeys().size() != usualKeys) {
        state.SkipWithError("the file does not hold what was written");
    }
}
BENCHMARK(write)->Name("preference-write/QSettings")->UseRealTime();

}  // namespace

}  // namespace velora::bench
