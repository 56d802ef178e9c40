#pragma once

#include <any>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/FileError.h>

namespace velora {

class FileHandle;
class URL;

/// Attributes of a file: values by the names in FileAttributeKey. Other names may be there and mean nothing here.
using FileAttributes = std::map<std::string, std::any, std::less<>>;

/// The names of the attributes that FileManager knows, and the types of their values.
///
/// Where a whole number is wanted, any of the standard signed and unsigned integer types from `short` to
/// `long long` will do. A value of another type is as if it were not there.
struct FileAttributeKey {
    /// The permission bits: a whole number, for example 0600, or `std::filesystem::perms`. Read as `int`.
    static constexpr const char* posixPermissions = "posixPermissions";
    /// The user id of the owner: a whole number. Read as `unsigned`.
    static constexpr const char* ownerAccountID = "ownerAccountID";
    /// The group id: a whole number. Read as `unsigned`.
    static constexpr const char* groupOwnerAccountID = "groupOwnerAccountID";
    /// When the contents last changed: `std::chrono::sys_time<std::chrono::nanoseconds>`, which is also
    /// `std::chrono::system_clock::time_point`.
    static constexpr const char* modificationDate = "modificationDate";
    /// When the file was made: as above. Only read, and only there if the file system knows it.
    static constexpr const char* creationDate = "creationDate";
    /// The number of bytes: `std::uint64_t`. Only read.
    static constexpr const char* size = "size";
};

/// Looks at, makes, moves and removes files and folders, and finds the user's standard folders.
///
/// It has no state: every function may be called by any thread at any time. Nothing throws. Paths are the
/// system's: bytes, absolute or relative to the working folder; one with a NUL inside names no file (EINVAL).
/// Symbolic links are followed unless a function says otherwise.
class VELORA_EXPORT FileManager {
public:
    /// Whether `path` names a file, a folder or anything else. A link that leads nowhere does not.
    static bool fileExists(const std::string& path);

    /// Makes an empty file at `path`, emptying one that is already there, and returns whether that worked.
    ///
    /// A new file has the permissions 0640 less the umask. With `posixPermissions` in `attributes` the file, new
    /// or not, gets exactly those, whatever the umask; a new one never had more. Owner, group and
    /// modification date are set, too, where given. False if the file could not be made or emptied, or if one of these
    /// could not be set; in the latter case it is there all the same. `code`, if given, gets the system's error
    /// number (`errno`) if the file could not be made or emptied, else 0.
    static bool createFile(const std::string& path, const FileAttributes& attributes = {}, int* code = nullptr);

    /// Opens the file at `path` for writing at its end, and makes it, as `createFile`, if there is none: in one step,
    /// so that no other process comes between. One that is there is emptied and given `attributes` if `empties` is set,
    /// else left as it is. `existed` gets whether it was there. Fails as `FileHandle::openForWriting`, or if the file
    /// cannot be made. FileHandle.h declares what is returned.
    static FileResult<FileHandle> open(const std::string& path, bool empties, const FileAttributes& attributes,
                                       bool& existed);

    /// Makes a folder with the permissions 0750 less the umask. With `withIntermediates` the missing folders
    /// above it are made alike, and it is no error if the folder is there already.
    static FileResult<void> createFolder(const std::string& path, bool withIntermediates = false);

    /// Gives the file, folder or link at `from` the new path `to`. Never replaces anything: if `to` exists, or is
    /// `from`, this fails with EEXIST. A link is moved itself.
    ///
    /// Within a file system this is one rename. To another one it is a copy of data, permissions, owner (where
    /// allowed), modification date and user extended attributes (where the file system has them), which is brought to
    /// the disk before it appears under its name, and then removal of the original. On failure the original is as it
    /// was and nothing is at `to`; only where a copied folder could not be removed do both stay.
    static FileResult<void> move(const std::string& from, const std::string& to);

    /// Removes the file, link or folder at `path`, a folder with all that is in it. Never follows links.
    /// Fails with ENOENT if there is nothing.
    static FileResult<void> remove(const std::string& path);

    /// The paths, each beginning with `path`, of what the folder at `path` holds, in no particular order;
    /// with `skipHidden` without those whose name begins with a dot.
    static FileResult<std::vector<std::string>> contentsOfFolder(const std::string& path, bool skipHidden = false);

    /// All attributes of FileAttributeKey of what is at `path`, `creationDate` only where it is known.
    static FileResult<FileAttributes> attributesOf(const std::string& path);

    /// The user's folders for application data, best first: `$XDG_DATA_HOME` if that is an absolute path, else
    /// `.local/share` in the home folder (XDG Base Directory). Empty if the user has no home. As with the other
    /// folders, whether it exists is not looked at. URL.h declares what is returned.
    static std::vector<URL> applicationSupportFolders();

    /// The user's download folders, best first: the `XDG_DOWNLOAD_DIR` line of `user-dirs.dirs` in
    /// `$XDG_CONFIG_HOME` (else `~/.config`), as xdg-user-dirs writes it; without one, `Downloads` in the home
    /// folder. Empty if the user has no home.
    static std::vector<URL> downloadsFolders();

    /// The folder for short-lived files: `$TMPDIR` if that is the absolute path of a folder, else `/tmp`. The path
    /// does not end in a slash, unless it is the root.
    static std::string temporaryFolder();

    /// The home folder: `$HOME` if that is an absolute path, else what the user database says of the user;
    /// empty if there is none.
    static std::string homeFolder();

    /// The folder for settings: `$XDG_CONFIG_HOME` if that is an absolute path, else `.config` in the home folder if
    /// there is such a folder as that names (services may have none); else empty. Neither need exist.
    static std::string configurationFolder();

    /// `path` with a leading `~` or `~name` replaced by that user's home folder; unchanged if there is no such home.
    static std::string expandingTilde(std::string_view path);
};

}  // namespace velora
