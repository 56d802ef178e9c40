#include <array>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <fmt/format.h>
#include <limits>
#include <nlohmann/json.hpp>
#include <pwd.h>
#include <unistd.h>
#include <utility>

#include <Velora_UserDefaults/Platform/DefaultsStoreScanner.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreValue.h>

namespace velora {
namespace {

using Type = DefaultsStore::Type;

constexpr std::string_view blanks = " \t\n\v\f\r";
constexpr std::string_view digits = "0123456789";

std::string_view skipping(std::string_view characters, std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(characters), text.size()));
    return text;
}

bool isSign(std::string_view text) {
    return text.starts_with('+') || text.starts_with('-');
}

/// The integer of decimal digits, or the nearest one that fits.
std::int64_t saturated(bool negative, std::string_view decimals) {
    std::uint64_t magnitude = 0;
    const auto [end, error] = std::from_chars(decimals.data(), decimals.data() + decimals.size(), magnitude);
    constexpr auto limit = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    if (error == std::errc::result_out_of_range || magnitude > limit) {
        return negative ? std::numeric_limits<std::int64_t>::min() : std::numeric_limits<std::int64_t>::max();
    }
    const auto value = static_cast<std::int64_t>(magnitude);
    return negative ? -value : value;
}

std::int64_t leadingInteger(std::string_view text) {
    text = skipping(blanks, text);
    const bool negative = text.starts_with('-');
    text.remove_prefix(isSign(text) ? 1 : 0);
    return saturated(negative, text.substr(0, text.find_first_not_of(digits)));
}

bool saysTrue(std::string_view text) {
    text = skipping(blanks, text);
    text.remove_prefix(isSign(text) ? 1 : 0);
    text = skipping("0", text);
    return !text.empty() && std::string_view("YyTt123456789").find(text.front()) != std::string_view::npos;
}

/// The nearest double, infinite beyond the range. The decimal point is a point in every locale.
double realOf(const std::string& text) {
    static const locale_t plain = ::newlocale(LC_ALL_MASK, "C", nullptr);
    return ::strtod_l(text.c_str(), nullptr, plain);
}

std::int64_t truncated(double value) {
    constexpr double limit = 9223372036854775808.0;
    if (value >= limit) {
        return std::numeric_limits<std::int64_t>::max();
    }
    return value < -limit ? std::numeric_limits<std::int64_t>::min() : static_cast<std::int64_t>(value);
}

DefaultsStoreValue fromNumber(std::string_view json) {
    const bool negative = json.front() == '-';
    if (json.find_first_of(".eE") == std::string_view::npos) {
        const std::string_view decimals = json.substr(negative ? 1 : 0);
        return {.type = Type::integer,
                .text = decimals == "0" ? "0" : std::string(json),
                .integer = saturated(negative, decimals),
                .boolean = decimals != "0"};
    }
    std::string text(json);
    const double value = realOf(text);
    return {.type = Type::real,
            .text = std::isfinite(value) ? fmt::format("{}", value) : std::move(text),
            .integer = truncated(value),
            .boolean = value != 0};
}

std::optional<std::string> decodedString(std::string_view json) {
    const auto parsed = nlohmann::json::parse(json, nullptr, false);
    if (!parsed.is_string()) {
        return std::nullopt;
    }
    return parsed.get<std::string>();
}

/// The text of `{"url": "text"}`.
std::optional<std::string> urlMember(std::string_view json) {
    DefaultsStoreScanner scanner(json);
    scanner.skipCharacter('{');
    scanner.skipBlanks();
    if (scanner.string() != "\"url\"") {
        return std::nullopt;
    }
    scanner.skipBlanks();
    scanner.skipCharacter(':');
    scanner.skipBlanks();
    const auto text = scanner.string();
    scanner.skipBlanks();
    if (!text || !scanner.skipCharacter('}')) {
        return std::nullopt;
    }
    return decodedString(*text);
}

std::optional<std::string> homeOf(const std::string& user) {
    std::array<char, 4096> buffer{};
    passwd entry{};
    passwd* found = nullptr;
    if (user.empty()) {
        ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
    } else {
        ::getpwnam_r(user.c_str(), &entry, buffer.data(), buffer.size(), &found);
    }
    return found == nullptr ? std::nullopt : std::optional<std::string>(entry.pw_dir);
}

/// `path` with "~" or "~name" at its beginning replaced by that home; unchanged if there is no such home.
std::string tildeExpanded(std::string_view path) {
    if (!path.starts_with('~')) {
        return std::string(path);
    }
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string user(path.substr(1, end - 1));
    const char* home = user.empty() ? ::secure_getenv("HOME") : nullptr;
    const auto folder = home != nullptr && *home != '\0' ? std::optional<std::string>(home) : homeOf(user);
    return folder ? *folder + std::string(path.substr(end)) : std::string(path);
}

}  // namespace

DefaultsStoreValue DefaultsStoreValue::fromString(std::string text) {
    const std::int64_t integer = leadingInteger(text);
    const bool boolean = saysTrue(text);
    return {.type = Type::string, .text = std::move(text), .integer = integer, .boolean = boolean};
}

DefaultsStoreValue DefaultsStoreValue::fromInteger(std::int64_t value) {
    return {.type = Type::integer, .text = std::to_string(value), .integer = value, .boolean = value != 0};
}

DefaultsStoreValue DefaultsStoreValue::fromBoolean(bool value) {
    return {.type = Type::boolean, .text = value ? "true" : "false", .integer = value ? 1 : 0, .boolean = value};
}

DefaultsStoreValue DefaultsStoreValue::fromRegistered(const DefaultsStore::Registered& value) {
    if (const bool* boolean = std::get_if<bool>(&value)) {
        return fromBoolean(*boolean);
    }
    if (const std::int64_t* integer = std::get_if<std::int64_t>(&value)) {
        return fromInteger(*integer);
    }
    return fromString(std::string(std::get<std::string_view>(value)));
}

DefaultsStoreValue DefaultsStoreValue::fromJSON(std::string_view json) {
    switch (json.front()) {
        case 't':
        case 'f':
            return fromBoolean(json == "true");
        case '"':
            if (auto text = decodedString(json)) {
                return fromString(*std::move(text));
            }
            break;
        case '{':
            if (auto text = urlMember(json)) {
                return {.type = Type::url, .text = *std::move(text)};
            }
            break;
        case '[':
        case 'n':
            break;
        default:
            return fromNumber(json);
    }
    return {.type = Type::other, .text = std::string(json)};
}

std::optional<std::string> DefaultsStoreValue::asString() const {
    switch (type) {
        case Type::string:
        case Type::integer:
        case Type::real:
            return text;
        case Type::boolean:
            return boolean ? "1" : "0";
        case Type::url:
        case Type::other:
            break;
    }
    return std::nullopt;
}

std::optional<URL> DefaultsStoreValue::asURL() const {
    if (type == Type::url) {
        return text.empty() ? URL() : URL::parse(text);
    }
    if (type != Type::string || text.empty()) {
        return std::nullopt;
    }
    return URL::fileURL(tildeExpanded(text));
}

std::string defaultsStoreJSON(std::string_view text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string defaultsStoreJSON(const URL& url) {
    return "{\"url\": " + defaultsStoreJSON(url.absoluteString()) + "}";
}

}  // namespace velora
