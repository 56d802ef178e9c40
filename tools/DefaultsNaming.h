#pragma once

#include <span>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/UserDefaults/PreferenceTable.h>

namespace velora {

/// The row of a known key; null for any other one.
const PreferenceEntry* preferenceWithKey(std::string_view key);

/// The row of a known key by the name of the property that reads it; null for any other name.
const PreferenceEntry* preferenceWithProperty(std::string_view name);

/// What tells that `key` is no key but means one: "… is a property; its key is …", "… is no known key; did you mean
/// …?". Empty for a key that is known or like no other: the application may have keys that the library does not know.
std::string mistakenKey(std::string_view key);

/// The one of `words` that is so much like `word` that it may have been meant; empty if there is none.
std::string_view nearest(std::string_view word, std::span<const std::string_view> words);

}  // namespace velora
