#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueueCore.h>
#include <Velora_UserDefaults/Platform/ForkHandlers.h>

namespace velora {

/// Every queue of the process that has a thread, so that all of them can be drained. Internal; any thread.
/// There is one, which is never destroyed.
class DispatchQueueRegistry {
public:
    static DispatchQueueRegistry& instance();

    /// Starts the thread of `core` and lists it. False if the process is exiting or there is no thread to be had.
    bool startThread(DispatchQueueCore& core) noexcept;

    /// The queues listed now.
    std::vector<std::shared_ptr<DispatchQueueCore>> cores();

    /// In a forked child: holds on to what the parent's threads would have freed, so that it is not taken for a leak.
    /// The task is not looked at.
    void keep(const DispatchQueue::Task* task) noexcept;
    void keep(std::shared_ptr<DispatchQueueCore> core) noexcept;

private:
    DispatchQueueRegistry() = default;
    static void finishAll();
    static void resetInChild(void* context);
    void list(DispatchQueueCore& core);

    std::mutex mutex_;
    std::vector<std::weak_ptr<DispatchQueueCore>> cores_;
    bool finishesAtExit_ = false;
    bool exiting_ = false;
    // Those that the exit of the process waits for.
    std::vector<std::shared_ptr<DispatchQueueCore>> finishing_;
    std::vector<const DispatchQueue::Task*> abandonedTasks_;
    std::vector<std::shared_ptr<DispatchQueueCore>> abandonedCores_;
    // A fork never happens while the list is being changed.
    ForkHandler forkHandler_{
        {.beforeFork = [](void* self) { static_cast<DispatchQueueRegistry*>(self)->mutex_.lock(); },
         .inParent = [](void* self) { static_cast<DispatchQueueRegistry*>(self)->mutex_.unlock(); },
         .inChild = resetInChild},
        this};
};

}  // namespace velora
