#pragma once

#include <chrono>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <string>

#include <Velora_UserDefaults/Platform/Export.h>

/// Points in time and their forms as numbers. All functions may be called from any thread.
namespace velora {

/// A point in time: nanoseconds since 1970-01-01 00:00:00 UTC, leap seconds not counted. Reaches
/// from the year 1677 to 2262.
using Date = std::chrono::time_point<std::chrono::system_clock, std::chrono::nanoseconds>;

/// Now, by the system's real-time clock.
inline Date currentDate() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    return Date(std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

/// The seconds from 1970 to `date`, as the nearest number that a double can hold (today every
/// quarter of a microsecond is one); negative before 1970.
inline double secondsSince1970(Date date) {
    constexpr std::int64_t second = 1'000'000'000;
    const std::int64_t nanoseconds = date.time_since_epoch().count();
    const std::int64_t whole = nanoseconds / second;
    return static_cast<double>(whole) + static_cast<double>(nanoseconds % second) / 1e9;
}

/// The date `seconds` after 1970, to the nearest nanosecond. A number beyond the reach of `Date`
/// gives its first or last point in time; no number at all (NaN) gives 1970.
inline Date dateFromSecondsSince1970(double seconds) {
    if (std::isnan(seconds)) {
        return Date{};
    }
    constexpr double limit = 9223372036.0;
    if (seconds >= limit) {
        return Date::max();
    }
    if (seconds <= -limit) {
        return Date::min();
    }
    const double whole = std::floor(seconds);
    const std::int64_t fraction = std::llround((seconds - whole) * 1e9);
    return Date(std::chrono::seconds(static_cast<std::int64_t>(whole)) + std::chrono::nanoseconds(fraction));
}

/// The shortest decimal text that reads back as exactly `number`, never with an exponent and always
/// with a point and a fraction: "1700000000.0", "1700000000.123456", "-0.5". Infinities and NaN,
/// which have no digits, give "inf", "-inf" and "nan".
VELORA_EXPORT std::string shortestRoundTripText(double number);

}  // namespace velora
