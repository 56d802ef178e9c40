// Our logger with more threads, destinations and other messages than in the rows that are compared.

#include <benchmark/benchmark.h>
#include <memory>
#include <optional>
#include <string>

#include "logging/Details.h"
#include "support/Measuring.h"
#include "support/OurLogger.h"

namespace velora::bench {

namespace {

void callerDirect(benchmark::State& state) {
    const LogFile file("ours-direct.log");
    {
        const OurLogger log(ourFile(file.path()));
        measureBursts(state, [&](int number) { log.logLine(number); });
    }
    file.check(state, bursts() * burstLines);
}
BENCHMARK(callerDirect)->Name("direct-caller/ours")->Apply(bursting);

void threads(benchmark::State& state) {
    static std::optional<LogFile> file;
    static std::optional<OurLogger> log;
    measureThreads(
        state, file, [](const std::string& path) { log.emplace(ourFile(path)); },
        [](int number) { log->logLine(number); }, [] { log.reset(); });
}
BENCHMARK(threads)->Name("threads/ours")->Apply(threadLines);

void messageSize(benchmark::State& state) {
    const LogFile file("ours-size.log");
    const std::string text = textOf(state.range(0));
    {
        const OurLogger log(ourFile(file.path()));
        measureCalls(state, [&](int /*number*/) { log->info("{}", text); });
    }
    file.check(state, state.iterations(), text);
}
BENCHMARK(messageSize)->Name("message-size/ours")->Apply(messageSizes);

void nonAscii(benchmark::State& state) {
    const LogFile file("ours-text.log");
    {
        const OurLogger log(ourFile(file.path()));
        measureCalls(state,
                     [&](int number) { log->info("Sitzung {} für Jürgen Größe 你好 🙂 beendet", number); });
    }
    file.check(state, state.iterations(), "für Jürgen Größe 你好 🙂 beendet");
}
BENCHMARK(nonAscii)->Name("non-ascii/ours")->Apply(fileLines);

void destinations(benchmark::State& state) {
    const OurLogger log(make<DiscardingDestination>(nullptr, "discard 0"));
    for (int index = 1; index < state.range(0); ++index) {
        log->add(make<DiscardingDestination>(nullptr, "discard " + std::to_string(index)));
    }
    measureDiscarded(state, [&](int number) { log.logLine(number); });
}
BENCHMARK(destinations)->Name("destinations/ours")->Apply(destinationCounts);

}  // namespace

}  // namespace velora::bench
