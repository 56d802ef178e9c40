#pragma once

#include <string>
#include <string_view>
#include <utility>

#include <Velora_UserDefaults/XCGLogger/Level.h>
#include <Velora_UserDefaults/XCGLogger/LevelTexts.h>

/// How formatters that treat each level in its own way describe themselves and change a line. For the
/// library's own use; not installed. Safe to call from any thread.
namespace velora {

/// The text that `texts` has for `level`, or `otherwise` if it has none. Refers to one of the two.
inline std::string_view textFor(Level level, const LevelTexts& texts, std::string_view otherwise) {
    const std::string* text = texts.find(level);
    return text == nullptr ? otherwise : std::string_view(*text);
}

/// `className` and ": ", then for each of the ten levels "\n\t- ", its word, " > " and what
/// `textOfLevel(level)` gives.
template <typename TextOfLevel>
std::string listedByLevel(std::string className, TextOfLevel textOfLevel) {
    std::string text = std::move(className) + ": ";
    for (const Level level : Levels::allCases) {
        text.append("\n\t- ").append(description(level)).append(" > ").append(textOfLevel(level));
    }
    return text;
}

/// Puts `prefix` before `message` and `postfix` after it; returns `message`.
inline const std::string& surround(std::string& message, std::string_view prefix, std::string_view postfix) {
    message.reserve(prefix.size() + message.size() + postfix.size());
    return message.insert(0, prefix).append(postfix);
}

}  // namespace velora
