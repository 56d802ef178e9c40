#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "LogStream.h"

namespace velora {

/// How many records there are of each level in each span of time.
///
/// `width` is that of the spans; without it a minute, or as much more as it takes for all of them to fit on a
/// screen. Returns a table with a bar for each span that has records, and with the sums; empty if there are no records.
std::string statistics(LogStream& stream, std::optional<std::chrono::minutes> width, bool isColored);

}  // namespace velora
