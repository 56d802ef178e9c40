#pragma once

#include <string_view>
#include <vector>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIColor.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIOption.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/ColorLogFormatter.h>

namespace velora {

/// Colours lines by level with the escape sequences of a text terminal (ECMA-48).
///
///     const auto formatter = make<ANSIColorLogFormatter>();
///     formatter->colorize(Level::notice, ANSIColor::cyan, ANSIColor::default_, {ANSIOption::underline});
///     destination->setFormatters({{formatter}});
///
/// The default scheme: verbose bold white, debug black, info blue, warning yellow, error bold red,
/// severe white on red, the rest as the terminal has it. Threads: see `ColorLogFormatter`.
class VELORA_EXPORT ANSIColorLogFormatter : public ColorLogFormatter {
public:
    /// Other names for the types, as members.
    using ANSIColor = velora::ANSIColor;
    using ANSIOption = velora::ANSIOption;

    /// What every sequence begins with: ESC and "[".
    static constexpr std::string_view escape = "\x1b[";
    /// The sequence that ends all styling: ESC and "[m".
    static constexpr std::string_view reset = "\x1b[m";

    /// `make<ANSIColorLogFormatter>()`: with the default scheme.
    explicit ANSIColorLogFormatter(Making key);
    ~ANSIColorLogFormatter() override;

    /// Styles the lines of `level`: the colour of the text, the colour behind it, and options, which
    /// keep their order and their duplicates.
    virtual void colorize(Level level, const ANSIColor& with, const ANSIColor& on = ANSIColor::default_,
                          const std::vector<ANSIOption>& options = {});
    /// Styles the lines of `level` by a sequence of the caller's, such as "31m", with or without the
    /// `escape` at its beginning. It is not checked.
    virtual void colorize(Level level, std::string_view custom);

    void resetFormatting() override;
    void clearFormatting() override;
};

}  // namespace velora
