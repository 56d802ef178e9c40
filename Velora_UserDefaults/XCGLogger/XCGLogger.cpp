#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/Bundle.h>
#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/ProcessInfo.h>
#include <Velora_UserDefaults/Platform/Reused.h>
#include <Velora_UserDefaults/Platform/TypeName.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseQueuedDestination.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>
#include <Velora_UserDefaults/XCGLogger/InternalUserInfo.h>
#include <Velora_UserDefaults/XCGLogger/LogCallScope.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora {

namespace {

/// A record of the running log call, kept for the thread's next one so that its text need not be
/// allocated anew each time.
template <typename Purpose>
class KeptRecord {
public:
    KeptRecord() = default;
    KeptRecord(const KeptRecord&) = delete;
    KeptRecord& operator=(const KeptRecord&) = delete;
    ~KeptRecord() {
        // What the host put in must not outlive the call, nor must the memory of an unusually long text.
        constexpr std::size_t keptCapacity = 16'384;
        if (!kept_->record.userInfo.empty()) {
            kept_->record.userInfo.clear();
        }
        if (kept_->record.message.capacity() > keptCapacity) {
            std::string().swap(kept_->record.message);
        }
    }

    LogDetails& operator*() const noexcept { return kept_->record; }
    LogDetails* operator->() const noexcept { return &kept_->record; }
    /// A list for whatever the call needs one for, with anything in it.
    std::vector<DestinationProtocol*>& destinations() const noexcept { return kept_->destinations; }

private:
    struct Kept {
        LogDetails record;
        std::vector<DestinationProtocol*> destinations;
    };

    Reused<Kept> kept_;
};

using CallRecord = KeptRecord<struct OfTheCall>;
/// The copy that all accepting destinations but the last one get, one after the other.
using RecordCopy = KeptRecord<struct ForOneDestination>;

/// What a destination answers that throws instead of telling whether it accepts a call: no. Apart from
/// `isAccepted` so that that is inlined where every call passes.
[[gnu::cold, gnu::noinline]] bool rejectReportingException() {
    reportingExceptions([] { throw; });
    return false;
}

/// Whether a destination accepts a call at `level`; one that throws instead of answering does not.
bool isAccepted(const DestinationProtocol& destination, Level level) {
    try {
        return destination.isEnabledFor(level);
    } catch (...) {
        return rejectReportingException();
    }
}

LogDetails internalRecord(std::string_view message, Level level, Date date) {
    return {.level = level,
            .date = date,
            .message = std::string(message),
            .functionName = {},
            .fileName = {},
            .lineNumber = 0,
            .userInfo = internalUserInfo()};
}

std::string appDetailsText() {
    std::string text = processName() + " ";
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 2> facts = {
        {{"Version: ", "CFBundleShortVersionString"}, {"Build: ", "CFBundleVersion"}}};
    for (const auto& [label, key] : facts) {
        if (const std::optional<std::string> value = Bundle::main().infoText(key)) {
            text.append(label).append(*value).append(" ");
        }
    }
    return text + "PID: " + std::to_string(processIdentifier());
}

}  // namespace

XCGLogger& DefaultLogger::logger() {
    return *XCGLogger::defaultInstance();
}

XCGLogger::XCGLogger(Making key, std::string identifier, bool includeDefaultDestinations)
    : MadeInTwoSteps(key),
      AllLogCalls<OwnLogger>(OwnLogger(*this)),
      identifier_(std::move(identifier)),
      includeDefaultDestinations_(includeDefaultDestinations),
      noMessageClosure_([] { return ""; }) {}

XCGLogger::~XCGLogger() {
    for (const auto& destination : destinations_) {
        letGo(*destination);
    }
}

/// Ends what this logger does for a destination in its list.
void XCGLogger::letGo(DestinationProtocol& destination) {
    if (auto* const known = dynamic_cast<BaseDestination*>(&destination);
        known != nullptr && known->observer_ == this) {
        known->observer_ = nullptr;
        if (auto* const queued = dynamic_cast<BaseQueuedDestination*>(known)) {
            queued->outliveQueuedLines();
        }
    }
}

