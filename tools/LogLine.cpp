#include "LogLine.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <nlohmann/json.hpp>
#include <vector>

#include "LogTime.h"

namespace velora {

namespace {

constexpr std::string_view jsonBegin = R"({"date":")";
constexpr std::string_view jsonLevel = R"(","level":")";
// How far behind a date in an unknown form the level's column may begin.
constexpr std::size_t farthestLevel = 100;

std::string_view firstLine(std::string_view text) {
    return text.substr(0, text.find('\n'));
}

/// The size of the escape sequences that colour formatters put in front: "\e[31;1m", "\e[fg255,0,0;".
std::size_t sizeOfEscapes(std::string_view line) {
    std::size_t size = 0;
    while (line.substr(size).starts_with("\x1b[")) {
        const std::string_view rest = line.substr(size + 2);
        const bool isXcodes = rest.starts_with("fg") || rest.starts_with("bg");
        const std::size_t end = rest.find_first_of(isXcodes ? ";" : "m");
        constexpr std::size_t longest = 40;
        if (end > longest) {
            break;
        }
        size += 2 + end + 1;
    }
    return size;
}

/// The level whose word `text` begins with; `size` gets the word's size.
std::optional<Level> levelAtStart(std::string_view text, std::uint32_t& size) {
    for (const Level level : Levels::all) {
        const std::string_view word = description(level);
        if (text.size() > word.size() && text.front() == word.front() && text.starts_with(word)) {
            size = static_cast<std::uint32_t>(word.size());
            return level;
        }
    }
    return std::nullopt;
}

/// Reads "[Level] " at `index`, and notes it in `head`.
bool readLevel(std::string_view line, std::size_t index, LogHead& head) {
    if (index >= line.size() || line[index] != '[') {
        return false;
    }
    std::uint32_t size = 0;
    const auto level = levelAtStart(line.substr(index + 1), size);
    if (!level || line.substr(index + 1 + size, 2) != "] ") {
        return false;
    }
    head.level = level;
    head.levelAt = static_cast<std::uint32_t>(index);
    head.levelSize = size + 2;
    head.columnsAt = static_cast<std::uint32_t>(index + size + 3);
    return true;
}

LogHead headOfJSON(std::string_view line) {
    LogHead head;
    head.beginsRecord = true;
    head.isJSON = true;
    head.hasDate = true;
    head.dateAt = jsonBegin.size();
    std::size_t index = jsonBegin.size() + sizeOfDate(line.substr(jsonBegin.size()));
    if (line.substr(index).starts_with(jsonLevel)) {
        index += jsonLevel.size();
        std::uint32_t size = 0;
        const auto level = levelAtStart(line.substr(index), size);
        if (level && line[index + size] == '"') {
            head.level = level;
            head.levelAt = static_cast<std::uint32_t>(index - 1);
            head.levelSize = size + 2;
        }
    }
    return head;
}

bool readLevelAnywhere(std::string_view line, LogHead& head) {
    const std::string_view front = line.substr(0, farthestLevel);
    for (std::size_t index = front.find('['); index != std::string_view::npos; index = front.find('[', index + 1)) {
        if (readLevel(line, index, head)) {
            return true;
        }
    }
    return false;
}

bool isNumber(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, [](unsigned char byte) { return std::isdigit(byte) != 0; });
}

/// Whether a column is a source file's name, with a line behind it ("Session.cpp:42") or one of the usual extensions.
bool looksLikePlace(std::string_view column) {
    constexpr std::array<std::string_view, 18> extensions = {"c",   "cc",  "cpp", "cxx", "c++", "cppm",
                                                             "cu",  "h",   "hh",  "hpp", "hxx", "h++",
                                                             "inc", "inl", "ipp", "ixx", "m",   "mm"};
    const std::size_t colon = column.rfind(':');
    const bool hasLine = colon != std::string_view::npos && isNumber(column.substr(colon + 1));
    const std::string_view name = hasLine ? column.substr(0, colon) : column;
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot + 1 == name.size()) {
        return false;
    }
    return hasLine || std::ranges::find(extensions, name.substr(dot + 1)) != extensions.end();
}

/// The name of the file in a column that tells the place; empty if it tells the line alone.
std::string_view fileOfPlace(std::string_view column) {
    const std::size_t colon = column.rfind(':');
    if (colon != std::string_view::npos && isNumber(column.substr(colon + 1))) {
        return column.substr(0, colon);
    }
    return isNumber(column) ? std::string_view() : column;
}

