#include "LogTime.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <ctime>

namespace velora {

namespace {

bool isDigit(char character) noexcept {
    return character >= '0' && character <= '9';
}

/// The number that the `count` digits at `index` are; -1 if they are none.
int digitsAt(std::string_view text, std::size_t index, std::size_t count) noexcept {
    if (text.size() < index + count) {
        return -1;
    }
    int number = 0;
    for (const char character : text.substr(index, count)) {
        if (!isDigit(character)) {
            return -1;
        }
        number = number * 10 + (character - '0');
    }
    return number;
}

struct Fields {
    int year, month, day, hour, minute, second;
};

bool exists(const Fields& fields) {
    const std::chrono::year_month_day day{std::chrono::year(fields.year),
                                          std::chrono::month(static_cast<unsigned>(fields.month)),
                                          std::chrono::day(static_cast<unsigned>(fields.day))};
    // Years that a Date reaches in full.
    return fields.year > 1677 && fields.year < 2262 && fields.month > 0 && fields.day > 0 && day.ok() &&
           fields.hour >= 0 && fields.hour < 24 && fields.minute >= 0 && fields.minute < 60 && fields.second >= 0 &&
           fields.second <= 60;
}

Date universalDate(const Fields& fields) {
    const std::chrono::sys_days day = std::chrono::year_month_day{
        std::chrono::year(fields.year), std::chrono::month(static_cast<unsigned>(fields.month)),
        std::chrono::day(static_cast<unsigned>(fields.day))};
    return day + std::chrono::hours(fields.hour) + std::chrono::minutes(fields.minute) +
           std::chrono::seconds(fields.second);
}

Date localDate(const Fields& fields) {
    std::tm time{};
    time.tm_year = fields.year - 1900;
    time.tm_mon = fields.month - 1;
    time.tm_mday = fields.day;
    time.tm_hour = fields.hour;
    time.tm_min = fields.minute;
    time.tm_sec = fields.second;
    time.tm_isdst = -1;
    return Date(std::chrono::seconds(std::mktime(&time)));
}

/// Day and time to the second, in the positions of "yyyy-mm-dd hh:mm:ss".
Fields fieldsOf(std::string_view text) noexcept {
    return {.year = digitsAt(text, 0, 4),
            .month = digitsAt(text, 5, 2),
            .day = digitsAt(text, 8, 2),
            .hour = digitsAt(text, 11, 2),
            .minute = digitsAt(text, 14, 2),
            .second = digitsAt(text, 17, 2)};
}

/// Local dates are asked for in the order of a log, and the system's calendar costs more than all the rest: the
/// minute of the last one is kept.
std::optional<Date> localDateOf(std::string_view text) {
    constexpr std::size_t sizeToMinute = 16;
    static std::array<char, sizeToMinute> knownMinute{};
    static std::optional<Date> dateOfKnownMinute;
    const int second = digitsAt(text, 17, 2);
    if (second < 0 || second > 60) {
        return std::nullopt;
    }
    if (std::memcmp(knownMinute.data(), text.data(), sizeToMinute) != 0) {
        Fields fields = fieldsOf(text);
        fields.second = 0;
        dateOfKnownMinute = exists(fields) ? std::optional(localDate(fields)) : std::nullopt;
        std::memcpy(knownMinute.data(), text.data(), sizeToMinute);
    }
    return dateOfKnownMinute ? std::optional(*dateOfKnownMinute + std::chrono::seconds(second)) : std::nullopt;
}

/// The size of the fraction, with its point, that stands at `index`.
std::size_t sizeOfFraction(std::string_view text, std::size_t index) noexcept {
    if (index + 1 >= text.size() || (text[index] != '.' && text[index] != ',') || !isDigit(text[index + 1])) {
        return 0;
    }
    std::size_t end = index + 1;
    while (end < text.size() && isDigit(text[end])) {
        ++end;
    }
    return end - index;
}

std::chrono::nanoseconds fractionOf(std::string_view digits) noexcept {
    constexpr std::size_t known = 9;
    std::int64_t fraction = 0;
    std::int64_t unit = 1'000'000'000;
    for (const char digit : digits.substr(0, known)) {
        fraction = fraction * 10 + (digit - '0');
        unit /= 10;
    }
    return std::chrono::nanoseconds(fraction * unit);
}

struct Offset {
    std::size_t size = 0;
    std::chrono::minutes value{0};
};

/// "Z", "+01:00" or "+0100" at `index`, behind a space or not. A space and "Z" is none: there a name may begin.
Offset offsetAt(std::string_view text, std::size_t index) noexcept {
    const std::size_t begin = index;
    if (index < text.size() && (text[index] == 'Z' || text[index] == 'z')) {
        return {.size = 1};
    }
    index += index < text.size() && text[index] == ' ' ? 1 : 0;
    if (index >= text.size() || (text[index] != '+' && text[index] != '-')) {
        return {};
    }
    const int hours = digitsAt(text, index + 1, 2);
    const std::size_t colon = index + 3 < text.size() && text[index + 3] == ':' ? 1 : 0;
    const int minutes = digitsAt(text, index + 3 + colon, 2);
    if (hours < 0 || hours > 23 || minutes < 0 || minutes > 59) {
        return {};
    }
    const std::chrono::minutes value(hours * 60 + minutes);
    return {.size = index + 5 + colon - begin, .value = text[index] == '-' ? -value : value};
}

std::string_view withoutSpaces(std::string_view text) {
    while (text.starts_with(' ')) {
        text.remove_prefix(1);
    }
    while (text.ends_with(' ')) {
        text.remove_suffix(1);
    }
    return text;
}

std::optional<std::chrono::seconds> secondsOfUnit(std::string_view unit) {
    struct Unit {
        std::string_view names;
        std::int64_t seconds;
    };
    constexpr std::array<Unit, 5> units = {{{" s sec secs second seconds ", 1},
                                            {" m min mins minute minutes ", 60},
                                            {" h hour hours ", 3'600},
                                            {" d day days ", 86'400},
                                            {" w week weeks ", 604'800}}};
    const std::string name = " " + std::string(unit) + " ";
    for (const Unit& each : units) {
        if (each.names.find(name) != std::string_view::npos) {
            return std::chrono::seconds(each.seconds);
        }
    }
    return std::nullopt;
}

std::tm localTime(Date date) {
    const std::time_t seconds = std::chrono::floor<std::chrono::seconds>(date).time_since_epoch().count();
    std::tm time{};
    ::localtime_r(&seconds, &time);
    return time;
}

/// The whole of `text` as a date, if it is one.
std::optional<Date> wholeDate(const std::string& text) {
    return sizeOfDate(text) == text.size() ? readDate(text) : std::nullopt;
}

}  // namespace

bool beginsWithDate(std::string_view text) noexcept {
    return text.size() >= shortestDateSize && text[4] == '-' && text[7] == '-' && text[13] == ':' && text[16] == ':' &&
           (text[10] == ' ' || text[10] == 'T' || text[10] == 't') && isDigit(text[0]) && isDigit(text[9]) &&
           isDigit(text[18]);
}

std::size_t sizeOfDate(std::string_view text) noexcept {
    if (!beginsWithDate(text)) {
        return 0;
    }
    const std::size_t size = shortestDateSize + sizeOfFraction(text, shortestDateSize);
    return size + offsetAt(text, size).size;
}

std::optional<Date> readDate(std::string_view text) {
    if (!beginsWithDate(text)) {
        return std::nullopt;
    }
    const std::size_t fractionSize = sizeOfFraction(text, shortestDateSize);
    const Offset offset = offsetAt(text, shortestDateSize + fractionSize);
    std::optional<Date> date;
    if (offset.size == 0) {
        date = localDateOf(text);
    } else if (const Fields fields = fieldsOf(text); exists(fields)) {
        date = universalDate(fields) - offset.value;
    }
    if (date && fractionSize > 0) {
        *date += fractionOf(text.substr(shortestDateSize + 1, fractionSize - 1));
    }
    return date;
}

std::optional<std::chrono::seconds> parsedDuration(std::string_view text) {
    constexpr std::int64_t most = 1'000'000;
    std::chrono::seconds sum{0};
    text = withoutSpaces(text);
    if (text.empty()) {
        return std::nullopt;
    }
    while (!text.empty()) {
        std::int64_t number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        if (error != std::errc() || number < 0 || number > most) {
            return std::nullopt;
        }
        text = withoutSpaces(text.substr(static_cast<std::size_t>(end - text.data())));
        const auto endOfUnit = std::find_if(text.begin(), text.end(),
                                            [](unsigned char character) { return std::isalpha(character) == 0; });
        const auto size = static_cast<std::size_t>(endOfUnit - text.begin());
        const auto unit = secondsOfUnit(text.substr(0, size));
        if (!unit) {
            return std::nullopt;
        }
        sum += number * *unit;
        text = withoutSpaces(text.substr(size));
    }
    return sum;
}

std::optional<Date> parsedMoment(std::string_view text, Date now) {
    text = withoutSpaces(text);
    const std::string given(text);
    const std::string today = localText(now).substr(0, 10);
    const std::string givenToday = std::string(today).append(" ").append(given);
    // Each kind is brought to the form of a complete date.
    for (const std::string& candidate : {given, given + " 00:00:00", given + ":00", givenToday, givenToday + ":00"}) {
        if (const auto date = wholeDate(candidate)) {
            return date;
        }
    }
    if (text == "now") {
        return now;
    }
    if (text == "today") {
        return wholeDate(today + " 00:00:00");
    }
    if (text == "yesterday") {
        std::tm day = localTime(now);
        return localDate({.year = day.tm_year + 1900,
                          .month = day.tm_mon + 1,
                          .day = day.tm_mday - 1,
                          .hour = 0,
                          .minute = 0,
                          .second = 0});
    }
    if (text.ends_with("ago")) {
        text = withoutSpaces(text.substr(0, text.size() - 3));
    }
    const auto duration = parsedDuration(text);
    return duration ? std::optional(now - *duration) : std::nullopt;
}

std::string localText(Date date, bool withSeconds) {
    const std::tm time = localTime(date);
    std::array<char, 64> text{};
    const std::size_t size =
        std::strftime(text.data(), text.size(), withSeconds ? "%Y-%m-%d %H:%M:%S" : "%Y-%m-%d %H:%M", &time);
    return {text.data(), size};
}

}  // namespace velora
