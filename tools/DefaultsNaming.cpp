#include "DefaultsNaming.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <fmt/format.h>
#include <vector>

namespace velora {

namespace {

char lowered(char character) {
    return static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
}

/// How many characters have to be put in, left out, exchanged for others or with their neighbour to make one word of
/// the other, whatever their case.
std::size_t distance(std::string_view from, std::string_view to) {
    std::vector<std::size_t> beforeLast(to.size() + 1);
    std::vector<std::size_t> last(to.size() + 1);
    std::vector<std::size_t> row(to.size() + 1);
    for (std::size_t column = 0; column <= to.size(); ++column) {
        last[column] = column;
    }
    for (std::size_t line = 1; line <= from.size(); ++line) {
        row[0] = line;
        for (std::size_t column = 1; column <= to.size(); ++column) {
            const char left = lowered(from[line - 1]);
            const char right = lowered(to[column - 1]);
            row[column] =
                std::min({last[column] + 1, row[column - 1] + 1, last[column - 1] + (left == right ? 0U : 1U)});
            if (line > 1 && column > 1 && left == lowered(to[column - 2]) && right == lowered(from[line - 2])) {
                row[column] = std::min(row[column], beforeLast[column - 2] + 1);
            }
        }
        beforeLast.swap(last);
        last.swap(row);
    }
    return last[to.size()];
}

/// How many slips may be in a word: one in a short one, three in a long one.
std::size_t slipsIn(std::string_view word) {
    return word.size() < 5 ? 0 : word.size() < 12 ? 1 : word.size() < 20 ? 2 : 3;
}

const PreferenceEntry* preferenceWith(std::string_view PreferenceEntry::*field, std::string_view text) {
    const auto& table = preferenceTable();
    const auto found =
        std::find_if(table.begin(), table.end(), [&](const PreferenceEntry& entry) { return entry.*field == text; });
    return found == table.end() ? nullptr : &*found;
}

const PreferenceEntry* preferenceNear(std::string_view PreferenceEntry::*field, std::string_view text) {
    std::array<std::string_view, preferenceCount> words{};
    const auto& table = preferenceTable();
    std::transform(table.begin(), table.end(), words.begin(), [field](const auto& entry) { return entry.*field; });
    const std::string_view meant = nearest(text, words);
    return meant.empty() ? nullptr : preferenceWith(field, meant);
}

}  // namespace

const PreferenceEntry* preferenceWithKey(std::string_view key) {
    return preferenceWith(&PreferenceEntry::key, key);
}

const PreferenceEntry* preferenceWithProperty(std::string_view name) {
    return name.empty() ? nullptr : preferenceWith(&PreferenceEntry::property, name);
}

std::string mistakenKey(std::string_view key) {
    if (preferenceWithKey(key) != nullptr) {
        return {};
    }
    if (const PreferenceEntry* meant = preferenceWithProperty(key)) {
        return fmt::format("{} is a property; its key is {}", key, meant->key);
    }
    const PreferenceEntry* meant = preferenceNear(&PreferenceEntry::key, key);
    if (meant == nullptr) {
        meant = preferenceNear(&PreferenceEntry::property, key);
    }
    return meant == nullptr ? "" : fmt::format("{} is no known key; did you mean {}?", key, meant->key);
}

std::string_view nearest(std::string_view word, std::span<const std::string_view> words) {
    constexpr std::size_t longest = 100;  // what is longer is none of them
    std::string_view found;
    std::size_t least = slipsIn(word) + 1;
    for (const std::string_view candidate : words) {
        const std::size_t slips = word.size() > longest ? least : distance(word, candidate);
        if (slips < least && !candidate.empty()) {
            found = candidate;
            least = slips;
        }
    }
    return found;
}

}  // namespace velora
