#pragma once

#include <atomic>
#include <concepts>
#include <cstddef>
#include <cstdint>
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

class DispatchQueueCore;

/// A labelled serial queue: work handed to it runs later, one piece at a time, in the order in which it
/// was handed over, on the one thread of the queue. The thread starts with the first piece of work.
///
/// ```cpp
/// auto queue = DispatchQueue::make("com.example.saving");
/// queue->async([text = std::move(text)] { save(text); });
/// queue->drain();
/// ```
///
/// **Threads.** Every operation may be called from any thread at any time, also from work that runs on a
/// queue. The caller holds a reference to the queue for as long as the call lasts. Two pieces of work
/// handed over by one thread, or by two threads of which the second knows that the first one's `async`
/// has returned, run in that order.
///
/// **Cost.** `async` takes no lock and, as long as the queue is busy or fell idle only some
/// milliseconds ago, makes no system call. A queue that has just fallen idle looks for new work every
/// 100 µs; only after 8 ms without any does its thread sleep until it is woken. `sync` and `drain` always
/// wake it at once.
///
/// **Batches.** Work runs in batches. A batch ends before the thread goes idle, before a `sync` or
/// `drain` returns and after `maximumBatch` pieces of work. Work can ask to be told: `atEndOfBatch`.
///
/// **Overload.** A queue holds at most as many pieces of waiting work as its capacity says. A thread that
/// finds it full waits in `async` until there is room: nothing is ever dropped. Work that runs on a queue
/// (this one or another) never waits for room, it goes over the capacity instead; so queues that feed each
/// other cannot block each other.
///
/// **End of a queue.** When the last reference goes, the destructor waits until all work handed over has
/// run and the thread has ended. If the last reference goes on the queue's own thread, the destructor
/// returns at once, and the thread runs what is left before it ends.
///
/// **End of the process.** On `exit()` or return from `main` the work of every queue is run to its end and
/// the threads are stopped; that happens before the destruction of every static object that was made
/// before the first queue was first used. From then on `async` runs work in place, on the calling thread
/// and under a lock of the queue, so that work handed over by destructors of static objects is not lost.
/// Threads that still hand over work while the process exits do not crash; each queue takes at most as much as
/// it has room for before it is finished, and what comes later may find the process ended before it has run. Work that
/// never ends keeps the process from exiting. `_exit`, `quick_exit` and signals run nothing.
///
/// **Fork.** In a forked child an inherited queue is empty, and starts a thread of its own with its next
/// use. Work that the parent had waiting is the parent's alone: the child neither runs nor destroys it.
/// A batch that was open in the parent does not end in the child: its `BatchEnd`s are dropped there and can
/// be registered anew. A child forked by work of a queue goes on running that work, and if the work returns,
/// its thread goes on as the thread of that queue.
class VELORA_EXPORT DispatchQueue {
public:
    /// A piece of work whose memory belongs to its submitter: handing it over allocates nothing.
    /// Make a class of it that carries what the work needs.
    class VELORA_EXPORT Task {
    public:
        Task(const Task&) = delete;
        Task& operator=(const Task&) = delete;
        virtual ~Task() = default;

        /// The work. The queue does not touch the task once this was called, so `run` may hand the task over
        /// again, give it to a pool or delete it.
        virtual void run() noexcept = 0;

    protected:
        Task() = default;

    private:
        friend class DispatchQueueCore;
        std::atomic<Task*> next_ = nullptr;
    };

    /// Something to do once at the end of the running batch, such as writing with one call what the
    /// batch has gathered. Registering one allocates nothing: derive from it, and keep the object alive
    /// until the batch has ended.
    ///
    /// To be registered with one queue at a time. Destroying a registered one is allowed on the thread
    /// that runs that queue's work, and takes it out of the batch without calling it; destroying one
    /// elsewhere needs a `drain` first.
    class VELORA_EXPORT BatchEnd {
    public:
        BatchEnd(const BatchEnd&) = delete;
        BatchEnd& operator=(const BatchEnd&) = delete;
        virtual ~BatchEnd();

