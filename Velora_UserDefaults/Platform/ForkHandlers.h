#pragma once

/// What the library does when its process forks: a counter that tells a child from its parent, and
/// objects that register functions to run around a `fork`. Internal.
///
/// One pthread_atfork(3) registration serves the whole library. It sees `fork(2)` as the C library
/// does it; `vfork`, `_Fork`, `posix_spawn` and a bare `clone` run nothing.

#include <atomic>
#include <cstdint>
#include <mutex>

namespace velora {

/// How many forks lie between the process that loaded the library and this one: 0 at first, one more
/// in each child. Differs between a parent and its child, and so tells whether something made earlier
/// was made by this process. Costs a relaxed atomic load; any thread.
inline std::uint64_t forkGeneration() noexcept {
    extern std::atomic<std::uint64_t> forkCount;
    return forkCount.load(std::memory_order_relaxed);
}

/// Functions that run around a fork, all on the forking thread. Null ones are left out.
struct ForkFunctions {
    /// In the parent before the fork, in the reverse order of registration.
    void (*beforeFork)(void* context) = nullptr;
    /// In the parent after the fork, also if it failed; in the order of registration.
    void (*inParent)(void* context) = nullptr;
    /// In the child after the fork, in the order of registration.
    void (*inChild)(void* context) = nullptr;
};

/// Keeps functions registered from its construction to its destruction.
///
/// Any thread may make or destroy handlers; one that would do so while another thread forks waits for
/// the fork. The functions must not make or destroy handlers, throw, or wait for another thread that
/// could itself be waiting to make or destroy one. May be a static object, also one that is made before
/// the library's own static objects.
class ForkHandler {
public:
    /// Registers `functions`, to be called with `context`.
    ForkHandler(ForkFunctions functions, void* context);
    ForkHandler(const ForkHandler&) = delete;
    ForkHandler& operator=(const ForkHandler&) = delete;
    ~ForkHandler();

private:
    friend class ForkRegistry;

    ForkFunctions functions_;
    void* context_;
    ForkHandler* previous_ = nullptr;
    ForkHandler* next_ = nullptr;
};

/// A mutex that a forking thread holds while it forks: so it is free in the child, and what it guards is whole. Must be
/// a leaf: nothing that takes another mutex, or waits, is called while it is held.
class ForkSafeMutex : public std::mutex {
    static void take(void* mutex) { static_cast<ForkSafeMutex*>(mutex)->lock(); }
    static void release(void* mutex) { static_cast<ForkSafeMutex*>(mutex)->unlock(); }

    ForkHandler handler_{{.beforeFork = take, .inParent = release, .inChild = release}, this};
};

/// A ForkHandler with nothing to do but in the child.
class ForkChildHandler {
public:
    /// Runs `inChild(context)` in every child forked while this object lives.
    ForkChildHandler(void (*inChild)(void* context), void* context) : handler_({.inChild = inChild}, context) {}

private:
    ForkHandler handler_;
};

}  // namespace velora
