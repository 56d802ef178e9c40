#include <string>
#include <utility>

#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIColorLogFormatter.h>

namespace velora {

ANSIColorLogFormatter::ANSIColorLogFormatter(Making key) : ColorLogFormatter(key, reset) {}

ANSIColorLogFormatter::~ANSIColorLogFormatter() = default;

void ANSIColorLogFormatter::colorize(Level level, const ANSIColor& with, const ANSIColor& on,
                                     const std::vector<ANSIOption>& options) {
    std::string formatString = std::string(escape) + with.foregroundCode() + ";" + on.backgroundCode();
    std::string descriptionString = with.description() + " on " + on.description();
    for (const ANSIOption option : options) {
        formatString.append(";").append(code(option));
        descriptionString.append("/").append(description(option));
    }
    setFormatting(level, formatString + "m", std::move(descriptionString));
}

void ANSIColorLogFormatter::colorize(Level level, std::string_view custom) {
    if (custom.starts_with(escape)) {
        custom.remove_prefix(escape.size());
    }
    setFormatting(level, std::string(escape).append(custom), std::string("Custom: ").append(custom));
}

void ANSIColorLogFormatter::resetFormatting() {
    colorize(Level::verbose, ANSIColor::white, ANSIColor::default_, {ANSIOption::bold});
    colorize(Level::debug, ANSIColor::black, ANSIColor::default_, {});
    colorize(Level::info, ANSIColor::blue, ANSIColor::default_, {});
    colorize(Level::warning, ANSIColor::yellow, ANSIColor::default_, {});
    colorize(Level::error, ANSIColor::red, ANSIColor::default_, {ANSIOption::bold});
    colorize(Level::severe, ANSIColor::white, ANSIColor::red, {});
    colorize(Level::none, ANSIColor::default_, ANSIColor::default_, {});
}

void ANSIColorLogFormatter::clearFormatting() {
    for (const Level level : levelsOfScheme) {
        colorize(level, ANSIColor::default_, ANSIColor::default_, {});
    }
}

}  // namespace velora
