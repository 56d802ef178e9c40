#pragma once

#include <array>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/Making.h>
#include <Velora_UserDefaults/XCGLogger/LevelTexts.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/LogFormatterProtocol.h>

namespace velora {

/// What formatters that colour lines by level have in common; a concrete one knows the codes.
///
/// The default scheme of each styles seven levels. Notice, alert and emergency have no style of their
/// own until the host gives them one: their lines stand between two resets.
///
/// Every operation can be overridden. A subclass that changes the scheme as it is made does so in its
/// `finishMaking`, after its base's. Not synchronised: formatting is safe from several threads at
/// once, changing the scheme while another thread formats is not.
class VELORA_EXPORT ColorLogFormatter : public LogFormatterProtocol, public MadeInTwoSteps {
public:
    ~ColorLogFormatter() override;

    /// Installs the default scheme. Styles of levels outside it stay.
    virtual void resetFormatting() = 0;
    /// Makes the levels of the default scheme plain. Styles of levels outside it stay.
    virtual void clearFormatting() = 0;

    /// What is written before a line of each level that has a style.
    const LevelTexts& formatStrings() const noexcept { return formatStrings_; }
    /// The style of each such level in words.
    const LevelTexts& descriptionStrings() const noexcept { return descriptionStrings_; }

    /// Puts the style of the record's level, or else the reset sequence, before `message` and the
    /// reset sequence after it.
    const std::string& format(LogDetails& logDetails, std::string& message) override;

    /// The object's own class name, ": ", and a line for each level, "\n\t- Error > Red on Default",
    /// with "None" for a level without a style.
    std::string debugDescription() const override;

protected:
    /// `reset` is the sequence that ends all colouring; the text must outlive the formatter.
    ColorLogFormatter(Making key, std::string_view reset);

    /// Installs the default scheme.
    void finishMaking() override;

    /// The levels that the default scheme styles, in the order it styles them.
    static constexpr std::array<Level, 7> levelsOfScheme = {Level::verbose, Level::debug,  Level::info, Level::warning,
                                                            Level::error,   Level::severe, Level::none};

    /// Gives `level` a style.
    void setFormatting(Level level, std::string formatString, std::string descriptionString);

private:
    std::string_view reset_;
    LevelTexts formatStrings_;
    LevelTexts descriptionStrings_;
};

}  // namespace velora
