#include <algorithm>
#include <utility>

#include <Velora_UserDefaults/Platform/DefaultsStoreIndex.h>

namespace velora {

void DefaultsStoreIndex::set(std::string_view key, DefaultsStoreValue value) {
    if (slots_.size() <= 2 * entries_.size()) {
        grow();
    }
    std::uint32_t& slot = slotFor(key);
    if (slot != free) {
        entries_[slot].value = std::move(value);
        return;
    }
    slot = static_cast<std::uint32_t>(entries_.size());
    entries_.push_back({.key = std::string(key), .value = std::move(value)});
}

std::uint32_t& DefaultsStoreIndex::slotFor(std::string_view key) {
    std::size_t slot = hashOf(key) & (slots_.size() - 1);
    while (slots_[slot] != free && entries_[slots_[slot]].key != key) {
        slot = (slot + 1) & (slots_.size() - 1);
    }
    return slots_[slot];
}

void DefaultsStoreIndex::grow() {
    slots_.assign(std::max<std::size_t>(16, 2 * slots_.size()), free);
    for (std::uint32_t number = 0; number < entries_.size(); ++number) {
        slotFor(entries_[number].key) = number;
    }
}

}  // namespace velora