        /// Called once, on the thread that runs the queue's work, when the batch has ended. May delete this
        /// object. If it registers itself again, it is called again right after.
        virtual void batchEnded() noexcept = 0;

    protected:
        BatchEnd() = default;

    private:
        friend class DispatchQueueCore;
        DispatchQueueCore* queue_ = nullptr;
        BatchEnd* next_ = nullptr;
        std::uint64_t forkGeneration_ = 0;
    };

    /// How many pieces of work may wait in a queue that was made without saying.
    static constexpr std::size_t defaultCapacity = 8'192;

    /// A batch ends after this many pieces of work, even if more are waiting.
    static constexpr std::size_t maximumBatch = 512;

    /// A queue named `label`, of which the first 15 bytes also name its thread. `capacity` is how many pieces
    /// of work may wait before `async` does (at least 1).
    [[nodiscard]] static std::shared_ptr<DispatchQueue> make(std::string label, std::size_t capacity = defaultCapacity);

    DispatchQueue(const DispatchQueue&) = delete;
    DispatchQueue& operator=(const DispatchQueue&) = delete;

    /// Waits for all work handed over, then for the thread; see "End of a queue" above.
    ~DispatchQueue();

    /// The name that the queue was made with.
    [[nodiscard]] const std::string& label() const noexcept;

    /// Hands over `task`, which runs once on the queue's thread after everything handed over before. The task
    /// must stay alive, and must not be handed over again, until its `run` was called. Waits while the queue
    /// is full, unless called by work that runs on a queue.
    ///
    /// If the system refuses to start a thread, the queue runs its work in place, on the calling threads.
    void async(Task& task) noexcept;

    /// Hands over any callable that takes nothing, which may be move-only; as the other form otherwise, but
    /// allocates. An exception that escapes from `work` is reported as one line on standard output, and
    /// the queue goes on.
    template <typename Work>
    void async(Work&& work) requires(std::invocable<std::decay_t<Work>&> &&
                                     !std::derived_from<std::remove_cvref_t<Work>, Task>) {
        async(*new Closure<std::decay_t<Work>>(std::in_place, std::forward<Work>(work)));
    }

    /// Runs `work` on the queue and waits until it is done; everything handed over before has run then, and
    /// the batch has ended. Work that already runs on this queue has `work` run in place, at once and inside
    /// the running batch. An exception that escapes from `work` is thrown to the caller.
    ///
    /// Two queues whose work waits for each other wait forever.
    template <std::invocable Work>
    void sync(Work&& work) {
        if (isCurrent()) {
            std::invoke(work);
            return;
        }
        auto call = [&work] { std::invoke(work); };
        runAndWait([](void* context) { (*static_cast<decltype(call)*>(context))(); }, &call);
    }

    /// Whether the calling thread is running work of this queue.
    [[nodiscard]] bool isCurrent() const noexcept;

    /// The label of the queue whose work the calling thread is running, valid as long as that work runs;
    /// nothing outside of any queue's work.
    [[nodiscard]] static std::optional<std::string_view> currentLabel() noexcept;

    /// Returns when all work handed over before has run and its batch has ended. Called by work that runs
    /// on this queue it returns at once, since it cannot wait for itself.
    void drain() noexcept;

    /// `drain` for every queue of the process.
    static void drainAll();

    /// Has `batchEnd` called when the batch ends of which the calling work is a part. Once: registering
    /// it again before it was called changes nothing. Outside of any queue's work it is called at once.
    static void atEndOfBatch(BatchEnd& batchEnd) noexcept;

private:
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

    DispatchQueue(std::string label, std::size_t capacity);
    static void reportException(const std::exception_ptr& exception) noexcept;
    void runAndWait(void (*work)(void*), void* context);

    std::shared_ptr<DispatchQueueCore> core_;
};

}  // namespace velora
