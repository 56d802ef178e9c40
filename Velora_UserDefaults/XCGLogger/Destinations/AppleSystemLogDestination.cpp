#include <Velora_UserDefaults/Platform/SystemLog.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AppleSystemLogDestination.h>

namespace velora {

void AppleSystemLogDestination::setShowDate(bool /*show*/) {}

void AppleSystemLogDestination::write(std::string_view message) {
    systemLog(message);
}

}  // namespace velora
