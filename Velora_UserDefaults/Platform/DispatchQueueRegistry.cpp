#include <algorithm>
#include <cstdlib>
#include <utility>

#include <Velora_UserDefaults/Platform/DispatchQueueRegistry.h>

namespace velora {

namespace {

// Made while the library is loaded, when there is but one thread: a fork never finds it half made.
[[maybe_unused]] const auto& registryAtStart = DispatchQueueRegistry::instance();

}  // namespace

DispatchQueueRegistry& DispatchQueueRegistry::instance() {
    static auto& registry = *new DispatchQueueRegistry;
    return registry;
}

bool DispatchQueueRegistry::startThread(DispatchQueueCore& core) noexcept {
    try {
        const std::scoped_lock locked(mutex_);
        if (exiting_) {
            return false;
        }
        if (!finishesAtExit_) {
            finishesAtExit_ = std::atexit(finishAll) == 0;
        }
        list(core);
        return core.createThread();
    } catch (...) {
        return false;
    }
}

void DispatchQueueRegistry::list(DispatchQueueCore& core) {
    std::erase_if(cores_, [&core](const auto& listed) {
        const auto other = listed.lock();
        return other == nullptr || other.get() == &core;
    });
    cores_.push_back(core.weak_from_this());
}

std::vector<std::shared_ptr<DispatchQueueCore>> DispatchQueueRegistry::cores() {
    std::vector<std::shared_ptr<DispatchQueueCore>> alive;
    const std::scoped_lock locked(mutex_);
    for (const auto& listed : cores_) {
        if (auto core = listed.lock()) {
            alive.push_back(std::move(core));
        }
    }
    return alive;
}

void DispatchQueueRegistry::finishAll() {
    auto& registry = instance();
    {
        const std::scoped_lock locked(registry.mutex_);
        registry.exiting_ = true;
    }
    auto& cores = registry.finishing_;
    cores = registry.cores();
    // Where work of a queue exits the process, that queue comes first: others may be waiting for it.
    std::stable_partition(cores.begin(), cores.end(), [](const auto& core) { return core->isCurrent(); });
    for (const auto& core : cores) {
        core->finish();
    }
    cores.clear();
}

/// A child forked while the parent was exiting is not exiting itself, and has used up its exit handler.
void DispatchQueueRegistry::resetInChild(void* context) {
    auto& registry = *static_cast<DispatchQueueRegistry*>(context);
    if (std::exchange(registry.exiting_, false)) {
        registry.finishesAtExit_ = std::atexit(finishAll) == 0;
    }
    registry.mutex_.unlock();
}

void DispatchQueueRegistry::keep(const DispatchQueue::Task* task) noexcept {
    if (task != nullptr) {
        abandonedTasks_.push_back(task);
    }
}

void DispatchQueueRegistry::keep(std::shared_ptr<DispatchQueueCore> core) noexcept {
    abandonedCores_.push_back(std::move(core));
}

}  // namespace velora
