#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/Platform/URL.h>
#include <Velora_UserDefaults/UserDefaults/PreferenceTable.h>

namespace velora {

/// A value that can be written.
using DefaultsValue = std::variant<std::string, std::int64_t, bool, URL>;

/// What a value is written as, in the order of `DefaultsValue`.
enum class DefaultsValueType : std::uint8_t { string, integer, boolean, url };

/// "string", "int", "bool" or "url".
std::string_view nameOf(DefaultsValueType type);

/// What the property of a known preference reads.
DefaultsValueType typeOf(PreferenceKind kind);

/// `text` as JSON text; nothing if it is not UTF-8.
std::optional<std::string> jsonText(std::string_view text);

/// The value that `text` is: any text that is UTF-8; a decimal integer of 64 bits; true, yes, 1, false, no or 0 in
/// any case; a URL, or the path of a file, where "~/" at its beginning is the user's home. Nothing if it is none; then
/// `fault` says what is wrong.
std::optional<DefaultsValue> parsedValue(DefaultsValueType type, std::string_view text, std::string& fault);

/// The value that `text` is for `preference`: the same, or the name of a case of its choice, whatever the case of the
/// letters.
std::optional<DefaultsValue> parsedValue(const PreferenceEntry& preference, std::string_view text, std::string& fault);

/// Why the property of `preference` could not read `value` back; empty if it can.
std::string unreadableReason(const PreferenceEntry& preference, const DefaultsValue& value);

/// The same for a value that is stored. Text is the path of a file where a URL is read.
std::string unreadableReason(const PreferenceEntry& preference, const DefaultsStore::Entry& entry);

/// Stores `value`. Returns whether it is stored; if not, the store has reported why.
bool storeValue(DefaultsStore& store, std::string_view key, const DefaultsValue& value);

}  // namespace velora
