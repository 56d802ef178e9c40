#include "DefaultsListing.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <fmt/format.h>
#include <iterator>
#include <utility>

#include <Velora_UserDefaults/Platform/FileManager.h>

#include "DefaultsDescription.h"
#include "DefaultsValue.h"
#include "TerminalText.h"

namespace velora {

namespace {

using Entry = DefaultsStore::Entry;

std::string_view typeName(DefaultsStore::Type type) {
    using enum DefaultsStore::Type;
    switch (type) {
        case string:
            return "string";
        case integer:
            return "int";
        case boolean:
            return "bool";
        case real:
            return "real";
        case url:
            return "url";
        case other:
            break;
    }
    return "json";
}

DefaultsRow storedRow(const Entry& entry, const PreferenceEntry* preference) {
    return {.key = entry.key,
            .type = std::string(typeName(entry.type)),
            .text = entry.text,
            .json = entry.json,
            .isStored = true,
            .preference = preference,
            .problem = preference == nullptr ? "" : unreadableReason(*preference, entry)};
}

std::string jsonQuoted(std::string_view text) {
    return jsonText(text).value_or("null");
}

DefaultsRow defaultRow(const PreferenceEntry& preference) {
    DefaultsRow row{.key = std::string(preference.key),
                    .type = std::string(nameOf(typeOf(preference.kind))),
                    .text = std::nullopt,
                    .json = "null",
                    .preference = &preference};
    switch (preference.kind) {
        case PreferenceKind::boolean:
            row.text = preference.registered.value_or(0) != 0 ? "true" : "false";
            row.json = *row.text;
            break;
        case PreferenceKind::integer:
        case PreferenceKind::choice:
            row.text = std::to_string(preference.registered.value_or(0));
            row.json = *row.text;
            break;
        case PreferenceKind::url:
            if (const auto folders = FileManager::downloadsFolders();
                preference.preference == Preference::downloadLocation && !folders.empty()) {
                row.text = folders.front().absoluteString();
                row.json = "{\"url\": " + jsonQuoted(*row.text) + "}";
            }
            break;
        case PreferenceKind::text:
            break;
    }
    return row;
}

std::string propertyOf(const DefaultsRow& row) {
    return row.preference == nullptr ? "" : std::string(row.preference->property);
}

/// The case that the value of a choice is.
std::optional<std::size_t> caseOf(const DefaultsRow& row) {
    if (row.preference == nullptr || row.preference->kind != PreferenceKind::choice || !row.problem.empty()) {
        return std::nullopt;
    }
    return std::stoul(*row.text);
}

std::string stateOf(const DefaultsRow& row) {
    return !row.problem.empty() ? "invalid" : row.isStored ? "stored" : row.text ? "default" : "absent";
}

/// What values a preference takes.
std::string valuesOf(const PreferenceEntry& preference) {
    switch (preference.kind) {
        case PreferenceKind::choice:
            return shownCases(preference);
        case PreferenceKind::boolean:
            return "true or false";
        case PreferenceKind::integer:
            return "any integer of 64 bits";
        case PreferenceKind::url:
            return "a URL, or the path of a file";
        case PreferenceKind::text:
            break;
    }
    return "any text";
}

std::string shownValue(const DefaultsRow& row) {
    const auto number = caseOf(row);
    return number ? shownCase(*row.preference, *number) : printable(row.text.value_or(""));
}

}  // namespace

std::vector<DefaultsRow> defaultsRows(const DefaultsStore& store) {
    std::vector<Entry> entries = store.allValues();
    std::vector<DefaultsRow> rows;
    for (const PreferenceEntry& preference : preferenceTable()) {
        const auto entry = std::find_if(entries.begin(), entries.end(),
                                        [&](const Entry& candidate) { return candidate.key == preference.key; });
        if (entry == entries.end()) {
            rows.push_back(defaultRow(preference));
        } else {
            rows.push_back(storedRow(*entry, &preference));
            entries.erase(entry);
        }
    }
    std::transform(entries.begin(), entries.end(), std::back_inserter(rows),
                   [](const Entry& entry) { return storedRow(entry, nullptr); });
    return rows;
}

std::optional<DefaultsRow> defaultsRow(const DefaultsStore& store, std::string_view key) {
    for (DefaultsRow& row : defaultsRows(store)) {
        if (row.key == key) {
            return std::move(row);
        }
    }
    return std::nullopt;
}

std::string asTable(const std::vector<DefaultsRow>& rows) {
    using Line = std::array<std::string, 5>;
    std::vector<Line> lines = {{"KEY", "PROPERTY", "TYPE", "STATE", "VALUE"}};
    for (const DefaultsRow& row : rows) {
        lines.push_back({printable(row.key), propertyOf(row), row.type, stateOf(row), shownValue(row)});
    }
    std::array<std::size_t, 5> widths{};
    for (const Line& line : lines) {
        for (std::size_t column = 0; column + 1 < line.size(); ++column) {
            widths.at(column) = std::max(widths.at(column), line.at(column).size());
        }
    }
    std::string table;
    for (const Line& line : lines) {
        std::string shown;
        for (std::size_t column = 0; column < line.size(); ++column) {
            shown += fmt::format("{:{}}  ", line.at(column), widths.at(column));
        }
        table += shown.erase(shown.find_last_not_of(' ') + 1) + "\n";
    }
    return table;
}

std::string asJSON(const std::vector<DefaultsRow>& rows) {
    std::string list = "[";
    for (const DefaultsRow& row : rows) {
        const std::string property = propertyOf(row);
        list += fmt::format("{}\n  {{\"key\": {}, \"property\": {}, \"type\": \"{}\", \"value\": {}, \"stored\": {}",
                            list.size() == 1 ? "" : ",", jsonQuoted(row.key),
                            property.empty() ? "null" : jsonQuoted(property), row.type, row.json, row.isStored);
        if (const auto number = caseOf(row)) {
            list += fmt::format(", \"case\": {}, \"words\": {}", jsonQuoted(casesOf(*row.preference)[*number]),
                                jsonQuoted(row.preference->words[*number]));
        }
        list += row.problem.empty() ? "}" : fmt::format(", \"problem\": {}}}", jsonQuoted(row.problem));
    }
    return list + "\n]\n";
}

std::string asDescription(const DefaultsRow& row) {
    std::string text = fmt::format("Key:       {}\n", printable(row.key));
    const auto add = [&text](std::string_view name, const std::string& fact) {
        text += fact.empty() ? "" : fmt::format("{:<11}{}\n", fmt::format("{}:", name), fact);
    };
    add("Property", propertyOf(row));
    if (row.preference == nullptr) {
        add("Type", row.type);
        add("Stored", shownValue(row));
        add("Purpose", "not known to this tool");
        return text;
    }
    const DefaultsRow byDefault = defaultRow(*row.preference);
    add("Type", byDefault.type);
    add("Values", valuesOf(*row.preference));
    add("Default", byDefault.text ? shownValue(byDefault) : "(absent)");
    add("Stored", row.isStored ? shownValue(row) : "(nothing)");
    add("Problem", row.problem);
    add("Purpose", std::string(purposeOf(*row.preference)));
    return text;
}

std::string asKeys(const std::vector<DefaultsRow>& rows) {
    std::string keys;
    for (const DefaultsRow& row : rows) {
        keys += printable(row.key) + "\n";
    }
    return keys;
}

}  // namespace velora
