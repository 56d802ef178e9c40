#include "LogStatistics.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <cstddef>
#include <cstdint>
#include <fmt/format.h>
#include <langinfo.h>
#include <map>
#include <string_view>

#include "LogOutput.h"
#include "LogTime.h"

namespace velora {

namespace {

constexpr std::size_t mostRows = 50;
constexpr std::size_t barWidth = 40;
// Behind the levels' own columns comes that of records whose level is not known.
constexpr std::size_t columns = Levels::all.size() + 1;

using Counts = std::array<std::uint64_t, columns>;
using Minute = std::chrono::sys_time<std::chrono::minutes>;
/// Records without a date are counted under nothing.
using CountsOfSpans = std::map<std::optional<Minute>, Counts>;

std::uint64_t sum(const Counts& counts) {
    std::uint64_t total = 0;
    for (const std::uint64_t count : counts) {
        total += count;
    }
    return total;
}

void add(Counts& to, const Counts& counts) {
    for (std::size_t column = 0; column < columns; ++column) {
        to[column] += counts[column];
    }
}

CountsOfSpans countByMinute(LogStream& stream) {
    CountsOfSpans counts;
    std::optional<Minute> knownMinute;
    Counts* known = nullptr;
    while (const auto record = stream.next()) {
        std::optional<Minute> minute;
        if (const auto date = dateOf(record->text, record->head)) {
            minute = std::chrono::floor<std::chrono::minutes>(*date);
        }
        if (known == nullptr || minute != knownMinute) {
            known = &counts[minute];
            knownMinute = minute;
        }
        ++(*known)[record->head.level ? static_cast<std::size_t>(*record->head.level) : Levels::all.size()];
    }
    return counts;
}

/// `minute` without what it is beyond a whole number of spans since midnight, on a local clock.
Minute beginOfSpan(Minute minute, std::chrono::minutes width) {
    const auto date = localText(minute, /*withSeconds=*/false);
    const auto hours = std::chrono::hours((date[11] - '0') * 10 + (date[12] - '0'));
    const auto minutes = std::chrono::minutes((date[14] - '0') * 10 + (date[15] - '0'));
    return minute - (hours + minutes) % width;
}

CountsOfSpans inSpans(const CountsOfSpans& counts, std::chrono::minutes width) {
    CountsOfSpans spans;
    for (const auto& [minute, countsOfMinute] : counts) {
        add(spans[minute ? std::optional(beginOfSpan(*minute, width)) : minute], countsOfMinute);
    }
    return spans;
}

CountsOfSpans inSpansThatFit(const CountsOfSpans& counts) {
    constexpr std::array<int, 8> widths = {1, 5, 15, 30, 60, 180, 720, 1440};
    CountsOfSpans spans = counts;
    for (const int width : widths) {
        if (spans.size() <= mostRows) {
            break;
        }
        spans = inSpans(counts, std::chrono::minutes(width));
    }
    return spans;
}

/// A bar with a part for each level.
std::string bar(const Counts& counts, std::uint64_t largest, std::string_view block, bool isColored) {
    std::string text;
    std::uint64_t countSoFar = 0;
    std::size_t sizeSoFar = 0;
    for (std::size_t column = 0; column < columns; ++column) {
        countSoFar += counts[column];
        // What there is, is seen.
        const std::size_t size = std::max<std::size_t>(countSoFar > 0 ? 1 : 0, countSoFar * barWidth / largest);
        const bool hasColor = isColored && column < Levels::all.size() && size > sizeSoFar;
        text += hasColor ? colorBegin(Levels::all[column]) : std::string_view();
        for (; sizeSoFar < size; ++sizeSoFar) {
            text += block;
        }
        text += hasColor ? colorEnd : std::string_view();
    }
    return text;
}

std::string_view nameOfColumn(std::size_t column) {
    return column < Levels::all.size() ? description(Levels::all[column]) : std::string_view("Other");
}

std::string row(std::string_view title, const Counts& counts, const Counts& totals, std::string_view end) {
    std::string line = fmt::format("{:16}", title);
    for (std::size_t column = 0; column < columns; ++column) {
        if (totals[column] > 0) {
            line += fmt::format(" {:>9}", counts[column]);
        }
    }
    line += fmt::format(" {:>9}", sum(counts));
    return line.append(end.empty() ? "" : "  ").append(end).append("\n");
}

std::string heading(const Counts& totals) {
    std::string line = fmt::format("{:16}", "TIME");
    for (std::size_t column = 0; column < columns; ++column) {
        if (totals[column] > 0) {
            line += fmt::format(" {:>9}", nameOfColumn(column));
        }
    }
    return line + fmt::format(" {:>9}\n", "ALL");
}

}  // namespace

std::string statistics(LogStream& stream, std::optional<std::chrono::minutes> width, bool isColored) {
    const CountsOfSpans minutes = countByMinute(stream);
    if (minutes.empty()) {
        return {};
    }
    const CountsOfSpans spans = width ? inSpans(minutes, *width) : inSpansThatFit(minutes);
    Counts totals{};
    std::uint64_t largest = 0;
    for (const auto& [span, counts] : spans) {
        add(totals, counts);
        largest = std::max(largest, sum(counts));
    }
    std::setlocale(LC_CTYPE, "");
    const std::string_view block = std::string_view(::nl_langinfo(CODESET)) == "UTF-8" ? "█" : "#";
    std::string table = heading(totals);
    for (const auto& [span, counts] : spans) {
        table += row(span ? localText(*span, /*withSeconds=*/false) : "without a date", counts, totals,
                     bar(counts, largest, block, isColored));
    }
    return table + row("all", totals, totals, "");
}

}  // namespace velora
