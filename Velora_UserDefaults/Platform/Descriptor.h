#pragma once

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace velora {

/// Makes a system call again for as long as a signal interrupts it. Internal.
template <typename Call>
auto retrying(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

/// Gives a descriptor that was just made another number if it has that of standard input, output or error, which the
/// host had closed; its own is closed. What anybody prints must not land in a file of ours. Returns -1 and leaves
/// `errno` if there is none. Internal.
inline int awayFromStandardStreams(int descriptor) noexcept {
    if (descriptor < 0 || descriptor > STDERR_FILENO) {
        return descriptor;
    }
    const int moved = ::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int code = errno;
    ::close(descriptor);
    errno = code;
    return moved;
}

/// Owns a file descriptor and closes it; -1 is none. Everything that the library opens passes through here, so that
/// none of it has a descriptor below 3. Internal. One thread at a time.
class Descriptor {
public:
    /// Takes over a descriptor that the caller just made, or -1, and leaves `errno` as it is unless there is none left.
    explicit Descriptor(int descriptor = -1) noexcept : descriptor_(awayFromStandardStreams(descriptor)) {}
    Descriptor(Descriptor&& other) noexcept : descriptor_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~Descriptor() { close(); }

    explicit operator bool() const { return descriptor_ >= 0; }
    int get() const { return descriptor_; }
    /// Gives it to the caller, who closes it.
    int release() { return std::exchange(descriptor_, -1); }
    /// Closes it now and returns whether the system had nothing against it.
    bool close() { return descriptor_ < 0 || ::close(release()) == 0; }

private:
    int descriptor_;
};

/// For calls that open descriptors which cannot be given another number, as the C library's own. Keeps those of the
/// standard streams that are closed in use while it lives, by something that can be neither read nor written. Internal.
class StandardStreamsInUse {
public:
    StandardStreamsInUse() noexcept {
        for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
            // The lowest free number is taken, which another thread may have come for first.
            if (::fcntl(stream, F_GETFD) < 0 && errno == EBADF) {
                const int held = retrying([] { return ::open("/", O_PATH | O_CLOEXEC); });
                if (held > STDERR_FILENO) {
                    ::close(held);
                }
                isHeld_[stream] = held == stream;
            }
        }
    }
    StandardStreamsInUse(const StandardStreamsInUse&) = delete;
    StandardStreamsInUse& operator=(const StandardStreamsInUse&) = delete;
    ~StandardStreamsInUse() {
        for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream) {
            // Unless the host opened something of its own there meanwhile.
            if (isHeld_[stream] && (::fcntl(stream, F_GETFL) & O_PATH) != 0) {
                ::close(stream);
            }
        }
    }

private:
    bool isHeld_[STDERR_FILENO + 1] = {};
};

}  // namespace velora
