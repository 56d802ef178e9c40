#include <csignal>
#include <ctime>
#include <limits>
#include <sched.h>
#include <sys/prctl.h>
#include <utility>

#include <Velora_UserDefaults/Platform/DispatchQueueCore.h>
#include <Velora_UserDefaults/Platform/DispatchQueueRegistry.h>

namespace velora {

namespace {

constexpr timespec pollInterval{.tv_sec = 0, .tv_nsec = 100'000};
constexpr int pollsBeforeSleep = 80;
constexpr std::size_t longestThreadName = 15;
constexpr auto noLimit = std::numeric_limits<std::uint64_t>::max();

constinit thread_local DispatchQueueCore* currentCore = nullptr;

const void* thisThread() noexcept {
    return &currentCore;
}

/// Reads a link that a submitter is about to store: at once, unless that thread was just now set aside.
template <typename Link>
auto* waitForLink(const Link& link) noexcept {
    constexpr int yields = 100;
    constexpr timespec pause{.tv_sec = 0, .tv_nsec = 50'000};
    auto* next = link.load(std::memory_order_acquire);
    for (int attempt = 0; next == nullptr; ++attempt) {
        if (attempt < yields) {
            ::sched_yield();
        } else {
            ::nanosleep(&pause, nullptr);
        }
        next = link.load(std::memory_order_acquire);
    }
    return next;
}

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

void nameThisThread(const std::string& label) noexcept {
    constexpr unsigned char continuationBits = 0xC0;
    constexpr unsigned char continuation = 0x80;
    std::size_t length = std::min(label.size(), longestThreadName);
    while (length > 0 && length < label.size() &&
           (static_cast<unsigned char>(label[length]) & continuationBits) == continuation) {
        --length;
    }
    char name[longestThreadName + 1] = {};
    label.copy(name, length);
    ::pthread_setname_np(::pthread_self(), name);
}

}  // namespace

DispatchQueueCore::DispatchQueueCore(std::string label, std::size_t capacity)
    : tail_(&placeholders_[0]),
      limit_(capacity),
      front_(&placeholders_[0]),
      label_(std::move(label)),
      capacity_(capacity) {}

DispatchQueueCore* DispatchQueueCore::current() noexcept {
    return currentCore;
}

bool DispatchQueueCore::isCurrent() const noexcept {
    return runner_.load(std::memory_order_relaxed) == thisThread();
}

// --- Handing over ---

void DispatchQueueCore::submit(Task& task) noexcept {
    const std::uint64_t ticket = submitted_.fetch_add(1, std::memory_order_relaxed);
    if (ticket >= limit_.load(std::memory_order_relaxed)) [[unlikely]] {
        waitForRoom(ticket);
    }
    task.next_.store(nullptr, std::memory_order_relaxed);
    Task* const before = tail_.exchange(&task);
    before->next_.store(&task, std::memory_order_release);
    if (state_.load() >= sleeping) [[unlikely]] {
        actOnState();
    }
}

void DispatchQueueCore::actOnState() noexcept {
    std::uint32_t state = state_.load();
    if (state == notStarted && state_.compare_exchange_strong(state, running)) {
        start();
    } else if (state == inPlace) {
        runInPlace();
    } else {
        wakeUp();
    }
}

void DispatchQueueCore::wakeUp() noexcept {
    std::uint32_t state = state_.load();
    while (state == lingering || state == sleeping) {
        if (state_.compare_exchange_weak(state, running)) {
            futexWakeOne(state_);
            return;
        }
    }
}

// --- Room ---

void DispatchQueueCore::waitForRoom(std::uint64_t ticket) noexcept {
    if (currentCore != nullptr) {
        return;
    }
    waitingForRoom_.fetch_add(1);
    for (;;) {
        const std::uint32_t epoch = roomEpoch_.load();
        if (ticket < limit_.load()) {
            break;
        }
        wakeUp();
        futexWait(roomEpoch_, epoch);
    }
    waitingForRoom_.fetch_sub(1);
}

void DispatchQueueCore::makeRoom() noexcept {
    // A queue that is to stop takes no more than it has room for: threads that hand over work faster than it runs
    // would else keep it busy for ever. Those that wait for room go on when everything has run.
    if (state_.load(std::memory_order_relaxed) == inPlace || stopping_.load(std::memory_order_relaxed)) {
        return;
    }
    limit_.store(completed_ + capacity_);
    if (waitingForRoom_.load() != 0 && (completed_ - completedAtWake_ >= capacity_ / 4 || isEmpty())) {
        completedAtWake_ = completed_;
        wakeThoseWaitingForRoom();
    }
}

void DispatchQueueCore::wakeThoseWaitingForRoom() noexcept {
    roomEpoch_.fetch_add(1);
    futexWakeAll(roomEpoch_);
}

// --- Running ---

bool DispatchQueueCore::isEmpty() const noexcept {
    return tail_.load() == front_.load(std::memory_order_relaxed);
}

bool DispatchQueueCore::takeChain() noexcept {
    if (isEmpty()) {
        return false;
    }
    Task* const front = front_.load(std::memory_order_relaxed);
    Task* const nextFront = front == &placeholders_[0] ? &placeholders_[1] : &placeholders_[0];
    cursor_ = waitForLink(front->next_);
    nextFront->next_.store(nullptr, std::memory_order_relaxed);
    front_.store(nextFront, std::memory_order_relaxed);
    last_ = tail_.exchange(nextFront);
    return true;
}

void DispatchQueueCore::runChain() noexcept {
    while (cursor_ != nullptr) {
        Task* const task = cursor_;
        cursor_ = task == last_ ? nullptr : waitForLink(task->next_);
        running_ = task;
        task->run();
        ++completed_;
        if (++inBatch_ == DispatchQueue::maximumBatch) {
            endBatch();
        }
    }
}

void DispatchQueueCore::runEverything() noexcept {
    do {
        runChain();
        while (takeChain()) {
            runChain();
        }
        endBatch();
    } while (!isEmpty());
}

void DispatchQueueCore::endBatch() noexcept {
    while (BatchEnd* const batchEnd = firstBatchEnd_) {
        firstBatchEnd_ = batchEnd->next_;
        batchEnd->queue_ = nullptr;
        batchEnd->batchEnded();
    }
    inBatch_ = 0;
    makeRoom();
}

bool DispatchQueueCore::isRegistered(const BatchEnd& batchEnd) noexcept {
    return batchEnd.queue_ != nullptr && batchEnd.forkGeneration_ == forkGeneration();
}

void DispatchQueueCore::add(BatchEnd& batchEnd) noexcept {
    if (isRegistered(batchEnd)) {
        return;
    }
    batchEnd.queue_ = this;
    batchEnd.forkGeneration_ = forkGeneration();
    batchEnd.next_ = nullptr;
    (firstBatchEnd_ == nullptr ? firstBatchEnd_ : lastBatchEnd_->next_) = &batchEnd;
    lastBatchEnd_ = &batchEnd;
}

void DispatchQueueCore::remove(BatchEnd& batchEnd) noexcept {
    BatchEnd* before = nullptr;
    for (BatchEnd* each = firstBatchEnd_; each != &batchEnd; each = each->next_) {
        before = each;
    }
    (before == nullptr ? firstBatchEnd_ : before->next_) = batchEnd.next_;
    if (lastBatchEnd_ == &batchEnd) {
        lastBatchEnd_ = before;
    }
}

// --- The thread ---

void DispatchQueueCore::start() noexcept {
    if (!DispatchQueueRegistry::instance().startThread(*this)) {
        ended_.happen();
        runInPlaceFromNowOn();
    }
}

bool DispatchQueueCore::createThread() noexcept {
    const SignalsBlocked blocked;
    self_ = shared_from_this();
    joinable_.store(true);
    if (::pthread_create(&thread_, nullptr, threadMain, this) == 0) {
        return true;
    }
    joinable_.store(false);
    self_.reset();
    return false;
}

void* DispatchQueueCore::threadMain(void* core) {
    static_cast<DispatchQueueCore*>(core)->runOnThread();
    return nullptr;
}

void DispatchQueueCore::runOnThread() noexcept {
    nameThisThread(label_);
    // The pause between two looks for work is not to be rounded up by the usual 50 µs.
    ::prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    runner_.store(thisThread(), std::memory_order_relaxed);
    currentCore = this;
    runEverything();
    while (!stopping_.load()) {
        waitForWork();
        runEverything();
    }
    runInPlaceFromNowOn();
    currentCore = nullptr;
    const auto self = std::move(self_);
    ended_.happen();
}

bool DispatchQueueCore::hasReasonToRun() const noexcept {
    return !isEmpty() || stopping_.load();
}

void DispatchQueueCore::waitForWork() noexcept {
    state_.store(lingering);
    std::uint32_t expected = lingering;
    if (!lingerForWork() && state_.compare_exchange_strong(expected, sleeping)) {
        while (!hasReasonToRun() && state_.load() == sleeping) {
            futexWait(state_, sleeping);
        }
    }
    state_.store(running);
}

/// Looks for work now and then, which spares submitters the system call that wakes a thread.
bool DispatchQueueCore::lingerForWork() noexcept {
    for (int poll = 0; poll < pollsBeforeSleep; ++poll) {
        if (hasReasonToRun() || state_.load() != lingering) {
            return true;
        }
        futexWait(state_, lingering, &pollInterval);
    }
    return false;
}

// --- In place ---

void DispatchQueueCore::runInPlace() noexcept {
    // A thread that runs work of one queue does not wait for another queue's runner, who may be waiting for
    // it: the runner looks for more work after unlocking.
    if (currentCore == nullptr) {
        runnerLock_.lock();
    } else if (!runnerLock_.tryLock()) {
        return;
    }
    runEverythingAndUnlock();
}

void DispatchQueueCore::runInPlaceFromNowOn() noexcept {
    state_.store(inPlace);
    limit_.store(noLimit);
    wakeThoseWaitingForRoom();
    runEverythingAndUnlock();
}

void DispatchQueueCore::runEverythingAndUnlock() noexcept {
    do {
        runner_.store(thisThread(), std::memory_order_relaxed);
        DispatchQueueCore* const before = std::exchange(currentCore, this);
        runEverything();
        currentCore = before;
        runner_.store(nullptr, std::memory_order_relaxed);
        runnerLock_.unlock();
    } while (!isEmpty() && runnerLock_.tryLock());
}

// --- The end ---

void DispatchQueueCore::finish() noexcept {
    if (!isUsed()) {
        return;
    }
    if (isCurrent()) {
        finishOnOwnThread();
        return;
    }
    stopping_.store(true);
    wakeUp();
    if (joinable_.exchange(false)) {
        ::pthread_join(thread_, nullptr);
    } else {
        ended_.wait();
    }
}

/// Work of this queue exits the process, so the loop that called the work will never go on.
void DispatchQueueCore::finishOnOwnThread() noexcept {
    if (state_.load() == inPlace) {
        return;
    }
    if (joinable_.exchange(false)) {
        ::pthread_detach(::pthread_self());
    }
    runInPlaceFromNowOn();
    currentCore = nullptr;
    ended_.happen();
}

void DispatchQueueCore::letGo() noexcept {
    if (!isCurrent()) {
        finish();
        return;
    }
    stopping_.store(true);
    if (joinable_.exchange(false)) {
        ::pthread_detach(::pthread_self());
    }
}

// --- Fork ---

void DispatchQueueCore::resetInChild(void* context) {
    auto& core = *static_cast<DispatchQueueCore*>(context);
    core.abandonWork();
    if (!core.isCurrent()) {
        core.forgetThread();
    }
    const bool unlimited = core.state_.load() == inPlace;
    core.limit_.store(unlimited ? noLimit : core.capacity_);
}

/// The list may be torn where another thread of the parent was just handing over a task; it is left as it is.
void DispatchQueueCore::abandonWork() noexcept {
    auto& registry = DispatchQueueRegistry::instance();
    registry.keep(running_);
    registry.keep(std::exchange(cursor_, nullptr));
    if (!isEmpty()) {
        registry.keep(front_.load()->next_.load());
        registry.keep(tail_.load());
    }
    placeholders_[0].next_.store(nullptr);
    front_.store(&placeholders_[0]);
    tail_.store(&placeholders_[0]);
    submitted_.store(0);
    completed_ = 0;
    completedAtWake_ = 0;
    waitingForRoom_.store(0);
    inBatch_ = 0;
    firstBatchEnd_ = nullptr;
    lastBatchEnd_ = nullptr;
}

void DispatchQueueCore::forgetThread() noexcept {
    state_.store(notStarted);
    runnerLock_.resetLocked();
    runner_.store(nullptr);
    stopping_.store(false);
    joinable_.store(false);
    ended_.reset();
    if (self_.use_count() == 1) {
        DispatchQueueRegistry::instance().keep(std::move(self_));
    }
    self_.reset();
}

}  // namespace velora
