#include "DefaultsListing.h"

#include <algorithm>
#include <cstddef>
#include <fmt/format.h>
#include <iterator>

#include <Velora_UserDefaults/Platform/FileManager.h>

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

DefaultsRow storedRow(const Entry& entry) {
    return {.key = entry.key,
            .type = std::string(typeName(entry.type)),
            .text = entry.text,
            .json = entry.json,
            .isStored = true};
}

std::string quoted(std::string_view text) {
    return jsonText(text).value_or("null");
}

DefaultsRow defaultRow(const PreferenceEntry& preference) {
    DefaultsRow row{.key = std::string(preference.key),
                    .type = std::string(nameOf(typeOf(preference.kind))),
                    .text = std::nullopt,
                    .json = "null"};
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
                row.json = "{\"url\": " + quoted(*row.text) + "}";
            }
            break;
        case PreferenceKind::text:
            break;
    }
    return row;
}

std::size_t widest(const std::vector<DefaultsRow>& rows, std::string DefaultsRow::*column, std::size_t least) {
    std::size_t width = least;
    for (const DefaultsRow& row : rows) {
        width = std::max(width, printable(row.*column).size());
    }
    return width;
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
            rows.push_back(storedRow(*entry));
            entries.erase(entry);
        }
    }
    std::transform(entries.begin(), entries.end(), std::back_inserter(rows), storedRow);
    return rows;
}

std::string asTable(const std::vector<DefaultsRow>& rows) {
    const std::size_t keyWidth = widest(rows, &DefaultsRow::key, 3);
    const std::size_t typeWidth = widest(rows, &DefaultsRow::type, 4);
    std::string table = fmt::format("{:{}}  {:{}}  {:7}  {}\n", "KEY", keyWidth, "TYPE", typeWidth, "STATE", "VALUE");
    for (const DefaultsRow& row : rows) {
        std::string line = fmt::format("{:{}}  {:{}}  {:7}  {}", printable(row.key), keyWidth, row.type, typeWidth,
                                       row.isStored ? "stored"
                                       : row.text   ? "default"
                                                    : "absent",
                                       printable(row.text.value_or("")));
        line.erase(line.find_last_not_of(' ') + 1);
        table += line + "\n";
    }
    return table;
}

std::string asJSON(const std::vector<DefaultsRow>& rows) {
    std::string list = "[";
    for (const DefaultsRow& row : rows) {
        list += fmt::format("{}\n  {{\"key\": {}, \"type\": \"{}\", \"value\": {}, \"stored\": {}}}",
                            list.size() == 1 ? "" : ",", quoted(row.key), row.type, row.json, row.isStored);
    }
    return list + "\n]\n";
}

std::string asKeys(const std::vector<DefaultsRow>& rows) {
    std::string keys;
    for (const DefaultsRow& row : rows) {
        keys += printable(row.key) + "\n";
    }
    return keys;
}

}  // namespace velora
