#pragma once

#include <cstdint>
#include <optional>
#include <string>

/// Time zones that only the C library knows. Internal.
namespace velora {

/// How local time is reckoned at some second.
struct LocalTime {
    /// Seconds east of UTC.
    std::int32_t offset;
    /// The zone's abbreviation, "CEST".
    std::string name;
};

/// Local time at `second`, counted from 1970 in UTC, in the zone that the C library took from the environment last
/// (tzset(3)). Thread-safe, also in a child forked while another thread was here.
LocalTime localTimeAt(std::int64_t second);

/// The environment's TZ, if that is no identifier of a zone that ICU knows but something that the C library
/// understands (POSIX.1, tzset(3)): rules, "CET-1CEST,M3.5.0,M10.5.0/3", or the path of a file. Has the C library
/// take it over, for `localTimeAt`.
std::optional<std::string> timeZoneOfTheCLibraryAlone();

}  // namespace velora
