#pragma once

#include <benchmark/benchmark.h>
#include <cstddef>
#include <cstdint>
#include <malloc.h>
#include <memory>
#include <vector>

#include "support/Measuring.h"

/// Counts the allocations of this program, also those of the libraries that it uses.
namespace velora::bench {

/// How often any thread has called an `operator new` so far.
std::int64_t allocations();

inline void countedCalls(benchmark::internal::Benchmark* benchmark) {
    benchmark->Iterations(scaled(10'000));
}

/// How many allocations a call makes once its thread has its buffers.
template <typename Call>
void countAllocations(benchmark::State& state, Call call) {
    call(0);
    const std::int64_t before = allocations();
    measureCalls(state, call);
    state.counters["allocations"] =
        static_cast<double>(allocations() - before) / static_cast<double>(state.iterations());
}

/// How many bytes of the heap an object holds that `makeOne` makes and that is not used.
template <typename Make>
void countBytes(benchmark::State& state, Make makeOne) {
    constexpr int objects = 1'000;
    std::vector<decltype(makeOne())> made;
    made.reserve(objects);
    for ([[maybe_unused]] auto step : state) {
        const std::size_t before = ::mallinfo2().uordblks;
        for (int index = 0; index < objects; ++index) {
            made.push_back(makeOne());
        }
        state.counters["bytes"] = static_cast<double>(::mallinfo2().uordblks - before) / objects;
    }
}

}  // namespace velora::bench
