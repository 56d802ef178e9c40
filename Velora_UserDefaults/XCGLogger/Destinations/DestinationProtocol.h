#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/XCGLogger/Filters/FilterProtocol.h>
#include <Velora_UserDefaults/XCGLogger/LogDetails.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/LogFormatterProtocol.h>

namespace velora {

class XCGLogger;

/// A list of filters, or none at all: absent means that the owner's list is used, empty means no filter.
using Filters = std::optional<std::vector<std::shared_ptr<FilterProtocol>>>;
/// A list of formatters, or none at all; absent and empty differ as for filters.
using Formatters = std::optional<std::vector<std::shared_ptr<LogFormatterProtocol>>>;

/// A destination's threshold, where a logger reads it without a virtual call and is told of changes. Internal.
/// Thread-safe, but for `observe`.
class DestinationThreshold {
public:
    /// The threshold.
    Level level(std::memory_order order = std::memory_order_relaxed) const noexcept { return level_.load(order); }
    /// Changes it, and tells the logger that observes it.
    void setLevel(Level level) {
        level_.store(level);
        if (observer_ != nullptr) {
            changed_(*observer_);
        }
    }

    /// Has `changed(observer)` called after each change, unless another logger is told already; whether that is so.
    bool observe(XCGLogger& observer, void (*changed)(XCGLogger&)) noexcept {
        if (observer_ == nullptr) {
            observer_ = &observer;
            changed_ = changed;
        }
        return observer_ == &observer;
    }
    void stopObserving(const XCGLogger& observer) noexcept {
        if (observer_ == &observer) {
            observer_ = nullptr;
        }
    }

private:
    std::atomic<Level> level_ = Level::debug;
    XCGLogger* observer_ = nullptr;
    void (*changed_)(XCGLogger&) = nullptr;
};

/// One output of a logger, as the logger sees it: it decides by level what it accepts, composes its own
/// lines and writes them. Most hosts derive from `BaseQueuedDestination`, which does all but the writing.
///
/// Settings are made before logging starts. `process` and `processInternal` are called by whatever
/// thread logs, by several at once if several log.
class VELORA_EXPORT DestinationProtocol {
public:
    DestinationProtocol() = default;
    DestinationProtocol(const DestinationProtocol&) = delete;
    DestinationProtocol& operator=(const DestinationProtocol&) = delete;
    virtual ~DestinationProtocol();

    /// The logger that the destination belongs to, or null. Held strongly, as the logger holds its
    /// destinations: the two keep each other alive until the destination is removed.
    virtual const std::shared_ptr<XCGLogger>& owner() const = 0;
    /// Called by `XCGLogger::add` and `XCGLogger::remove`.
    virtual void setOwner(std::shared_ptr<XCGLogger> owner) = 0;

    /// The key under which a logger finds the destination; one logger has each only once.
    virtual const std::string& identifier() const = 0;
    virtual void setIdentifier(std::string identifier) = 0;

    /// The threshold.
    virtual Level outputLevel() const = 0;
    virtual void setOutputLevel(Level level) = 0;

    /// Whether the start-up header has been written to this destination.
    virtual bool haveLoggedAppDetails() const = 0;
    virtual void setHaveLoggedAppDetails(bool haveLogged) = 0;

    /// The destination's own formatters; absent: the owner's are used.
    virtual const Formatters& formatters() const = 0;
    virtual void setFormatters(Formatters formatters) = 0;

    /// The destination's own filters; absent: the owner's are used.
    virtual const Filters& filters() const = 0;
    virtual void setFilters(Filters filters) = 0;

    /// Composes and emits an ordinary line. `logDetails` is the destination's own copy.
    virtual void process(LogDetails& logDetails) = 0;
    /// Composes and emits a line that the logging engine writes about itself.
    virtual void processInternal(LogDetails& logDetails) = 0;

    /// Whether a call at `level` is to be considered at all.
    virtual bool isEnabledFor(Level level) const = 0;

    /// Whether any filter rejects the line: the filters are asked in list order until one does. Both
    /// arguments may be changed by the filters. A filter that throws counts as one that lets the
    /// line pass, and its exception is reported on standard output.
    virtual bool shouldExclude(LogDetails& logDetails, std::string& message);
    /// Runs every formatter over the line, in list order, each on what the one before it made. One that
    /// throws leaves the line as it found it, and its exception is reported on standard output.
    virtual void applyFormatters(LogDetails& logDetails, std::string& message);

    /// One line that tells the destination's class and configuration.
    virtual std::string debugDescription() const = 0;

    /// The threshold if it is all that `isEnabledFor` looks at; null, as here, if that has to be asked. Internal.
    virtual DestinationThreshold* knownThreshold() noexcept { return nullptr; }

protected:
    /// The lists that count: the destination's own, else its owner's.
    const Filters& filtersInUse() const;
    const Formatters& formattersInUse() const;
};

}  // namespace velora
