#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseQueuedDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/QueuedLines.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora {

BaseQueuedDestination::BaseQueuedDestination(Making key, std::shared_ptr<XCGLogger> owner, std::string identifier)
    : BaseDestination(key, std::move(owner), std::move(identifier)), lines_(std::make_unique<QueuedLines>(*this)) {}

BaseQueuedDestination::~BaseQueuedDestination() = default;

void BaseQueuedDestination::setLogQueue(std::shared_ptr<DispatchQueue> queue) {
    logQueue_ = std::move(queue);
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
        lines_->append(*queue, logDetails, message, maxPendingBytes_);
    } else {
        outputNow(logDetails, message);
    }
}

bool BaseQueuedDestination::isInBatch() const noexcept {
    return lines_->isRunningHere();
}

bool BaseQueuedDestination::submitBatch() {
    const std::shared_ptr<DispatchQueue>& queue = logQueue();
    if (queue) {
        lines_->submit(*queue);
    }
    return queue != nullptr;
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
    if (!overridesNothing_) {
        return true;
    }
    const auto& filters = this->filtersInUse();
    const auto& formatters = this->formattersInUse();
    return (filters && !filters->empty()) || (formatters && !formatters->empty());
}

void BaseQueuedDestination::finishWriting(Level /*level*/) {}

void BaseQueuedDestination::finishBatch() {}

void BaseQueuedDestination::write(std::string_view /*message*/) {}

}  // namespace velora
