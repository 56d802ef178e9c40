#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <mutex>
#include <pthread.h>
#include <sys/prctl.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/ExceptionGuard.h>
#include <Velora_UserDefaults/Platform/ForkHandlers.h>
#include <Velora_UserDefaults/Platform/ThreadInfo.h>

namespace velora {

namespace {

/// Blocks every signal of the calling thread, and so of threads that it starts, but those that a fault of the
/// thread itself raises: blocked ones would keep a host's crash handler from running.
class SignalsBlocked {
public:
    SignalsBlocked() noexcept {
        sigset_t all;
        ::sigfillset(&all);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT}) {
            ::sigdelset(&all, fault);
        }
        ::pthread_sigmask(SIG_BLOCK, &all, &before_);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

private:
    sigset_t before_ = {};
};

}  // namespace

/// What a queue and its thread share. Its mutex guards all of it but `runner_`.
class DispatchQueue::Core : public std::enable_shared_from_this<Core> {
public:
    using Ticket = std::uint64_t;

    explicit Core(std::string name) : label(std::move(name)) {}
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    const std::string label;

    /// The core whose task the calling thread is running, the innermost if there are several; else null.
    static Core* current() noexcept { return current_; }
    bool isCurrent() const noexcept { return runner_.load(std::memory_order_relaxed) == thisThread(); }

    Ticket submit(Task& task, std::shared_ptr<const void> keptAlive, bool isAwaited) noexcept;
    void wait(Ticket ticket) noexcept;
    /// Waits for the tasks submitted before.
    void drain() noexcept;
    /// Runs all tasks and stops the thread; later tasks run in place.
    void finish() noexcept;
    /// What is left to do when the last reference to the queue goes.
    void letGo() noexcept;
    /// Starts the thread, and returns whether that was possible.
    bool createThread() noexcept;

private:
    using Lock = std::unique_lock<std::mutex>;
    enum class State { unused, running, lingering, sleeping, finishing, inPlace };

    static const void* thisThread() noexcept { return &current_; }
    static void* threadMain(void* core);
    void runOnThread() noexcept;
    void waitForTasks(Lock& lock) noexcept;
    void runTasks(Lock& lock) noexcept;
    void runInPlace(Lock& lock, Ticket ticket) noexcept;
    void runInPlaceFromNowOn(Lock& lock) noexcept;
    void start(Lock& lock) noexcept;
    void finishWithinTask(Lock& lock) noexcept;
    void resetInChild() noexcept;

    static constinit thread_local Core* current_;

    std::mutex mutex_;
    std::condition_variable submittedSome_;
    std::condition_variable completedSome_;
    Task* first_ = nullptr;
    Task* last_ = nullptr;
    Ticket submitted_ = 0;
    Ticket completed_ = 0;
    State state_ = State::unused;
    // The task that was started last; it may be gone.
    Task* running_ = nullptr;
    std::shared_ptr<const void> keptAlive_;
    // Which thread runs the tasks; only ever compared with the calling thread.
    std::atomic<const void*> runner_ = nullptr;
    pthread_t thread_ = {};
    bool isJoinable_ = false;
    // Keeps the core while its thread runs.
    std::shared_ptr<Core> self_;
    // A fork finds the mutex free, and takes it to the child.
    ForkHandler forkHandler_{{.beforeFork = [](void* core) { static_cast<Core*>(core)->mutex_.lock(); },
                              .inParent = [](void* core) { static_cast<Core*>(core)->mutex_.unlock(); },
                              .inChild = [](void* core) { static_cast<Core*>(core)->resetInChild(); }},
                             this};
};

constinit thread_local DispatchQueue::Core* DispatchQueue::Core::current_ = nullptr;

/// Every queue of the process that has a thread. There is one, which is never destroyed.
class QueueRegistry {
public:
    using Core = DispatchQueue::Core;

    static QueueRegistry& instance() {
        static auto& registry = *new QueueRegistry;
        return registry;
    }

    /// Starts the thread of `core` and lists it. False if the process is exiting or there is no thread to be had.
    bool startThread(Core& core) noexcept {
        try {
            const std::scoped_lock locked(mutex_);
            if (isExiting_) {
                return false;
            }
            if (!finishesAtExit_) {
                finishesAtExit_ = std::atexit(finishAll) == 0;
            }
            std::erase_if(cores_, [](const auto& listed) { return listed.expired(); });
            cores_.push_back(core.weak_from_this());
            return core.createThread();
        } catch (...) {
            return false;
        }
    }

