#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <Velora_UserDefaults/Platform/FileError.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/ArchivedLogFile.h>

#include "LogOutput.h"

namespace velora {

/// An archive with what there is to know about it.
struct ArchiveRow {
    std::string name;
    std::string identifier;
    std::string archivedAt;
    std::uint64_t size = 0;
    /// Nothing if it could not be read.
    std::optional<std::uint64_t> lines;
};

/// A row for each archive. Every one is read to its end; one that cannot be is complained of.
std::vector<ArchiveRow> archiveRows(const std::vector<ArchivedLogFile>& archives);

/// The rows in aligned columns under a heading, one a line.
std::string asTable(const std::vector<ArchiveRow>& rows);

/// All but the newest `keep` archives of each destination. `archives` are in order, newest first.
std::vector<ArchivedLogFile> allButNewest(const std::vector<ArchivedLogFile>& archives, std::size_t keep);

/// Removes the archives and prints the path of each that is removed, or with `isOnlyTried` that would be. Returns
/// whether nothing failed; what did is complained of. That `output` takes no more keeps none from being removed.
bool removeArchives(const std::vector<ArchivedLogFile>& archives, bool isOnlyTried, LogOutput& output);

}  // namespace velora
