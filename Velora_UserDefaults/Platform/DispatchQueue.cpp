#include <algorithm>
#include <cstdio>
#include <exception>
#include <fmt/format.h>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/DispatchQueueCore.h>
#include <Velora_UserDefaults/Platform/DispatchQueueFutex.h>
#include <Velora_UserDefaults/Platform/DispatchQueueRegistry.h>
#include <Velora_UserDefaults/Platform/ExceptionGuard.h>
#include <Velora_UserDefaults/Platform/ForkHandlers.h>

namespace velora {

namespace {

/// Work that somebody waits for. Lives on the stack of the waiting thread.
class AwaitedTask final : public DispatchQueue::Task {
public:
    AwaitedTask(DispatchQueueCore& core, void (*work)(void*), void* context)
        : core_(core), work_(work), context_(context) {}

    void run() noexcept override {
        // Work that forks comes back in the child, too, where the waiting thread is none and its stack, with
        // this task, may soon serve another one.
        const std::uint64_t generation = forkGeneration();
        DispatchQueueCore& core = core_;
        core.endBatch();
        std::exception_ptr exception;
        try {
            work_(context_);
        } catch (...) {
            exception = std::current_exception();
        }
        core.endBatch();
        if (forkGeneration() == generation) {
            exception_ = std::move(exception);
            done_.happen();
        }
    }

    void submitAndWait() {
        core_.submit(*this);
        core_.wakeUp();
        done_.wait();
        if (exception_) {
            std::rethrow_exception(exception_);
        }
    }

private:
    DispatchQueueCore& core_;
    void (*work_)(void*);
    void* context_;
    std::exception_ptr exception_;
    FutexEvent done_;
};

void drainCore(DispatchQueueCore& core) {
    if (core.isUsed() && !core.isCurrent()) {
        AwaitedTask(
            core, [](void*) {}, nullptr)
            .submitAndWait();
    }
}

}  // namespace

std::shared_ptr<DispatchQueue> DispatchQueue::make(std::string label, std::size_t capacity) {
    return std::shared_ptr<DispatchQueue>(new DispatchQueue(std::move(label), std::max<std::size_t>(capacity, 1)));
}

DispatchQueue::DispatchQueue(std::string label, std::size_t capacity)
    : core_(std::make_shared<DispatchQueueCore>(std::move(label), capacity)) {}

DispatchQueue::~DispatchQueue() {
    core_->letGo();
}

const std::string& DispatchQueue::label() const noexcept {
    return core_->label();
}

void DispatchQueue::async(Task& task) noexcept {
    core_->submit(task);
}

void DispatchQueue::runAndWait(void (*work)(void*), void* context) {
    AwaitedTask(*core_, work, context).submitAndWait();
}

bool DispatchQueue::isCurrent() const noexcept {
    return core_->isCurrent();
}

std::optional<std::string_view> DispatchQueue::currentLabel() noexcept {
    const DispatchQueueCore* const current = DispatchQueueCore::current();
    if (current == nullptr) {
        return std::nullopt;
    }
    return current->label();
}

void DispatchQueue::drain() noexcept {
    drainCore(*core_);
}

void DispatchQueue::drainAll() {
    for (const auto& core : DispatchQueueRegistry::instance().cores()) {
        drainCore(*core);
    }
}

void DispatchQueue::atEndOfBatch(BatchEnd& batchEnd) noexcept {
    DispatchQueueCore* const current = DispatchQueueCore::current();
    if (current == nullptr) {
        batchEnd.batchEnded();
    } else {
        current->add(batchEnd);
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

DispatchQueue::BatchEnd::~BatchEnd() {
    if (DispatchQueueCore::isRegistered(*this) && queue_->isCurrent()) {
        queue_->remove(*this);
    }
}

}  // namespace velora
