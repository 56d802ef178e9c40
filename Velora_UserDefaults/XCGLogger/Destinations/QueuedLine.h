#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseQueuedDestination.h>
#include <Velora_UserDefaults/XCGLogger/LogDetails.h>

namespace velora {

/// One composed line on its way through a queue. Internal.
///
/// Its record goes with it only where a filter or formatter may ask for it; else a line of usual length is copied. A
/// line of a destination that is in a logger's list relies on that to keep the destination alive
/// (`BaseQueuedDestination::outliveQueuedLines`); any other one does so itself.
///
/// Lines are taken from a pool and go back to it with the memory of their texts, so that in a steady
/// stream handing over a line allocates nothing.
class QueuedLine final : public DispatchQueue::Task {
public:
    /// Hands the line to the destination's queue. May give other texts' memory for it, whatever is in that. Called
    /// by the logging thread.
    static void submit(DispatchQueue& queue, BaseQueuedDestination& destination, LogDetails& logDetails,
                       std::string& message);

    void run() noexcept override;

    /// Keeps the lines of the calling thread, from `begin` on, instead of handing them over; the thread does so,
    /// in their order, when it has called `end` as often.
    ///
    /// For a thread that holds a file. Handing over may wait for room in the queue, and the queue may be waiting
    /// for that file.
    class Deferral {
    public:
        static void begin() noexcept { ++depth_; }
        static void end() noexcept {
            if (--depth_ == 0 && first_ != nullptr) {
                handOver();
            }
        }
        /// Whether the thread is between the two.
        static bool isActive() noexcept { return depth_ > 0; }

    private:
        friend class QueuedLine;
        static void keep(QueuedLine& line) noexcept;
        static void handOver() noexcept;

        __attribute__((tls_model("initial-exec"))) static thread_local constinit int depth_;
        __attribute__((tls_model("initial-exec"))) static thread_local constinit QueuedLine* first_;
        __attribute__((tls_model("initial-exec"))) static thread_local constinit QueuedLine* last_;
    };

private:
    friend class QueuedLinePool;

    void takeOver(BaseQueuedDestination& destination, LogDetails& logDetails, std::string& message);
    void output() noexcept;
    bool isTooLargeToKeep() const noexcept;

    // What the logging thread changes and the queue's thread reads of most lines is together, and is not read by the
    // logging thread: a value that another processor has just changed is slow to read, but not to overwrite.
    BaseQueuedDestination* destination_ = nullptr;
    QueuedLine* next_ = nullptr;
    /// Empty for a destination that its logger keeps alive.
    std::shared_ptr<BaseDestination> keptAlive_;
    Level level_{};
    bool hasRecord_ = false;
    /// Whether the text is in `text_`, of which it has so many bytes then, or in `message_`.
    bool isShort_ = false;
    std::uint16_t size_ = 0;
    std::array<char, 192> text_;

    std::string message_;
    /// Made with the first line that needs one, and kept for the next.
    std::unique_ptr<LogDetails> record_;
};

}  // namespace velora
