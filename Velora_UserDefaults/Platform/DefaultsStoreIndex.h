#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
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

    /// Made of all bytes of the key, eight at a time: what the standard library offers costs a call, and more than
    /// all the rest of a look-up.
    static std::size_t hashOf(std::string_view key) {
        constexpr std::size_t wordSize = sizeof(std::uint64_t);
        std::uint64_t hash = key.size();
        if (key.size() < wordSize) {
            for (const char each : key) {
                hash = mixed(hash, static_cast<unsigned char>(each));
            }
            return hash;
        }
        const char* const last = key.data() + key.size() - wordSize;
        for (const char* at = key.data(); at < last; at += wordSize) {
            hash = mixed(hash, wordAt(at));
        }
        return mixed(hash, wordAt(last));  // perhaps with some of the bytes before
    }
    static std::uint64_t wordAt(const char* bytes) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes, sizeof word);
        return word;
    }
    static std::uint64_t mixed(std::uint64_t hash, std::uint64_t word) {
        __extension__ using Product = unsigned __int128;
        constexpr std::uint64_t goldenRatio = 0x9E37'79B9'7F4A'7C15;
        constexpr int wordBits = 64;
        // Both halves, so that each bit of the word has its effect on the low ones, which choose the slot.
        const Product product = Product{hash ^ word} * goldenRatio;
        return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> wordBits);
    }
    std::uint32_t& slotFor(std::string_view key);
    void grow();

    std::vector<Entry> entries_;
    std::vector<std::uint32_t> slots_;  // their number is a power of two
};

}  // namespace velora
