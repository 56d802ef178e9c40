#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseQueuedDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/QueuedLine.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>

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
    if (shouldExclude(logDetails, message)) {
        return;
    }
    applyFormatters(logDetails, message);
    reportingExceptions([&] { write(message); });
}

void BaseQueuedDestination::write(std::string_view /*message*/) {}

}  // namespace velora
