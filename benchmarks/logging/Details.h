#pragma once

#include <benchmark/benchmark.h>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "support/Measuring.h"

/// What both loggers are given whose details are measured.
namespace velora::bench {

inline void threadLines(benchmark::internal::Benchmark* benchmark) {
    benchmark->Iterations(scaled(25'000))->UseRealTime()->Threads(1)->Threads(2)->Threads(4)->Threads(8);
}

/// Logs `state.iterations()` lines on each thread through one logger, which the first thread opens before the others
/// begin and closes after they have ended; the framework lets all threads wait for each other there. The figure is
/// the time per line of all threads together.
template <typename Open, typename Call, typename Close>
void measureThreads(benchmark::State& state, std::optional<LogFile>& file, Open open, Call call, Close close) {
    if (state.thread_index() == 0) {
        file.emplace("threads.log");
        open(file->path());
    }
    measureCalls(state, call);
    if (state.thread_index() == 0) {
        close();
        file->check(state, state.iterations() * state.threads());
        file.reset();
    }
}

inline void messageSizes(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("bytes")->Arg(10)->Arg(100)->Arg(10'000)->Iterations(scaled(20'000));
}

/// A text of so many ASCII letters.
inline std::string textOf(std::int64_t bytes) {
    std::string text;
    while (text.size() < static_cast<std::size_t>(bytes)) {
        text += static_cast<char>('a' + text.size() % 26);
    }
    return text;
}

inline void destinationCounts(benchmark::internal::Benchmark* benchmark) {
    benchmark->ArgName("destinations")->Arg(1)->Arg(2)->Arg(5);
}

}  // namespace velora::bench
