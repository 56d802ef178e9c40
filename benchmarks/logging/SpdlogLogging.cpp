// spdlog in the rows that are compared.

#include <benchmark/benchmark.h>
#include <cstdio>
#include <memory>

#include "support/Measuring.h"
#include "support/SpdlogLogger.h"

namespace velora::bench {

namespace {

void belowLevel(benchmark::State& state) {
    const SpdlogLogger log(std::make_shared<DiscardingSink>());
    log->set_level(spdlog::level::err);
    measureCalls(state, [&](int number) {
        log->log(VELORA_SPDLOG_PLACE, spdlog::level::debug, "message number {} of this run", number);
    });
}
BENCHMARK(belowLevel)->Name("below-level/spdlog");

void composed(benchmark::State& state) {
    const SpdlogLogger log(std::make_shared<DiscardingSink>());
    measureDiscarded(state, [&](int number) { log.logLine(number); });
}
BENCHMARK(composed)->Name("composed/spdlog");

void fileInKernel(benchmark::State& state) {
    const LogFile file("spdlog-kernel.log");
    {
        const SpdlogLogger log(spdlogFile(file.path()));
        log->flush_on(spdlog::level::trace);
        measureCalls(state, [&](int number) { log.logLine(number); });
    }
    file.check(state, state.iterations());
}
BENCHMARK(fileInKernel)->Name("file-kernel/spdlog")->Apply(fileLines);

void fileBuffered(benchmark::State& state) {
    const LogFile file("spdlog-buffered.log");
    {
        spdlog::file_event_handlers events;
        events.after_open = [](const spdlog::filename_t& /*path*/, std::FILE* stream) {
            // As large as our buffer: the C library's own would have 4 kB.
            std::setvbuf(stream, nullptr, _IOFBF, 65'536);
        };
        const SpdlogLogger log(std::make_shared<spdlog::sinks::basic_file_sink_mt>(file.path(), true, events));
        measureCalls(state, [&](int number) { log.logLine(number); });
    }
    file.check(state, state.iterations());
}
BENCHMARK(fileBuffered)->Name("file-buffered/spdlog")->Apply(fileLines);

void queueEndToEnd(benchmark::State& state) {
    const LogFile file("spdlog-queue.log");
    SpdlogAsync log(file.path());
    measureQueue(
        state, [&](int number) { log.logLine(number); }, [&] { log.drain(); });
    file.check(state, queuedLines());
}
BENCHMARK(queueEndToEnd)->Name("queue-end-to-end/spdlog")->Apply(queued);

void queueCaller(benchmark::State& state) {
    const LogFile file("spdlog-caller.log");
    SpdlogAsync log(file.path());
    measureBursts(state, [&](int number) { log.logLine(number); });
    log.drain();
    file.check(state, bursts() * burstLines);
}
BENCHMARK(queueCaller)->Name("queue-caller/spdlog")->Apply(bursting);

}  // namespace

}  // namespace velora::bench
