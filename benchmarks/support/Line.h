#pragma once

#include <benchmark/benchmark.h>
#include <string>
#include <string_view>

namespace velora::bench {

/// How the message of every line begins that is compared: "message number 17 of this run".
inline constexpr std::string_view messageStart = "message number ";

/// A finished line as our logger writes it, with its line feed: what the limits copy and write.
inline constexpr std::string_view finishedLine =
    "2026-11-21 19:24:14.484 [Info] [OurLogger.h:105] logLine > message number 1000000 of this run\n";

/// Turns the benchmark into an error unless `line` has the date with at least milliseconds, the level, file and line
/// number, the function and the whole message. With VELORA_BENCH_SHOW set, each line that is looked at is printed to
/// standard error.
void expectAllColumns(benchmark::State& state, std::string_view line);

/// Where destinations end that compose a line and let it go. One thread.
class Discarded {
public:
    /// Takes a finished line. The compiler must take it for used.
    static void take(std::string_view line) {
        benchmark::DoNotOptimize(line.data());
        if (isKept_) {
            kept_ = line;
        }
    }

    /// Has `call` log one line more, and looks at that line with `expectAllColumns`.
    template <typename Call>
    static void check(benchmark::State& state, Call call) {
        kept_.clear();
        isKept_ = true;
        call(0);
        isKept_ = false;
        expectAllColumns(state, kept_);
    }

private:
    static inline bool isKept_ = false;
    static inline std::string kept_;
};

}  // namespace velora::bench
