#pragma once

#include <optional>
#include <string>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/Making.h>
#include <Velora_UserDefaults/XCGLogger/LevelTexts.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/LogFormatterProtocol.h>

namespace velora {

/// Puts a text of each level's own before its lines and another after them.
///
///     const auto formatter = make<PrePostFixLogFormatter>();
///     formatter->apply(">>> ", " <<<", Level::error);
///     destination->setFormatters({{formatter}});
///
/// Every operation can be overridden. Not synchronised: formatting is safe from several threads at
/// once, changing the texts while another thread formats is not.
class VELORA_EXPORT PrePostFixLogFormatter : public LogFormatterProtocol, public MadeInTwoSteps {
public:
    /// `make<PrePostFixLogFormatter>()`: without any texts.
    explicit PrePostFixLogFormatter(Making key);
    ~PrePostFixLogFormatter() override;

    /// Sets the texts of the level `to`; an absent one is removed. Without a level, does so for each of
    /// the ten in order, or, if there is no text either, calls `clearFormatting`.
    virtual void apply(const std::optional<std::string>& prefix,
                       const std::optional<std::string>& postfix = std::nullopt,
                       std::optional<Level> to = std::nullopt);
    /// Removes all texts of all levels.
    virtual void clearFormatting();

    /// Puts the texts of the record's level around `message`, with nothing in between.
    const std::string& format(LogDetails& logDetails, std::string& message) override;

    /// The object's own class name, ": ", and a line for each level, "\n\t- Error > >>> | None", with
    /// "None" for a text that it does not have.
    std::string debugDescription() const override;

private:
    LevelTexts prefixStrings_;
    LevelTexts postfixStrings_;
};

}  // namespace velora
