#pragma once

#include <string>

namespace velora {

/// Whether what is done in the folder at `path` stays there although others may write to the folder above it, as to
/// /tmp: 0 if so, else an error number. Internal.
///
/// In such a place the folder has to belong to the user that the process acts for and not be writable to all. EPERM if
/// not, if it is a symbolic link, whoever made that, or if the folder above does not protect what it holds (S_ISVTX).
/// Where only some may write, the folder and links to it are theirs to make: 0. ENOENT if there is nothing, ENOTDIR for
/// a file of the user's.
///
/// A folder that passes does so until the user, or root, changes it. Any thread; nothing throws.
int checkOwnFolder(const std::string& path);

}  // namespace velora
