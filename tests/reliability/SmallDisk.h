#pragma once

#include <optional>
#include <string>
#include <sys/mount.h>

#include "support/MountNamespace.h"
#include "support/TemporaryFolder.h"

namespace velora::test {

/// A file system in memory with little room, of a test's own. Needs what `enterMountNamespace` needs.
class SmallDisk {
public:
    static constexpr std::size_t size = std::size_t{128} * 1'024;

    SmallDisk() = default;
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    ~SmallDisk() { ::umount2(path().c_str(), MNT_DETACH); }

    /// Mounts it; returns why that is impossible, or nothing.
    std::optional<std::string> mount() const {
        if (auto reason = enterMountNamespace()) {
            return reason;
        }
        if (::mount("disk", path().c_str(), "tmpfs", 0, options().c_str()) != 0) {
            return failureOf("no file system can be mounted");
        }
        return std::nullopt;
    }
    /// Mounts it anew, to be read only or not; returns whether that is possible.
    bool remount(bool readOnly) const {
        return ::mount(nullptr, path().c_str(), nullptr, MS_REMOUNT | (readOnly ? unsigned{MS_RDONLY} : 0U), nullptr) ==
               0;
    }

    const std::string& path() const { return path_; }
    std::string operator/(const std::string& name) const { return path_ + "/" + name; }

private:
    static std::string options() { return "mode=755,nr_inodes=200,size=" + std::to_string(size); }

    TemporaryFolder folder_;
    const std::string path_ = folder_.path().string();
};

}  // namespace velora::test
