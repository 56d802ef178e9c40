#pragma once

#include <atomic>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseDestination.h>

namespace velora {

class DispatchQueue;

/// A destination whose lines are written either at once, on the logging thread, or later, on a queue of its
/// choosing. The base of all destinations that write something: derive from it and supply `write`.
///
///     class RingDestination : public velora::BaseQueuedDestination {
///     public:
///         using BaseQueuedDestination::BaseQueuedDestination;
///         void write(std::string_view message) override { ring_.push(std::string(message)); }
///     };
///     log->add(velora::make<RingDestination>(nullptr, "ring"));
///
/// Filters and formatters run where the write runs. Without a queue several threads may be in `write` at
/// once; with one, writes come one at a time and in the order of the log calls, and the logging thread waits
/// only if the queue is full. The line is composed before the hand-over, so its thread column names the
/// logging thread. One that was logged before there was any filter or formatter is written as it is.
class VELORA_EXPORT BaseQueuedDestination : public BaseDestination {
public:
    /// Made by `make<…>(owner, identifier)`; `owner` is usually null, and set by `XCGLogger::add`.
    BaseQueuedDestination(Making key, std::shared_ptr<XCGLogger> owner, std::string identifier);
    ~BaseQueuedDestination() override;

    /// The queue that lines are written on; null, as at first, for the logging thread. Set before logging.
    virtual const std::shared_ptr<DispatchQueue>& logQueue() const { return logQueue_; }
    virtual void setLogQueue(std::shared_ptr<DispatchQueue> queue);

    /// As the base's. A destination that leaves its owner first waits for the lines it has on its queue, so that
    /// they are still filtered, formatted and written as the owner has it; work on that queue does not wait.
    void setOwner(std::shared_ptr<XCGLogger> owner) override;

    /// Asks the filters, runs the formatters and writes the line: here and now, or on the queue. The destination
    /// lives until it has done so, whoever lets go of it meanwhile.
    void output(LogDetails& logDetails, std::string& message) override;

    /// Notes which operations `Class` overrides. Called by `make`.
    template <typename Class>
    void learnClass(Making key) noexcept {
        using Base = BaseQueuedDestination;
        BaseDestination::learnClass<Class>(key);
        inheritsProcessing_ = requires {
            requires std::same_as<decltype(&Class::shouldExclude), decltype(&Base::shouldExclude)>;
            requires std::same_as<decltype(&Class::applyFormatters), decltype(&Base::applyFormatters)>;
            requires std::same_as<decltype(&Class::filters), decltype(&Base::filters)>;
            requires std::same_as<decltype(&Class::formatters), decltype(&Base::formatters)>;
            requires std::same_as<decltype(&Class::owner), decltype(&Base::owner)>;
        };
        inheritsQueue_ = requires {
            requires std::same_as<decltype(&Class::logQueue), decltype(&Base::logQueue)>;
            requires std::same_as<decltype(&Class::setLogQueue), decltype(&Base::setLogQueue)>;
        };
    }

    /// Writes one finished line, which has no line feed at its end. Here it does nothing. An exception
    /// that escapes from it is printed to standard output and goes no further.
    virtual void write(std::string_view message);

protected:
    /// Called after each `write` with the level of the line: for what a line of some importance needs beyond
    /// being written. Here it does nothing.
    virtual void finishWriting(Level level);

    /// Filters, formats and writes one line on the calling thread.
    void outputNow(LogDetails& logDetails, std::string& message);

    /// Waits until the lines handed to the queue so far are written. Returns at once without a queue, and for
    /// work that runs on it.
    void waitForQueue() const;

private:
    friend class QueuedLine;
    friend class XCGLogger;

    bool mayFilterOrFormat() const;
    void writeNow(Level level, std::string_view message);

    /// Whether the lines on the queue need not keep this destination alive: it is in the list of a logger, which
    /// sees to it when that ends.
    bool isKeptByLogger() const noexcept { return observer_ != nullptr && inheritsQueue_; }
    void noteHandedOver() noexcept { handedOver_.fetch_add(1, std::memory_order_relaxed); }
    void noteFinished() noexcept {
        finished_.store(finished_.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }
    void outliveQueuedLines();

    // The counters are apart from everything else that the logging threads or the queue's thread change or read.
    static constexpr std::size_t cacheLine = 64;
    /// How many lines that rely on a logger to keep this destination alive went to the queue, ...
    alignas(cacheLine) std::atomic<std::uint64_t> handedOver_ = 0;
    /// ... and how many of them it is done with.
    alignas(cacheLine) std::atomic<std::uint64_t> finished_ = 0;

    alignas(cacheLine) std::shared_ptr<DispatchQueue> logQueue_;
    bool inheritsProcessing_ = false;
    bool inheritsQueue_ = false;
};

}  // namespace velora
