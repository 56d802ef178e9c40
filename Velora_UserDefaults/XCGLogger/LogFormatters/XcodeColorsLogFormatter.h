#pragma once

#include <optional>
#include <string_view>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/ColorLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/XcodeColor.h>

namespace velora {

/// Colours lines by level with colour codes of the form ESC "[fg255,165,0;", which consoles that know
/// them replace by the colour.
///
///     const auto formatter = make<XcodeColorsLogFormatter>();
///     formatter->colorize(Level::notice, XcodeColor::Named::purple);
///     destination->setFormatters({{formatter}});
///
/// The default scheme: verbose light grey, debug dark grey, info blue, warning orange, error red,
/// severe white on red, the rest uncoloured. Threads: see `ColorLogFormatter`.
class VELORA_EXPORT XcodeColorsLogFormatter : public ColorLogFormatter {
public:
    /// Another name for the type, as a member.
    using XcodeColor = velora::XcodeColor;

    /// What every sequence begins with: ESC and "[".
    static constexpr std::string_view escape = "\x1b[";
    /// The sequences that end the colouring of text, of what is behind it, and of both.
    static constexpr std::string_view resetForeground = "\x1b[fg;";
    static constexpr std::string_view resetBackground = "\x1b[bg;";
    static constexpr std::string_view reset = "\x1b[;";

    /// `make<XcodeColorsLogFormatter>()`: with the default scheme.
    explicit XcodeColorsLogFormatter(Making key);
    ~XcodeColorsLogFormatter() override;

    /// Gives the lines of `level` a colour of the text and one behind it; either may be absent.
    virtual void colorize(Level level, const std::optional<XcodeColor>& with,
                          const std::optional<XcodeColor>& on = std::nullopt);

    void resetFormatting() override;
    void clearFormatting() override;
};

}  // namespace velora
