#include "DefaultsValue.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstddef>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <span>

#include <Velora_UserDefaults/Platform/FileManager.h>

#include "DefaultsDescription.h"

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
    return URL::fileURL(text == "~" || text.starts_with("~/") ? FileManager::expandingTilde(text) : std::string(text));
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

std::string mismatch(const PreferenceEntry& preference, std::string_view type) {
    return fmt::format("{} takes a value of type {}, not {}", preference.key, nameOf(typeOf(preference.kind)), type);
}

std::string choicesOf(const PreferenceEntry& preference) {
    return fmt::format("{} takes {}", preference.key, shownCases(preference));
}

bool isSameWord(std::string_view left, std::string_view right) {
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](unsigned char one, unsigned char other) { return std::tolower(one) == std::tolower(other); });
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

std::optional<DefaultsValue> parsedValue(const PreferenceEntry& preference, std::string_view text, std::string& fault) {
    const std::span<const std::string_view> cases = casesOf(preference);
    const auto named = std::find_if(cases.begin(), cases.end(), [text](auto name) { return isSameWord(name, text); });
    if (named != cases.end()) {
        return DefaultsValue(std::int64_t{named - cases.begin()});
    }
    auto value = parsedValue(typeOf(preference.kind), text, fault);
    if (!value && !cases.empty()) {
        fault = choicesOf(preference);
    }
    return value;
}

std::string unreadableReason(const PreferenceEntry& preference, const DefaultsValue& value) {
    const DefaultsValueType expected = typeOf(preference.kind);
    if (const auto type = static_cast<DefaultsValueType>(value.index()); type != expected) {
        return mismatch(preference, nameOf(type));
    }
    if (preference.kind == PreferenceKind::choice) {
        const auto raw = static_cast<std::uint64_t>(std::get<std::int64_t>(value));
        return raw < casesOf(preference).size() ? "" : choicesOf(preference);
    }
    return {};
}

std::string unreadableReason(const PreferenceEntry& preference, const DefaultsStore::Entry& entry) {
    std::optional<DefaultsValue> value;
    std::string fault;
    switch (entry.type) {
        case DefaultsStore::Type::string:
            if (preference.kind == PreferenceKind::url && !entry.text.empty()) {
                return {};
            }
            value = entry.text;
            break;
        case DefaultsStore::Type::integer:
            value = parsedValue(DefaultsValueType::integer, entry.text, fault);
            break;
        case DefaultsStore::Type::boolean:
            value = entry.text == "true";
            break;
        case DefaultsStore::Type::url:
            value = orFault(URL::parse(entry.text), entry.text, "a URL", fault);
            break;
        case DefaultsStore::Type::real:
            return mismatch(preference, "real");
        case DefaultsStore::Type::other:
            return mismatch(preference, "json");
    }
    return value ? unreadableReason(preference, *value) : fmt::format("{}: {}", preference.key, fault);
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
