#pragma once

#include <optional>
#include <string>
#include <vector>

#include <Velora_UserDefaults/Platform/FileError.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/ArchivedLogFile.h>

namespace velora {

/// The archives in the folder at `path`, newest first: marked regular files; of the destination with `identifier`
/// alone, if that is given.
FileResult<std::vector<ArchivedLogFile>> archivesIn(const std::string& path,
                                                    const std::optional<std::string>& identifier);

/// The paths of the archives of the log file at `liveFile`, oldest first: those marked files in `folder` whose name
/// is that of the live file with a text before its extension. If that text ends as archives' names do by default
/// ("app_2024-03-01_154502.log"), the archive belongs to the file that is named by what stands before that. Else, where
/// another log file in the live file's folder has a longer name that fits, too, an archive is that one's. An empty
/// `folder` is the one where archives are put by default.
///
/// On a file system that takes no marks, files that are named as archives are by default ("app_2024-03-01_154502.log")
/// stand in for them, which is enough for reading.
std::vector<std::string> archivesOfLiveFile(const std::string& liveFile, const std::string& folder);

}  // namespace velora
