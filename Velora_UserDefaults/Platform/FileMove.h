#pragma once

/// How FileManager gives a file a new path. Internal. Any thread; nothing throws.
///
/// These functions return 0 or the system's error number.

#include <string>

namespace velora {

/// Renames `from` to `to` within a file system, and fails with EEXIST rather than replace anything. Atomic, but for
/// folders on the few file systems that know neither RENAME_NOREPLACE nor hard links: there something that
/// appears at `to` at the same moment is replaced. EXDEV between file systems.
int renameWithoutReplacing(const std::string& from, const std::string& to);

/// Copies the file, link or folder at `from` to `to`, where nothing may be, with permissions, owner (where allowed),
/// modification date and user extended attributes (where there are any). `to` appears when all of it is on the disk,
/// and not at all on failure. ENOTSUP for pipes, sockets and devices.
int copyWithoutReplacing(const std::string& from, const std::string& to);

}  // namespace velora
