// What a piece of work costs on a dispatch queue: end to end, and for the thread that hands it over.

#include <benchmark/benchmark.h>
#include <cstddef>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>

#include "support/Measuring.h"

namespace velora::bench {

namespace {

class Task final : public DispatchQueue::Task {
public:
    void run() noexcept override { benchmark::DoNotOptimize(++runs_); }

private:
    int runs_ = 0;
};

void taskEndToEnd(benchmark::State& state) {
    const auto queue = DispatchQueue::make("benchmark");
    std::vector<Task> tasks(static_cast<std::size_t>(queuedLines()));
    measureQueue(
        state, [&](int number) { queue->async(tasks[static_cast<std::size_t>(number)]); }, [&] { queue->drain(); });
}
BENCHMARK(taskEndToEnd)->Name("queued-work-end-to-end/ours")->Apply(queued);

void closureEndToEnd(benchmark::State& state) {
    const auto queue = DispatchQueue::make("benchmark");
    int runs = 0;
    measureQueue(
        state, [&](int /*number*/) { queue->async([&runs] { benchmark::DoNotOptimize(++runs); }); },
        [&] { queue->drain(); });
}
BENCHMARK(closureEndToEnd)->Name("queued-closure-end-to-end/ours")->Apply(queued);

void taskCaller(benchmark::State& state) {
    const auto queue = DispatchQueue::make("benchmark");
    // So many tasks in turn that each has long run when it is handed over again.
    std::vector<Task> tasks(std::size_t{burstLines} * 64);
    std::size_t used = 0;
    measureBursts(state, [&](int /*number*/) { queue->async(tasks[used++ % tasks.size()]); });
    queue->drain();
}
BENCHMARK(taskCaller)->Name("queued-work-caller/ours")->Apply(bursting);

void closureCaller(benchmark::State& state) {
    const auto queue = DispatchQueue::make("benchmark");
    int runs = 0;
    measureBursts(state, [&](int /*number*/) { queue->async([&runs] { benchmark::DoNotOptimize(++runs); }); });
    queue->drain();
}
BENCHMARK(closureCaller)->Name("queued-closure-caller/ours")->Apply(bursting);

}  // namespace

}  // namespace velora::bench
