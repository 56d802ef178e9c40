#pragma once

#include <memory>
#include <string>
#include <utility>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseQueuedDestination.h>
#include <Velora_UserDefaults/XCGLogger/LogDetails.h>

namespace velora {

/// One composed line on its way through a queue, with its record and its destination. Internal.
///
/// Lines are taken from a pool and go back to it with the memory of their texts, so that in a steady
/// stream handing over a line allocates nothing.
class QueuedLine final : public DispatchQueue::Task {
public:
    /// Hands the line to the destination's queue, and gives other texts' memory for it, whatever is in that. Called
    /// by the logging thread.
    static void submit(DispatchQueue& queue, std::shared_ptr<BaseDestination> destination, LogDetails& logDetails,
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

    std::shared_ptr<BaseDestination> destination_;
    LogDetails logDetails_;
    std::string message_;
    QueuedLine* next_ = nullptr;
};

}  // namespace velora
