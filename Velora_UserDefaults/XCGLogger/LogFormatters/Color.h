#pragma once

#include <optional>
#include <string_view>

#include <Velora_UserDefaults/Platform/Export.h>

namespace velora {

/// A colour in the RGB space, each component and the opacity from 0 to 1, for those who have a
/// colour in another notation. Numbers outside that range become the nearest inside, and NaN 0.
///
/// A value that never changes: safe to use from any thread.
class VELORA_EXPORT Color {
public:
    /// A grey, from 0 for black to 1 for white.
    static Color fromGrey(double white, double alpha = 1) noexcept;
    /// A mix of red, green and blue.
    static Color fromRGB(double red, double green, double blue, double alpha = 1) noexcept;
    /// A hue, once around the circle from red at 0 over green and blue to red again at 1, with its
    /// saturation and its brightness.
    static Color fromHSB(double hue, double saturation, double brightness, double alpha = 1) noexcept;
    /// A colour in the hexadecimal notation of style sheets (CSS Color 4, 5.2), with or without its
    /// "#": "#FFA500", "ffa500", "#FA0", "#FFA50080" or "#FA08". Nothing if `text` is no such colour.
    static std::optional<Color> fromHex(std::string_view text) noexcept;

    /// One component, from 0 to 1.
    double redComponent() const noexcept { return red_; }
    double greenComponent() const noexcept { return green_; }
    double blueComponent() const noexcept { return blue_; }
    double alphaComponent() const noexcept { return alpha_; }

    friend bool operator==(const Color&, const Color&) noexcept = default;

private:
    Color(double red, double green, double blue, double alpha) noexcept;

    double red_;
    double green_;
    double blue_;
    double alpha_;
};

}  // namespace velora
