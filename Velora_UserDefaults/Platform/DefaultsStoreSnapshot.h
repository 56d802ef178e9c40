#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/Platform/DefaultsStoreDocument.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreFile.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreIndex.h>

namespace velora {

/// The values of one text of the store's file. Internal; never changes once it is made.
struct DefaultsStoreContent {
    DefaultsStoreContent() = default;
    /// The content of `document`, whose text is `text`.
    DefaultsStoreContent(std::string text, const DefaultsStoreDocument& document);

    /// The value of `key`; null if there is none.
    const DefaultsStoreValue* find(std::string_view key) const {
        const DefaultsStoreValue* value = values.find(key);
        return value == nullptr || value->isNull() ? nullptr : value;
    }

    std::string text;  ///< empty if there is no file
    DefaultsStoreIndex values;
};

/// All that reads need: the user's values, the registered ones, and until when they are current. Internal; never
/// changes once other threads can see it.
struct DefaultsStoreSnapshot {
    /// A generation that no counter shows while a snapshot may be trusted: it is odd.
    static constexpr std::uint64_t never = UINT64_MAX;

    std::shared_ptr<const DefaultsStoreContent> content = std::make_shared<const DefaultsStoreContent>();
    std::shared_ptr<const DefaultsStoreIndex> registered = std::make_shared<const DefaultsStoreIndex>();
    /// The content is current for as long as the shared counter shows this.
    std::uint64_t generation = never;
    /// The file that the content was read from; nothing if there was none.
    std::optional<DefaultsStoreIdentity> identity;
    /// Whether a file with the same identity has the same content.
    bool settled = false;
    /// How often the content changed since the store was opened.
    std::uint64_t changes = 1;

    /// The user's value for `key`, else the registered one, else null.
    const DefaultsStoreValue* find(std::string_view key) const {
        const DefaultsStoreValue* value = content->find(key);
        return value != nullptr ? value : registered->find(key);
    }
};

}  // namespace velora
