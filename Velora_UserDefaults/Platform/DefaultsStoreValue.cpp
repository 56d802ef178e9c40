#include <algorithm>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <fmt/format.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <utility>

#include <Velora_UserDefaults/Platform/Base64.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreValue.h>
#include <Velora_UserDefaults/Platform/FileManager.h>

namespace velora {
namespace {

using Type = DefaultsStore::Type;
using Value = DefaultsStoreValue;

/// In which a decimal point is a point, whatever the program's locale.
locale_t plainLocale() {
    static const locale_t plain = ::newlocale(LC_ALL_MASK, "C", nullptr);
    return plain;
}

/// The decimal integer that the text begins with, 0 without one, the nearest one if it does not fit.
std::int64_t integerIn(const std::string& text) {
    return ::strtoll_l(text.c_str(), nullptr, 10, plainLocale());
}

/// The same for a decimal number, infinite beyond the range. What strtod(3) takes on top (0x1F, inf, nan) is none.
double realIn(const std::string& text) {
    const std::size_t start = std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size());
    const std::size_t end = text.find_first_not_of("0123456789.eE+-", start);
    return ::strtod_l(text.substr(start, end - start).c_str(), nullptr, plainLocale());
}

bool saysTrue(std::string_view text) {
    const auto skip = [&text](std::string_view characters) {
        text.remove_prefix(std::min(text.find_first_not_of(characters), text.size()));
    };
    skip(" \t\n\v\f\r");
    text.remove_prefix(text.starts_with('+') || text.starts_with('-') ? 1 : 0);
    skip("0");
    return !text.empty() && std::string_view("YyTt123456789").find(text.front()) != std::string_view::npos;
}

std::int64_t truncated(double value) {
    constexpr double limit = 9223372036854775808.0;
    if (value >= limit) {
        return std::numeric_limits<std::int64_t>::max();
    }
    return value < -limit ? std::numeric_limits<std::int64_t>::min() : static_cast<std::int64_t>(value);
}

Value fromInteger(std::string digits) {
    const std::int64_t integer = integerIn(digits);
    const double real = realIn(digits);
    if (integer == 0) {
        digits = "0";
    }
    return {
        .type = Type::integer, .text = std::move(digits), .integer = integer, .real = real, .boolean = integer != 0};
}

Value fromBoolean(bool value) {
    return {.type = Type::boolean,
            .text = value ? "true" : "false",
            .integer = value ? 1 : 0,
            .real = value ? 1.0 : 0.0,
            .boolean = value};
}

Value fromNumber(std::string text) {
    if (text.find_first_of(".eE") == std::string::npos) {
        return fromInteger(std::move(text));
    }
    const double real = realIn(text);
    if (std::isfinite(real)) {
        text = fmt::format("{}", real);
    }
    return {
        .type = Type::real, .text = std::move(text), .integer = truncated(real), .real = real, .boolean = real != 0};
}

/// The text of the object's one member if that is called `name`, as of `{"url": "text"}`.
std::optional<std::string> onlyMember(std::string_view json, std::string_view name) {
    // What is somebody else's, and perhaps large, is not taken apart.
    const std::size_t quote = json.find('"');
    if (quote == std::string_view::npos || !json.substr(quote + 1).starts_with(name)) {
        return std::nullopt;
    }
    const auto object = nlohmann::json::parse(json, nullptr, false);
    const bool isOnly = object.is_object() && object.size() == 1 && object.contains(name);
    return isOnly && object[name].is_string() ? std::optional(object[name].get<std::string>()) : std::nullopt;
}

}  // namespace

Value Value::fromString(std::string text) {
    Value value{
        .type = Type::string, .text = {}, .integer = integerIn(text), .real = realIn(text), .boolean = saysTrue(text)};
    value.text = std::move(text);
    return value;
}

Value Value::fromRegistered(const DefaultsStore::Registered& value) {
    if (const bool* boolean = std::get_if<bool>(&value)) {
        return fromBoolean(*boolean);
    }
    if (const std::int64_t* integer = std::get_if<std::int64_t>(&value)) {
        return fromInteger(std::to_string(*integer));
    }
    return fromString(std::string(std::get<std::string_view>(value)));
}

Value Value::fromJSON(std::string_view json) {
    switch (json.front()) {
        case 't':
        case 'f':
            return fromBoolean(json == "true");
        case '"':
            if (auto text = nlohmann::json::parse(json, nullptr, false); text.is_string()) {
                return fromString(text.get<std::string>());
            }
            break;
        case '{':
            if (auto text = onlyMember(json, "url")) {
                return {.type = Type::url, .text = *std::move(text)};
            }
            break;
        case '[':
        case 'n':
            break;
        default:
            return fromNumber(std::string(json));
    }
    return {.type = Type::other, .text = std::string(json)};
}

std::optional<std::string> Value::asString() const {
    if (type == Type::boolean) {
        return boolean ? "1" : "0";
    }
    return type == Type::url || type == Type::other ? std::nullopt : std::optional(text);
}

std::optional<URL> Value::asURL() const {
    if (type == Type::url) {
        return text.empty() ? URL() : URL::parse(text);
    }
    if (type != Type::string || text.empty()) {
        return std::nullopt;
    }
    return URL::fileURL(FileManager::expandingTilde(text));
}

std::optional<std::vector<std::string>> Value::asStrings() const {
    const auto list = nlohmann::json::parse(type == Type::other ? text : "", nullptr, false);
    const auto isText = [](const auto& element) { return element.is_string(); };
    return list.is_array() && std::ranges::all_of(list, isText) ? std::optional(list.get<std::vector<std::string>>())
                                                                : std::nullopt;
}

std::optional<std::vector<std::byte>> Value::asBytes() const {
    const auto encoded = type == Type::other ? onlyMember(text, "base64") : std::nullopt;
    const auto decoded = encoded ? base64Decoded(*encoded) : std::nullopt;
    if (!decoded) {
        return std::nullopt;
    }
    const auto bytes = std::as_bytes(std::span(*decoded));
    return std::vector<std::byte>(bytes.begin(), bytes.end());
}

std::string defaultsStoreJSON(std::string_view text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string defaultsStoreJSON(double value) {
    const std::string digits = fmt::format("{}", value);
    // It stays a real number for those who read the file.
    return digits.find_first_of(".e") == std::string::npos ? digits + ".0" : digits;
}

std::string defaultsStoreJSON(const URL& url) {
    return "{\"url\": " + defaultsStoreJSON(url.absoluteString()) + "}";
}

std::string defaultsStoreJSON(std::span<const std::string> texts) {
    std::string list = "[";
    for (const std::string& text : texts) {
        list.append(list.size() == 1 ? "" : ", ").append(defaultsStoreJSON(std::string_view(text)));
    }
    return list + "]";
}

std::string defaultsStoreJSON(std::span<const std::byte> bytes) {
    const std::string text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    return R"({"base64": ")" + base64Encoded(text) + R"("})";
}

}  // namespace velora
