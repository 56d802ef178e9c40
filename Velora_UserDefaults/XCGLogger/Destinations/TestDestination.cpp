#include <algorithm>
#include <mutex>
#include <utility>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/ForkHandlers.h>
#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/TestDestination.h>

namespace velora {

struct TestDestination::Lists {
    ForkSafeMutex lock;
    std::vector<std::string> expected;
    std::vector<std::string> unexpected;
};

TestDestination::TestDestination(Making key, std::shared_ptr<XCGLogger> owner, std::string identifier)
    : BaseQueuedDestination(key, std::move(owner), std::move(identifier)), lists_(std::make_unique<Lists>()) {}

TestDestination::~TestDestination() = default;

std::vector<std::string> TestDestination::expectedLogMessages() const {
    const std::scoped_lock guard(lists_->lock);
    return lists_->expected;
}

std::vector<std::string> TestDestination::unexpectedLogMessages() const {
    const std::scoped_lock guard(lists_->lock);
    return lists_->unexpected;
}

std::int64_t TestDestination::remainingNumberOfExpectedLogMessages() const {
    const std::scoped_lock guard(lists_->lock);
    return static_cast<std::int64_t>(lists_->expected.size());
}

std::int64_t TestDestination::numberOfUnexpectedLogMessages() const {
    const std::scoped_lock guard(lists_->lock);
    return static_cast<std::int64_t>(lists_->unexpected.size());
}

void TestDestination::addExpectedLogMessage(std::string message) {
    sync([&] {
        const std::scoped_lock guard(lists_->lock);
        lists_->expected.push_back(std::move(message));
    });
}

void TestDestination::reset() {
    setHaveLoggedAppDetails(false);
    const std::scoped_lock guard(lists_->lock);
    lists_->expected.clear();
    lists_->unexpected.clear();
}

void TestDestination::output(LogDetails& logDetails, std::string& message) {
    sync([this, logDetails, line = message]() mutable {
        if (shouldExclude(logDetails, line)) {
            return;
        }
        applyFormatters(logDetails, line);
        const std::scoped_lock guard(lists_->lock);
        const auto found = std::ranges::find_if(
            lists_->expected, [&](const std::string& expected) { return canonicallyEqual(expected, line); });
        if (found != lists_->expected.end()) {
            lists_->expected.erase(found);
        } else {
            lists_->unexpected.push_back(std::move(line));
        }
    });
}

void TestDestination::sync(const std::function<void()>& closure) {
    if (const std::shared_ptr<DispatchQueue>& queue = logQueue()) {
        queue->sync(closure);
    } else {
        closure();
    }
}

}  // namespace velora
