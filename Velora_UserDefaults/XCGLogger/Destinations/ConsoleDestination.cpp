#include <Velora_UserDefaults/Platform/StandardOutput.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/ConsoleDestination.h>

namespace velora {

void ConsoleDestination::write(std::string_view message) {
    printLine(message);
}

}  // namespace velora
