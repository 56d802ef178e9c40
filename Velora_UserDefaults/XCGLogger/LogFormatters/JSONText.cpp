#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <unordered_map>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/Platform/TypeName.h>
#include <Velora_UserDefaults/Platform/URL.h>
#include <Velora_UserDefaults/XCGLogger/Level.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/JSONText.h>
#include <Velora_UserDefaults/XCGLogger/SourceLocation.h>
#include <Velora_UserDefaults/XCGLogger/UserInfoValue.h>

namespace velora {

namespace {

// How deep lists and user info may be nested before the rest is left out: no record may use up the stack.
constexpr int deepest = 64;

/// Whether `text` is to be copied as it is: valid UTF-8 of which nothing must be escaped.
bool isPlain(std::string_view text) {
    bool mayNeedEscapes = false;
    unsigned allBits = 0;
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        allBits |= byte;
        // 0xC2 begins the control characters above ASCII, 0xE2 the line separators.
        mayNeedEscapes |= byte < 0x20 || byte == '"' || byte == '\\' || byte == 0x7F || byte == 0xC2 || byte == 0xE2;
    }
    return !mayNeedEscapes && (allBits < 0x80 || isValidUTF8(text));
}

/// Whether `text` has a character at which some reader breaks lines, or which a terminal obeys, other than the control
/// characters that JSON demands to be escaped.
bool hasUnusualControls(std::string_view text) {
    for (std::size_t index = 0; index + 1 < text.size(); ++index) {
        const auto first = static_cast<unsigned char>(text[index]);
        const auto second = static_cast<unsigned char>(text[index + 1]);
        if (first == 0xC2 && second < 0xA0) {
            return true;
        }
        if (first == 0xE2 && second == 0x80 && index + 2 < text.size()) {
            const auto third = static_cast<unsigned char>(text[index + 2]);
            if (third == 0xA8 || third == 0xA9) {
                return true;
            }
        }
    }
    return text.find('\x7F') != std::string_view::npos;
}

/// Appends valid UTF-8 with the escapes that JSON demands, and no others.
void appendEscaped(std::string& json, std::string_view text) {
    constexpr std::string_view hexDigits = "0123456789abcdef";
    constexpr std::string_view escaped = "\"\\\n\r\t\b\f";
    constexpr std::string_view letters = "\"\\nrtbf";
    json += '"';
    std::size_t copied = 0;
    for (std::size_t index = 0; index < text.size(); ++index) {
        const auto byte = static_cast<unsigned char>(text[index]);
        if (byte >= 0x20 && byte != '"' && byte != '\\') {
            continue;
        }
        json.append(text, copied, index - copied).append("\\");
        copied = index + 1;
        const std::size_t letter = escaped.find(text[index]);
        if (letter != std::string_view::npos) {
            json += letters[letter];
        } else {
            json.append("u00").append(1, hexDigits[byte >> 4U]).append(1, hexDigits[byte & 0xFU]);
        }
    }
    json.append(text, copied).append("\"");
}

template <typename Number>
void appendNumber(std::string& json, Number number) {
    if constexpr (std::floating_point<Number>) {
        if (!std::isfinite(number)) {
            json += "null";
            return;
        }
    }
    std::array<char, 64> digits{};
    const char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
    const std::string_view text(digits.data(), static_cast<std::size_t>(end - digits.data()));
    json += text;
    // A reader that derives the type of a member from the first value it meets must not take it for whole numbers.
    if (std::floating_point<Number> && text.find_first_of(".e") == std::string_view::npos) {
        json += ".0";
    }
}

void appendValue(std::string& json, const std::any& value, int depth);

template <typename Element>
void appendElement(std::string& json, const Element& element, int depth) {
    if constexpr (std::same_as<Element, std::any>) {
        appendValue(json, element, depth);
    } else if constexpr (std::same_as<Element, bool>) {
        json += element ? "true" : "false";
    } else if constexpr (std::same_as<Element, const char*> || std::same_as<Element, char*>) {
        element == nullptr ? void(json += "null") : appendJSONText(json, element);
    } else if constexpr (std::convertible_to<const Element&, std::string_view>) {
        appendJSONText(json, element);
    } else {
        appendNumber(json, element);
    }
}

template <typename List>
void appendList(std::string& json, const List& list, int depth) {
    json += '[';
    const char* separator = "";
    for (const auto& element : list) {
        json += std::exchange(separator, ",");
        appendElement<typename List::value_type>(json, element, depth);
    }
    json += ']';
}

template <typename Map>
void appendMap(std::string& json, const Map& map, int depth) {
    json += '{';
    const char* separator = "";
    for (const auto& [key, value] : map) {
        json += std::exchange(separator, ",");
        appendJSONText(json, key);
        json += ':';
        appendElement<typename Map::mapped_type>(json, value, depth);
    }
    json += '}';
}

/// Appends `value` if it is of one of the types; returns whether it is.
template <typename... Types>
bool appendScalar(std::string& json, const std::any& value) {
    return visitHeld<Types...>(value, [&](const auto& held) { appendElement(json, held, 0); });
}

template <typename... Elements>
bool appendListOf(std::string& json, const std::any& value, int depth) {
    const auto append = [&](const auto& list) { appendList(json, list, depth); };
    return visitHeld<std::vector<Elements>...>(value, append) || visitSet<Elements...>(value, append);
}

template <typename... Values>
bool appendMapOf(std::string& json, const std::any& value, int depth) {
    const auto append = [&](const auto& map) { appendMap(json, map, depth); };
    return visitHeld<std::map<std::string, Values>...>(value, append) ||
           visitHeld<std::map<std::string, Values, std::less<>>...>(value, append) ||
           visitHeld<std::unordered_map<std::string, Values>...>(value, append);
}

bool appendOfPlatform(std::string& json, const std::any& value) {
    return visitHeld<Date>(value, [&](Date date) { appendJSONDate(json, date); }) ||
           visitHeld<Level>(value, [&](Level level) { appendJSONText(json, description(level)); }) ||
           visitHeld<SourceText>(value, [&](const SourceText& text) { appendJSONText(json, text); }) ||
           visitHeld<URL>(value, [&](const URL& url) { appendJSONText(json, url.absoluteString()); }) ||
           visitHeld<std::filesystem::path>(
               value, [&](const std::filesystem::path& path) { appendJSONText(json, path.native()); });
}

bool appendContainer(std::string& json, const std::any& value, int depth) {
    return visitHeld<UserInfo>(value, [&](const UserInfo& info) { appendMap(json, info, depth); }) ||
           visitHeld<std::vector<std::any>>(value, [&](const auto& list) { appendList(json, list, depth); }) ||
           appendListOf<std::string, std::string_view, const char*, bool, int, unsigned, long, unsigned long, long long,
                        unsigned long long, float, double>(json, value, depth) ||
           appendMapOf<std::any, std::string, bool, int, unsigned, long, unsigned long, long long, unsigned long long,
                       float, double>(json, value, depth);
}

void appendValue(std::string& json, const std::any& value, int depth) {
    if (!value.has_value() || value.type() == typeid(std::nullptr_t) || depth > deepest) {
        json += "null";
        return;
    }
    const bool isKnown = appendScalar<std::string, std::string_view, const char*, char*, bool, int, unsigned, long,
                                      unsigned long, long long, unsigned long long, double, float, short,
                                      unsigned short, signed char, unsigned char, long double>(json, value) ||
                         visitHeld<char>(value,
                                         [&](char character) {
                                             appendJSONText(json, {&character, 1});
                                         }) ||
                         appendOfPlatform(json, value) || appendContainer(json, value, depth + 1);
    if (!isKnown) {
        appendJSONText(json, "<" + unqualifiedTypeName(value.type()) + ">");
    }
}

/// Writes `number` with leading zeros into the `Digits` characters before `end`.
template <int Digits>
void writeDigits(char* end, std::int64_t number) {
    for (int digit = 0; digit < Digits; ++digit) {
        *--end = static_cast<char>('0' + number % 10);
        number /= 10;
    }
}

}  // namespace

