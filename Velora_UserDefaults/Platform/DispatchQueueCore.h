#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <pthread.h>
#include <string>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/DispatchQueueFutex.h>
#include <Velora_UserDefaults/Platform/ForkHandlers.h>

namespace velora {

/// What a DispatchQueue and its thread share. Internal.
///
/// Waiting tasks form a linked list. A submitter makes its task the new `tail_` with one atomic exchange and
/// then links the task before it to it, so submitters never wait for each other. The list starts
/// with one of two placeholders. Whoever runs the queue's work puts the other placeholder
/// at the end, which cuts everything before it off for itself: the chain, whose tasks need no further
/// synchronisation than waiting for a link that a submitter is just about to store.
///
/// The holder of `runnerLock_` runs the work: the queue's thread from its start to its end, and after that,
/// at the end of the process, whichever thread hands over work.
///
/// `state_` says what a submitter has to do after linking its task. The submitter stores to `tail_` and then reads
/// `state_`, the runner stores to `state_` and then reads `tail_`, all sequentially consistent: so
/// either the runner sees the task or the submitter sees the state.
class DispatchQueueCore : public std::enable_shared_from_this<DispatchQueueCore> {
public:
    using Task = DispatchQueue::Task;
    using BatchEnd = DispatchQueue::BatchEnd;

    DispatchQueueCore(std::string label, std::size_t capacity);
    DispatchQueueCore(const DispatchQueueCore&) = delete;
    DispatchQueueCore& operator=(const DispatchQueueCore&) = delete;

    const std::string& label() const noexcept { return label_; }

    /// The core whose work the calling thread is running, the innermost if there are several; else null.
    static DispatchQueueCore* current() noexcept;

    /// Whether the calling thread is running work of this queue.
    bool isCurrent() const noexcept;

    /// Whether work was ever handed over (in this process).
    bool isUsed() const noexcept { return state_.load() != notStarted; }

    /// Puts `task` at the end of the queue and sees to it that it will run.
    void submit(Task& task) noexcept;

    /// Has the thread look for work now instead of when it next would.
    void wakeUp() noexcept;

    /// Ends the running batch. Only for the thread that runs the queue's work; so are the next two.
    void endBatch() noexcept;
    void add(BatchEnd& batchEnd) noexcept;
    void remove(BatchEnd& batchEnd) noexcept;

    /// Whether `batchEnd` waits for the end of a batch in this process.
    static bool isRegistered(const BatchEnd& batchEnd) noexcept;

    /// Runs all work and stops the thread; later work runs in place. At the end of the process, or of the queue.
    void finish() noexcept;

    /// What is left to do when the last reference to the queue goes.
    void letGo() noexcept;

    /// Starts the thread, and returns whether that was possible. For the registry.
    bool createThread() noexcept;

private:
    // Those that make a submitter of ordinary work act come last, so that one comparison finds them.
    enum State : std::uint32_t { running, lingering, sleeping, notStarted, inPlace };

    class Placeholder final : public Task {
    public:
        void run() noexcept override {}
    };

    static void* threadMain(void* core);
    void runOnThread() noexcept;
    void waitForWork() noexcept;
    bool lingerForWork() noexcept;
    bool hasReasonToRun() const noexcept;

    bool isEmpty() const noexcept;
    bool takeChain() noexcept;
    void runChain() noexcept;
    void runEverything() noexcept;

    void actOnState() noexcept;
    void start() noexcept;
    void runInPlace() noexcept;
    void runInPlaceFromNowOn() noexcept;
    void runEverythingAndUnlock() noexcept;
    void finishOnOwnThread() noexcept;

    void waitForRoom(std::uint64_t ticket) noexcept;
    void makeRoom() noexcept;
    void wakeThoseWaitingForRoom() noexcept;

    static void resetInChild(void* context);
    void abandonWork() noexcept;
    void forgetThread() noexcept;

    // One cache line for what every submitter touches.
    alignas(64) std::atomic<Task*> tail_;
    std::atomic<std::uint64_t> submitted_ = 0;
    // How many submissions there may have been: what was completed, plus the capacity.
    std::atomic<std::uint64_t> limit_;
    FutexWord state_ = notStarted;

    // One for those who wait for room, which is rare.
    alignas(64) std::atomic<std::uint32_t> waitingForRoom_ = 0;
    FutexWord roomEpoch_ = 0;
    std::atomic<bool> stopping_ = false;

    // The rest belongs to the holder of runnerLock_.
    alignas(64) Placeholder placeholders_[2];
    std::atomic<Task*> front_;
    // The task that was started last; it may be gone.
    Task* running_ = nullptr;
    Task* cursor_ = nullptr;
    Task* last_ = nullptr;
    std::uint64_t completed_ = 0;
    std::uint64_t completedAtWake_ = 0;
    std::size_t inBatch_ = 0;
    BatchEnd* firstBatchEnd_ = nullptr;
    BatchEnd* lastBatchEnd_ = nullptr;
    FutexLock runnerLock_{true};
    // Which thread runs the work; only ever compared with the calling thread.
    std::atomic<const void*> runner_ = nullptr;

    std::string label_;
    std::size_t capacity_;
    pthread_t thread_ = {};
    std::atomic<bool> joinable_ = false;
    FutexEvent ended_;
    // Keeps the core while its thread runs.
    std::shared_ptr<DispatchQueueCore> self_;
    ForkChildHandler forkHandler_{resetInChild, this};
};

}  // namespace velora
