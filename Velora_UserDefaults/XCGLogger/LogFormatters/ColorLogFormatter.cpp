#include <utility>

#include <Velora_UserDefaults/Platform/TypeName.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/ColorLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/LevelListing.h>

namespace velora {

ColorLogFormatter::ColorLogFormatter(Making key, std::string_view reset) : MadeInTwoSteps(key), reset_(reset) {}

ColorLogFormatter::~ColorLogFormatter() = default;

void ColorLogFormatter::finishMaking() {
    MadeInTwoSteps::finishMaking();
    resetFormatting();
}

void ColorLogFormatter::setFormatting(Level level, std::string formatString, std::string descriptionString) {
    formatStrings_.set(level, std::move(formatString));
    descriptionStrings_.set(level, std::move(descriptionString));
}

const std::string& ColorLogFormatter::format(LogDetails& logDetails, std::string& message) {
    return surround(message, textFor(logDetails.level, formatStrings_, reset_), reset_);
}

std::string ColorLogFormatter::debugDescription() const {
    return listedByLevel(dynamicTypeName(*this),
                         [this](Level level) { return textFor(level, descriptionStrings_, "None"); });
}

}  // namespace velora
