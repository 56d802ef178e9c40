#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/ForkHandlers.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {

/// A destination that keeps the records and the finished lines it is given, after its filters and
/// formatters. Made by `make<RecordingDestination>(nullptr, "identifier")`. Any thread may call anything.
class RecordingDestination : public BaseDestination {
public:
    using BaseDestination::BaseDestination;

    /// Copies of the lines so far, in the order of their arrival.
    std::vector<std::string> lines() const {
        const std::scoped_lock guard(lock_);
        return lines_;
    }
    /// Copies of their records.
    std::vector<LogDetails> records() const {
        const std::scoped_lock guard(lock_);
        return records_;
    }
    void clear() {
        const std::scoped_lock guard(lock_);
        lines_.clear();
        records_.clear();
    }

    void output(LogDetails& logDetails, std::string& message) override {
        if (shouldExclude(logDetails, message)) {
            return;
        }
        applyFormatters(logDetails, message);
        const std::scoped_lock guard(lock_);
        lines_.push_back(message);
        records_.push_back(logDetails);
    }

private:
    mutable ForkSafeMutex lock_;
    std::vector<std::string> lines_;
    std::vector<LogDetails> records_;
};

/// Turns every column off, so that a line is "> " and the message.
inline void hideColumns(BaseDestination& destination) {
    destination.setShowLogIdentifier(false);
    destination.setShowFunctionName(false);
    destination.setShowThreadName(false);
    destination.setShowFileName(false);
    destination.setShowLineNumber(false);
    destination.setShowLevel(false);
    destination.setShowDate(false);
}

/// Takes all destinations out of a logger; until then they and the logger keep each other alive.
inline void removeDestinations(XCGLogger& logger) {
    while (!logger.destinations().empty()) {
        const std::shared_ptr<DestinationProtocol> last = logger.destinations().back();
        if (!logger.remove(last)) {
            return;
        }
    }
}

/// A logger without default destinations, and one recording destination in it without columns, at level
/// `verbose`. All of its destinations are taken out when the object goes.
template <typename Logger = XCGLogger>
class RecordedLogger {
public:
    explicit RecordedLogger(const std::string& identifier = "test")
        : log(make<Logger>(identifier, false)), recording(addRecording("recording")) {}
    RecordedLogger(const RecordedLogger&) = delete;
    RecordedLogger& operator=(const RecordedLogger&) = delete;
    ~RecordedLogger() { removeDestinations(*log); }

    /// Adds a destination of a given class, without columns and at level `verbose`.
    template <typename Destination = RecordingDestination>
    std::shared_ptr<Destination> addRecording(std::string identifier) const {
        auto destination = make<Destination>(nullptr, std::move(identifier));
        hideColumns(*destination);
        destination->setOutputLevel(Level::verbose);
        log->add(destination);
        return destination;
    }

    std::shared_ptr<Logger> log;
    std::shared_ptr<RecordingDestination> recording;
};

}  // namespace velora::test
