#pragma once

#include <array>
#include <cstdint>
#include <fmt/core.h>
#include <iosfwd>
#include <string_view>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/RawValue.h>

namespace velora {

/// How severe a log call is, and, as a threshold, how severe it must be to be logged.
///
/// Levels compare by their raw values, 0 to 9: `Level::debug < Level::error`. `none` is the highest
/// value and only a threshold: no call is made at it, so a threshold of `none` lets nothing through.
/// `rawValue(level)` and `fromRawValue<Level>(n)` convert to and from the integer.
/// `XCGLogger::Level` is another name for this type.
enum class Level : std::uint8_t { verbose, debug, info, notice, warning, error, severe, alert, emergency, none };

/// Makes `rawValue` and `fromRawValue` serve levels.
template <>
inline constexpr Level lastCase<Level> = Level::none;

/// The two lists of levels, each in the order of the raw values.
struct Levels {
    /// All ten, `none` included.
    static constexpr const auto& allCases = velora::allCases<Level>;
    /// The nine that a call can be made at: `verbose` to `emergency`.
    static constexpr std::array<Level, 9> all = {Level::verbose, Level::debug,   Level::info,
                                                 Level::notice,  Level::warning, Level::error,
                                                 Level::severe,  Level::alert,   Level::emergency};
};

/// The level's word: "Verbose", "Debug", … "None". The text lives as long as the process.
VELORA_EXPORT std::string_view description(Level level) noexcept;

/// Writes the level's word.
VELORA_EXPORT std::ostream& operator<<(std::ostream& stream, Level level);

}  // namespace velora

/// Formats a level as its word; takes what a text takes: `"{:>9}"`.
template <>
struct fmt::formatter<velora::Level> {
    constexpr auto parse(fmt::format_parse_context& context) { return word_.parse(context); }
    VELORA_EXPORT fmt::format_context::iterator format(velora::Level level, fmt::format_context& context) const;

private:
    fmt::formatter<fmt::string_view> word_;
};
