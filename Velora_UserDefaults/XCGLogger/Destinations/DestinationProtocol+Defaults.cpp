// What every destination does with its filters and formatters. It reads the owner's lists, so it stands
// above the logger, while the protocol itself stands below it.

#include <Velora_UserDefaults/XCGLogger/Destinations/DestinationProtocol.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora {

namespace {

template <typename List>
const List& ownOrOwners(const DestinationProtocol& destination, const List& own,
                        const List& (XCGLogger::*owners)() const) {
    if (own) {
        return own;
    }
    const std::shared_ptr<XCGLogger>& owner = destination.owner();
    return owner ? (*owner.*owners)() : own;
}

}  // namespace

const Filters& DestinationProtocol::filtersInUse() const {
    return ownOrOwners(*this, filters(), &XCGLogger::filters);
}

const Formatters& DestinationProtocol::formattersInUse() const {
    return ownOrOwners(*this, formatters(), &XCGLogger::formatters);
}

bool DestinationProtocol::shouldExclude(LogDetails& logDetails, std::string& message) {
    const Filters& filters = filtersInUse();
    if (!filters) {
        return false;
    }
    for (const auto& filter : *filters) {
        bool excludes = false;
        reportingExceptions([&] { excludes = filter->shouldExclude(logDetails, message); });
        if (excludes) {
            return true;
        }
    }
    return false;
}

void DestinationProtocol::applyFormatters(LogDetails& logDetails, std::string& message) {
    const Formatters& formatters = formattersInUse();
    if (!formatters) {
        return;
    }
    for (const auto& formatter : *formatters) {
        reportingExceptions([&] {
            std::string formatted = message;
            formatter->format(logDetails, formatted);
            message.swap(formatted);
        });
    }
}

}  // namespace velora