    std::vector<std::shared_ptr<Core>> cores() {
        std::vector<std::shared_ptr<Core>> alive;
        const std::scoped_lock locked(mutex_);
        for (const auto& listed : cores_) {
            if (auto core = listed.lock()) {
                alive.push_back(std::move(core));
            }
        }
        return alive;
    }

    /// In a forked child: holds on to what the parent's threads would have freed, so that it is not taken for a leak.
    void keep(const DispatchQueue::Task* task) noexcept { abandonedTasks_.push_back(task); }
    void keep(std::shared_ptr<const void> object) noexcept { abandonedObjects_.push_back(std::move(object)); }

private:
    QueueRegistry() = default;

    static void finishAll() {
        auto& registry = instance();
        {
            const std::scoped_lock locked(registry.mutex_);
            registry.isExiting_ = true;
        }
        auto& cores = registry.finishing_;
        cores = registry.cores();
        // Where a task exits the process, its queue comes first: others may be waiting for it.
        std::stable_partition(cores.begin(), cores.end(), [](const auto& core) { return core->isCurrent(); });
        for (const auto& core : cores) {
            core->finish();
        }
        cores.clear();
    }

    /// A child forked while the parent was exiting is not exiting itself, and has used up its exit handler.
    void resetInChild() {
        if (std::exchange(isExiting_, false)) {
            finishesAtExit_ = std::atexit(finishAll) == 0;
        }
        mutex_.unlock();
    }

    std::mutex mutex_;
    std::vector<std::weak_ptr<Core>> cores_;
    bool finishesAtExit_ = false;
    bool isExiting_ = false;
    std::vector<std::shared_ptr<Core>> finishing_;
    std::vector<const DispatchQueue::Task*> abandonedTasks_;
    std::vector<std::shared_ptr<const void>> abandonedObjects_;
    ForkHandler forkHandler_{{.beforeFork = [](void* self) { static_cast<QueueRegistry*>(self)->mutex_.lock(); },
                              .inParent = [](void* self) { static_cast<QueueRegistry*>(self)->mutex_.unlock(); },
                              .inChild = [](void* self) { static_cast<QueueRegistry*>(self)->resetInChild(); }},
                             this};
};

namespace {

// Made while the library is loaded, when there is but one thread: a fork never finds it half made.
[[maybe_unused]] const auto& registryAtStart = QueueRegistry::instance();

}  // namespace

// --- Submitting ---

DispatchQueue::Core::Ticket DispatchQueue::Core::submit(Task& task, std::shared_ptr<const void> keptAlive,
                                                        bool isAwaited) noexcept {
    Lock lock(mutex_);
    // Threads that submit faster than tasks run would keep a process from ever ending.
    while (state_ == State::finishing && current_ == nullptr) {
        completedSome_.wait(lock);
    }
    if (task.isQueued()) {
        return submitted_;
    }
    task.next_ = nullptr;
    task.keptAlive_ = std::move(keptAlive);
    task.isQueued_.store(true, std::memory_order_release);
    (first_ == nullptr ? first_ : last_->next_) = &task;
    last_ = &task;
    const Ticket ticket = ++submitted_;
    if (state_ == State::sleeping || (state_ == State::lingering && isAwaited)) {
        state_ = State::running;
        submittedSome_.notify_one();
    } else if (state_ == State::unused) {
        start(lock);
    } else if (state_ == State::inPlace) {
        runInPlace(lock, ticket);
    }
    return ticket;
}

void DispatchQueue::Core::wait(Ticket ticket) noexcept {
    Lock lock(mutex_);
    while (completed_ < ticket) {
        completedSome_.wait(lock);
    }
}

void DispatchQueue::Core::drain() noexcept {
    if (isCurrent()) {
        return;
    }
    Lock lock(mutex_);
    const Ticket ticket = submitted_;
    if (state_ == State::lingering) {
        state_ = State::running;
        submittedSome_.notify_one();
    }
    while (completed_ < ticket) {
        completedSome_.wait(lock);
    }
}

// --- Running ---

