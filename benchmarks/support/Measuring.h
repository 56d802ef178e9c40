#pragma once

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <thread>
#include <vector>

#include "support/Line.h"
#include "support/Scratch.h"

/// The ways in which every logger is measured, so that all of them are measured alike.
namespace velora::bench {

using Clock = std::chrono::steady_clock;

/// Lines to a file are so many with each repetition: enough to measure, too few to make the disk busy.
inline void fileLines(benchmark::internal::Benchmark* benchmark) {
    benchmark->Iterations(scaled(100'000));
}

/// Calls `call` with a number that grows.
template <typename Call>
void measureCalls(benchmark::State& state, Call call) {
    int number = 0;
    for ([[maybe_unused]] auto step : state) {
        call(++number);
    }
}

/// The same for a logger whose destination hands its lines to `Discarded`.
template <typename Call>
void measureDiscarded(benchmark::State& state, Call call) {
    measureCalls(state, call);
    Discarded::check(state, call);
}

/// How many lines go through a queue from end to end.
inline std::int64_t queuedLines() {
    return scaled(1'000'000);
}

/// Times `queuedLines()` calls together with `drain`, which returns when their lines are in the kernel. To be
/// registered with `queued`; the figure is the time of one line.
template <typename Call, typename Drain>
void measureQueue(benchmark::State& state, Call call, Drain drain) {
    for ([[maybe_unused]] auto step : state) {
        const auto begin = Clock::now();
        for (int number = 0; number < queuedLines(); ++number) {
            call(number);
        }
        drain();
        const std::chrono::duration<double> time = Clock::now() - begin;
        state.SetIterationTime(time.count());
        state.counters["each_ns"] = time.count() * 1e9 / static_cast<double>(queuedLines());
    }
}

inline void queued(benchmark::internal::Benchmark* benchmark) {
    benchmark->Iterations(1)->UseManualTime();
}

inline constexpr int burstLines = 20;
inline std::int64_t bursts() {
    return scaled(1'000);
}

/// Times each call of bursts of 20 every half millisecond: the percentiles in nanoseconds, which include the reading
/// of the clock. To be registered with `bursting`.
template <typename Call>
void measureBursts(benchmark::State& state, Call call) {
    std::vector<std::int64_t> times;
    times.reserve(static_cast<std::size_t>(bursts() * burstLines));
    for ([[maybe_unused]] auto step : state) {
        auto next = Clock::now();
        for (std::int64_t burst = 0; burst < bursts(); ++burst) {
            for (int number = 0; number < burstLines; ++number) {
                const auto begin = Clock::now();
                call(number);
                times.push_back(std::chrono::nanoseconds(Clock::now() - begin).count());
            }
            next += std::chrono::microseconds(500);
            std::this_thread::sleep_until(next);
        }
    }
    std::ranges::sort(times);
    const auto percentile = [&](double share) {
        return static_cast<double>(times[static_cast<std::size_t>(share * static_cast<double>(times.size() - 1))]);
    };
    state.counters["p50_ns"] = percentile(0.5);
    state.counters["p99_ns"] = percentile(0.99);
    state.counters["p999_ns"] = percentile(0.999);
    state.counters["max_ns"] = percentile(1);
}

inline void bursting(benchmark::internal::Benchmark* benchmark) {
    benchmark->Iterations(1)->UseRealTime();
}

}  // namespace velora::bench