/// The texts of the bracketed columns that `text` begins with.
std::vector<std::string_view> bracketedColumns(std::string_view text) {
    std::vector<std::string_view> columns;
    while (text.starts_with('[')) {
        const std::size_t end = text.find("] ");
        if (end == std::string_view::npos) {
            break;
        }
        columns.push_back(text.substr(1, end - 1));
        text.remove_prefix(end + 2);
    }
    return columns;
}

LogColumns columnsOfJSON(std::string_view line) {
    const auto object = nlohmann::json::parse(line, nullptr, /*allow_exceptions=*/false);
    const auto text = [&](const char* name) {
        const auto member = object.is_object() ? object.find(name) : object.end();
        return member != object.end() && member->is_string() ? member->get<std::string>() : std::string();
    };
    return {.logger = text("logger"), .thread = text("thread"), .file = text("file"), .mayLackThread = false};
}

}  // namespace

LogLayout LogLayout::of(std::string_view sample) {
    auto kind = Kind::anything;
    while (!sample.empty() && kind != Kind::date) {
        std::string_view line = firstLine(sample);
        sample.remove_prefix(std::min(sample.size(), line.size() + 1));
        line.remove_prefix(sizeOfEscapes(line));
        LogHead head;
        if (line.starts_with(jsonBegin) || beginsWithDate(line)) {
            kind = Kind::date;
        } else if (readLevel(line, 0, head)) {
            kind = std::max(kind, Kind::level);
        } else if (readLevelAnywhere(line, head)) {
            kind = std::max(kind, Kind::levelAnywhere);
        } else if (line.find("> ") != std::string_view::npos) {
            kind = std::max(kind, Kind::arrow);
        }
    }
    return LogLayout(kind);
}

LogHead LogLayout::head(std::string_view line) const {
    const std::size_t escapes = line.starts_with('\x1b') ? sizeOfEscapes(line) : 0;
    const std::string_view text = line.substr(escapes);
    if (line.starts_with(jsonBegin)) {
        return headOfJSON(line);
    }
    LogHead head;
    switch (kind_) {
        case Kind::date:
            head.hasDate = head.beginsRecord = beginsWithDate(text);
            if (head.beginsRecord) {
                head.dateAt = static_cast<std::uint32_t>(escapes);
                // The engine's own form is told at a glance; the rest is looked for only where it is another.
                constexpr std::size_t usualSize = shortestDateSize + 4;
                const std::size_t size =
                    text.size() > usualSize + 1 && text[usualSize] == ' ' && text[usualSize + 1] == '['
                        ? usualSize
                        : sizeOfDate(text);
                head.columnsAt = static_cast<std::uint32_t>(std::min(line.size(), escapes + size + 1));
                readLevel(line, head.columnsAt, head);
            }
            break;
        case Kind::level:
            head.beginsRecord = readLevel(line, escapes, head);
            break;
        case Kind::levelAnywhere:
            head.beginsRecord = readLevelAnywhere(line, head);
            break;
        case Kind::arrow:
            head.beginsRecord = text.find("> ") != std::string_view::npos;
            head.columnsAt = static_cast<std::uint32_t>(escapes);
            break;
        case Kind::anything:
            head.beginsRecord = true;
            break;
    }
    return head;
}

std::optional<Date> dateOf(std::string_view line, const LogHead& head) {
    return head.hasDate ? readDate(line.substr(head.dateAt)) : std::nullopt;
}

LogColumns columnsOf(std::string_view line, const LogHead& head) {
    if (head.isJSON) {
        return columnsOfJSON(firstLine(line));
    }
    std::vector<std::string_view> columns = bracketedColumns(firstLine(line).substr(head.columnsAt));
    LogColumns texts;
    // Where all three are shown the last is the place, whatever it looks like.
    constexpr std::size_t all = 3;
    const bool hasPlace = columns.size() >= all || (!columns.empty() && looksLikePlace(columns.back()));
    if (hasPlace) {
        texts.file = fileOfPlace(columns.back());
        columns.pop_back();
    }
    if (!columns.empty()) {
        texts.logger = columns.front();
        texts.thread = columns.back();
        texts.mayLackThread = !hasPlace && isNumber(columns.back());
    }
    return texts;
}

std::optional<Level> levelOfWord(std::string_view word) {
    const auto hasWord = [&](Level level) {
        return std::ranges::equal(word, description(level), [](unsigned char left, unsigned char right) {
            return std::tolower(left) == std::tolower(right);
        });
    };
    const auto* const found = std::ranges::find_if(Levels::all, hasWord);
    return found == Levels::all.end() ? std::nullopt : std::optional(*found);
}

}  // namespace velora
