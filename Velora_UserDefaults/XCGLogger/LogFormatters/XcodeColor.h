#pragma once

#include <optional>
#include <string>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/Color.h>

namespace velora {

/// A mix of red, green and blue, 0 to 255 each, as `XcodeColorsLogFormatter` writes it into lines.
///
/// A value: not synchronised, copies are independent.
class VELORA_EXPORT XcodeColor {
public:
    /// The colours that have a name: `XcodeColor::Named::orange`.
    struct Named;

    /// The three numbers are stored as they are given, without a check.
    constexpr XcodeColor(int red, int green, int blue) noexcept : red_(red), green_(green), blue_(blue) {}
    /// The same colour: each component times 255, the fraction dropped; the opacity does not matter.
    /// Black if there is none, such as `Color::fromHex` of something that is no colour.
    explicit XcodeColor(const std::optional<Color>& color) noexcept;

    /// One of the three numbers.
    constexpr int red() const noexcept { return red_; }
    constexpr int green() const noexcept { return green_; }
    constexpr int blue() const noexcept { return blue_; }

    /// Changes one of the numbers: any that is negative or above 255 becomes 0.
    constexpr void setRed(int red) noexcept { red_ = zeroUnlessInRange(red); }
    constexpr void setGreen(int green) noexcept { green_ = zeroUnlessInRange(green); }
    constexpr void setBlue(int blue) noexcept { blue_ = zeroUnlessInRange(blue); }

    /// "fg255,165,0"
    std::string foregroundCode() const;
    /// "bg255,165,0"
    std::string backgroundCode() const;
    /// "(r: 255, g: 165, b: 0) #FFA500"
    std::string description() const;

    friend constexpr bool operator==(const XcodeColor&, const XcodeColor&) noexcept = default;

private:
    static constexpr int zeroUnlessInRange(int number) noexcept { return number < 0 || number > 255 ? 0 : number; }

    int red_;
    int green_;
    int blue_;
};

/// The colours that have a name.
struct XcodeColor::Named {
    /// The colour of that name.
    static constexpr XcodeColor red{255, 0, 0};
    static constexpr XcodeColor green{0, 255, 0};
    static constexpr XcodeColor blue{0, 0, 255};
    static constexpr XcodeColor black{0, 0, 0};
    static constexpr XcodeColor white{255, 255, 255};
    static constexpr XcodeColor lightGrey{211, 211, 211};
    static constexpr XcodeColor darkGrey{169, 169, 169};
    static constexpr XcodeColor orange{255, 165, 0};
    static constexpr XcodeColor purple{170, 0, 170};
    static constexpr XcodeColor darkGreen{0, 128, 0};
    static constexpr XcodeColor cyan{0, 170, 170};
};

}  // namespace velora
