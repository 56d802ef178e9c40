#pragma once

/// How FileManager gives a file a new path. Internal. Any thread; nothing throws.
///
/// These functions return 0 or the system's error number.

#include <string>
#include <sys/types.h>

#include <Velora_UserDefaults/Platform/Descriptor.h>

namespace velora {

/// Renames `from` to `to` within a file system, and fails with EEXIST rather than replace anything. Atomic, but for
/// folders on the few file systems that know neither RENAME_NOREPLACE nor hard links: there something that
/// appears at `to` at the same moment is replaced. EXDEV between file systems.
int renameWithoutReplacing(const std::string& from, const std::string& to);

/// Copies the file, link or folder at `from` to `to`, where nothing may be, with permissions, owner (where allowed),
/// modification date and user extended attributes (where there are any). `to` appears when all of it is on the disk,
/// and not at all on failure. ENOTSUP for pipes, sockets and devices.
int copyWithoutReplacing(const std::string& from, const std::string& to);

/// A copy of a file that others may still append to: with a hidden name beside `to` at first, which a lock marks as in
/// use and which goes with this object, and under its own when it is finished.
class FileCopy {
public:
    FileCopy() = default;
    FileCopy(const FileCopy&) = delete;
    FileCopy& operator=(const FileCopy&) = delete;
    ~FileCopy();

    /// Copies what the file at `from` has now. Partial copies beside `to` that no process holds any more are removed.
    int begin(const std::string& from, const std::string& to);
    /// Copies what was appended since, all attributes, and gives the copy its name, when all of it is durable. Fails
    /// with EEXIST rather than replace anything.
    int finish();

private:
    Descriptor source_;
    Descriptor target_;
    std::string to_;
    std::string temporary_;
};

/// Removes from `folder` the partial copies of files that a process has left there which was killed.
void removeAbandonedCopies(const std::string& folder);

}  // namespace velora
