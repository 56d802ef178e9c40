#include <Velora_UserDefaults/Platform/TypeName.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/LevelListing.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/PrePostFixLogFormatter.h>

namespace velora {

namespace {

void setOrRemove(LevelTexts& texts, Level level, const std::optional<std::string>& text) {
    if (text) {
        texts.set(level, *text);
    } else {
        texts.remove(level);
    }
}

}  // namespace

PrePostFixLogFormatter::PrePostFixLogFormatter(Making key) : MadeInTwoSteps(key) {}

PrePostFixLogFormatter::~PrePostFixLogFormatter() = default;

void PrePostFixLogFormatter::apply(const std::optional<std::string>& prefix, const std::optional<std::string>& postfix,
                                   std::optional<Level> to) {
    if (to) {
        setOrRemove(prefixStrings_, *to, prefix);
        setOrRemove(postfixStrings_, *to, postfix);
    } else if (!prefix && !postfix) {
        clearFormatting();
    } else {
        for (const Level level : Levels::allCases) {
            apply(prefix, postfix, level);
        }
    }
}

void PrePostFixLogFormatter::clearFormatting() {
    prefixStrings_.clear();
    postfixStrings_.clear();
}

const std::string& PrePostFixLogFormatter::format(LogDetails& logDetails, std::string& message) {
    return surround(message, textFor(logDetails.level, prefixStrings_, ""),
                    textFor(logDetails.level, postfixStrings_, ""));
}

std::string PrePostFixLogFormatter::debugDescription() const {
    return listedByLevel(dynamicTypeName(*this), [this](Level level) {
        return std::string(textFor(level, prefixStrings_, "None"))
            .append(" | ")
            .append(textFor(level, postfixStrings_, "None"));
    });
}

}  // namespace velora
