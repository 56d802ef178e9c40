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

/// Gives the destination a buffer, where it can have one.
template <typename Destination>
bool setBuffer(Destination& destination, std::size_t bytes) {
    if constexpr (requires { destination.setWriteBufferCapacity(bytes); }) {
        destination.setWriteBufferCapacity(bytes);
        return true;
    } else {
        return false;
    }
}

void fileBuffered(benchmark::State& state) {
    const LogFile file("ours-buffered.log");
    const auto destination = ourFile(file.path());
    if (!setBuffer(*destination, 65'536)) {
        state.SkipWithError("a file destination has no buffer");
        return;
    }
    {
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
