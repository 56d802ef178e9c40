#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

namespace velora {

/// A key with its value, stored or not.
struct DefaultsRow {
    std::string key;
    std::string type;                 ///< "string", "int", "bool", "url", "real" or "json"
    std::optional<std::string> text;  ///< nothing if there is neither a stored value nor a default
    std::string json;                 ///< the value as JSON text, "null" if there is none
    bool isStored = false;
};

/// The known keys in their order, then the others that are stored. A key that is not stored has the value that its
/// property reads.
std::vector<DefaultsRow> defaultsRows(const DefaultsStore& store);

/// The rows in aligned columns under a heading, one a line.
std::string asTable(const std::vector<DefaultsRow>& rows);
/// The rows as a JSON list of objects with the members key, type, value and stored.
std::string asJSON(const std::vector<DefaultsRow>& rows);
/// The keys, one a line.
std::string asKeys(const std::vector<DefaultsRow>& rows);

}  // namespace velora
