#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <poll.h>
#include <span>
#include <stdio_ext.h>
#include <sys/uio.h>

#include <Velora_UserDefaults/Platform/StandardOutput.h>

namespace velora {

namespace {

iovec asPart(std::string_view bytes) {
    return {.iov_base = const_cast<char*>(bytes.data()), .iov_len = bytes.size()};
}

/// Takes what was written off the front of `parts`.
void drop(std::size_t written, std::span<iovec>& parts) {
    while (!parts.empty()) {
        iovec& part = parts.front();
        const std::size_t share = std::min(written, part.iov_len);
        part.iov_base = static_cast<char*>(part.iov_base) + share;
        part.iov_len -= share;
        written -= share;
        if (part.iov_len > 0) {
            return;
        }
        parts = parts.subspan(1);
    }
}

/// Blocks until a non-blocking descriptor takes bytes again, or a write to it says why it never will.
void awaitRoom(int descriptor) {
    pollfd waiting{.fd = descriptor, .events = POLLOUT, .revents = 0};
    while (::poll(&waiting, 1, -1) < 0 && errno == EINTR) {
    }
}

/// Writes all of `parts`, which it uses up, as far as the system takes them.
void writeAll(int descriptor, std::span<iovec> parts) {
    drop(0, parts);
    while (!parts.empty()) {
        const ssize_t written = ::writev(descriptor, parts.data(), static_cast<int>(parts.size()));
        if (written > 0) {
            drop(static_cast<std::size_t>(written), parts);
        } else if (written < 0 && errno == EAGAIN) {
            awaitRoom(descriptor);
        } else if (written == 0 || errno != EINTR) {
            return;
        }
    }
}

}  // namespace

void printLine(std::string_view text, std::string_view rest) noexcept {
    // No inline form of putc here: the thread sanitizer does not know the stream's lock.
    ::flockfile(stdout);
    const int descriptor = ::fileno_unlocked(stdout);
    if (descriptor >= 0) {
        // Past the stream, whose fflush(3) drops what a full non-blocking descriptor does not take at once. What the
        // host printed goes first; there is room for all of it once there is some, as a pipe reports it in pages.
        if (::__fpending(stdout) > 0) {
            awaitRoom(descriptor);
            ::fflush_unlocked(stdout);
        }
        std::array<iovec, 3> parts{asPart(text), asPart(rest), asPart("\n")};
        writeAll(descriptor, parts);
    } else {
        for (const std::string_view part : {text, rest, std::string_view("\n")}) {
            ::fwrite_unlocked(part.data(), 1, part.size(), stdout);
        }
        ::fflush_unlocked(stdout);
    }
    ::funlockfile(stdout);
}

}  // namespace velora
