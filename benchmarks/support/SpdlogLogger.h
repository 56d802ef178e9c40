#pragma once

#include <cstdio>
#include <memory>
#include <mutex>
#include <spdlog/async.h>
#include <spdlog/sinks/base_sink.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <string>
#include <string_view>
#include <utility>

#include "support/Line.h"

/// spdlog, set up to do what our logger does: the same columns in the same order.
namespace velora::bench {

inline constexpr const char* spdlogPattern = "%Y-%m-%d %H:%M:%S.%e [%l] [%s:%#] %! > %v";

/// The place of the call as spdlog's macros pass it; unlike those, calls below a level stay in the program.
#define VELORA_SPDLOG_PLACE                                    \
    spdlog::source_loc {                                       \
        __FILE__, __LINE__, static_cast<const char*>(__func__) \
    }

/// Composes lines and lets them go; takes no lock.
class DiscardingSink : public spdlog::sinks::base_sink<spdlog::details::null_mutex> {
    void sink_it_(const spdlog::details::log_msg& message) override {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        Discarded::take({line.data(), line.size()});
    }
    void flush_() override {}
};

/// A logger of spdlog with one sink, without the registry.
class SpdlogLogger {
public:
    explicit SpdlogLogger(spdlog::sink_ptr sink)
        : SpdlogLogger(std::make_shared<spdlog::logger>("bench", std::move(sink))) {}
    explicit SpdlogLogger(std::shared_ptr<spdlog::logger> log) : log_(std::move(log)) {
        log_->set_pattern(spdlogPattern);
    }

    spdlog::logger* operator->() const { return log_.get(); }

    void logLine(int number) const {
        log_->log(VELORA_SPDLOG_PLACE, spdlog::level::info, "message number {} of this run", number);
    }

private:
    std::shared_ptr<spdlog::logger> log_;
};

inline spdlog::sink_ptr spdlogFile(const std::string& path) {
    return std::make_shared<spdlog::sinks::basic_file_sink_mt>(path, /*truncate=*/true);
}

/// A logger that hands its lines to a thread of its own and waits while its queue is full; the queue has as many
/// places as ours. When the object goes, every line is in the kernel.
class SpdlogAsync {
public:
    explicit SpdlogAsync(const std::string& path)
        : pool_(std::make_shared<spdlog::details::thread_pool>(8'192, 1)),
          log_(std::make_shared<spdlog::async_logger>("bench", spdlogFile(path), pool_,
                                                      spdlog::async_overflow_policy::block)) {
        log_->set_pattern(spdlogPattern);
    }
    SpdlogAsync(const SpdlogAsync&) = delete;
    SpdlogAsync& operator=(const SpdlogAsync&) = delete;
    ~SpdlogAsync() { drain(); }

    void logLine(int number) const {
        log_->log(VELORA_SPDLOG_PLACE, spdlog::level::info, "message number {} of this run", number);
    }

    /// Ends the queue: flush() alone only asks for flushing, the end of the pool waits for it.
    void drain() {
        if (pool_ != nullptr) {
            log_->flush();
            log_.reset();
            pool_.reset();
        }
    }

private:
    std::shared_ptr<spdlog::details::thread_pool> pool_;
    std::shared_ptr<spdlog::async_logger> log_;
};

}  // namespace velora::bench
