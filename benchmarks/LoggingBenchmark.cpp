// What a log call costs, beside spdlog doing the same: the same columns in the same order, the same message
// and argument, the same file system, and the same guarantee when the call returns.
//
//     make bench BENCH_ARGUMENTS=--benchmark_filter=File
//
// Files are written to $VELORA_BENCH_FOLDER, by default a new folder in the temporary one.

#include <algorithm>
#include <array>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <unistd.h>
#include <vector>

#ifdef VELORA_BENCH_SPDLOG
#include <spdlog/async.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/spdlog.h>
#endif

#include <Velora_UserDefaults/Velora_UserDefaults.h>

namespace {

using namespace velora;

std::filesystem::path folder() {
    static const std::filesystem::path& path = *new const std::filesystem::path([] {
        const char* const chosen = std::getenv("VELORA_BENCH_FOLDER");
        std::filesystem::path made =
            chosen != nullptr ? std::filesystem::path(chosen)
                              : std::filesystem::temp_directory_path() / ("velora-bench-" + std::to_string(::getpid()));
        std::filesystem::create_directories(made);
        return made;
    }());
    return path;
}

struct RemoveFolderAtExit {
    ~RemoveFolderAtExit() {
        std::error_code ignored;
        std::filesystem::remove_all(folder(), ignored);
    }
} const removeFolderAtExit;

/// Composes lines and lets them go.
class DiscardingDestination : public BaseDestination {
public:
    using BaseDestination::BaseDestination;
    void output(LogDetails& /*logDetails*/, std::string& message) override { benchmark::DoNotOptimize(message.data()); }
};

template <typename Destination, typename... Arguments>
std::shared_ptr<XCGLogger> loggerWith(std::shared_ptr<Destination>& destination, Arguments&&... arguments) {
    auto log = make<XCGLogger>("bench", false);
    destination = make<Destination>(nullptr, std::forward<Arguments>(arguments)...);
    log->add(destination);
    return log;
}

void BM_DisabledCall(benchmark::State& state) {
    std::shared_ptr<DiscardingDestination> destination;
    const auto log = loggerWith(destination, "discard");
    destination->setOutputLevel(Level::error);
    int number = 0;
    for (auto iteration : state) {
        log->debug("message number {} of this run", ++number);
    }
    log->remove(destination);
}
BENCHMARK(BM_DisabledCall);

void BM_ComposedLine(benchmark::State& state) {
    std::shared_ptr<DiscardingDestination> destination;
    const auto log = loggerWith(destination, "discard");
    int number = 0;
    for (auto iteration : state) {
        log->info("message number {} of this run", ++number);
    }
    log->remove(destination);
}
BENCHMARK(BM_ComposedLine);

void BM_FileLine(benchmark::State& state) {
    std::shared_ptr<FileDestination> destination;
    const auto log = loggerWith(destination, folder() / "ours.log", "file");
    int number = 0;
    for (auto iteration : state) {
        log->info("message number {} of this run", ++number);
    }
    log->remove(destination);
}
BENCHMARK(BM_FileLine);

void BM_RotatingFileLine(benchmark::State& state) {
    std::shared_ptr<AutoRotatingFileDestination> destination;
    const auto log = loggerWith(destination, folder() / "rotating.log", "rotating",
                                AutoRotatingFileDestination::Options{.maxFileSize = 0, .maxTimeInterval = 0});
    int number = 0;
    for (auto iteration : state) {
        log->info("message number {} of this run", ++number);
    }
    log->remove(destination);
}
BENCHMARK(BM_RotatingFileLine);

void BM_BareWrite(benchmark::State& state) {
    const std::string line =
        "2026-11-21 19:24:14.484 [Info] [LoggingBenchmark.cpp:105] BM_FileLine > "
        "message number 1000000 of this run\n";
    const int file = ::open((folder() / "bare.log").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0600);
    for (auto iteration : state) {
        benchmark::DoNotOptimize(::write(file, line.data(), line.size()));
    }
    ::close(file);
}
BENCHMARK(BM_BareWrite);

constexpr int queuedLines = 1'000'000;

void BM_QueuedMillionLines(benchmark::State& state) {
    for (auto iteration : state) {
        std::shared_ptr<FileDestination> destination;
        const auto log = loggerWith(destination, folder() / "queued.log", "file");
        const auto queue = DispatchQueue::make("bench");
        destination->setLogQueue(queue);
        const auto begin = std::chrono::steady_clock::now();
        for (int number = 0; number < queuedLines; ++number) {
            log->info("message number {} of this run", number);
        }
        queue->drain();
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
        log->remove(destination);
    }
    state.SetItemsProcessed(state.iterations() * queuedLines);
}
BENCHMARK(BM_QueuedMillionLines)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

/// Times each call of bursts of 20 every half millisecond, and tells the percentiles in nanoseconds.
template <typename Call>
void measureBursts(benchmark::State& state, Call&& call) {
    std::vector<std::int64_t> times;
    for (auto iteration : state) {
        for (int burst = 0; burst < 2'000; ++burst) {
            for (int number = 0; number < 20; ++number) {
                const auto begin = std::chrono::steady_clock::now();
                call(number);
                times.push_back((std::chrono::steady_clock::now() - begin).count());
            }
            std::this_thread::sleep_for(std::chrono::microseconds(500));
        }
    }
    std::sort(times.begin(), times.end());
    const auto percentile = [&](double share) {
        return static_cast<double>(times[static_cast<std::size_t>(share * static_cast<double>(times.size() - 1))]);
    };
    state.counters["p50_ns"] = percentile(0.5);
    state.counters["p99_ns"] = percentile(0.99);
    state.counters["p999_ns"] = percentile(0.999);
    state.counters["max_ns"] = percentile(1);
}

void BM_QueuedCallerShare(benchmark::State& state) {
    std::shared_ptr<FileDestination> destination;
    const auto log = loggerWith(destination, folder() / "share.log", "file");
    const auto queue = DispatchQueue::make("bench");
    destination->setLogQueue(queue);
    measureBursts(state, [&](int number) { log->info("message number {} of this run", number); });
    queue->drain();
    log->remove(destination);
}
BENCHMARK(BM_QueuedCallerShare)->Iterations(1)->Unit(benchmark::kMillisecond);

/// What reading the clock twice, as the measurement does, costs by itself.
void BM_EmptyCallerShare(benchmark::State& state) {
    measureBursts(state, [](int number) { benchmark::DoNotOptimize(number); });
}
BENCHMARK(BM_EmptyCallerShare)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_Rotation(benchmark::State& state) {
    std::shared_ptr<AutoRotatingFileDestination> destination;
    const auto log = loggerWith(destination, folder() / "rotate.log", "rotate",
                                AutoRotatingFileDestination::Options{.maxFileSize = 0, .maxTimeInterval = 0});
    destination->setArchiveSuffixDateFormatter(std::make_shared<DateFormatter>("_HHmmss.SSSSSSSSS"));
    for (auto iteration : state) {
        log->info("one line");
        destination->rotateFile();
    }
    destination->purgeArchivedLogFiles();
    log->remove(destination);
}
BENCHMARK(BM_Rotation);

#ifdef VELORA_BENCH_SPDLOG

constexpr const char* spdlogPattern = "%Y-%m-%d %H:%M:%S.%e [%l] [%s:%#] %! > %v";

/// Composes lines and lets them go.
class DiscardingSink : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
    void sink_it_(const spdlog::details::log_msg& message) override {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        benchmark::DoNotOptimize(line.data());
    }
    void flush_() override {}
};

