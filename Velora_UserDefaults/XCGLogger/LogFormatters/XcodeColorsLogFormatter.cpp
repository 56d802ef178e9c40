#include <string>

#include <Velora_UserDefaults/XCGLogger/LogFormatters/XcodeColorsLogFormatter.h>

namespace velora {

namespace {

std::string sequence(const std::string& code) {
    return std::string(XcodeColorsLogFormatter::escape) + code + ";";
}

std::string descriptionOrDefault(const std::optional<XcodeColor>& color) {
    return color ? color->description() : "Default";
}

}  // namespace

XcodeColorsLogFormatter::XcodeColorsLogFormatter(Making key) : ColorLogFormatter(key, reset) {}

XcodeColorsLogFormatter::~XcodeColorsLogFormatter() = default;

void XcodeColorsLogFormatter::colorize(Level level, const std::optional<XcodeColor>& with,
                                       const std::optional<XcodeColor>& on) {
    if (!with && !on) {
        setFormatting(level, std::string(reset), "None");
        return;
    }
    const std::string foreground = with ? sequence(with->foregroundCode()) : std::string(resetForeground);
    const std::string background = on ? sequence(on->backgroundCode()) : std::string(resetBackground);
    setFormatting(level, foreground + background, descriptionOrDefault(with) + " on " + descriptionOrDefault(on));
}

void XcodeColorsLogFormatter::resetFormatting() {
    colorize(Level::verbose, XcodeColor::Named::lightGrey, std::nullopt);
    colorize(Level::debug, XcodeColor::Named::darkGrey, std::nullopt);
    colorize(Level::info, XcodeColor::Named::blue, std::nullopt);
    colorize(Level::warning, XcodeColor::Named::orange, std::nullopt);
    colorize(Level::error, XcodeColor::Named::red, std::nullopt);
    colorize(Level::severe, XcodeColor::Named::white, XcodeColor::Named::red);
    colorize(Level::none, std::nullopt, std::nullopt);
}

void XcodeColorsLogFormatter::clearFormatting() {
    for (const Level level : levelsOfScheme) {
        colorize(level, std::nullopt, std::nullopt);
    }
}

}  // namespace velora
