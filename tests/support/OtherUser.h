#pragma once

#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "support/ForkedChild.h"
#include "support/TemporaryFolder.h"

namespace velora::test {

/// Two users without rights, by their numbers: one who uses the library, and one who means him harm.
inline constexpr uid_t someUser = 65534;
inline constexpr uid_t anotherUser = 65533;

/// Whether tests can act as other users.
inline bool canBecomeOtherUsers() {
    return ::geteuid() == 0;
}

/// Runs `work` in a forked child of the user `user` and returns what it returns, as `resultOfForkedChild`; 99 if it
/// could not become that user.
template <class Work>
int resultAsUser(uid_t user, Work work) {
    return resultOfForkedChild([&] {
        if (::setgroups(0, nullptr) != 0 || ::setresgid(user, user, user) != 0 || ::setresuid(user, user, user) != 0) {
            return 99;
        }
        return work();
    });
}

/// A folder as /tmp is: all may write to it, and only the owner may remove what is his.
class SharedFolder {
public:
    SharedFolder() {
        ::chmod(folder_.path().c_str(), 0755);
        ::mkdir(path().c_str(), 0700);
        ::chmod(path().c_str(), 01777);
    }
    std::string path() const { return folder_ / "shared"; }
    std::string operator/(const std::string& name) const { return path() + "/" + name; }

    /// A folder beside it that belongs to `user` alone, or whatever `mode` says.
    std::string folderOf(uid_t user, mode_t mode = 0700) const {
        std::string folder = folder_ / std::to_string(user);
        ::mkdir(folder.c_str(), 0700);
        EXPECT_EQ(::chown(folder.c_str(), user, user), 0);
        ::chmod(folder.c_str(), mode);
        return folder;
    }

private:
    TemporaryFolder folder_;
};

}  // namespace velora::test