std::shared_ptr<spdlog::logger> spdlogWith(spdlog::sink_ptr sink) {
    auto log = std::make_shared<spdlog::logger>("bench", std::move(sink));
    log->set_pattern(spdlogPattern);
    return log;
}

void BM_SpdlogDisabledCall(benchmark::State& state) {
    const auto log = spdlogWith(std::make_shared<DiscardingSink>());
    log->set_level(spdlog::level::err);
    int number = 0;
    for (auto iteration : state) {
        log->log(spdlog::source_loc{__FILE__, __LINE__, static_cast<const char*>(__func__)}, spdlog::level::debug,
                 "message number {} of this run", ++number);
    }
}
BENCHMARK(BM_SpdlogDisabledCall);

void BM_SpdlogComposedLine(benchmark::State& state) {
    const auto log = spdlogWith(std::make_shared<DiscardingSink>());
    int number = 0;
    for (auto iteration : state) {
        log->log(spdlog::source_loc{__FILE__, __LINE__, static_cast<const char*>(__func__)}, spdlog::level::info,
                 "message number {} of this run", ++number);
    }
}
BENCHMARK(BM_SpdlogComposedLine);

void BM_SpdlogFileLine(benchmark::State& state) {
    const auto log =
        spdlogWith(std::make_shared<spdlog::sinks::basic_file_sink_mt>((folder() / "spdlog.log").string(), true));
    log->flush_on(spdlog::level::trace);
    int number = 0;
    for (auto iteration : state) {
        log->log(spdlog::source_loc{__FILE__, __LINE__, static_cast<const char*>(__func__)}, spdlog::level::info,
                 "message number {} of this run", ++number);
    }
}
BENCHMARK(BM_SpdlogFileLine);

