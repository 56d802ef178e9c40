#include <cstdio>

#include <Velora_UserDefaults/Platform/StandardOutput.h>

namespace velora {

void printLine(std::string_view text, std::string_view rest) noexcept {
    // No inline form of putc here: the thread sanitizer does not know the stream's lock.
    ::flockfile(stdout);
    ::fwrite_unlocked(text.data(), 1, text.size(), stdout);
    ::fwrite_unlocked(rest.data(), 1, rest.size(), stdout);
    ::fwrite_unlocked("\n", 1, 1, stdout);
    ::fflush_unlocked(stdout);
    ::funlockfile(stdout);
}

}  // namespace velora
