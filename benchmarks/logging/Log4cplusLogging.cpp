// log4cplus in the rows that are compared.

#include <benchmark/benchmark.h>
#include <log4cplus/appender.h>
#include <log4cplus/fileappender.h>
#include <log4cplus/helpers/property.h>
#include <log4cplus/initializer.h>
#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>
#include <memory>
#include <string>

#include "support/Measuring.h"

namespace velora::bench {

namespace {

/// Composes lines and lets them go.
class DiscardingAppender : public log4cplus::Appender {
public:
    DiscardingAppender() = default;
    DiscardingAppender(const DiscardingAppender&) = delete;
    DiscardingAppender& operator=(const DiscardingAppender&) = delete;
    ~DiscardingAppender() override { destructorImpl(); }
    void close() override { closed = true; }

protected:
    void append(const log4cplus::spi::InternalLoggingEvent& event) override { Discarded::take(formatEvent(event)); }
};

log4cplus::SharedAppenderPtr fileAppender(const std::string& path, bool flushesEachLine) {
    log4cplus::helpers::Properties properties;
    properties.setProperty("File", path);
    properties.setProperty("ImmediateFlush", flushesEachLine ? "true" : "false");
    if (!flushesEachLine) {
        properties.setProperty("BufferSize", "65536");  // as large as ours
    }
    return log4cplus::SharedAppenderPtr(new log4cplus::FileAppender(properties));
}

class Log4cplusLogger {
public:
    explicit Log4cplusLogger(log4cplus::SharedAppenderPtr appender)
        : log_(log4cplus::Logger::getInstance("bench")), appender_(std::move(appender)) {
        // %b and %M: the file's name and the function as the compiler names it.
        appender_->setLayout(
            std::make_unique<log4cplus::PatternLayout>("%D{%Y-%m-%d %H:%M:%S.%q} [%p] [%b:%L] %M > %m%n"));
        log_.setAdditivity(false);
        log_.addAppender(appender_);
        log_.setLogLevel(log4cplus::INFO_LOG_LEVEL);
    }
    Log4cplusLogger(const Log4cplusLogger&) = delete;
    Log4cplusLogger& operator=(const Log4cplusLogger&) = delete;
    ~Log4cplusLogger() {
        appender_->close();
        log_.removeAllAppenders();
    }

    void logLine(int number) const { LOG4CPLUS_INFO(log_, "message number " << number << " of this run"); }
    void logBelowLevel(int number) const { LOG4CPLUS_DEBUG(log_, "message number " << number << " of this run"); }
    void setLevel(log4cplus::LogLevel level) { log_.setLogLevel(level); }

private:
    static inline const log4cplus::Initializer initializer_;
    log4cplus::Logger log_;
    log4cplus::SharedAppenderPtr appender_;
};

void belowLevel(benchmark::State& state) {
    Log4cplusLogger log(log4cplus::SharedAppenderPtr(new DiscardingAppender));
    log.setLevel(log4cplus::ERROR_LOG_LEVEL);
    measureCalls(state, [&](int number) { log.logBelowLevel(number); });
}
BENCHMARK(belowLevel)->Name("below-level/log4cplus");

void composed(benchmark::State& state) {
    const Log4cplusLogger log(log4cplus::SharedAppenderPtr(new DiscardingAppender));
    measureDiscarded(state, [&](int number) { log.logLine(number); });
}
BENCHMARK(composed)->Name("composed/log4cplus");

void measureFile(benchmark::State& state, bool flushesEachLine) {
    const LogFile file("log4cplus.log");
    {
        const Log4cplusLogger log(fileAppender(file.path(), flushesEachLine));
        measureCalls(state, [&](int number) { log.logLine(number); });
    }
    file.check(state, state.iterations());
}

void fileInKernel(benchmark::State& state) {
    measureFile(state, true);
}
BENCHMARK(fileInKernel)->Name("file-kernel/log4cplus")->Apply(fileLines);

void fileBuffered(benchmark::State& state) {
    measureFile(state, false);
}
BENCHMARK(fileBuffered)->Name("file-buffered/log4cplus")->Apply(fileLines);

}  // namespace

}  // namespace velora::bench
