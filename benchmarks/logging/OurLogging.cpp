// Our logger in the rows that are compared.

#include <benchmark/benchmark.h>
#include <memory>

#include "support/Measuring.h"
#include "support/OurLogger.h"

namespace velora::bench {

namespace {

void belowLevel(benchmark::State& state) {
    const auto destination = make<DiscardingDestination>(nullptr, "discard");
    destination->setOutputLevel(Level::error);
    const OurLogger log(destination);
    measureCalls(state, [&](int number) { log->debug("message number {} of this run", number); });
}
BENCHMARK(belowLevel)->Name("below-level/ours");

void composed(benchmark::State& state) {
    const OurLogger log(make<DiscardingDestination>(nullptr, "discard"));
    measureDiscarded(state, [&](int number) { log.logLine(number); });
}
BENCHMARK(composed)->Name("composed/ours");

void fileInKernel(benchmark::State& state) {
    const LogFile file("ours-kernel.log");
    {
        const OurLogger log(ourFile(file.path()));
        measureCalls(state, [&](int number) { log.logLine(number); });
    }
    file.check(state, state.iterations());
}
BENCHMARK(fileInKernel)->Name("file-kernel/ours")->Apply(fileLines);

void fileBuffered(benchmark::State& state) {
    const LogFile file("ours-buffered.log");
    {
        const std::shared_ptr<FileDestination> destination = ourFile(file.path());
        destination->setWriteBufferCapacity(65'536);
        const OurLogger log(destination);
        measureCalls(state, [&](int number) { log.logLine(number); });
    }
    file.check(state, state.iterations());
}
BENCHMARK(fileBuffered)->Name("file-buffered/ours")->Apply(fileLines);

void queueEndToEnd(benchmark::State& state) {
    const LogFile file("ours-queue.log");
    {
        const auto queue = DispatchQueue::make("bench");
        const OurLogger log(ourFile(file.path(), queue));
        measureQueue(
            state, [&](int number) { log.logLine(number); }, [&] { queue->drain(); });
    }
    file.check(state, queuedLines());
}
BENCHMARK(queueEndToEnd)->Name("queue-end-to-end/ours")->Apply(queued);

void queueCaller(benchmark::State& state) {
    const LogFile file("ours-caller.log");
    {
        const OurLogger log(ourFile(file.path(), DispatchQueue::make("bench")));
        measureBursts(state, [&](int number) { log.logLine(number); });
    }
    file.check(state, bursts() * burstLines);
}
BENCHMARK(queueCaller)->Name("queue-caller/ours")->Apply(bursting);

}  // namespace

}  // namespace velora::bench
