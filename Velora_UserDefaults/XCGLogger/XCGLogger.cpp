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
#include <Velora_UserDefaults/Platform/Lazy.h>
#include <Velora_UserDefaults/Platform/ProcessInfo.h>
#include <Velora_UserDefaults/Platform/Reused.h>
#include <Velora_UserDefaults/Platform/TypeName.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>
#include <Velora_UserDefaults/XCGLogger/InternalUserInfo.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora {

namespace {

/// A log call on its thread, and the memory that it uses, which is kept for the thread's next call.
///
/// A message closure, a filter or a rotation's completion may remove a destination to which the running
/// call is still going to deliver. Such a destination is kept alive until the outermost call of the
/// thread ends, which spares every call from holding a reference to each destination.
class LogCall {
public:
    LogCall() noexcept { ++depth_; }
    LogCall(const LogCall&) = delete;
    LogCall& operator=(const LogCall&) = delete;
    ~LogCall() {
        if (--depth_ == 0 && removed_ != nullptr) [[unlikely]] {
            delete std::exchange(removed_, nullptr);  // cleared first: the destinations' destructors may log
        }
    }

    /// Keeps `destination` until the thread's log calls have ended; does nothing outside of one.
    static void keepUntilCallEnds(const std::shared_ptr<DestinationProtocol>& destination) {
        if (depth_ > 0) {
            removed_ = removed_ != nullptr ? removed_ : new std::vector<std::shared_ptr<DestinationProtocol>>;
            removed_->push_back(destination);
        }
    }

private:
    __attribute__((tls_model("initial-exec"))) static inline thread_local constinit int depth_ = 0;
    __attribute__((tls_model(
        "initial-exec"))) static inline thread_local constinit std::vector<std::shared_ptr<DestinationProtocol>>*
        removed_ = nullptr;
};

/// The records of the running log call, kept for the thread's next one so that their texts need not be
/// allocated anew each time.
class CallRecords {
public:
    CallRecords() = default;
    CallRecords(const CallRecords&) = delete;
    CallRecords& operator=(const CallRecords&) = delete;
    ~CallRecords() {
        forgetWhatIsTheHosts(kept_->record);
        if (!kept_->others.empty()) {
            forgetWhatIsTheHosts(kept_->copy);
        }
    }

    LogDetails& record() const noexcept { return kept_->record; }
    /// The copy that all accepting destinations but the last one get, one after the other.
    LogDetails& copy() const noexcept { return kept_->copy; }
    /// Those destinations.
    std::vector<DestinationProtocol*>& others() const noexcept { return kept_->others; }

private:
    struct Kept {
        LogDetails record;
        LogDetails copy;
        std::vector<DestinationProtocol*> others;
    };

    /// What the host put in must not outlive the call, nor must the memory of an unusually long text.
    static void forgetWhatIsTheHosts(LogDetails& record) noexcept {
        constexpr std::size_t keptCapacity = 16'384;
        if (!record.userInfo.empty()) {
            record.userInfo.clear();
        }
        if (record.message.capacity() > keptCapacity) {
            std::string().swap(record.message);
        }
    }

    Reused<Kept> kept_;
};

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
        stopObserving(*destination);
    }
}

void XCGLogger::stopObserving(DestinationProtocol& destination) noexcept {
    if (DestinationThreshold* const threshold = destination.knownThreshold()) {
        threshold->stopObserving(*this);
    }
}

/// Notes which destinations need not be asked for their threshold: those that tell this logger, and it
/// alone, when it changes.
void XCGLogger::learnRecipients() {
    recipients_.clear();
    for (const auto& destination : destinations_) {
        DestinationThreshold* const threshold = destination->knownThreshold();
        const auto changed = [](XCGLogger& logger) { logger.learnThresholds(); };
        const bool isTold = threshold != nullptr && threshold->observe(*this, changed);
        recipients_.push_back({destination.get(), isTold ? threshold : nullptr});
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
    std::int64_t lowest = overridesNothing_ ? rawValue(Level::none) + 1 : 0;
    for (const Recipient& recipient : recipients_) {
        lowest = std::min(lowest, recipient.threshold == nullptr
                                      ? 0
                                      : rawValue(recipient.threshold->level(std::memory_order_seq_cst)));
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
    // Its destinations and it hold each other; one that came second removes them.
    struct Instance {
        const std::shared_ptr<XCGLogger> log = make<XCGLogger>(std::string(Constants::defaultInstanceIdentifier), true);
        ~Instance() {
            while (!log->destinations().empty() && log->remove(log->destinations().back())) {
            }
        }
    };
    static constinit Lazy<const Instance> shared;
    return shared.get([] { return new Instance; }).log;
}

const std::shared_ptr<DispatchQueue>& XCGLogger::logQueue() {
    static constinit Lazy<const std::shared_ptr<DispatchQueue>> shared;
    return shared.get([] {
        return new std::shared_ptr<DispatchQueue>(DispatchQueue::make(std::string(Constants::logQueueIdentifier)));
    });
}

void XCGLogger::setOutputLevel(Level level) {
    outputLevel_ = level;
    for (const auto& destination : destinations_) {
        destination->setOutputLevel(level);
    }
}

const std::shared_ptr<const DateFormatter>& XCGLogger::dateFormatter() const {
    if (customDateFormatter_) {
        return customDateFormatter_;
    }
    static constinit Lazy<const std::shared_ptr<const DateFormatter>> standard;
    return standard.get(
        [] { return new std::shared_ptr<const DateFormatter>(new const DateFormatter("yyyy-MM-dd HH:mm:ss.SSS")); });
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
    stopObserving(*registered);
    learnRecipients();
    LogCall::keepUntilCallEnds(registered);
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
    return recipient.threshold != nullptr ? recipient.threshold->level() <= level
                                          : isAccepted(*recipient.destination, level);
}

// After the system call of a write a processor has forgotten where functions return to: on the way of a line each
// one that is inlined is some nanoseconds less.
[[gnu::always_inline]] inline void XCGLogger::logAccepted(std::size_t firstAccepting, Level level,
                                                          const SourceLocation& place, UserInfoReference userInfo,
                                                          MessageReference message) {
    const LogCall call;
    // Asked before the message is rendered: its closure may change the list.
    DestinationProtocol* last = recipients_[firstAccepting].destination;
    const CallRecords records;
    std::vector<DestinationProtocol*>& others = records.others();
    others.clear();
    for (std::size_t index = firstAccepting + 1; index < recipients_.size(); ++index) {
        if (accepts(recipients_[index], level)) {
            others.push_back(std::exchange(last, recipients_[index].destination));
        }
    }

    LogDetails& record = records.record();
    record.message.clear();
    if (!message.render(record.message)) {
        return;
    }
    record.level = level;
    record.date = currentDate();
    record.functionName.assign(place.functionName, place.isStatic);
    record.fileName.assign(place.fileName, place.isStatic);
    record.lineNumber = place.lineNumber;
    const UserInfo& resolved = userInfo.resolve(record.userInfo);
    if (&resolved != &record.userInfo) {
        record.userInfo = resolved;
    }

    for (DestinationProtocol* const destination : others) {
        records.copy() = record;
        reportingExceptions([&] { destination->process(records.copy()); });
    }
    last->process(record);
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
    const LogCall call;
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
    const LogCall call;
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
