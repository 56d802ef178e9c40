#pragma once

#include <cstdint>
#include <ctime>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>

#include <Velora_UserDefaults/Platform/Descriptor.h>

/// What the defaults store does with its file, the folder and the lock file: plain system calls, no state. Internal.
///
/// Paths are absolute. Every function may be called from any thread; which ones need the store's lock is said with
/// them. A function that can fail puts a line without an end into `fault` ("cannot …: No space left on device").
namespace velora {

/// Which file lies at a path, and in which state, as far as stat(2) tells.
///
/// Two contents can have one identity if the clock of the file system did not tick between them, so an identity is
/// good for a comparison only if it was already old when the contents were read.
struct DefaultsStoreIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    std::int64_t modified = 0;  ///< nanoseconds since 1970
    std::int64_t changed = 0;   ///< nanoseconds since 1970

    bool operator==(const DefaultsStoreIdentity&) const = default;

    static DefaultsStoreIdentity of(const struct stat& status);
    /// The identity of the file at `path`; nothing if there is none or it cannot be looked at.
    static std::optional<DefaultsStoreIdentity> at(const std::string& path);
};

/// The contents of the store's file.
struct DefaultsStoreContents {
    enum class State : std::uint8_t {
        complete,
        missing,     ///< there is no file
        unreadable,  ///< what is there is no regular file, or it may not be read
        tooLarge     ///< nothing of it was read
    };

    State state = State::missing;
    std::string bytes;
    std::optional<DefaultsStoreIdentity> identity;
    /// Whether `identity` was old enough when the bytes were read.
    bool settled = true;
    /// Whether the file was modified so shortly before that its writer may not have finished.
    bool young = false;
    std::string fault;  ///< why it is unreadable or too large

    static DefaultsStoreContents read(const std::string& path);
};

/// The absolute path that `path` leads to, if it names a symbolic link, be there a file or not. A link that another
/// user put into a folder where all may make some (as in /tmp) is not followed: writing then replaces the link, or
/// fails.
std::string resolvedStorePath(const std::string& path);

/// Makes the folder of `path` and those above it, where missing, with mode 0700 whatever the umask.
bool makeStoreFolder(const std::string& path, std::string& fault);

/// Opens a small file of ours beside the store; no link, nothing but a regular file, and nobody else's: in a folder
/// that others may write to, they may have put one there. With O_CREAT the user's file gets the mode 0600 whatever
/// the umask and its mode before. A file that is made belongs to the owner of the folder, so that a write by the
/// superuser does not lock the user out. Sets errno on failure.
Descriptor openBesideStore(const std::string& path, int flags);

/// Whether `path` still names the file that is open.
bool isStillAt(const std::string& path, int descriptor);

/// Puts `bytes` in the place of the store's file, on the disk, as a whole or not at all. `rename(move)` is to call
/// `move` once and return what it returns. Needs the store's lock: the new file is written under a fixed name, so that
/// dead writers leave one such file at most. What was the store's file stays under that name, and the next write but
/// one overwrites it: `DefaultsStoreContents::read` of one store may meet that if it takes longer than two writes.
bool replaceStoreFile(const std::string& path, std::string_view bytes,
                      const std::function<bool(const std::function<bool()>& move)>& rename, std::string& fault);

/// Puts `bytes` in the place of any other regular file, on the disk, as a whole or not at all. Touches no other file.
bool replaceForeignFile(const std::string& path, std::string_view bytes, std::string& fault);

/// Renames the file at `path` to a dated name that no file has, and returns that; nothing if it cannot be done. Needs
/// the store's lock.
std::optional<std::string> setStoreFileAside(const std::string& path, std::string& fault);

/// `what`, a colon and the meaning of errno.
std::string withSystemError(std::string_view what);

}  // namespace velora
