// glog in the rows that are compared. It has no column for the function, which is therefore put into the message; its
// date has microseconds, and its thread column cannot be turned off. To be run with GLOG_drop_log_memory=0 in the
// environment: the others do not spend time on giving the page cache's memory back either.

#include <benchmark/benchmark.h>
#include <cstddef>
#include <ctime>
#include <glog/logging.h>
#include <memory>
#include <string>
#include <string_view>

#include "support/Measuring.h"

namespace velora::bench {

namespace {

/// Takes the place of glog's file: lets lines go.
class DiscardingLogger : public google::base::Logger {
public:
    // The parameters' types are glog's.
    void Write(bool /*force_flush*/, std::time_t /*timestamp*/, const char* message, std::size_t size) override {
        Discarded::take({message, size});
    }
    void Flush() override {}
    google::uint32 LogSize() override { return 0; }
};

void initializeOnce() {
    [[maybe_unused]] static const bool initialized = [] {
        google::InitGoogleLogging("bench");
        FLAGS_stderrthreshold = google::GLOG_FATAL;
        FLAGS_timestamp_in_logfile_name = false;
        return true;
    }();
}

void logLine(int number) {
    LOG(INFO) << __func__ << " > message number " << number << " of this run";
}
void logBelowLevel(int number) {
    VLOG(1) << __func__ << " > message number " << number << " of this run";
}

void belowLevel(benchmark::State& state) {
    initializeOnce();
    measureCalls(state, logBelowLevel);
}
BENCHMARK(belowLevel)->Name("below-level/glog");

void composed(benchmark::State& state) {
    initializeOnce();
    google::base::Logger* const fileLogger = google::base::GetLogger(google::GLOG_INFO);
    auto discarding = std::make_unique<DiscardingLogger>();
    google::base::SetLogger(google::GLOG_INFO, discarding.release());
    measureDiscarded(state, logLine);  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): glog owns it
    google::base::SetLogger(google::GLOG_INFO, fileLogger);  // deletes ours
}
BENCHMARK(composed)->Name("composed/glog");

/// Lines above `bufferedLevel` are flushed; -1 flushes information, 0 keeps it in the C library's buffer.
void measureFile(benchmark::State& state, int bufferedLevel) {
    initializeOnce();
    FLAGS_logbuflevel = bufferedLevel;
    const LogFile file("glog.log");
    google::SetLogDestination(google::GLOG_INFO, file.path().c_str());
    measureCalls(state, logLine);
    google::FlushLogFiles(google::GLOG_INFO);
    google::SetLogDestination(google::GLOG_INFO, "");
    file.check(state, state.iterations());
}

void fileInKernel(benchmark::State& state) {
    measureFile(state, -1);
}
BENCHMARK(fileInKernel)->Name("file-kernel/glog")->Apply(fileLines);

void fileBuffered(benchmark::State& state) {
    measureFile(state, 0);
}
BENCHMARK(fileBuffered)->Name("file-buffered/glog")->Apply(fileLines);

}  // namespace

}  // namespace velora::bench
