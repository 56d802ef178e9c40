#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/UserDefaults/PreferenceTable.h>

namespace velora {

/// A key with its value, stored or not.
struct DefaultsRow {
    std::string key;
    std::string type;                 ///< "string", "int", "bool", "url", "real" or "json"
    std::optional<std::string> text;  ///< nothing if there is neither a stored value nor a default
    std::string json;                 ///< the value as JSON text, "null" if there is none
    bool isStored = false;
    const PreferenceEntry* preference = nullptr;  ///< the row of a known key
    std::string problem = {};                     ///< why the property could not read the stored value back
};

/// The known keys in their order, then the others that are stored. A key that is not stored has the value that its
/// property reads.
std::vector<DefaultsRow> defaultsRows(const DefaultsStore& store);

/// The row of a known or stored key; nothing for any other.
std::optional<DefaultsRow> defaultsRow(const DefaultsStore& store, std::string_view key);

/// The rows in aligned columns under a heading, one a line.
std::string asTable(const std::vector<DefaultsRow>& rows);
/// The rows as a JSON list of objects with the members key, property, type, value and stored; of a choice with case
/// and words, of a value that the property cannot read with problem.
std::string asJSON(const std::vector<DefaultsRow>& rows);
/// The keys, one a line.
std::string asKeys(const std::vector<DefaultsRow>& rows);
/// All that is known of one key, a fact a line.
std::string asDescription(const DefaultsRow& row);

}  // namespace velora
