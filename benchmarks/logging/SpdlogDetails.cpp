// spdlog with more threads, sinks and other messages than in the rows that are compared.

#include <benchmark/benchmark.h>
#include <cstddef>
#include <memory>
#include <optional>
#include <spdlog/sinks/rotating_file_sink.h>
#include <string>

#include "logging/Details.h"
#include "support/Measuring.h"
#include "support/SpdlogLogger.h"

namespace velora::bench {

namespace {

SpdlogLogger flushing(const std::string& path) {
    SpdlogLogger log(spdlogFile(path));
    log->flush_on(spdlog::level::trace);
    return log;
}

void callerDirect(benchmark::State& state) {
    const LogFile file("spdlog-direct.log");
    {
        const SpdlogLogger log = flushing(file.path());
        measureBursts(state, [&](int number) { log.logLine(number); });
    }
    file.check(state, bursts() * burstLines);
}
BENCHMARK(callerDirect)->Name("direct-caller/spdlog")->Apply(bursting);

void threads(benchmark::State& state) {
    static std::optional<LogFile> file;
    static std::optional<SpdlogLogger> log;
    measureThreads(
        state, file, [](const std::string& path) { log.emplace(flushing(path)); },
        [](int number) { log->logLine(number); }, [] { log.reset(); });
}
BENCHMARK(threads)->Name("threads/spdlog")->Apply(threadLines);

void messageSize(benchmark::State& state) {
    const LogFile file("spdlog-size.log");
    const std::string text = textOf(state.range(0));
    {
        const SpdlogLogger log = flushing(file.path());
        measureCalls(state, [&](int /*number*/) { log->log(VELORA_SPDLOG_PLACE, spdlog::level::info, "{}", text); });
    }
    file.check(state, state.iterations(), text);
}
BENCHMARK(messageSize)->Name("message-size/spdlog")->Apply(messageSizes);

void nonAscii(benchmark::State& state) {
    const LogFile file("spdlog-text.log");
    {
        const SpdlogLogger log = flushing(file.path());
        measureCalls(state, [&](int number) {
            log->log(VELORA_SPDLOG_PLACE, spdlog::level::info, "Sitzung {} für Jürgen Größe 你好 🙂 beendet",
                     number);
        });
    }
    file.check(state, state.iterations(), "für Jürgen Größe 你好 🙂 beendet");
}
BENCHMARK(nonAscii)->Name("non-ascii/spdlog")->Apply(fileLines);

void destinations(benchmark::State& state) {
    const auto logger = std::make_shared<spdlog::logger>("bench");
    for (int index = 0; index < state.range(0); ++index) {
        logger->sinks().push_back(std::make_shared<DiscardingSink>());
    }
    const SpdlogLogger log(logger);
    measureDiscarded(state, [&](int number) { log.logLine(number); });
}
BENCHMARK(destinations)->Name("destinations/spdlog")->Apply(destinationCounts);

void rotatingLine(benchmark::State& state) {
    const LogFile file("spdlog-rotating.log");
    {
        const SpdlogLogger log(
            std::make_shared<spdlog::sinks::rotating_file_sink_mt>(file.path(), std::size_t{1} << 40U, 10));
        log->flush_on(spdlog::level::trace);
        measureCalls(state, [&](int number) { log.logLine(number); });
    }
    file.check(state, state.iterations());
}
BENCHMARK(rotatingLine)->Name("rotating-line/spdlog")->Apply(fileLines);

/// A file of at most one byte makes every line rotate; what spdlog keeps are 10 archives, renamed in turn.
void rotation(benchmark::State& state) {
    const std::string path = (scratchFolder() / "spdlog-rotation.log").string();
    const SpdlogLogger log(
        std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path, 1, static_cast<std::size_t>(state.range(0))));
    measureCalls(state, [&](int number) { log.logLine(number); });
}
BENCHMARK(rotation)->Name("rotation/spdlog")->ArgName("archives")->Arg(10);

}  // namespace

}  // namespace velora::bench
