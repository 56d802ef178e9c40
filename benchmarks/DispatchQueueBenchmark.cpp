// What a piece of work costs on a dispatch queue: end to end, and for the thread that hands it over. An
// asynchronous logger with a sink that drops everything does the same for the message "x".

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <spdlog/async.h>
#include <spdlog/sinks/null_sink.h>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>

namespace {

using velora::DispatchQueue;
using Clock = std::chrono::steady_clock;

constexpr std::size_t million = 1'000'000;
constexpr int burst = 20;
constexpr int bursts = 1000;
constexpr std::chrono::microseconds betweenBursts{500};

class Task final : public DispatchQueue::Task {
public:
    void run() noexcept override { benchmark::DoNotOptimize(++runs); }
    int runs = 0;
};

/// Hands over one million pieces of work with each iteration, and waits until they have run.
template <typename HandOver, typename Drain>
void runMillion(benchmark::State& state, HandOver handOver, Drain drain) {
    for (auto _ : state) {
        for (std::size_t index = 0; index < million; ++index) {
            handOver(index);
        }
        drain();
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(million) * state.iterations());
    state.counters["each"] = benchmark::Counter(static_cast<double>(million) * static_cast<double>(state.iterations()),
                                                benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void endToEndTask(benchmark::State& state) {
    const auto queue = DispatchQueue::make("benchmark");
    std::vector<Task> tasks(million);
    runMillion(
        state, [&](std::size_t index) { queue->async(tasks[index]); }, [&] { queue->drain(); });
}
BENCHMARK(endToEndTask)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMillisecond);

void endToEndClosure(benchmark::State& state) {
    const auto queue = DispatchQueue::make("benchmark");
    int runs = 0;
    runMillion(
        state, [&](std::size_t) { queue->async([&runs] { benchmark::DoNotOptimize(++runs); }); },
        [&] { queue->drain(); });
}
BENCHMARK(endToEndClosure)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMillisecond);

/// spdlog's flush() only asks for one, so the pool is ended to wait for everything.
void endToEndSpdlog(benchmark::State& state) {
    for (auto _ : state) {
        auto pool = std::make_shared<spdlog::details::thread_pool>(65'536, 1);
        auto logger = std::make_shared<spdlog::async_logger>("x", std::make_shared<spdlog::sinks::null_sink_mt>(), pool,
                                                             spdlog::async_overflow_policy::block);
        for (std::size_t index = 0; index < million; ++index) {
            logger->info("x");
        }
        pool.reset();
    }
    state.counters["each"] = benchmark::Counter(static_cast<double>(million) * static_cast<double>(state.iterations()),
                                                benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(endToEndSpdlog)->MeasureProcessCPUTime()->UseRealTime()->Unit(benchmark::kMillisecond);

double nanosecondsSince(Clock::time_point start) {
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

/// Times every single hand-over of bursts with pauses in between; "empty" is what timing alone costs.
template <typename HandOver>
void runBursts(benchmark::State& state, HandOver handOver) {
    std::vector<double> times;
    for (auto _ : state) {
        auto next = Clock::now();
        for (int round = 0; round < bursts; ++round) {
            for (int index = 0; index < burst; ++index) {
                const auto start = Clock::now();
                handOver(static_cast<std::size_t>(index));
                times.push_back(nanosecondsSince(start));
            }
            next += betweenBursts;
            std::this_thread::sleep_until(next);
        }
    }
    std::ranges::sort(times);
    state.counters["p50_ns"] = times[times.size() / 2];
    state.counters["p90_ns"] = times[times.size() * 90 / 100];
    state.counters["p99_ns"] = times[times.size() * 99 / 100];
}

void burstsEmpty(benchmark::State& state) {
    runBursts(state, [](std::size_t index) { benchmark::DoNotOptimize(index); });
}
BENCHMARK(burstsEmpty)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(3);

void burstsTask(benchmark::State& state) {
    const auto queue = DispatchQueue::make("benchmark");
    std::vector<Task> tasks(burst * 64);
    std::size_t used = 0;
    // So many tasks in turn that each has long run when it is handed over again.
    runBursts(state, [&](std::size_t) { queue->async(tasks[used++ % tasks.size()]); });
    queue->drain();
}
BENCHMARK(burstsTask)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(3);

void burstsClosure(benchmark::State& state) {
    const auto queue = DispatchQueue::make("benchmark");
    int runs = 0;
    runBursts(state, [&](std::size_t) { queue->async([&runs] { benchmark::DoNotOptimize(++runs); }); });
    queue->drain();
}
BENCHMARK(burstsClosure)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(3);

void burstsSpdlog(benchmark::State& state) {
    auto pool = std::make_shared<spdlog::details::thread_pool>(65'536, 1);
    auto logger = std::make_shared<spdlog::async_logger>("x", std::make_shared<spdlog::sinks::null_sink_mt>(), pool,
                                                         spdlog::async_overflow_policy::block);
    runBursts(state, [&](std::size_t) { logger->info("x"); });
}
BENCHMARK(burstsSpdlog)->UseRealTime()->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