void DispatchQueue::Core::runTasks(Lock& lock) noexcept {
    while (Task* const task = first_) {
        first_ = task->next_;
        keptAlive_ = std::move(task->keptAlive_);
        running_ = task;
        task->isQueued_.store(false, std::memory_order_release);
        lock.unlock();
        task->run();
        keptAlive_.reset();
        lock.lock();
        running_ = nullptr;
        ++completed_;
        completedSome_.notify_all();
    }
}

void DispatchQueue::Core::start(Lock& lock) noexcept {
    state_ = State::running;
    if (!QueueRegistry::instance().startThread(*this)) {
        runInPlaceFromNowOn(lock);
    }
}

bool DispatchQueue::Core::createThread() noexcept {
    const SignalsBlocked blocked;
    self_ = shared_from_this();
    isJoinable_ = ::pthread_create(&thread_, nullptr, threadMain, this) == 0;
    if (!isJoinable_) {
        self_.reset();
    }
    return isJoinable_;
}

void* DispatchQueue::Core::threadMain(void* core) {
    static_cast<Core*>(core)->runOnThread();
    return nullptr;
}

void DispatchQueue::Core::runOnThread() noexcept {
    nameThreadOfQueue(label);
    // The pause between two looks for work is not to be rounded up by the usual 50 µs.
    ::prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    std::shared_ptr<Core> self;
    {
        Lock lock(mutex_);
        current_ = this;
        runner_.store(thisThread(), std::memory_order_relaxed);
        runTasks(lock);
        while (state_ != State::finishing) {
            waitForTasks(lock);
            runTasks(lock);
        }
        self = std::move(self_);
        state_ = State::inPlace;
        runner_.store(nullptr, std::memory_order_relaxed);
        current_ = nullptr;
        completedSome_.notify_all();
    }
}

/// Looks for work now and then before it sleeps, which spares submitters the system call that wakes a thread.
void DispatchQueue::Core::waitForTasks(Lock& lock) noexcept {
    constexpr auto pollInterval = std::chrono::microseconds(100);
    constexpr int pollsBeforeSleep = 80;
    if (state_ != State::running) {
        return;
    }
    state_ = State::lingering;
    for (int poll = 0; poll < pollsBeforeSleep && first_ == nullptr && state_ == State::lingering; ++poll) {
        submittedSome_.wait_for(lock, pollInterval);
    }
    if (first_ == nullptr && state_ == State::lingering) {
        state_ = State::sleeping;
        while (state_ == State::sleeping) {
            submittedSome_.wait(lock);
        }
    }
    if (state_ == State::lingering) {
        state_ = State::running;
    }
}

/// Runs what is waiting, or has the thread run it that does so already.
void DispatchQueue::Core::runInPlace(Lock& lock, Ticket ticket) noexcept {
    if (isCurrent()) {
        return;
    }
    while (runner_.load(std::memory_order_relaxed) != nullptr) {
        // A task does not wait for another queue's runner, who may be waiting for it.
        if (current_ != nullptr || completed_ >= ticket) {
            return;
        }
        completedSome_.wait(lock);
    }
    Core* const before = std::exchange(current_, this);
    runner_.store(thisThread(), std::memory_order_relaxed);
    runTasks(lock);
    runner_.store(nullptr, std::memory_order_relaxed);
    current_ = before;
    completedSome_.notify_all();
}

void DispatchQueue::Core::runInPlaceFromNowOn(Lock& lock) noexcept {
    state_ = State::inPlace;
    runInPlace(lock, submitted_);
}

// --- The end ---

void DispatchQueue::Core::finish() noexcept {
    Lock lock(mutex_);
    if (state_ == State::unused || state_ == State::inPlace) {
        return;
    }
    if (isCurrent()) {
        finishWithinTask(lock);
        return;
    }
    state_ = State::finishing;
    submittedSome_.notify_one();
    while (state_ != State::inPlace) {
        completedSome_.wait(lock);
    }
    const bool mustJoin = std::exchange(isJoinable_, false);
    lock.unlock();
    if (mustJoin) {
        ::pthread_join(thread_, nullptr);
    }
}

