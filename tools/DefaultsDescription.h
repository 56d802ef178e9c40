#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/UserDefaults/PreferenceTable.h>

namespace velora {

/// The names of a choice's cases, from raw value 0 on, as hosts write them; none for what is no choice.
std::span<const std::string_view> casesOf(const PreferenceEntry& preference);

/// The words that a change line has for a case; empty where these are the case's name.
std::string_view wordsOf(const PreferenceEntry& preference, std::size_t raw);

/// What a preference is for, in one line.
std::string_view purposeOf(const PreferenceEntry& preference);

/// "0 viewOnly (View-only)".
std::string shownCase(const PreferenceEntry& preference, std::size_t raw);

/// "0 viewOnly (View-only) or 1 fullControl (Full control)".
std::string shownCases(const PreferenceEntry& preference);

}  // namespace velora
