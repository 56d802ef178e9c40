#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

namespace velora {

/// One value of the defaults store, with the numbers that it reads as. Internal; a plain value.
///
/// Made rarely (when a file is loaded), read often.
struct DefaultsStoreValue {
    DefaultsStore::Type type = DefaultsStore::Type::other;
    std::string text;  ///< what Entry::text is
    std::int64_t integer = 0;
    double real = 0;
    bool boolean = false;

    bool operator==(const DefaultsStoreValue&) const = default;

    static DefaultsStoreValue fromString(std::string text);
    static DefaultsStoreValue fromRegistered(const DefaultsStore::Registered& value);
    /// The value that well-formed JSON text, without blanks around it, stands for.
    static DefaultsStoreValue fromJSON(std::string_view json);

    /// Whether it stands for no value at all.
    bool isNull() const { return type == DefaultsStore::Type::other && text == "null"; }

    std::optional<std::string> asString() const;
    std::optional<URL> asURL() const;
    std::optional<std::vector<std::string>> asStrings() const;
    std::optional<std::vector<std::byte>> asBytes() const;
};

/// The JSON that a value is stored as; of text with U+FFFD for what is not UTF-8. A real number is finite.
std::string defaultsStoreJSON(std::string_view text);
std::string defaultsStoreJSON(double value);
std::string defaultsStoreJSON(const URL& url);
std::string defaultsStoreJSON(std::span<const std::string> texts);
std::string defaultsStoreJSON(std::span<const std::byte> bytes);

}  // namespace velora
