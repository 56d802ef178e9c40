#pragma once

#include <string>
#include <vector>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/FileError.h>

namespace velora {

/// A log file that a rotation has moved to an archive, as the marks tell that the rotation left on it. A plain value.
///
///     if (const auto archives = archivedLogFiles("/var/log/app")) {
///         for (const ArchivedLogFile& archive : *archives) { offer(archive.path); }
///     }
struct ArchivedLogFile {
    /// The folder's path as it was given, "/", and the file's name.
    std::string path;
    /// The identifier of the destination that made it; any bytes, or none.
    std::string identifier;
    /// When it was archived: seconds since 1970 as decimal text, valid UTF-8. For sorting it is text, too.
    std::string timestamp;
};

/// Every archive in the folder at `path`, whatever destination made it, newest first. Told by both extended attributes
/// (`Constants::extendedAttributeArchivedLogIdentifierKey` and `…TimestampKey`) and nothing else: on a file system
/// without such attributes no file is known to be an archive. Hidden files are skipped. Fails if the folder
/// cannot be read. Any thread.
VELORA_EXPORT FileResult<std::vector<ArchivedLogFile>> archivedLogFiles(const std::string& path);

}  // namespace velora
