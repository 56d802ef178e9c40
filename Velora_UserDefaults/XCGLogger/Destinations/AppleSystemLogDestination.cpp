#include <utility>

#include <Velora_UserDefaults/Platform/SystemLog.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AppleSystemLogDestination.h>

namespace velora {

AppleSystemLogDestination::AppleSystemLogDestination(Making key, std::shared_ptr<XCGLogger> owner,
                                                     std::string identifier)
    : BaseQueuedDestination(key, std::move(owner), std::move(identifier)) {
    BaseQueuedDestination::setShowDate(false);
}

void AppleSystemLogDestination::setShowDate(bool /*show*/) {}

void AppleSystemLogDestination::write(std::string_view message) {
    systemLog(message);
}

}  // namespace velora