/// Notes which destinations need not be asked for their threshold: those that tell this logger, and it
/// alone, when it changes.
void XCGLogger::learnRecipients() {
    recipients_.clear();
    for (const auto& destination : destinations_) {
        const auto* known = dynamic_cast<const BaseDestination*>(destination.get());
        if (known != nullptr && known->observer_ == nullptr) {
            known->observer_ = this;
        }
        const bool tellsItsThreshold = known != nullptr && known->inheritsThreshold_ && known->observer_ == this;
        recipients_.push_back({destination.get(), tellsItsThreshold ? known : nullptr});
    }
    learnThresholds();
}

void XCGLogger::learnThresholds() noexcept {
    // Several threads may set thresholds at once. One that finds another lowest after it has stored its own has
    // perhaps overwritten a newer one.
    std::int64_t lowest = lowestThreshold();
    lowestAccepted_.store(lowest);
    for (std::int64_t now = lowestThreshold(); now != lowest; now = lowestThreshold()) {
        lowest = now;
        lowestAccepted_.store(lowest);
    }
}

std::int64_t XCGLogger::lowestThreshold() const noexcept {
    std::int64_t lowest = inheritsLogln_ ? rawValue(Level::none) + 1 : 0;
    for (const Recipient& recipient : recipients_) {
        lowest = std::min(lowest, recipient.known == nullptr ? 0 : rawValue(recipient.known->outputLevel_.load()));
    }
    return lowest;
}

void XCGLogger::finishMaking() {
    MadeInTwoSteps::finishMaking();
    if (includeDefaultDestinations_) {
        addDefaultDestinations();
    }
}

const std::shared_ptr<XCGLogger>& XCGLogger::defaultInstance() {
    // Never destroyed: a static destructor may still log.
    static const auto& shared =
        *new const std::shared_ptr<XCGLogger>(make<XCGLogger>(std::string(Constants::defaultInstanceIdentifier), true));
    return shared;
}

const std::shared_ptr<DispatchQueue>& XCGLogger::logQueue() {
    static const auto& shared =
        *new const std::shared_ptr<DispatchQueue>(DispatchQueue::make(std::string(Constants::logQueueIdentifier)));
    return shared;
}

void XCGLogger::setOutputLevel(Level level) {
    outputLevel_ = level;
    for (const auto& destination : destinations_) {
        destination->setOutputLevel(level);
    }
}

const std::shared_ptr<const DateFormatter>& XCGLogger::dateFormatter() const {
    return knownDateFormatter();
}

const std::shared_ptr<const DateFormatter>& XCGLogger::knownDateFormatter() const {
    if (customDateFormatter_) {
        return customDateFormatter_;
    }
    static const auto& standard = *new const std::shared_ptr<const DateFormatter>(
        std::make_shared<const DateFormatter>("yyyy-MM-dd HH:mm:ss.SSS"));
    return standard;
}

void XCGLogger::setDateFormatter(std::shared_ptr<const DateFormatter> formatter) {
    customDateFormatter_ = std::move(formatter);
}

std::shared_ptr<DestinationProtocol> XCGLogger::destination(std::string_view identifier) const {
    const auto found = std::ranges::find_if(
        destinations_, [&](const auto& destination) { return destination->identifier() == identifier; });
    return found == destinations_.end() ? nullptr : *found;
}

bool XCGLogger::add(const std::shared_ptr<DestinationProtocol>& destination) {
    if (!destination || this->destination(destination->identifier())) {
        return false;
    }
    if (const std::shared_ptr<XCGLogger> previousOwner = destination->owner()) {
        previousOwner->remove(destination);
    }
    destination->setOwner(shared_from_this());
    destinations_.push_back(destination);
    learnRecipients();
    return true;
}

bool XCGLogger::remove(const std::shared_ptr<DestinationProtocol>& destination) {
    if (!destination) {
        return false;
    }
    const std::shared_ptr<DestinationProtocol> registered = this->destination(destination->identifier());
    if (!registered) {
        return false;
    }
    // The destination may hold the last reference to this logger.
    const std::shared_ptr<XCGLogger> self = shared_from_this();
    registered->setOwner(nullptr);
    std::erase(destinations_, registered);
    letGo(*registered);
    learnRecipients();
    LogCallScope::keepUntilCallEnds(registered);
    return true;
}

