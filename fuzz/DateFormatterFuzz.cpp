// Date patterns, beside what ICU itself makes of them, and from the cache as without it. The first line is a pattern,
// the second a locale, the third a time zone; then follow dates, eight bytes each.

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <support/Fuzzing.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/Platform/DateFormatter.h>

namespace velora::test {
namespace {

constexpr std::size_t longestPattern = 200;
constexpr std::size_t longestIdentifier = 60;

/// What ICU makes of the pattern, which knows no more than milliseconds.
std::string formattedByICU(const DateFormatter& formatter, Date date) {
    UErrorCode status = U_ZERO_ERROR;
    const icu::SimpleDateFormat prototype(icu::UnicodeString::fromUTF8(formatter.pattern()),
                                          icu::Locale(formatter.locale().c_str()), status);
    icu::SimpleDateFormat format(prototype);
    format.adoptTimeZone(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(formatter.timeZone())));
    icu::UnicodeString text;
    std::string result;
    const auto milliseconds = std::chrono::floor<std::chrono::milliseconds>(date.time_since_epoch()).count();
    return format.format(static_cast<double>(milliseconds), text).toUTF8String(result);
}

void checkDate(const DateFormatter& formatter, Date date) {
    const std::string text = formatter.string(date);
    std::string appended = "before ";
    formatter.append(date, appended);
    requireEqual(appended, "before " + text, "the same date the second time");

    std::string cached(DateFormatter::maximumCachedSize, '\0');
    const std::size_t size = formatter.writeCached(date, cached.data());
    require(size == 0 || cached.substr(0, size) == text, "the text at hand is that of the date");
}

void check(const DateFormatter& formatter, Date date) {
    checkDate(formatter, date);
    // At both ends of time, rounding down and going on within the second would leave it.
    if (date < Date::min() + std::chrono::seconds(2) || date > Date::max() - std::chrono::seconds(2)) {
        return;
    }
    const Date whole = std::chrono::floor<std::chrono::milliseconds>(date);
    if (formatter.isValid()) {
        requireEqual(formatter.string(whole), formattedByICU(formatter, whole), "the date as ICU writes it");
    }
    // Somewhere else in the same second, so that its text comes from the cache.
    const Date second = std::chrono::floor<std::chrono::seconds>(date);
    const Date later = second + std::chrono::nanoseconds(987'654'321);
    checkDate(formatter, later);
    checkDate(formatter, second);
    // Nothing is at hand for a formatter that is new.
    const DateFormatter another(formatter.pattern(), formatter.locale(), formatter.timeZone());
    requireEqual(formatter.string(later), another.string(later), "a date from the cache as without it");
}

}  // namespace
}  // namespace velora::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using velora::test::longestIdentifier;
    velora::test::Input input(data, size);
    const std::string pattern(input.line().substr(0, velora::test::longestPattern));
    const std::string locale(input.line().substr(0, longestIdentifier));
    const std::string zone(input.line().substr(0, longestIdentifier));
    // Without a locale or zone the machine's own would be taken.
    const velora::DateFormatter formatter(pattern, locale.empty() ? "en_US" : locale, zone.empty() ? "UTC" : zone);
    velora::test::requireEqual(formatter.pattern(), pattern, "the pattern is kept");
    for (int count = 0; count < 2; ++count) {
        velora::test::check(formatter, velora::Date(std::chrono::nanoseconds(static_cast<std::int64_t>(input.word()))));
    }
    return 0;
}
