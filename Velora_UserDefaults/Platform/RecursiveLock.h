#pragma once

#include <atomic>
#include <mutex>
#include <pthread.h>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/ForkHandlers.h>

namespace velora {

/// A lock that the thread which holds it may take again, and that survives a fork. Internal.
///
/// Meets the standard's Lockable requirements: use it with `std::scoped_lock` and `std::unique_lock`.
/// In a forked child a lock that another thread of the parent held is free; one that the forking
/// thread held is still held by it, as often. What the lock guards is as the other thread left it
/// at the fork, perhaps in the middle of a change: the guarded code must bear that.
///
/// Costs what `std::mutex` costs, plus about a nanosecond. A static lock may be used by the destructors of
/// static objects made after it; one that must outlast those made before it is best never destroyed
/// (`static RecursiveLock& lock = *new RecursiveLock;`).
class VELORA_EXPORT RecursiveLock {
public:
    RecursiveLock();
    RecursiveLock(const RecursiveLock&) = delete;
    RecursiveLock& operator=(const RecursiveLock&) = delete;
    /// The lock must be free.
    ~RecursiveLock() = default;

    /// Takes the lock, waiting for it if another thread holds it.
    void lock() {
        if (isHeldByThisThread()) {
            ++depth_;
            return;
        }
        mutex_.lock();
        becomeHeld();
    }

    /// Takes the lock if that needs no waiting, and returns whether it did.
    bool try_lock() {  // NOLINT(readability-identifier-naming): the standard's name
        if (isHeldByThisThread()) {
            ++depth_;
            return true;
        }
        if (!mutex_.try_lock()) {
            return false;
        }
        becomeHeld();
        return true;
    }

    /// Gives back what one `lock()` or successful `try_lock()` of this thread took.
    void unlock() {
        if (--depth_ == 0) {
            owner_.store(noThread, std::memory_order_relaxed);
            mutex_.unlock();
        }
    }

    /// Whether the calling thread holds the lock.
    [[nodiscard]] bool isHeldByThisThread() const { return owner_.load(std::memory_order_relaxed) == ::pthread_self(); }

private:
    static constexpr pthread_t noThread = 0;

    void becomeHeld() {
        owner_.store(::pthread_self(), std::memory_order_relaxed);
        depth_ = 1;
    }

    static void freeInChild(void* lock);

    std::mutex mutex_;
    // Only a thread that holds mutex_ ever stores its own id, so a thread that reads its own id here
    // reads what it stored itself; any other value, however old, means "not this thread".
    std::atomic<pthread_t> owner_{noThread};
    unsigned depth_ = 0;
    ForkChildHandler childHandler_;
};

}  // namespace velora
