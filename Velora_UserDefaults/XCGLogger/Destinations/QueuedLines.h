#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/ForkHandlers.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseQueuedDestination.h>
#include <Velora_UserDefaults/XCGLogger/LogDetails.h>

namespace velora {

/// Bytes one behind the other, whose memory is kept when they are forgotten. Internal.
class ByteBuffer {
public:
    std::size_t size() const noexcept { return size_; }
    char* data() const noexcept { return bytes_.get(); }

    /// Adds `size` bytes with anything in them, and returns where they are until the next ones are added.
    char* extend(std::size_t size) {
        if (capacity_ - size_ < size) {
            grow(size);
        }
        size_ += size;
        return bytes_.get() + size_ - size;
    }

    /// Forgets the bytes, and gives back the memory of unusually many.
    void clear() noexcept;
    void swap(ByteBuffer& other) noexcept {
        bytes_.swap(other.bytes_);
        std::swap(size_, other.size_);
        std::swap(capacity_, other.capacity_);
    }

private:
    void grow(std::size_t size);

    std::unique_ptr<char[]> bytes_;
    std::size_t size_ = 0;
    std::size_t capacity_ = 0;
};

/// The lines that wait for a destination's queue, each with what makes its record: two buffers that change places.
/// Internal.
///
/// Logging threads append to one under a mutex; the task that this is takes it with all that is in it and writes its
/// lines one after the other, while the threads append to the other one.
class BaseQueuedDestination::QueuedLines final : public DispatchQueue::Task {
public:
    explicit QueuedLines(BaseQueuedDestination& destination) : destination_(destination) {}
    ~QueuedLines() override;

    /// Appends a line; `logDetails` is moved from. Blocks while there are `capacity` bytes, unless a task of a queue or
    /// a thread in the middle of a rotation calls it.
    void append(DispatchQueue& queue, LogDetails& logDetails, std::string_view message, std::size_t capacity);
    /// Has `finishBatch` called on the queue.
    void submit(DispatchQueue& queue) {
        if (!isQueued()) {
            queue.async(*this, destination_.shared_from_this());
        }
    }

    /// Whether the calling thread is running this task.
    bool isRunningHere() const noexcept { return current_ == this; }
    /// The file whose rotation logs on the calling thread, or logged the line that is being written; null for others.
    static const void*& rotatingFile() noexcept { return rotatingFile_; }

    void run() noexcept override;
    void resume() noexcept override { writeBatch(); }

private:
    struct Line;

    void add(LogDetails& logDetails, std::string_view message);
    void writeBatch() noexcept;
    void write(const Line& line);
    static void clear(ByteBuffer& lines, std::size_t from = 0) noexcept;
    void resetInChild() noexcept;

    __attribute__((tls_model("initial-exec"))) static thread_local constinit const QueuedLines* current_;
    __attribute__((tls_model("initial-exec"))) static thread_local constinit const void* rotatingFile_;

    BaseQueuedDestination& destination_;
    std::mutex mutex_;
    std::condition_variable room_;
    int blocked_ = 0;
    ByteBuffer waiting_;
    // Of the thread that runs the queue's tasks.
    ByteBuffer batch_;
    std::size_t position_ = 0;
    ForkHandler forkHandler_{{.beforeFork = [](void* self) { static_cast<QueuedLines*>(self)->mutex_.lock(); },
                              .inParent = [](void* self) { static_cast<QueuedLines*>(self)->mutex_.unlock(); },
                              .inChild = [](void* self) { static_cast<QueuedLines*>(self)->resetInChild(); }},
                             this};
};

}  // namespace velora