void BM_SpdlogRotatingFileLine(benchmark::State& state) {
    const auto log = spdlogWith(std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
        (folder() / "spdlog-rotating.log").string(), std::size_t{1} << 40U, 10));
    log->flush_on(spdlog::level::trace);
    int number = 0;
    for (auto iteration : state) {
        log->log(spdlog::source_loc{__FILE__, __LINE__, static_cast<const char*>(__func__)}, spdlog::level::info,
                 "message number {} of this run", ++number);
    }
}
BENCHMARK(BM_SpdlogRotatingFileLine);

std::shared_ptr<spdlog::async_logger> spdlogAsync(const std::shared_ptr<spdlog::details::thread_pool>& pool,
                                                  const char* name) {
    auto log = std::make_shared<spdlog::async_logger>(
        "bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>((folder() / name).string(), true), pool,
        spdlog::async_overflow_policy::block);
    log->set_pattern(spdlogPattern);
    return log;
}

void BM_SpdlogQueuedMillionLines(benchmark::State& state) {
    for (auto iteration : state) {
        auto pool = std::make_shared<spdlog::details::thread_pool>(65'536, 1);
        auto log = spdlogAsync(pool, "spdlog-queued.log");
        const auto begin = std::chrono::steady_clock::now();
        for (int number = 0; number < queuedLines; ++number) {
            log->log(spdlog::source_loc{__FILE__, __LINE__, static_cast<const char*>(__func__)}, spdlog::level::info,
                     "message number {} of this run", number);
        }
        log->flush();
        log.reset();
        pool.reset();  // runs what is waiting, then ends its thread
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count());
    }
    state.SetItemsProcessed(state.iterations() * queuedLines);
}
BENCHMARK(BM_SpdlogQueuedMillionLines)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_SpdlogQueuedCallerShare(benchmark::State& state) {
    auto pool = std::make_shared<spdlog::details::thread_pool>(65'536, 1);
    auto log = spdlogAsync(pool, "spdlog-share.log");
    measureBursts(state, [&](int number) {
        log->log(spdlog::source_loc{__FILE__, __LINE__, static_cast<const char*>(__func__)}, spdlog::level::info,
                 "message number {} of this run", number);
    });
}
BENCHMARK(BM_SpdlogQueuedCallerShare)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_SpdlogRotation(benchmark::State& state) {
    // A file of at most one byte makes every line rotate.
    const auto log = spdlogWith(
        std::make_shared<spdlog::sinks::rotating_file_sink_mt>((folder() / "spdlog-rotate.log").string(), 1, 10));
    for (auto iteration : state) {
        log->log(spdlog::source_loc{__FILE__, __LINE__, static_cast<const char*>(__func__)}, spdlog::level::info,
                 "one line");
    }
}
BENCHMARK(BM_SpdlogRotation);

#endif

}  // namespace
