#pragma once

#include <any>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/XCGLogger/UserInfo.h>

/// Parts of a JSON text (RFC 8259), appended to a line as they come. For the library's own use; not installed. Safe to
/// call from any thread.
namespace velora {

/// Appends `text` in quotes. What is no valid UTF-8 becomes U+FFFD; control characters, also those above ASCII, and
/// the line separators U+2028 and U+2029 are escaped, so that no reader takes a text for several lines.
void appendJSONText(std::string& json, std::string_view text);

/// Appends `date` in UTC, cut off to microseconds, in quotes: "2026-11-22T01:23:39.123456Z" (RFC 3339).
void appendJSONDate(std::string& json, Date date);

/// Appends `value` by its own type, as `JSONLogFormatter` documents it.
void appendJSONValue(std::string& json, const std::any& value);

/// Appends `userInfo` as an object, in the order of its keys.
void appendJSONObject(std::string& json, const UserInfo& userInfo);

}  // namespace velora
