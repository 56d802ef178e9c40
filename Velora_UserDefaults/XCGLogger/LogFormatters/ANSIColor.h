#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/Platform/Export.h>

namespace velora {

/// A colour of a text terminal: one of the sixteen of its palette, its default, or, where the
/// terminal can show it, any mix of red, green and blue or one of its 256 indexed colours. The codes
/// are the parameters of SGR, the control sequence for graphic rendition (ECMA-48, 8.3.117); for the
/// last two those of ISO/IEC 8613-6 as xterm writes them.
///
/// A value that never changes: safe to use from any thread.
class VELORA_EXPORT ANSIColor {
public:
    /// A colour of the terminal's palette, which decides how it looks.
    static const ANSIColor black;
    static const ANSIColor red;
    static const ANSIColor green;
    static const ANSIColor yellow;
    static const ANSIColor blue;
    static const ANSIColor magenta;
    static const ANSIColor cyan;
    /// Each grey has two spellings, which look alike and are yet unequal.
    static const ANSIColor lightGrey;
    static const ANSIColor lightGray;
    static const ANSIColor darkGrey;
    static const ANSIColor darkGray;
    /// The brighter ones of the palette.
    static const ANSIColor lightRed;
    static const ANSIColor lightGreen;
    static const ANSIColor lightYellow;
    static const ANSIColor lightBlue;
    static const ANSIColor lightMagenta;
    static const ANSIColor lightCyan;
    static const ANSIColor white;
    /// The colour that the terminal uses where no other is asked for.
    static const ANSIColor default_;

    /// A mix of parts from 0 to 255 each; the codes have the nearest of these for any other number.
    static constexpr ANSIColor rgb(int red, int green, int blue) noexcept { return {Case::rgb, red, green, blue}; }
    /// A colour of the 256, 0 to 255; the codes have the nearest of these for any other number.
    static constexpr ANSIColor colorIndex(int number) noexcept { return {Case::colorIndex, number, 0, 0}; }

    /// The parameters that make text of this colour: "31", "38;2;255;0;10", "38;5;255".
    std::string foregroundCode() const;
    /// The parameters that put this colour behind text: "41", "48;2;255;0;10", "48;5;255".
    std::string backgroundCode() const;
    /// The colour in words: "Light Red", "(r: 255, g: 0, b: 10) #FF000A" or "ANSI color index: 255",
    /// with the numbers as they were given.
    std::string description() const;

    friend constexpr bool operator==(const ANSIColor&, const ANSIColor&) noexcept = default;

private:
    enum class Case : std::uint8_t {
        black,
        red,
        green,
        yellow,
        blue,
        magenta,
        cyan,
        lightGrey,
        lightGray,
        darkGrey,
        darkGray,
        lightRed,
        lightGreen,
        lightYellow,
        lightBlue,
        lightMagenta,
        lightCyan,
        white,
        default_,
        rgb,
        colorIndex
    };

    constexpr ANSIColor(Case colorCase, int first, int second, int third) noexcept
        : case_(colorCase), first_(first), second_(second), third_(third) {}
    constexpr explicit ANSIColor(Case colorCase) noexcept : ANSIColor(colorCase, 0, 0, 0) {}

    /// The code of a mix or an index after `command`, which tells foreground from background.
    std::string numberedCode(std::string_view command) const;

    Case case_;
    // The parts of a mix; an index has the first only.
    int first_;
    int second_;
    int third_;
};

inline constexpr ANSIColor ANSIColor::black{Case::black};
inline constexpr ANSIColor ANSIColor::red{Case::red};
inline constexpr ANSIColor ANSIColor::green{Case::green};
inline constexpr ANSIColor ANSIColor::yellow{Case::yellow};
inline constexpr ANSIColor ANSIColor::blue{Case::blue};
inline constexpr ANSIColor ANSIColor::magenta{Case::magenta};
inline constexpr ANSIColor ANSIColor::cyan{Case::cyan};
inline constexpr ANSIColor ANSIColor::lightGrey{Case::lightGrey};
inline constexpr ANSIColor ANSIColor::lightGray{Case::lightGray};
inline constexpr ANSIColor ANSIColor::darkGrey{Case::darkGrey};
inline constexpr ANSIColor ANSIColor::darkGray{Case::darkGray};
inline constexpr ANSIColor ANSIColor::lightRed{Case::lightRed};
inline constexpr ANSIColor ANSIColor::lightGreen{Case::lightGreen};
inline constexpr ANSIColor ANSIColor::lightYellow{Case::lightYellow};
inline constexpr ANSIColor ANSIColor::lightBlue{Case::lightBlue};
inline constexpr ANSIColor ANSIColor::lightMagenta{Case::lightMagenta};
inline constexpr ANSIColor ANSIColor::lightCyan{Case::lightCyan};
inline constexpr ANSIColor ANSIColor::white{Case::white};
inline constexpr ANSIColor ANSIColor::default_{Case::default_};

}  // namespace velora
