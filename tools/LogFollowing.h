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
    /// How many of the lines that are there already are shown first, as far as the filter accepts them.
    std::size_t lines = 10;
};

/// Prints what is written to the file from now on, as far as `filter` accepts it, until SIGINT or SIGTERM comes or the
/// output takes no more.
///
/// A file that is not there yet, is removed or replaced is waited for; one that gets smaller is read anew. After a
/// rotation what the file still held is printed, then every archive that was made since, then the new file: no line
/// is left out, however fast rotations follow each other, as long as the archives are there.
void follow(const Following& following, const LogFilter& filter, LogOutput& output);

}  // namespace velora
