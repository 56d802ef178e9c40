// GSettings over dconf in the rows that are compared. Reads see what other processes wrote; writes go over the session
// bus to dconf's service, and g_settings_sync returns when it has written its file.
//
// To be run below dbus-run-session, with XDG_CONFIG_HOME and XDG_RUNTIME_DIR that are not the user's.

#define G_SETTINGS_ENABLE_BACKEND
#include <benchmark/benchmark.h>
#include <cstdint>
#include <gio/gio.h>
#include <gio/gsettingsbackend.h>
#include <string>
#include <string_view>

#include "preferences/Keys.h"

namespace velora::bench {

namespace {

constexpr const char* pinCode = "pin-code-length";
constexpr const char* flag = "flag";
constexpr const char* text = "filler-key0";

/// The store, or null where it would not be dconf.
GSettings* settings() {
    static GSettings* const store = []() -> GSettings* {
        if (std::string_view(G_OBJECT_TYPE_NAME(g_settings_backend_get_default())) != "DConfSettingsBackend") {
            return nullptr;
        }
        GSettings* const made = g_settings_new("org.velora.bench");
        g_settings_set_int64(made, pinCode, 8);
        g_settings_set_boolean(made, flag, TRUE);
        for (int index = 0; index < usualKeys - 2; ++index) {
            const std::string key = "filler-key" + std::to_string(index);
            g_settings_set_string(made, key.c_str(), fillerValue(index).c_str());
        }
        g_settings_sync();
        return made;
    }();
    return store;
}

/// Reads with `read(store)`.
template <typename Read>
void measureReads(benchmark::State& state, Read read) {
    GSettings* const store = settings();
    if (store == nullptr) {
        state.SkipWithError("GSettings does not store through dconf: no session bus?");
        return;
    }
    for ([[maybe_unused]] auto step : state) {
        read(store);
    }
}

void read(benchmark::State& state) {
    measureReads(state, [](GSettings* store) { benchmark::DoNotOptimize(g_settings_get_int64(store, pinCode)); });
}
BENCHMARK(read)->Name("preference-read/GSettings");

void readBool(benchmark::State& state) {
    measureReads(state, [](GSettings* store) { benchmark::DoNotOptimize(g_settings_get_boolean(store, flag)); });
}
BENCHMARK(readBool)->Name("read-bool/GSettings");

void readString(benchmark::State& state) {
    measureReads(state, [](GSettings* store) {
        char* const value = g_settings_get_string(store, text);
        benchmark::DoNotOptimize(value);
        g_free(value);
    });
}
BENCHMARK(readString)->Name("read-string/GSettings");

void write(benchmark::State& state) {
    GSettings* const store = settings();
    if (store == nullptr) {
        state.SkipWithError("GSettings does not store through dconf: no session bus?");
        return;
    }
    static std::int64_t value = 100;
    for ([[maybe_unused]] auto step : state) {
        g_settings_set_int64(store, pinCode, ++value);
        g_settings_sync();
    }
    if (g_settings_get_has_unapplied(store) != 0 || g_settings_get_int64(store, pinCode) != value) {
        state.SkipWithError("the store does not hold what was written");
    }
}
BENCHMARK(write)->Name("preference-write/GSettings")->UseRealTime();

}  // namespace

}  // namespace velora::bench
