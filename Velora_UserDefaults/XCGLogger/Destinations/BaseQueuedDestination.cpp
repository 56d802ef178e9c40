#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseQueuedDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/QueuedLine.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora {

BaseQueuedDestination::BaseQueuedDestination(Making key, std::shared_ptr<XCGLogger> owner, std::string identifier)
    : BaseDestination(key, std::move(owner), std::move(identifier)) {}

BaseQueuedDestination::~BaseQueuedDestination() = default;

void BaseQueuedDestination::setLogQueue(std::shared_ptr<DispatchQueue> queue) {
    outliveQueuedLines();
    logQueue_ = std::move(queue);
}

/// Has this destination live until the lines are written that are on its queue now.
void BaseQueuedDestination::outliveQueuedLines() {
    if (logQueue_ && finished_.load(std::memory_order_acquire) != handedOver_.load(std::memory_order_relaxed)) {
        logQueue_->async([self = shared_from_this()] {});
    }
}

void BaseQueuedDestination::setOwner(std::shared_ptr<XCGLogger> owner) {
    if (this->owner()) {
        waitForQueue();
    }
    BaseDestination::setOwner(std::move(owner));
}

void BaseQueuedDestination::waitForQueue() const {
    if (const std::shared_ptr<DispatchQueue>& queue = logQueue()) {
        queue->drain();
    }
}

void BaseQueuedDestination::output(LogDetails& logDetails, std::string& message) {
    if (const std::shared_ptr<DispatchQueue>& queue = logQueue()) {
        QueuedLine::submit(*queue, *this, logDetails, message);
    } else {
        outputNow(logDetails, message);
    }
}

void BaseQueuedDestination::writeNow(Level level, std::string_view message) {
    reportingExceptions([&] {
        write(message);
        finishWriting(level);
    });
}

void BaseQueuedDestination::outputNow(LogDetails& logDetails, std::string& message) {
    if (mayFilterOrFormat()) {
        if (shouldExclude(logDetails, message)) {
            return;
        }
        applyFormatters(logDetails, message);
    }
    writeNow(logDetails.level, message);
}

/// Whether there is, or may be, any filter or formatter.
bool BaseQueuedDestination::mayFilterOrFormat() const {
    if (!inheritsProcessing_) {
        return true;
    }
    const XCGLogger* const owner = owner_.get();
    if (owner != nullptr && !owner->inheritsProcessing_) {
        return true;
    }
    const Filters& filters = filters_ || owner == nullptr ? filters_ : owner->filters_;
    const Formatters& formatters = formatters_ || owner == nullptr ? formatters_ : owner->formatters_;
    return (filters && !filters->empty()) || (formatters && !formatters->empty());
}

void BaseQueuedDestination::finishWriting(Level /*level*/) {}

void BaseQueuedDestination::write(std::string_view /*message*/) {}

}  // namespace velora
