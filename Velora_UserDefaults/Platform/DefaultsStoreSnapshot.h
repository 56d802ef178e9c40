#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStoreFile.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreValue.h>

namespace velora {

using DefaultsStoreValues = std::map<std::string, DefaultsStoreValue, std::less<>>;

/// The values of one text of the store's file. Internal; never changes once it is made.
struct DefaultsStoreContent {
    std::string text;  ///< empty if there is no file
    DefaultsStoreValues values;
};

/// All that reads need: the user's values, the registered ones, and until when they are current. Internal; never
/// changes once other threads can see it.
struct DefaultsStoreSnapshot {
    /// A generation that no counter shows while a snapshot may be trusted: it is odd.
    static constexpr std::uint64_t never = UINT64_MAX;

    std::shared_ptr<const DefaultsStoreContent> content = std::make_shared<const DefaultsStoreContent>();
    std::shared_ptr<const DefaultsStoreValues> registered = std::make_shared<const DefaultsStoreValues>();
    /// What each slot's key reads as, and what is registered for it; null for nothing.
    struct Slot {
        const DefaultsStoreValue* value;
        const DefaultsStoreValue* registered;
    };
    std::vector<Slot> slots;
    /// The content is current for as long as the shared counter shows this.
    std::uint64_t generation = never;
    /// The file that the content was read from; nothing if there was none.
    std::optional<DefaultsStoreIdentity> identity;
    /// Whether a file with the same identity has the same content.
    bool settled = false;
    /// How often the content changed since the store was opened.
    std::uint64_t changes = 1;
};

}  // namespace velora
