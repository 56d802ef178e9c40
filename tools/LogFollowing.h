#pragma once

#include <cstddef>
#include <string>

#include "LogFilter.h"
#include "LogOutput.h"

namespace velora {

/// What to follow.
struct Following {
    std::string path;
    /// Where its archives are put; empty for the default.
    std::string archiveFolder;
    /// How many of the lines that are there already are shown first, as far as the filter accepts them; with a filter,
    /// together with what comes before them in the same record.
    std::size_t lines = 10;
};

/// Why the file at `path` cannot be followed, in words; empty if it can, or is not there yet.
std::string whyNotFollowed(const std::string& path);

/// Prints what is written to the file from now on, as far as `filter` accepts it, until SIGINT or SIGTERM comes or the
/// output takes no more.
///
/// A file that is not there yet, is removed or replaced is waited for; one that gets smaller is read anew. After a
/// rotation what the file still held is printed, then every archive that was made since, then the new file: no line
/// is left out, however fast rotations follow each other, as long as the archives are there. A file that has another
/// in its place is read on for two seconds, because who writes to it may find out late.
void follow(const Following& following, const LogFilter& filter, LogOutput& output);

}  // namespace velora
