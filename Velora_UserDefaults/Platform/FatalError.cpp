#include <array>
#include <cerrno>
#include <cstdlib>
#include <sys/uio.h>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/FatalError.h>

namespace velora {

void fatalError(std::string_view text) noexcept {
    char newline = '\n';
    const std::array<iovec, 2> parts{iovec{const_cast<char*>(text.data()), text.size()}, iovec{&newline, 1}};
    // Gathered, so that the line stays in one piece beside what other threads and processes write.
    while (::writev(STDERR_FILENO, parts.data(), static_cast<int>(parts.size())) < 0 && errno == EINTR) {
    }
    std::abort();
}

}  // namespace velora