/// A task of this queue exits the process, so the loop that called it will never go on.
void DispatchQueue::Core::finishWithinTask(Lock& lock) noexcept {
    if (std::exchange(isJoinable_, false)) {
        ::pthread_detach(::pthread_self());
    }
    // While the task is on the stack. In a forked child a leak checker does not look there.
    QueueRegistry::instance().keep(std::move(keptAlive_));
    QueueRegistry::instance().keep(running_);
    if (running_ != nullptr) {
        lock.unlock();
        running_->resume();
        lock.lock();
        running_ = nullptr;
        ++completed_;
    }
    runTasks(lock);
    state_ = State::inPlace;
    runner_.store(nullptr, std::memory_order_relaxed);
    current_ = nullptr;
    completedSome_.notify_all();
}

void DispatchQueue::Core::letGo() noexcept {
    if (!isCurrent()) {
        finish();
        return;
    }
    const std::scoped_lock locked(mutex_);
    if (state_ != State::inPlace) {
        state_ = State::finishing;
    }
    if (std::exchange(isJoinable_, false)) {
        ::pthread_detach(::pthread_self());
    }
}

// --- Fork ---

/// Called with the mutex held, by the thread that locked it before the fork.
void DispatchQueue::Core::resetInChild() noexcept {
    auto& registry = QueueRegistry::instance();
    for (Task* task = std::exchange(first_, nullptr); task != nullptr; task = task->next_) {
        registry.keep(task);
        registry.keep(std::move(task->keptAlive_));
        task->isQueued_.store(false, std::memory_order_relaxed);
    }
    // Threads that waited do not exist here.
    std::construct_at(&submittedSome_);
    std::construct_at(&completedSome_);
    completed_ = 0;
    submitted_ = isCurrent() ? 1 : 0;
    if (!isCurrent()) {
        registry.keep(std::exchange(running_, nullptr));
        registry.keep(std::move(keptAlive_));
        registry.keep(std::move(self_));
        runner_.store(nullptr, std::memory_order_relaxed);
        isJoinable_ = false;
        state_ = state_ == State::inPlace ? State::inPlace : State::unused;
    }
    mutex_.unlock();
}

// --- The queue ---

namespace {

/// Work that somebody waits for, and who does so.
struct Awaited final : DispatchQueue::Task {
    Awaited(void (*toRun)(void*), void* itsContext) : work(toRun), context(itsContext) {}

    void run() noexcept override {
        // Work that forks comes back in the child, too, where the waiting thread is none and its stack, with
        // this task, may soon serve another one.
        const std::uint64_t generation = forkGeneration();
        std::exception_ptr thrown;
        try {
            work(context);
        } catch (...) {
            thrown = std::current_exception();
        }
        if (forkGeneration() == generation) {
            exception = std::move(thrown);
        }
    }

    void (*work)(void*);
    void* context;
    std::exception_ptr exception;
};

}  // namespace

std::shared_ptr<DispatchQueue> DispatchQueue::make(std::string label) {
    return std::shared_ptr<DispatchQueue>(new DispatchQueue(std::move(label)));
}

DispatchQueue::DispatchQueue(std::string label) : core_(std::make_shared<Core>(std::move(label))) {}

DispatchQueue::~DispatchQueue() {
    core_->letGo();
}

const std::string& DispatchQueue::label() const noexcept {
    return core_->label;
}

void DispatchQueue::async(Task& task, std::shared_ptr<const void> keptAlive) noexcept {
    core_->submit(task, std::move(keptAlive), /*isAwaited=*/false);
}

void DispatchQueue::runAndWait(void (*work)(void*), void* context) {
    Awaited task(work, context);
    core_->wait(core_->submit(task, nullptr, /*isAwaited=*/true));
    if (task.exception) {
        std::rethrow_exception(task.exception);
    }
}

bool DispatchQueue::isCurrent() const noexcept {
    return core_->isCurrent();
}

std::optional<std::string_view> DispatchQueue::currentLabel() noexcept {
    const Core* const current = Core::current();
    return current == nullptr ? std::nullopt : std::optional<std::string_view>(current->label);
}

void DispatchQueue::drain() noexcept {
    core_->drain();
}

void DispatchQueue::drainAll() {
    for (const auto& core : QueueRegistry::instance().cores()) {
        core->drain();
    }
}

void DispatchQueue::reportException(const std::exception_ptr& exception) noexcept {
    guarded([&exception] { std::rethrow_exception(exception); },
            [](std::string_view description) {
                const std::string line = fmt::format("Objective-C Exception occurred: {}\n", description);
                std::fwrite(line.data(), 1, line.size(), stdout);
            });
    std::fflush(stdout);
}

}  // namespace velora
