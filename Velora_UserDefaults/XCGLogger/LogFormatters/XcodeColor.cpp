#include <fmt/format.h>

#include <Velora_UserDefaults/XCGLogger/LogFormatters/RGBText.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/XcodeColor.h>

namespace velora {

namespace {

int number(double component) noexcept {
    return static_cast<int>(component * 255.0);
}

}  // namespace

XcodeColor::XcodeColor(const std::optional<Color>& color) noexcept
    : red_(color ? number(color->redComponent()) : 0),
      green_(color ? number(color->greenComponent()) : 0),
      blue_(color ? number(color->blueComponent()) : 0) {}

std::string XcodeColor::foregroundCode() const {
    return fmt::format("fg{},{},{}", red_, green_, blue_);
}

std::string XcodeColor::backgroundCode() const {
    return fmt::format("bg{},{},{}", red_, green_, blue_);
}

std::string XcodeColor::description() const {
    return rgbText(red_, green_, blue_);
}

}  // namespace velora
