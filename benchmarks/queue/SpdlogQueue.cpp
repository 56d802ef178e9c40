// spdlog's queue with as little work as it can carry: a message of one letter for a sink that drops it.

#include <benchmark/benchmark.h>
#include <memory>
#include <spdlog/async.h>
#include <spdlog/sinks/null_sink.h>

#include "support/Measuring.h"

namespace velora::bench {

namespace {

class NullAsync {
public:
    NullAsync()
        : pool_(std::make_shared<spdlog::details::thread_pool>(8'192, 1)),
          log_(std::make_shared<spdlog::async_logger>("x", std::make_shared<spdlog::sinks::null_sink_mt>(), pool_,
                                                      spdlog::async_overflow_policy::block)) {}

    void log() const { log_->info("x"); }
    /// The end of the pool is what waits for the work.
    void drain() { pool_.reset(); }

private:
    std::shared_ptr<spdlog::details::thread_pool> pool_;
    std::shared_ptr<spdlog::async_logger> log_;
};

void endToEnd(benchmark::State& state) {
    NullAsync log;
    measureQueue(
        state, [&](int /*number*/) { log.log(); }, [&] { log.drain(); });
}
BENCHMARK(endToEnd)->Name("queued-work-end-to-end/spdlog")->Apply(queued);

void caller(benchmark::State& state) {
    const NullAsync log;
    measureBursts(state, [&](int /*number*/) { log.log(); });
}
BENCHMARK(caller)->Name("queued-work-caller/spdlog")->Apply(bursting);

}  // namespace

}  // namespace velora::bench
