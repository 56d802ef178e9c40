#include <memory>

#include <Velora_UserDefaults/Platform/RecursiveLock.h>

namespace velora {

RecursiveLock::RecursiveLock() : childHandler_(freeInChild, this) {}

void RecursiveLock::freeInChild(void* lock) {
    auto& self = *static_cast<RecursiveLock*>(lock);
    // The forking thread keeps its pthread_t in the child, and its own locks with it.
    if (self.isHeldByThisThread()) {
        return;
    }
    // The holder does not exist in the child, so nobody can ever unlock the old mutex.
    std::construct_at(&self.mutex_);
    self.owner_.store(noThread, std::memory_order_relaxed);
    self.depth_ = 0;
}

}  // namespace velora
