// What no logger can do without: the clock, copying the line, writing it.

#include <array>
#include <benchmark/benchmark.h>
#include <charconv>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

#include "support/Measuring.h"

namespace velora::bench {

namespace {

void clock(benchmark::State& state) {
    timespec time{};
    for ([[maybe_unused]] auto step : state) {
        ::clock_gettime(CLOCK_REALTIME, &time);
        benchmark::DoNotOptimize(time);
    }
}
BENCHMARK(clock)->Name("limit-clock/clock_gettime");

void copy(benchmark::State& state) {
    std::array<char, 256> line{};
    for ([[maybe_unused]] auto step : state) {
        std::memcpy(line.data(), finishedLine.data(), finishedLine.size());
        benchmark::DoNotOptimize(line.data());
        benchmark::ClobberMemory();
    }
}
BENCHMARK(copy)->Name("limit-copy/memcpy");

char* append(char* end, std::string_view text) {
    std::memcpy(end, text.data(), text.size());
    return end + text.size();
}

/// The least that a line takes: the clock is read, everything known is copied, the number is rendered.
void composed(benchmark::State& state) {
    std::array<char, 256> line{};
    const auto compose = [&line](int number) {
        timespec time{};
        ::clock_gettime(CLOCK_REALTIME, &time);
        char* end = append(line.data(), "2026-11-21 19:24:14.");
        const auto milliseconds = time.tv_nsec / 1'000'000;
        *end++ = static_cast<char>('0' + milliseconds / 100);
        *end++ = static_cast<char>('0' + milliseconds / 10 % 10);
        *end++ = static_cast<char>('0' + milliseconds % 10);
        end = append(end, " [Info] [Limits.cpp:105] logLine > message number ");
        end = std::to_chars(end, line.data() + line.size(), number).ptr;
        end = append(end, " of this run");
        Discarded::take({line.data(), static_cast<std::size_t>(end - line.data())});
    };
    measureDiscarded(state, compose);
}
BENCHMARK(composed)->Name("composed/bare copies");

void bareWrite(benchmark::State& state) {
    const LogFile file("bare.log");
    const int descriptor = ::open(file.path().c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
    measureCalls(state, [&](int /*number*/) {
        benchmark::DoNotOptimize(::write(descriptor, finishedLine.data(), finishedLine.size()));
    });
    ::close(descriptor);
    file.check(state, state.iterations());
}
BENCHMARK(bareWrite)->Name("file-kernel/bare write")->Apply(fileLines);

/// What timing a call costs by itself; it is part of the others' figures.
void caller(benchmark::State& state) {
    measureBursts(state, [](int number) { benchmark::DoNotOptimize(number); });
}
BENCHMARK(caller)->Name("queue-caller/bare timing")->Apply(bursting);

}  // namespace

}  // namespace velora::bench
