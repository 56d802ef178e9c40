// What filters and formatters add to a line that is composed and let go.

#include <benchmark/benchmark.h>
#include <memory>
#include <string_view>

#include <Velora_UserDefaults/XCGLogger/Filters/FileNameFilter.h>
#include <Velora_UserDefaults/XCGLogger/Filters/TagFilter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIColorLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/Base64LogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>

#include "support/Measuring.h"
#include "support/OurLogger.h"

namespace velora::bench {

namespace {

/// Filters and formats lines, then lets them go.
class DiscardingWriter : public BaseQueuedDestination {
public:
    using BaseQueuedDestination::BaseQueuedDestination;
    void write(std::string_view message) override { Discarded::take(message); }
};

std::shared_ptr<DiscardingWriter> writerWith(Filters filters, Formatters formatters) {
    auto writer = make<DiscardingWriter>(nullptr, "discard");
    writer->setFilters(std::move(filters));
    writer->setFormatters(std::move(formatters));
    return writer;
}

void measureTagged(benchmark::State& state, const OurLogger& log) {
    measureCalls(state, [&](int number) { log->info(Tag("net"), "message number {} of this run", number); });
}

void none(benchmark::State& state) {
    const OurLogger log(writerWith(Filters::value_type{}, Formatters::value_type{}));
    measureDiscarded(state, [&](int number) { log.logLine(number); });
}
BENCHMARK(none)->Name("filter-none/ours");

void tagged(benchmark::State& state) {
    const OurLogger log(writerWith(Filters::value_type{}, Formatters::value_type{}));
    measureTagged(state, log);
}
BENCHMARK(tagged)->Name("filter-none-tagged/ours");

void tagPasses(benchmark::State& state) {
    const OurLogger log(writerWith({{make<TagFilter>(ExcludeFrom{"noisy"})}}, Formatters::value_type{}));
    measureTagged(state, log);
}
BENCHMARK(tagPasses)->Name("filter-tag-passes/ours");

void tagDrops(benchmark::State& state) {
    const OurLogger log(writerWith({{make<TagFilter>(ExcludeFrom{"net"})}}, Formatters::value_type{}));
    measureTagged(state, log);
}
BENCHMARK(tagDrops)->Name("filter-tag-drops/ours");

void fileNamePasses(benchmark::State& state) {
    const OurLogger log(writerWith({{make<FileNameFilter>(ExcludeFrom{"Heartbeat.cpp"})}}, Formatters::value_type{}));
    measureDiscarded(state, [&](int number) { log.logLine(number); });
}
BENCHMARK(fileNamePasses)->Name("filter-file-name/ours");

void colours(benchmark::State& state) {
    const OurLogger log(writerWith(Filters::value_type{}, {{make<ANSIColorLogFormatter>()}}));
    measureDiscarded(state, [&](int number) { log.logLine(number); });
}
BENCHMARK(colours)->Name("formatter-colours/ours");

void base64(benchmark::State& state) {
    const OurLogger log(writerWith(Filters::value_type{}, {{make<Base64LogFormatter>()}}));
    measureCalls(state, [&](int number) { log.logLine(number); });
}
BENCHMARK(base64)->Name("formatter-base64/ours");

}  // namespace

}  // namespace velora::bench
