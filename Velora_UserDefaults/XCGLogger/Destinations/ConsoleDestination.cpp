#include <cstdio>

#include <Velora_UserDefaults/XCGLogger/Destinations/ConsoleDestination.h>

namespace velora {

void ConsoleDestination::write(std::string_view message) {
    ::flockfile(stdout);
    ::fwrite_unlocked(message.data(), 1, message.size(), stdout);
    ::putc_unlocked('\n', stdout);
    ::fflush_unlocked(stdout);
    ::funlockfile(stdout);
}

}  // namespace velora
