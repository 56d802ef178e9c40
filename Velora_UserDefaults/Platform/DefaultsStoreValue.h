#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

namespace velora {

/// One value of the defaults store, converted when it is made to all that it can be read as. Internal.
///
/// Made rarely (when a file is loaded), read often. A plain value.
struct DefaultsStoreValue {
    DefaultsStore::Type type = DefaultsStore::Type::other;
    /// What Entry::text is.
    std::string text;
    std::int64_t integer = 0;
    bool boolean = false;

    bool operator==(const DefaultsStoreValue&) const = default;

    static DefaultsStoreValue fromString(std::string text);
    static DefaultsStoreValue fromInteger(std::int64_t value);
    static DefaultsStoreValue fromBoolean(bool value);
    static DefaultsStoreValue fromRegistered(const DefaultsStore::Registered& value);
    /// The value that well-formed JSON text, without blanks around it, stands for.
    static DefaultsStoreValue fromJSON(std::string_view json);

    /// Whether it stands for no value at all.
    bool isNull() const { return type == DefaultsStore::Type::other && text == "null"; }

    std::optional<std::string> asString() const;
    std::optional<URL> asURL() const;
};

/// `text` as a JSON string, with U+FFFD for what is not UTF-8.
std::string defaultsStoreJSON(std::string_view text);

/// The JSON that a URL is stored as.
std::string defaultsStoreJSON(const URL& url);

}  // namespace velora
