#pragma once

#include <cerrno>
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

/// Owns a file descriptor and closes it; -1 is none. Internal. One thread at a time.
class Descriptor {
public:
    explicit Descriptor(int descriptor = -1) : descriptor_(descriptor) {}
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

}  // namespace velora
