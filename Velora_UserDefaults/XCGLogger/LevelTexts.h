#pragma once

#include <array>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>

#include <Velora_UserDefaults/XCGLogger/Level.h>

namespace velora {

/// A dictionary from level to text: a logger's or destination's own level words, a formatter's codes.
///
/// A level either has an entry, which may be empty, or none. Not synchronised: it is set up before
/// logging starts, and may then be read from any thread.
///
///     destination->setLevelDescriptions({{Level::error, "FEHLER"}, {Level::info, "Hinweis"}});
class LevelTexts {
public:
    /// No entries.
    LevelTexts() = default;
    /// The entries of a list in braces; of two for one level the last.
    LevelTexts(std::initializer_list<std::pair<Level, std::string>> entries) {
        for (const auto& [level, text] : entries) {
            set(level, text);
        }
    }

    /// The text for `level`, or null if it has no entry. Valid until the entry is changed.
    const std::string* find(Level level) const noexcept {
        const std::optional<std::string>& entry = entries_[index(level)];
        return entry ? &*entry : nullptr;
    }
    /// The text for `level`, made empty first if it has no entry.
    std::string& operator[](Level level) {
        std::optional<std::string>& entry = entries_[index(level)];
        return entry ? *entry : entry.emplace();
    }
    /// Gives `level` an entry, in place of the one it may have.
    void set(Level level, std::string text) { entries_[index(level)] = std::move(text); }
    /// Removes the entry of `level`, if it has one.
    void remove(Level level) { entries_[index(level)].reset(); }
    /// Removes every entry.
    void clear() { entries_ = {}; }
    /// Whether no level has an entry.
    bool empty() const noexcept {
        for (const auto& entry : entries_) {
            if (entry) {
                return false;
            }
        }
        return true;
    }

    friend bool operator==(const LevelTexts&, const LevelTexts&) = default;

private:
    static std::size_t index(Level level) noexcept { return static_cast<std::size_t>(level); }

    std::array<std::optional<std::string>, Levels::allCases.size()> entries_;
};

}  // namespace velora
