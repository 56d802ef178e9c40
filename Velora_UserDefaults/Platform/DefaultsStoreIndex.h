#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStoreValue.h>

namespace velora {

/// Values by key, made to be looked up in a few nanoseconds: every read of a preference does. Internal.
///
/// A hash table in one block with linear probing, at most half full. May be read by many threads at once.
class DefaultsStoreIndex {
public:
    /// The value of `key`; null if there is none. Stays valid until the index changes.
    const DefaultsStoreValue* find(std::string_view key) const {
        if (entries_.empty()) {
            return nullptr;
        }
        for (std::size_t slot = hashOf(key);; ++slot) {
            const std::uint32_t number = slots_[slot & (slots_.size() - 1)];
            if (number == free) {
                return nullptr;
            }
            if (const Entry& entry = entries_[number]; entry.key == key) {
                return &entry.value;
            }
        }
    }

    void set(std::string_view key, DefaultsStoreValue value);

private:
    static constexpr std::uint32_t free = UINT32_MAX;

    struct Entry {
        std::string key;
        DefaultsStoreValue value;
    };

    static std::size_t hashOf(std::string_view key) { return std::hash<std::string_view>{}(key); }
    std::uint32_t& slotFor(std::string_view key);
    void grow();

    std::vector<Entry> entries_;
    std::vector<std::uint32_t> slots_;  // their number is a power of two
};

}  // namespace velora
