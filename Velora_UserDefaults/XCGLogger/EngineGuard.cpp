#include <cstdio>

#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>

namespace velora {

void printException(std::string_view description) noexcept {
    static constexpr std::string_view prefix = "Objective-C Exception occurred: ";
    ::flockfile(stdout);
    ::fwrite_unlocked(prefix.data(), 1, prefix.size(), stdout);
    ::fwrite_unlocked(description.data(), 1, description.size(), stdout);
    ::putc_unlocked('\n', stdout);
    ::fflush_unlocked(stdout);
    ::funlockfile(stdout);
}

}  // namespace velora
