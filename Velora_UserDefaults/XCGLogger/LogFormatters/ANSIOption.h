#pragma once

#include <cstdint>
#include <string_view>

#include <Velora_UserDefaults/Platform/Export.h>

namespace velora {

/// How a text terminal can set text off besides by colour. The codes are parameters of SGR
/// (ECMA-48, 8.3.117).
enum class ANSIOption : std::uint8_t { bold, faint, italic, underline, blink, blinkFast, strikethrough };

/// The option's parameter: "1" for `bold` to "9" for `strikethrough`. Lives as long as the process.
VELORA_EXPORT std::string_view code(ANSIOption option) noexcept;

/// The option in words: "Bold", "Blink Fast". Lives as long as the process.
VELORA_EXPORT std::string_view description(ANSIOption option) noexcept;

}  // namespace velora
