#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/Platform/Export.h>

namespace velora {

/// Writes dates as text by a Unicode date pattern (UTS 35), in the language, digits and calendar of
/// a locale and in a time zone.
///
///     DateFormatter formatter("yyyy-MM-dd HH:mm:ss.SSS", "de_DE", "Europe/Berlin");
///     formatter.string(currentDate());  // "2026-11-21 19:51:45.123"
///
/// Never changes after it was made, so any number of threads may use one formatter at once, also
/// while static objects are being destroyed. Formatting the same second again on a thread costs
/// some nanoseconds: each thread keeps the text of the last few seconds and only writes the
/// fraction anew. That holds for patterns with at most one run of "S" and without "A".
///
/// Nothing here throws for a bad argument:
/// - a pattern is used as far as it is understood: text ends at a letter that stands for
///   nothing, and a quote that is not closed reaches to the end;
/// - a locale that is not known falls back to its language, then to the root locale;
/// - a time zone that is not known is GMT, and `timeZone()` is "Etc/Unknown".
///
/// To change how dates look beyond patterns, derive and override `append`.
class VELORA_EXPORT DateFormatter {
public:
    /// Formats by `pattern` in the user's locale and the system's time zone as they are now.
    /// The locale is the first of the environment's LC_ALL, LC_TIME and LANG that is not empty; the
    /// zone is the environment's TZ, else the one that /etc/localtime names. A TZ that names no zone of ICU's, as
    /// rules do ("CET-1CEST,M3.5.0,M10.5.0/3"), is left to the C library: localtime_r(3) gives offset and name, and
    /// follows a later tzset(3) of the process.
    explicit DateFormatter(std::string pattern);

    /// Formats by `pattern` in the locale ("de_DE", or as a BCP 47 tag "de-DE",
    /// "ar-EG-u-nu-latn") and the time zone ("Europe/Berlin", "UTC", "GMT+02:00") named. Where one
    /// of them is empty, the user's or the system's is taken.
    DateFormatter(std::string pattern, const std::string& localeIdentifier, const std::string& timeZoneIdentifier);

    DateFormatter(const DateFormatter&) = delete;
    DateFormatter& operator=(const DateFormatter&) = delete;
    virtual ~DateFormatter();

    /// The text of `date`, in UTF-8: what `append` appends.
    [[nodiscard]] std::string string(Date date) const;

    /// Appends the text of `date` to `out`, in UTF-8. A run of "S" gives as many digits of the
    /// second's fraction, cut off and not rounded; from the tenth on they are zeros.
    virtual void append(Date date, std::string& out) const;

    /// Room that is enough for `writeCached`, in bytes.
    static constexpr std::size_t maximumCachedSize = 100;

    /// Writes what `append` would append to `out`, if that is at hand without any work, and returns its size; else
    /// writes nothing and returns 0. It never is at hand for a class that may override `append`. Internal.
    std::size_t writeCached(Date date, char* out) const noexcept;

    /// The pattern as given.
    [[nodiscard]] const std::string& pattern() const;

    /// The identifier of the locale in use, as ICU writes it: "de_DE"; "root" for the root locale.
    [[nodiscard]] const std::string& locale() const;

    /// The identifier of the time zone in use: "Europe/Berlin".
    [[nodiscard]] const std::string& timeZone() const;

    /// Whether every letter of the pattern was understood and the time zone is known.
    [[nodiscard]] bool isValid() const;

private:
    class Engine;
    std::unique_ptr<const Engine> engine_;
};

}  // namespace velora
