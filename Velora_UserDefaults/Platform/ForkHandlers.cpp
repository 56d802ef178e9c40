#include <atomic>
#include <mutex>
#include <pthread.h>

#include <Velora_UserDefaults/Platform/ForkHandlers.h>

namespace velora {

constinit std::atomic<std::uint64_t> forkCount{0};

/// The list of handlers. It is constant-initialised and never destroyed, so that static objects of any
/// file may hold handlers.
class ForkRegistry {
public:
    void add(ForkHandler& handler) {
        install();
        const std::scoped_lock locked(lock_);
        handler.previous_ = last_;
        (last_ == nullptr ? first_ : last_->next_) = &handler;
        last_ = &handler;
    }

    void remove(ForkHandler& handler) {
        const std::scoped_lock locked(lock_);
        (handler.previous_ == nullptr ? first_ : handler.previous_->next_) = handler.next_;
        (handler.next_ == nullptr ? last_ : handler.next_->previous_) = handler.previous_;
    }

    static bool install() {
        static const bool installed = ::pthread_atfork(beforeFork, inParent, inChild) == 0;
        return installed;
    }

private:
    static void beforeFork();
    static void inParent();
    static void inChild();

    void runInOrder(void (*ForkFunctions::*function)(void*)) {
        for (ForkHandler* handler = first_; handler != nullptr; handler = handler->next_) {
            if (auto* call = handler->functions_.*function; call != nullptr) {
                call(handler->context_);
            }
        }
    }

    std::mutex lock_;
    ForkHandler* first_ = nullptr;
    ForkHandler* last_ = nullptr;
};

namespace {

constinit ForkRegistry registry;

// A process that forks before it has registered anything counts, too.
[[maybe_unused]] const bool installedAtStart = ForkRegistry::install();

}  // namespace

void ForkRegistry::beforeFork() {
    registry.lock_.lock();
    for (ForkHandler* handler = registry.last_; handler != nullptr; handler = handler->previous_) {
        if (handler->functions_.beforeFork != nullptr) {
            handler->functions_.beforeFork(handler->context_);
        }
    }
}

void ForkRegistry::inParent() {
    registry.runInOrder(&ForkFunctions::inParent);
    registry.lock_.unlock();
}

void ForkRegistry::inChild() {
    forkCount.fetch_add(1, std::memory_order_relaxed);
    registry.runInOrder(&ForkFunctions::inChild);
    registry.lock_.unlock();
}

ForkHandler::ForkHandler(ForkFunctions functions, void* context) : functions_(functions), context_(context) {
    registry.add(*this);
}

ForkHandler::~ForkHandler() {
    registry.remove(*this);
}

}  // namespace velora
