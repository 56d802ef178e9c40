// How often our logger allocates memory, and how much it holds while it is idle.

#include <benchmark/benchmark.h>
#include <memory>

#include "memory/Counting.h"
#include "support/OurLogger.h"

namespace velora::bench {

namespace {

void belowLevel(benchmark::State& state) {
    const auto destination = make<DiscardingDestination>(nullptr, "discard");
    destination->setOutputLevel(Level::error);
    const OurLogger log(destination);
    countAllocations(state, [&](int number) { log->debug("message number {} of this run", number); });
}
BENCHMARK(belowLevel)->Name("allocations-below-level/ours")->Apply(countedCalls);

void fileLine(benchmark::State& state) {
    const LogFile file("ours-allocations.log");
    const OurLogger log(ourFile(file.path()));
    countAllocations(state, [&](int number) { log.logLine(number); });
}
BENCHMARK(fileLine)->Name("allocations-file/ours")->Apply(countedCalls);

void queuedLine(benchmark::State& state) {
    const LogFile file("ours-allocations-queue.log");
    const auto queue = DispatchQueue::make("bench");
    const OurLogger log(ourFile(file.path(), queue));
    countAllocations(state, [&](int number) {
        log.logLine(number);
        if (number % 100 == 0) {
            queue->drain();
        }
    });
}
BENCHMARK(queuedLine)->Name("allocations-queue/ours")->Apply(countedCalls);

void idleLogger(benchmark::State& state) {
    countBytes(state, [] { return std::make_unique<OurLogger>(make<DiscardingDestination>(nullptr, "discard")); });
}
BENCHMARK(idleLogger)->Name("idle-logger/ours")->Iterations(1);

}  // namespace

}  // namespace velora::bench