void appendJSONText(std::string& json, std::string_view text) {
    if (isPlain(text)) {
        json += '"';
        json += text;
        json += '"';
        return;
    }
    const bool escapesAll = hasUnusualControls(text);
    if (!escapesAll && isValidUTF8(text)) {
        appendEscaped(json, text);
        return;
    }
    json += nlohmann::json(text).dump(-1, ' ', escapesAll, nlohmann::json::error_handler_t::replace);
}

void appendJSONDate(std::string& json, Date date) {
    // In nanoseconds the beginning of the earliest day is out of reach.
    const auto moment = std::chrono::floor<std::chrono::microseconds>(date);
    const auto day = std::chrono::floor<std::chrono::days>(moment);
    const std::chrono::year_month_day calendar(day);
    const std::int64_t microseconds = std::chrono::microseconds(moment - day).count();
    const std::int64_t seconds = microseconds / 1'000'000;
    std::array<char, 30> text{"\"yyyy-mm-ddThh:mm:ss.ffffffZ\""};
    char* const begin = text.data() + 1;
    writeDigits<4>(begin + 4, static_cast<int>(calendar.year()));
    writeDigits<2>(begin + 7, static_cast<unsigned>(calendar.month()));
    writeDigits<2>(begin + 10, static_cast<unsigned>(calendar.day()));
    writeDigits<2>(begin + 13, seconds / 3600);
    writeDigits<2>(begin + 16, seconds / 60 % 60);
    writeDigits<2>(begin + 19, seconds % 60);
    writeDigits<6>(begin + 26, microseconds % 1'000'000);
    json.append(text.data(), text.size() - 1);
}

void appendJSONValue(std::string& json, const std::any& value) {
    appendValue(json, value, 0);
}

void appendJSONObject(std::string& json, const UserInfo& userInfo) {
    appendMap(json, userInfo, 0);
}

}  // namespace velora
