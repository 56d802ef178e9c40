// What stored values read as: text as an integer like strtoll(3), numbers and texts as another parser of JSON
// reads them, and every text back from its JSON.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <support/Fuzzing.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStoreDocument.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreValue.h>
#include <Velora_UserDefaults/Platform/Text.h>

namespace velora::test {
namespace {

using Type = DefaultsStore::Type;

/// Blanks, a sign and zeros, then a letter of "yes" or "true", or another digit.
bool readsAsTrue(const std::string& text) {
    std::size_t at = 0;
    while (at < text.size() && (text[at] == ' ' || (text[at] >= '\t' && text[at] <= '\r'))) {
        ++at;
    }
    at += at < text.size() && (text[at] == '+' || text[at] == '-') ? 1 : 0;
    while (at < text.size() && text[at] == '0') {
        ++at;
    }
    if (at == text.size()) {
        return false;
    }
    const char first = text[at];
    return (first >= '1' && first <= '9') || first == 'Y' || first == 'y' || first == 'T' || first == 't';
}

std::string withoutSlashesAtEnd(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

void checkText(const std::string& text) {
    const DefaultsStoreValue value = DefaultsStoreValue::fromString(text);
    requireSame<std::int64_t>(value.integer, std::strtoll(text.c_str(), nullptr, 10), "text as an integer");
    requireSame(value.boolean, readsAsTrue(text), "text as a truth value");
    requireEqual(value.asString().value(), text, "text as text");
    const std::optional<URL> url = value.asURL();
    requireSame(url.has_value(), !text.empty(), "any text but an empty one is a path");
    if (text.starts_with('/') && text.find('\0') == std::string::npos) {
        requireEqual(url.value().path(), withoutSlashesAtEnd(text), "text as a path");
    }
}

/// The value that is JSON text, without blanks around it; nothing if it is none.
std::optional<std::string> onlyValueIn(const std::string& text) {
    std::string fault;
    const auto document = DefaultsStoreDocument::parse("{\"key\": " + text + "}", fault);
    return document && document->members().size() == 1 ? std::optional(document->members()[0].json) : std::nullopt;
}

/// Real numbers, lists of text and bytes, there and back.
void checkRoundTrips(const std::string& text) {
    const std::vector<std::string> texts = {text, "", text};
    const auto list = DefaultsStoreValue::fromJSON(defaultsStoreJSON(std::span<const std::string>(texts))).asStrings();
    require(list && list->size() == texts.size(), "a list comes back");
    require(!isValidUTF8(text) || *list == texts, "a list of texts comes back as it was");
    const auto bytes = std::as_bytes(std::span(text));
    const auto read = DefaultsStoreValue::fromJSON(defaultsStoreJSON(bytes)).asBytes();
    require(read && std::equal(read->begin(), read->end(), bytes.begin(), bytes.end()), "bytes come back");
    const double real = DefaultsStoreValue::fromString(text).real;
    if (std::isfinite(real)) {
        const DefaultsStoreValue value = DefaultsStoreValue::fromJSON(defaultsStoreJSON(real));
        require(value.type == Type::real, "a real number stays one");
        requireSame(value.real, real, "a real number comes back");
    }
}

/// Text as JSON, there and back.
void checkEncoding(const std::string& text) {
    const std::string json = defaultsStoreJSON(text);
    requireEqual(onlyValueIn(json).value_or(""), json, "the JSON of a text is well formed");
    const DefaultsStoreValue value = DefaultsStoreValue::fromJSON(json);
    require(value.type == Type::string && isValidUTF8(value.text), "the JSON of a text is read as text");
    require(isValidUTF8(text) ? value.text == text : value.text.find("\xEF\xBF\xBD") != std::string::npos,
            "a text comes back from its JSON, with a mark for what is no UTF-8");
}

/// The integer of digits, perhaps with a sign, or the nearest one of 64 bits.
std::int64_t nearestInteger(const std::string& digits) {
    return std::strtoll(digits.c_str(), nullptr, 10);  // which stops at both limits
}

void checkNumber(const DefaultsStoreValue& value, const std::string& json) {
    if (json.find_first_of(".eE") == std::string::npos) {
        require(value.type == Type::integer, "a number without a fraction is an integer");
        requireEqual(value.text, json == "-0" ? "0" : json, "an integer as text");
        requireSame(value.integer, nearestInteger(json), "an integer as itself");
        requireSame(value.boolean, json != "0" && json != "-0", "an integer as a truth value");
        return;
    }
    const double real = std::strtod(json.c_str(), nullptr);
    require(value.type == Type::real, "a number with a fraction is a real one");
    requireSame(std::strtod(value.text.c_str(), nullptr), real, "a real number from its text");
    requireSame(value.boolean, real != 0, "a real number as a truth value");
    if (std::abs(real) < 9e18) {
        requireSame(value.integer, static_cast<std::int64_t>(real), "a real number as an integer");
    } else {
        requireSame(value.integer > 0, real > 0, "a number beyond all integers as the nearest");
    }
}

void checkOther(const DefaultsStoreValue& value, const nlohmann::json& reference) {
    if (reference.is_boolean()) {
        requireSame(value.boolean, reference.get<bool>(), "a truth value");
        requireEqual(value.asString().value(), value.boolean ? "1" : "0", "a truth value as text");
    } else if (reference.is_string()) {
        requireEqual(value.asString().value(), reference.get<std::string>(), "a string");
    } else if (reference.is_null()) {
        require(value.isNull(), "null is no value");
    } else if (reference.is_object() && reference.size() == 1 && reference.contains("url") &&
               reference["url"].is_string() && value.type == Type::url) {
        requireEqual(value.text, reference["url"].get<std::string>(), "a URL");
        const std::optional<URL> url = value.asURL();
        require(!url || url->absoluteString() == value.text, "a URL as itself");
    } else {
        require(value.type == Type::other && !value.asString(), "whatever else has no text");
    }
}

void checkJSON(const std::string& text) {
    const auto json = onlyValueIn(text);
    if (!json) {
        return;
    }
    const DefaultsStoreValue value = DefaultsStoreValue::fromJSON(*json);
    if (json->front() == '-' || (json->front() >= '0' && json->front() <= '9')) {
        checkNumber(value, std::string(*json));
        return;
    }
    const auto reference = nlohmann::json::parse(*json, nullptr, false);
    if (!reference.is_discarded()) {
        checkOther(value, reference);
    }
}

}  // namespace
}  // namespace velora::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(velora::test::Input(data, size).rest());
    velora::test::checkText(text);
    velora::test::checkEncoding(text);
    velora::test::checkRoundTrips(text);
    velora::test::checkJSON(text);
    return 0;
}
