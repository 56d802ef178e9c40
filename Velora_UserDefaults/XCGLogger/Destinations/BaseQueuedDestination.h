#pragma once

#include <concepts>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

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
/// Filters and formatters run where the write runs, and are looked up when it runs. Without a queue several threads may
/// be in `write` at once; with one, writes come one at a time and in the order of the log calls, and the logging thread
/// blocks only if too many bytes are pending. The line is composed before it is submitted, so its thread column names
/// the logging thread.
class VELORA_EXPORT BaseQueuedDestination : public BaseDestination {
public:
    /// Made by `make<…>(owner, identifier)`; `owner` is usually null, and set by `XCGLogger::add`.
    BaseQueuedDestination(Making key, std::shared_ptr<XCGLogger> owner, std::string identifier);
    ~BaseQueuedDestination() override;

    /// The queue that lines are written on; null, as at first, for the logging thread. Set before logging.
    virtual const std::shared_ptr<DispatchQueue>& logQueue() const { return logQueue_; }
    virtual void setLogQueue(std::shared_ptr<DispatchQueue> queue);

    /// How many bytes may be pending on the queue: a thread that logs more blocks until the queue has taken them.
    /// Nothing is dropped. Counts some 100 bytes for each line beside its text; 1,048,576 at first. Tasks of queues,
    /// and a thread that reports a rotation, never block. Set before logging.
    std::size_t maxPendingBytes() const noexcept { return maxPendingBytes_; }
    void setMaxPendingBytes(std::size_t bytes) noexcept { maxPendingBytes_ = bytes; }

    /// As the base's. A destination that leaves its owner first waits for the lines it has on its queue, so that
    /// they are still filtered, formatted and written as the owner has it; tasks of that queue do not wait.
    void setOwner(std::shared_ptr<XCGLogger> owner) override;

    /// Asks the filters, runs the formatters and writes the line: here and now, or on the queue. The destination
    /// lives until it has done so, whoever releases it meanwhile.
    void output(LogDetails& logDetails, std::string& message) override;

    /// Notes whether `Class` overrides an operation that every line would have to ask. Called by `make`.
    template <typename Class>
    void learnClass(Making key) noexcept {
        using Base = BaseQueuedDestination;
        BaseDestination::learnClass<Class>(key);
        const bool inheritsProcessing = requires {
            requires std::same_as<decltype(&Class::shouldExclude), decltype(&Base::shouldExclude)>;
            requires std::same_as<decltype(&Class::applyFormatters), decltype(&Base::applyFormatters)>;
            requires std::same_as<decltype(&Class::formatters), decltype(&Base::formatters)>;
            requires std::same_as<decltype(&Class::filters), decltype(&Base::filters)>;
        };
        overridesNothing_ = overridesNothing_ && inheritsProcessing;
    }

    /// Writes one finished line, which has no line feed at its end. Here it does nothing. An exception
    /// that escapes from it is printed to standard output and goes no further.
    virtual void write(std::string_view message);

protected:
    /// Called after each `write` with the level of the line: for what a line of some importance needs beyond
    /// being written. Here it does nothing.
    virtual void finishWriting(Level level);
    /// Called on the queue after the lines that were pending together: for writing at once what `write` has gathered.
    /// Here it does nothing.
    virtual void finishBatch();

    /// Whether the calling thread is writing the lines of this destination's queue, and so will call `finishBatch`.
    bool isInBatch() const noexcept;
    /// Has `finishBatch` called on the queue, if there is one; returns whether there is.
    bool submitBatch();

    /// Filters, formats and writes one line on the calling thread.
    void outputNow(LogDetails& logDetails, std::string& message);

    /// Waits until the lines submitted to the queue so far are written. Returns at once without a queue, and for
    /// tasks that run on it.
    void waitForQueue() const;

    class QueuedLines;

private:
    bool mayFilterOrFormat() const;
    void writeNow(Level level, std::string_view message);

    std::shared_ptr<DispatchQueue> logQueue_;
    std::size_t maxPendingBytes_ = 1'048'576;
    std::unique_ptr<QueuedLines> lines_;
};

}  // namespace velora
