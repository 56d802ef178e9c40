#pragma once

#include <atomic>
#include <concepts>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include <Velora_UserDefaults/Platform/Export.h>

namespace velora {

/// A labelled serial queue: tasks submitted to it run later, one at a time, in the order of submission, on
/// the one thread of the queue. The thread starts with the first task.
///
/// ```cpp
/// auto queue = DispatchQueue::make("com.example.saving");
/// queue->async([text = std::move(text)] { save(text); });
/// queue->drain();
/// ```
///
/// **Threads.** Thread-safe; every operation may also be called from a task that runs on a queue. The caller
/// holds a reference to the queue for as long as the call lasts.
///
/// **Cost.** `async` takes a mutex for the time of a list insertion. A queue that has just fallen idle looks for
/// new tasks every 100 µs; only after 8 ms without any does its thread sleep, and the next `async` wakes it by a
/// system call. `sync` and `drain` always wake it at once.
///
/// **Unbounded.** `async` never blocks while the process runs; whoever submits more than can be run bounds it,
/// as `BaseQueuedDestination` does for its lines.
///
/// **End of a queue.** When the last reference goes, the destructor waits until all tasks have run and the thread
/// has ended. If the last reference goes on the queue's own thread, the destructor returns at once, and the thread
/// runs what is left before it ends.
///
/// **End of the process.** On `exit()` or return from `main` the tasks of every queue are run and the threads are
/// stopped; that happens before the destruction of every static object that was made before the first queue was first
/// used. A thread that submits a task meanwhile blocks until that is done. From then on `async` runs tasks in place,
/// on the calling thread, one thread at a time, so that tasks of static destructors are not lost. A task
/// that never ends keeps the process from exiting. `_exit`, `quick_exit` and signals run nothing.
///
/// **Fork.** In a forked child an inherited queue is empty, and starts a thread of its own with its next
/// use. Tasks that were waiting are the parent's alone: the child neither runs nor destroys them. A child forked by a
/// task goes on running that task, and if the task returns, its thread goes on as the thread of that queue.
class VELORA_EXPORT DispatchQueue {
public:
    /// A task whose memory belongs to its submitter: submitting it allocates nothing.
    class VELORA_EXPORT Task {
    public:
        Task(const Task&) = delete;
        Task& operator=(const Task&) = delete;
        virtual ~Task() = default;

        /// The work. The queue does not touch the task once this was called, so `run` may submit the task again
        /// or delete it.
        virtual void run() noexcept = 0;

        /// Goes on with what `run` has left undone, because what it called exits the process and never returns.
        virtual void resume() noexcept {}

        /// Whether the task waits in a queue.
        [[nodiscard]] bool isQueued() const noexcept { return isQueued_.load(std::memory_order_acquire); }

    protected:
        Task() = default;

    private:
        friend class DispatchQueue;
        std::atomic<bool> isQueued_ = false;
        Task* next_ = nullptr;
        std::shared_ptr<const void> keptAlive_;
    };

    /// A queue named `label`, of which the first 15 bytes also name its thread.
    [[nodiscard]] static std::shared_ptr<DispatchQueue> make(std::string label);

    DispatchQueue(const DispatchQueue&) = delete;
    DispatchQueue& operator=(const DispatchQueue&) = delete;

    /// Waits for all tasks, then for the thread; see "End of a queue" above.
    ~DispatchQueue();

    /// The name that the queue was made with.
    [[nodiscard]] const std::string& label() const noexcept;

    /// Submits `task`, which runs once on the queue's thread after everything submitted before, unless it
    /// waits there already. It must stay alive until its `run` was called; `keptAlive`, if given, is held so
    /// long, and until `run` has returned.
    ///
    /// If the system refuses to start a thread, the queue runs its tasks in place, on the calling threads.
    void async(Task& task, std::shared_ptr<const void> keptAlive = nullptr) noexcept;

    /// Submits any callable that takes nothing, which may be move-only; as the other form otherwise, but
    /// allocates. An exception that escapes from `work` is reported as one line on standard output, and
    /// the queue goes on.
    template <typename Work>
    void async(Work&& work) requires(std::invocable<std::decay_t<Work>&> &&
                                     !std::derived_from<std::remove_cvref_t<Work>, Task>) {
        async(*new Closure<std::decay_t<Work>>(std::in_place, std::forward<Work>(work)));
    }

    /// Runs `work` on the queue and waits until it is done; everything submitted before has run then. A task
    /// of this queue has `work` run in place, at once. An exception that escapes from `work` is thrown to the caller.
    ///
    /// Two queues whose tasks wait for each other wait forever.
    template <std::invocable Work>
    void sync(Work&& work) {
        if (isCurrent()) {
            std::invoke(work);
            return;
        }
        auto call = [&work] { std::invoke(work); };
        runAndWait([](void* context) { (*static_cast<decltype(call)*>(context))(); }, &call);
    }

    /// Whether the calling thread is running a task of this queue.
    [[nodiscard]] bool isCurrent() const noexcept;

    /// The label of the queue whose task the calling thread is running, valid as long as that runs;
    /// nothing outside of any queue's tasks.
    [[nodiscard]] static std::optional<std::string_view> currentLabel() noexcept;

    /// Returns when all tasks submitted before have run. Called by a task of this queue it returns at once, since that
    /// cannot wait for itself.
    void drain() noexcept;

    /// `drain` for every queue of the process.
    static void drainAll();

private:
    class Core;
    friend class QueueRegistry;

    template <typename Work>
    class Closure final : public Task {
    public:
        template <typename Argument>
        Closure(std::in_place_t /*tag*/, Argument&& work) : work_(std::forward<Argument>(work)) {}

        void run() noexcept override {
            const std::unique_ptr<Closure> self(this);
            try {
                std::invoke(work_);
            } catch (...) {
                reportException(std::current_exception());
            }
        }

    private:
        Work work_;
    };

    explicit DispatchQueue(std::string label);
    static void reportException(const std::exception_ptr& exception) noexcept;
    void runAndWait(void (*work)(void*), void* context);

    std::shared_ptr<Core> core_;
};

}  // namespace velora
