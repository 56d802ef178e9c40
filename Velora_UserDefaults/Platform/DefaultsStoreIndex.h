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
    static constexpr std::size_t wordSize = sizeof(std::uint64_t);

    struct Entry {
        std::string key;
        DefaultsStoreValue value;
    };

    /// Made of all bytes of the key: what the standard library offers costs a call, and more than all the rest of a
    /// look-up. No multiplication waits for another one.
    static std::size_t hashOf(std::string_view key) {
        constexpr std::size_t blockSize = 2 * wordSize;
        if (key.size() <= blockSize) {
            return folded(beginOf(key), key.size() ^ endOf(key));
        }
        // The last block perhaps with some bytes of the one before.
        const std::size_t last = key.size() - blockSize;
        std::uint64_t hash = blockAt(key.data() + last, key.size());
        for (std::size_t at = 0; at < last; at += blockSize) {
            hash ^= blockAt(key.data() + at, at);
        }
        return hash;
    }
    /// The first eight bytes, or all there are.
    static std::uint64_t beginOf(std::string_view key) {
        return key.size() < wordSize ? shortWord(key) : wordAt(key.data());
    }
    static std::uint64_t endOf(std::string_view key) {
        return key.size() < wordSize ? 0 : wordAt(key.data() + key.size() - wordSize);
    }
    static std::uint64_t blockAt(const char* bytes, std::uint64_t position) {
        return folded(wordAt(bytes) + position, wordAt(bytes + wordSize));
    }
    static std::uint64_t shortWord(std::string_view bytes) {
        std::uint64_t word = 0;
        for (const char each : bytes) {
            word = word << 8U | static_cast<unsigned char>(each);
        }
        return word;
    }
    static std::uint64_t wordAt(const char* bytes) {
        std::uint64_t word = 0;
        std::memcpy(&word, bytes, sizeof word);
        return word;
    }
    /// Both halves of a product, so that each bit of both words has its effect on the low ones, which choose the slot.
    static std::uint64_t folded(std::uint64_t first, std::uint64_t second) {
        __extension__ using Product = unsigned __int128;
        // Bits of the golden ratio and of pi: texts have neither.
        constexpr std::uint64_t goldenRatio = 0x9E37'79B9'7F4A'7C15;
        constexpr std::uint64_t pi = 0x243F'6A88'85A3'08D3;
        const Product product = Product{first ^ goldenRatio} * (second ^ pi);
        return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64U);
    }
    std::uint32_t& slotFor(std::string_view key);
    void grow();

    std::vector<Entry> entries_;
    std::vector<std::uint32_t> slots_;  // their number is a power of two
};

}  // namespace velora
