#pragma once

/// Waiting for another thread by way of futex(2), which costs nothing as long as nobody waits. Internal.
///
/// Unlike a standard mutex, words that are waited on this way can be set to any state in a forked child.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <limits>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace velora {

using FutexWord = std::atomic<std::uint32_t>;

/// Blocks while `word` holds `expected`, for at most `timeout` where one is given. May return early for no reason.
inline void futexWait(FutexWord& word, std::uint32_t expected, const timespec* timeout = nullptr) noexcept {
    static_assert(sizeof(FutexWord) == sizeof(std::uint32_t));
    ::syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, expected, timeout, nullptr, 0);
}

/// Wakes one thread that waits on `word`. The word itself is not read.
inline void futexWakeOne(FutexWord& word) noexcept {
    ::syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

/// Wakes every thread that waits on `word`. The word itself is not read.
inline void futexWakeAll(FutexWord& word) noexcept {
    ::syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, std::numeric_limits<int>::max(), nullptr, nullptr, 0);
}

/// Something that happens once, and that threads can wait for.
class FutexEvent {
public:
    /// Lets every waiting thread go. The event may be gone when this returns, since a waiter may have
    /// destroyed it; nothing of it is touched then.
    void happen() noexcept {
        word_.store(1, std::memory_order_release);
        futexWakeAll(word_);
    }

    /// Returns when the event has happened; what was done before `happen` is visible then.
    void wait() noexcept {
        while (word_.load(std::memory_order_acquire) == 0) {
            futexWait(word_, 0);
        }
    }

    /// Makes the event one that has not happened. Nobody may be waiting.
    void reset() noexcept { word_.store(0, std::memory_order_relaxed); }

private:
    FutexWord word_ = 0;
};

/// A lock that one thread may take and another give back. Locking and unlocking are sequentially
/// consistent with other such operations, so that a thread which fails to take the lock knows that what
/// it stored before is seen by the holder after unlocking. Made for rare use: unlocking is a system call.
class FutexLock {
public:
    explicit FutexLock(bool locked) noexcept : word_(locked ? 1 : 0) {}

    bool tryLock() noexcept { return word_.exchange(1) == 0; }

    void lock() noexcept {
        while (!tryLock()) {
            futexWait(word_, 1);
        }
    }

    void unlock() noexcept {
        word_.store(0);
        futexWakeOne(word_);
    }

    /// Makes the lock a taken one. Nobody may be waiting.
    void resetLocked() noexcept { word_.store(1); }

private:
    FutexWord word_;
};

}  // namespace velora
