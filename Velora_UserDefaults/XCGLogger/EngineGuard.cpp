#include <Velora_UserDefaults/Platform/StandardOutput.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>

namespace velora {

void printException(std::string_view description) noexcept {
    printLine("Objective-C Exception occurred: ", description);
}

}  // namespace velora
