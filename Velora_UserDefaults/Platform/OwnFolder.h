#pragma once

#include <string>

#include <Velora_UserDefaults/Platform/Descriptor.h>

/// Folders and files that are for one user, in places that others may write to as well. Internal. Thread-safe; nothing
/// throws.
namespace velora {

/// Whether what is done in the folder at `path` stays there although others may write to the folder above it, as to
/// /tmp: 0 if so, else an error number.
///
/// In such a place the folder has to belong to the user that the process acts for and not be writable to all. EPERM if
/// not, if it is a symbolic link, whoever made that, or if the folder above does not protect what it holds (S_ISVTX).
/// Where only some may write, the folder and links to it are theirs to make: 0. ENOENT if there is nothing, ENOTDIR for
/// a file of the user's.
///
/// A folder that passes does so until the user, or root, changes it.
int checkOwnFolder(const std::string& path);

/// Makes the folder at `path` and those above it, where missing, with mode 0700 whatever the umask. What root makes in
/// another user's folder belongs to that user. 0, or an error number.
int makeOwnFolder(const std::string& path);

/// Opens a small file that is kept for the user alone: no link, nothing but a regular file, and nobody else's. In a
/// folder that others may write to, they may have put one there. With O_CREAT the user's file gets the mode 0600
/// whatever the umask and its mode before, and what root makes belongs to the owner of the folder. Sets errno on
/// failure.
Descriptor openOwnFile(const std::string& path, int flags);

/// Gives the open file at `path` to the owner of its folder if the process acts for root, so that root's writing does
/// not lock the user out.
void giveToFolderOwner(int descriptor, const std::string& path);

/// The absolute path that `path` leads to if it names a symbolic link, be there a file or not. A link that another user
/// put into a folder where all may make some is not followed.
std::string resolvedOwnPath(const std::string& path);

/// The folder of the file at `path`.
std::string folderOfFile(const std::string& path);

}  // namespace velora
