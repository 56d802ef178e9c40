#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <string_view>

#include <Velora_UserDefaults/XCGLogger/LogFormatters/Color.h>

namespace velora {

namespace {

double component(double number) noexcept {
    return std::isnan(number) ? 0 : std::clamp(number, 0.0, 1.0);
}

/// The value of one hexadecimal digit, or nothing.
std::optional<int> digitValue(char digit) noexcept {
    constexpr std::string_view digits = "0123456789abcdefABCDEF";
    const std::size_t position = digits.find(digit);
    if (position == std::string_view::npos) {
        return std::nullopt;
    }
    return static_cast<int>(position < 16 ? position : position - 6);
}

}  // namespace

Color::Color(double red, double green, double blue, double alpha) noexcept
    : red_(component(red)), green_(component(green)), blue_(component(blue)), alpha_(component(alpha)) {}

Color Color::fromGrey(double white, double alpha) noexcept {
    return {white, white, white, alpha};
}

Color Color::fromRGB(double red, double green, double blue, double alpha) noexcept {
    return {red, green, blue, alpha};
}

Color Color::fromHSB(double hue, double saturation, double brightness, double alpha) noexcept {
    const double sixths = component(hue) * 6;
    // How far a component lies below the brightness depends on how far its own hue is, in sixths.
    const auto part = [&](double hueOfPart) {
        const double distance = std::abs(std::remainder(sixths - hueOfPart, 6));
        return component(brightness) * (1 - component(saturation) * std::clamp(distance - 1, 0.0, 1.0));
    };
    return {part(0), part(2), part(4), alpha};
}

std::optional<Color> Color::fromHex(std::string_view text) noexcept {
    if (text.starts_with('#')) {
        text.remove_prefix(1);
    }
    const bool isShort = text.size() == 3 || text.size() == 4;
    if (!isShort && text.size() != 6 && text.size() != 8) {
        return std::nullopt;
    }
    const std::size_t digitsOfPart = isShort ? 1 : 2;
    std::array<double, 4> parts = {0, 0, 0, 1};
    for (std::size_t part = 0; part * digitsOfPart < text.size(); ++part) {
        const auto high = digitValue(text[part * digitsOfPart]);
        const auto low = digitValue(text[part * digitsOfPart + digitsOfPart - 1]);
        if (!high || !low) {
            return std::nullopt;
        }
        parts.at(part) = (*high * 16 + *low) / 255.0;
    }
    return Color(parts[0], parts[1], parts[2], parts[3]);
}

}  // namespace velora
