#include "DefaultsValue.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstddef>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <Velora_UserDefaults/Platform/FileManager.h>

namespace velora {

namespace {

std::optional<std::int64_t> parsedInteger(std::string_view text) {
    std::int64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [parsedTo, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && parsedTo == end ? std::optional(value) : std::nullopt;
}

std::optional<bool> parsedBoolean(std::string_view text) {
    std::string word(text);
    std::transform(word.begin(), word.end(), word.begin(),
                   [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
    if (word == "true" || word == "yes" || word == "1") {
        return true;
    }
    if (word == "false" || word == "no" || word == "0") {
        return false;
    }
    return std::nullopt;
}

/// Whether `text` begins with a scheme as RFC 3986 writes it, and so means a URL and no path.
bool hasScheme(std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos || colon == 0 || std::isalpha(static_cast<unsigned char>(text.front())) == 0) {
        return false;
    }
    return std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(colon), [](unsigned char character) {
        return std::isalnum(character) != 0 || character == '+' || character == '-' || character == '.';
    });
}

std::optional<URL> parsedURL(std::string_view text) {
    if (hasScheme(text)) {
        return URL::parse(text);
    }
    if (text.empty()) {
        return std::nullopt;
    }
    if (text == "~" || text.starts_with("~/")) {
        return URL::fileURL(FileManager::homeFolder().append(text.substr(1)));
    }
    return URL::fileURL(text);
}

template <typename Value>
std::optional<DefaultsValue> orFault(const std::optional<Value>& value, std::string_view text, std::string_view what,
                                     std::string& fault) {
    if (value) {
        return *value;
    }
    fault = fmt::format("'{}' is not {}", text, what);
    return std::nullopt;
}

/// "0 (View-only) or 1 (Full control)".
std::string listedChoices(const PreferenceEntry& preference) {
    std::string list;
    for (std::size_t raw = 0; raw < preference.words.size(); ++raw) {
        const bool isLast = raw + 1 == preference.words.size();
        list += fmt::format("{}{} ({})", raw == 0 ? "" : isLast ? " or " : ", ", raw, preference.words[raw]);
    }
    return list;
}

const PreferenceEntry* preferenceWith(std::string_view PreferenceEntry::*field, std::string_view text) {
    const auto& table = preferenceTable();
    const auto found =
        std::find_if(table.begin(), table.end(), [&](const PreferenceEntry& entry) { return entry.*field == text; });
    return found == table.end() ? nullptr : &*found;
}

}  // namespace

std::string_view nameOf(DefaultsValueType type) {
    constexpr std::array<std::string_view, 4> names = {"string", "int", "bool", "url"};
    return names.at(static_cast<std::size_t>(type));
}

DefaultsValueType typeOf(PreferenceKind kind) {
    switch (kind) {
        case PreferenceKind::text:
            return DefaultsValueType::string;
        case PreferenceKind::url:
            return DefaultsValueType::url;
        case PreferenceKind::boolean:
            return DefaultsValueType::boolean;
        case PreferenceKind::integer:
        case PreferenceKind::choice:
            break;
    }
    return DefaultsValueType::integer;
}

const PreferenceEntry* preferenceWithKey(std::string_view key) {
    return preferenceWith(&PreferenceEntry::key, key);
}

const PreferenceEntry* preferenceWithProperty(std::string_view name) {
    return name.empty() ? nullptr : preferenceWith(&PreferenceEntry::property, name);
}

std::optional<std::string> jsonText(std::string_view text) {
    try {
        return nlohmann::json(text).dump();
    } catch (const nlohmann::json::type_error&) {
        return std::nullopt;
    }
}

std::optional<DefaultsValue> parsedValue(DefaultsValueType type, std::string_view text, std::string& fault) {
    switch (type) {
        case DefaultsValueType::integer:
            return orFault(parsedInteger(text), text, "an integer of 64 bits", fault);
        case DefaultsValueType::boolean:
            return orFault(parsedBoolean(text), text, "a truth value (true, yes, 1, false, no, 0)", fault);
        case DefaultsValueType::url:
            return orFault(parsedURL(text), text, "a URL or a path", fault);
        case DefaultsValueType::string:
            break;
    }
    return orFault(jsonText(text) ? std::optional(std::string(text)) : std::nullopt, text, "UTF-8 text", fault);
}

std::string unreadableReason(const PreferenceEntry& preference, const DefaultsValue& value) {
    const DefaultsValueType expected = typeOf(preference.kind);
    if (const auto type = static_cast<DefaultsValueType>(value.index()); type != expected) {
        return fmt::format("{} takes a value of type {}, not {}", preference.key, nameOf(expected), nameOf(type));
    }
    if (preference.kind == PreferenceKind::choice) {
        const auto raw = static_cast<std::uint64_t>(std::get<std::int64_t>(value));
        if (raw >= preference.words.size() && !preference.words.empty()) {
            return fmt::format("{} takes {}", preference.key, listedChoices(preference));
        }
    }
    return {};
}

bool storeValue(DefaultsStore& store, std::string_view key, const DefaultsValue& value) {
    struct Writer {
        DefaultsStore& store;
        std::string_view key;
        bool operator()(const std::string& text) const { return store.setString(key, text); }
        bool operator()(std::int64_t integer) const { return store.setInteger(key, integer); }
        bool operator()(bool flag) const { return store.setBool(key, flag); }
        bool operator()(const URL& url) const { return store.setURL(key, url); }
    };
    return std::visit(Writer{store, key}, value);
}

}  // namespace velora
