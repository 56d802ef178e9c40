#include <mutex>
#include <utility>

#include <Velora_UserDefaults/Platform/ForkHandlers.h>
#include <Velora_UserDefaults/UserDefaults/SharedLogger.h>

namespace velora {

namespace {

// A std::atomic<std::shared_ptr> would do but for libstdc++ 12, whose load() ends without a release, so that its
// reading of the pointer races with the next store; and it stays locked in the child of an untimely fork.
struct Slot {
    std::mutex lock;
    std::shared_ptr<XCGLogger> logger;
    ForkHandler forkHandler{{
                                .beforeFork = [](void* slot) { static_cast<Slot*>(slot)->lock.lock(); },
                                .inParent = [](void* slot) { static_cast<Slot*>(slot)->lock.unlock(); },
                                .inChild = [](void* slot) { static_cast<Slot*>(slot)->lock.unlock(); },
                            },
                            this};
};

// Never destroyed: a static destructor may still change a preference.
Slot& slot() {
    static Slot& instance = *new Slot;
    return instance;
}

// Made before there are threads: a child forked while another thread makes it would wait for that thread for ever.
[[maybe_unused]] const Slot& madeAtTheStart = slot();

}  // namespace

std::shared_ptr<XCGLogger> SharedLogger::load() const {
    const std::scoped_lock guard(slot().lock);
    return slot().logger;
}

void SharedLogger::store(std::shared_ptr<XCGLogger> logger) {
    // The former logger goes when the lock is free again: its end may run code that reads the place.
    const std::scoped_lock guard(slot().lock);
    slot().logger.swap(logger);
}

SharedLogger& SharedLogger::operator=(std::shared_ptr<XCGLogger> logger) {
    store(std::move(logger));
    return *this;
}

}  // namespace velora
