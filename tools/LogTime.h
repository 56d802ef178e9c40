#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/Platform/Date.h>

/// Dates as log lines and people write them. One thread at a time.
namespace velora {

/// The size of the shortest date that `readDate` reads: "2026-11-22 01:23:39".
inline constexpr std::size_t shortestDateSize = 19;

/// Whether `text` begins as a date does; a quick look.
bool beginsWithDate(std::string_view text) noexcept;

/// How many bytes the date takes that `text` begins with; 0 if it begins with none.
std::size_t sizeOfDate(std::string_view text) noexcept;

/// The date that `text` begins with: "2026-11-22 01:23:39", with "T" between day and time or not, with a fraction or
/// not, and behind that, perhaps after a space, "Z" or an offset ("+01:00", "+0100"). Without one of these it is in the
/// local time zone. Nothing if it begins with none, or if there is no such day or time.
std::optional<Date> readDate(std::string_view text);

/// The point in time that a person means: a date as above; a day ("2026-11-22") or a day with a time to the minute; a
/// time of today ("14:30", "14:30:05"); "now", "today", "yesterday"; or how long before `now`: "10m", "2h ago",
/// "1d 12h". Nothing for anything else.
std::optional<Date> parsedMoment(std::string_view text, Date now);

/// A duration: numbers with their units, "90m", "1d 12h". Nothing for anything else.
std::optional<std::chrono::seconds> parsedDuration(std::string_view text);

/// `date` in the local time zone: "2026-11-22 01:23:39", or without seconds.
std::string localText(Date date, bool withSeconds = true);

}  // namespace velora
