#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseQueuedDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/QueuedLine.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora {

BaseQueuedDestination::BaseQueuedDestination(Making key, std::shared_ptr<XCGLogger> owner, std::string identifier)
    : BaseDestination(key, std::move(owner), std::move(identifier)) {}

BaseQueuedDestination::~BaseQueuedDestination() = default;

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
        QueuedLine::submit(*queue, shared_from_this(), logDetails, message);
    } else {
        outputNow(logDetails, message);
    }
}

void BaseQueuedDestination::outputNow(LogDetails& logDetails, std::string& message) {
    if (mayFilterOrFormat()) {
        if (shouldExclude(logDetails, message)) {
            return;
        }
        applyFormatters(logDetails, message);
    }
    reportingExceptions([&] {
        write(message);
        finishWriting(logDetails.level);
    });
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
