#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>

#include <Velora_UserDefaults/Platform/Descriptor.h>

/// What the defaults store does with its file: plain system calls, no state. Internal; thread-safe.
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
    /// The identity of an open file; nothing if it cannot be looked at.
    static std::optional<DefaultsStoreIdentity> of(int descriptor);
    /// The identity of the file at `path`; nothing if there is none or it cannot be looked at.
    static std::optional<DefaultsStoreIdentity> at(const std::string& path);
};

/// The contents of the store's file.
struct DefaultsStoreContents {
    enum class State : std::uint8_t {
        complete,
        missing,     ///< there is no file
        unreadable,  ///< it is no regular file, or it cannot be read now
        tooLarge     ///< nothing of it was read
    };

    State state = State::missing;
    std::string bytes;
    std::optional<DefaultsStoreIdentity> identity;
    bool settled = true;  ///< whether `identity` was old enough when the bytes were read
    std::string fault;    ///< why it is unreadable or too large

    static DefaultsStoreContents read(const std::string& path);
};

/// Writes `bytes` durably to a new file beside the one at `path`, and opens it; nothing, with errno set, if that
/// failed. Needs the store's lock: the file has a fixed name, so that dead writers leave one at most.
Descriptor writeBeside(const std::string& path, std::string_view bytes);
/// Puts that file in the place of the one at `path`, or removes it. Returns whether it is in place; if not, errno says
/// why.
bool putInPlace(const std::string& path);

/// Renames the file at `path` to a dated name that no file has, and returns that; nothing, with errno set, if it cannot
/// be done. Needs the store's lock.
std::optional<std::string> setStoreFileAside(const std::string& path);

/// `what`, a colon and the meaning of errno.
std::string withSystemError(std::string_view what);

}  // namespace velora
