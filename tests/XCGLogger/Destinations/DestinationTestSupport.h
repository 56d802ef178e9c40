#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseQueuedDestination.h>
#include <Velora_UserDefaults/XCGLogger/Filters/FilterProtocol.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/LogFormatterProtocol.h>

namespace velora::test {

/// 2024-01-02 03:04:05.678 UTC.
inline Date aDate() {
    return Date(std::chrono::seconds(1'704'164'645) + std::chrono::milliseconds(678));
}

/// A record of that date, from line 42 of Main.ext.
inline LogDetails aRecord(std::string message = "hello", Level level = Level::debug) {
    return {.level = level,
            .date = aDate(),
            .message = std::move(message),
            .functionName = "doWork()",
            .fileName = "/home/dev/app/Main.ext",
            .lineNumber = 42,
            .userInfo = {}};
}

/// A filter that does what a test wants.
class FunctionFilter : public FilterProtocol {
public:
    using Function = std::function<bool(LogDetails& logDetails, std::string& message)>;
    explicit FunctionFilter(Function function) : function_(std::move(function)) {}
    bool shouldExclude(LogDetails& logDetails, std::string& message) override { return function_(logDetails, message); }
    std::string debugDescription() const override { return "FunctionFilter"; }

private:
    Function function_;
};

/// A formatter that does what a test wants. What it returns is not what it made of the message, since only that
/// counts.
class FunctionFormatter : public LogFormatterProtocol {
public:
    using Function = std::function<void(LogDetails& logDetails, std::string& message)>;
    explicit FunctionFormatter(Function function) : function_(std::move(function)) {}
    const std::string& format(LogDetails& logDetails, std::string& message) override {
        function_(logDetails, message);
        return returned_;
    }
    std::string debugDescription() const override { return "FunctionFormatter"; }

private:
    Function function_;
    std::string returned_ = "what is returned is not used";
};

inline std::shared_ptr<FilterProtocol> filter(FunctionFilter::Function function) {
    return std::make_shared<FunctionFilter>(std::move(function));
}

inline std::shared_ptr<LogFormatterProtocol> formatter(FunctionFormatter::Function function) {
    return std::make_shared<FunctionFormatter>(std::move(function));
}

/// Lists of one.
inline std::vector<std::shared_ptr<FilterProtocol>> filters(FunctionFilter::Function function) {
    return {filter(std::move(function))};
}
inline std::vector<std::shared_ptr<LogFormatterProtocol>> formatters(FunctionFormatter::Function function) {
    return {formatter(std::move(function))};
}

/// A formatter that appends `text` to the line.
inline std::shared_ptr<LogFormatterProtocol> appending(const std::string& text) {
    return formatter([text](LogDetails& /*logDetails*/, std::string& message) { message += text; });
}

/// Keeps the lines that it is given to write.
class WritingDestination : public BaseQueuedDestination {
public:
    using BaseQueuedDestination::BaseQueuedDestination;

    void write(std::string_view message) override {
        const std::scoped_lock guard(lock_);
        lines_.emplace_back(message);
        writer_ = std::this_thread::get_id();
    }
    std::vector<std::string> lines() const {
        const std::scoped_lock guard(lock_);
        return lines_;
    }
    /// The thread that wrote last.
    std::thread::id writer() const {
        const std::scoped_lock guard(lock_);
        return writer_;
    }

private:
    mutable std::mutex lock_;
    std::vector<std::string> lines_;
    std::thread::id writer_;
};

/// Keeps the work of a queue waiting until it is opened, at the latest when it goes.
class Gate {
public:
    explicit Gate(DispatchQueue& queue) {
        queue.async([opened = opened_.get_future().share()] { opened.wait(); });
    }
    Gate(const Gate&) = delete;
    Gate& operator=(const Gate&) = delete;
    ~Gate() { open(); }
    void open() {
        if (!std::exchange(isOpen_, true)) {
            opened_.set_value();
        }
    }

private:
    std::promise<void> opened_;
    bool isOpen_ = false;
};

/// The lines of `text`, without their line feeds; what follows the last line feed counts as one more.
inline std::vector<std::string> splitLines(std::string_view text) {
    std::vector<std::string> lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        lines.emplace_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return lines;
}

}  // namespace velora::test