bool XCGLogger::remove(std::string_view identifier) {
    const std::shared_ptr<DestinationProtocol> registered = destination(identifier);
    return registered && remove(registered);
}

bool XCGLogger::isEnabledFor(Level level) const {
    return outputLevel() <= level;
}

bool XCGLogger::accepts(const Recipient& recipient, Level level) {
    return recipient.known != nullptr ? recipient.known->outputLevel_.load(std::memory_order_relaxed) <= level
                                      : isAccepted(*recipient.destination, level);
}

// After the system call of a write a processor has forgotten where functions return to: on the way of a line each
// one that is inlined is some nanoseconds less.
[[gnu::always_inline]] inline void XCGLogger::logAccepted(std::size_t firstAccepting, Level level,
                                                          const SourceLocation& place, UserInfoReference userInfo,
                                                          MessageReference message) {
    const LogCallScope scope;
    // Asked before the message is rendered: its closure may change the list.
    DestinationProtocol* last = recipients_[firstAccepting].destination;
    const CallRecord record;
    std::vector<DestinationProtocol*>& others = record.destinations();
    others.clear();
    for (std::size_t index = firstAccepting + 1; index < recipients_.size(); ++index) {
        if (accepts(recipients_[index], level)) {
            others.push_back(std::exchange(last, recipients_[index].destination));
        }
    }

    record->message.clear();
    if (!message.render(record->message)) {
        return;
    }
    record->level = level;
    record->date = currentDate();
    LogCallScope::setDate(record->date);
    record->functionName.assign(place.functionName, place.isStatic);
    record->fileName.assign(place.fileName, place.isStatic);
    record->lineNumber = place.lineNumber;
    const UserInfo& resolved = userInfo.resolve(record->userInfo);
    if (&resolved != &record->userInfo) {
        record->userInfo = resolved;
    }

    if (!others.empty()) {
        const RecordCopy copy;
        for (DestinationProtocol* const destination : others) {
            *copy = *record;
            reportingExceptions([&] { destination->process(*copy); });
        }
    }
    last->process(*record);
}

void XCGLogger::logln(Level level, const SourceLocation& place, UserInfoReference userInfo, MessageReference message) {
    std::size_t index = 0;
    while (index < recipients_.size() && !accepts(recipients_[index], level)) {
        ++index;
    }
    if (index < recipients_.size()) {
        reportingExceptions([&] { logAccepted(index, level, place, userInfo, message); });
    }
}

void XCGLogger::logAppDetails(DestinationProtocol* selectedDestination) {
    const LogCallScope scope;
    const Date date = currentDate();
    const std::array<LogDetails, 2> records = {
        internalRecord(appDetailsText(), Level::info, date),
        internalRecord("XCGLogger Version: " + std::string(Constants::versionString) +
                           " - Level: " + std::string(description(outputLevel())),
                       Level::info, date)};

    std::vector<DestinationProtocol*> considered;
    if (selectedDestination != nullptr) {
        considered.push_back(selectedDestination);
    } else {
        for (const auto& destination : destinations_) {
            considered.push_back(destination.get());
        }
    }
    for (DestinationProtocol* const destination : considered) {
        if (destination->haveLoggedAppDetails()) {
            continue;
        }
        for (LogDetails record : records) {
            if (isAccepted(*destination, Level::info)) {
                destination->setHaveLoggedAppDetails(true);
                reportingExceptions([&] { destination->processInternal(record); });
            }
        }
    }
}

void XCGLogger::_logln(std::string_view message, Level level, const DestinationProtocol* source) {
    const LogCallScope scope;
    const LogDetails record = internalRecord(message, level, currentDate());
    const std::vector<std::shared_ptr<DestinationProtocol>> present = destinations_;
    for (const auto& destination : present) {
        if (level >= Level::error && source != nullptr && destination->identifier() == source->identifier()) {
            continue;
        }
        if (isAccepted(*destination, level)) {
            LogDetails copy = record;
            reportingExceptions([&] { destination->processInternal(copy); });
        }
    }
}

std::string XCGLogger::debugDescription() const {
    std::string text = dynamicTypeName(*this) + ": " + identifier() + " - destinations: \r";
    for (const auto& destination : destinations_) {
        text += "\t " + destination->debugDescription() + "\r";
    }
    return text;
}

}  // namespace velora
