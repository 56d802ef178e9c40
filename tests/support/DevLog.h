#pragma once

#include <array>
#include <fcntl.h>
#include <optional>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

#include "support/MountNamespace.h"
#include "support/TemporaryFolder.h"

namespace velora::test {

/// Puts a memory file system over /dev, with the devices that programs need. Returns why that is impossible.
inline std::optional<std::string> replaceDev() {
    constexpr std::array names{"null", "zero", "full", "random", "urandom"};
    std::array<int, names.size()> devices{};
    for (std::size_t i = 0; i < names.size(); ++i) {
        devices[i] = ::open((std::string("/dev/") + names[i]).c_str(), O_PATH | O_CLOEXEC);
    }
    if (::mount("dev", "/dev", "tmpfs", MS_NOSUID | MS_NOEXEC, "mode=755") != 0) {
        return failureOf("nothing can be mounted on /dev");
    }
    for (std::size_t i = 0; i < names.size(); ++i) {
        const std::string path = std::string("/dev/") + names[i];
        writeFile(path, "");
        const std::string device = "/proc/self/fd/" + std::to_string(devices[i]);
        if (::mount(device.c_str(), path.c_str(), nullptr, MS_BIND, nullptr) != 0) {
            return failureOf(path + " cannot be mounted");
        }
        ::close(devices[i]);
    }
    return std::nullopt;
}

/// Makes /dev/log lead to the socket at `socket` for this process, and only this one: what it sends by syslog(3) goes
/// there, and the system's own log sees nothing. Returns why that is impossible here, or nothing.
///
/// The first call moves the process into a mount namespace of its own, in which /dev has little else: make it before
/// anything else logs or starts threads. Needs root, or a kernel that lets users have namespaces of their own.
inline std::optional<std::string> leadDevLogTo(const std::string& socket) {
    static const std::optional<std::string> failure = [] {
        auto reason = enterMountNamespace();
        return reason ? reason : replaceDev();
    }();
    if (failure) {
        return failure;
    }
    ::unlink("/dev/log");
    if (::symlink(socket.c_str(), "/dev/log") != 0) {
        return failureOf("/dev/log cannot be made");
    }
    return std::nullopt;
}

}  // namespace velora::test
