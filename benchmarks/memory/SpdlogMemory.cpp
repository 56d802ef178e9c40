// How often spdlog allocates memory, and how much it holds while it is idle.

#include <benchmark/benchmark.h>
#include <memory>

#include "memory/Counting.h"
#include "support/SpdlogLogger.h"

namespace velora::bench {

namespace {

void belowLevel(benchmark::State& state) {
    const SpdlogLogger log(std::make_shared<DiscardingSink>());
    log->set_level(spdlog::level::err);
    countAllocations(state, [&](int number) {
        log->log(VELORA_SPDLOG_PLACE, spdlog::level::debug, "message number {} of this run", number);
    });
}
BENCHMARK(belowLevel)->Name("allocations-below-level/spdlog")->Apply(countedCalls);

void fileLine(benchmark::State& state) {
    const LogFile file("spdlog-allocations.log");
    const SpdlogLogger log(spdlogFile(file.path()));
    log->flush_on(spdlog::level::trace);
    countAllocations(state, [&](int number) { log.logLine(number); });
}
BENCHMARK(fileLine)->Name("allocations-file/spdlog")->Apply(countedCalls);

void queuedLine(benchmark::State& state) {
    const LogFile file("spdlog-allocations-queue.log");
    const SpdlogAsync log(file.path());
    countAllocations(state, [&](int number) { log.logLine(number); });
}
BENCHMARK(queuedLine)->Name("allocations-queue/spdlog")->Apply(countedCalls);

void idleLogger(benchmark::State& state) {
    countBytes(state, [] { return std::make_unique<SpdlogLogger>(std::make_shared<DiscardingSink>()); });
}
BENCHMARK(idleLogger)->Name("idle-logger/spdlog")->Iterations(1);

}  // namespace

}  // namespace velora::bench
