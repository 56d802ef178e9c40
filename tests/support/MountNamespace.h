#pragma once

#include <cerrno>
#include <cstring>
#include <optional>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <unistd.h>

#include "support/TemporaryFolder.h"

namespace velora::test {

/// What failed, and the system's reason for it.
inline std::string failureOf(const std::string& what) {
    return what + ": " + std::strerror(errno);
}

/// Moves the process to a mount namespace of its own, once: what it mounts from then on, only it and its
/// children see. Returns why that is impossible, or nothing.
///
/// Call it before the process starts threads. Needs root, or a kernel that lets users have namespaces of
/// their own.
inline std::optional<std::string> enterMountNamespace() {
    static const std::optional<std::string> failure = []() -> std::optional<std::string> {
        const uid_t user = ::geteuid();
        const gid_t group = ::getegid();
        if (::unshare(CLONE_NEWNS) != 0) {
            if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
                return failureOf("a mount namespace cannot be made");
            }
            writeFile("/proc/self/setgroups", "deny");
            writeFile("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
            writeFile("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
        }
        if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
            return failureOf("the mount namespace cannot be made private");
        }
        return std::nullopt;
    }();
    return failure;
}

}  // namespace velora::test
