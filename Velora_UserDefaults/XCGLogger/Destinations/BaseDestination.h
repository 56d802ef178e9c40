#pragma once

#include <memory>
#include <string>
#include <utility>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/Making.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/DestinationProtocol.h>
#include <Velora_UserDefaults/XCGLogger/LevelTexts.h>

namespace velora {

/// All of a destination but the last step: its settings, and the layout of a line. A class derived from
/// it supplies `output`.
///
/// With every column on, a line reads
///
///     2024-01-02 03:04:05.678 [Debug] [logger] [thread] [Main.cpp:42] doWork > hello
///
/// A column that is off contributes nothing, not even its separator. Lines about the engine itself
/// (`processInternal`) have only the date, the level by its plain word, and the logger.
///
/// Settings are made before logging starts; `process` may then run on several threads at once. A
/// destination without an owner drops every line.
class VELORA_EXPORT BaseDestination : public DestinationProtocol,
                                      public MadeInTwoSteps,
                                      public std::enable_shared_from_this<BaseDestination> {
public:
    /// Made by `make<…>(owner, identifier)`; `owner` is usually null, and set by `XCGLogger::add`.
    BaseDestination(Making key, std::shared_ptr<XCGLogger> owner, std::string identifier);
    ~BaseDestination() override;

    const std::shared_ptr<XCGLogger>& owner() const override { return owner_; }
    void setOwner(std::shared_ptr<XCGLogger> owner) override;
    const std::string& identifier() const override { return identifier_; }
    void setIdentifier(std::string identifier) override { identifier_ = std::move(identifier); }
    /// `debug` at first.
    Level outputLevel() const override { return outputLevel_; }
    void setOutputLevel(Level level) override { outputLevel_ = level; }
    bool haveLoggedAppDetails() const override { return haveLoggedAppDetails_; }
    void setHaveLoggedAppDetails(bool haveLogged) override { haveLoggedAppDetails_ = haveLogged; }
    const Formatters& formatters() const override { return formatters_; }
    void setFormatters(Formatters formatters) override { formatters_ = std::move(formatters); }
    const Filters& filters() const override { return filters_; }
    void setFilters(Filters filters) override { filters_ = std::move(filters); }

    /// The columns. The logger's identifier and the thread are off at first, the others on.
    virtual bool showLogIdentifier() const { return showLogIdentifier_; }
    virtual void setShowLogIdentifier(bool show) { showLogIdentifier_ = show; }
    virtual bool showFunctionName() const { return showFunctionName_; }
    virtual void setShowFunctionName(bool show) { showFunctionName_ = show; }
    virtual bool showThreadName() const { return showThreadName_; }
    virtual void setShowThreadName(bool show) { showThreadName_ = show; }
    virtual bool showFileName() const { return showFileName_; }
    virtual void setShowFileName(bool show) { showFileName_ = show; }
    virtual bool showLineNumber() const { return showLineNumber_; }
    virtual void setShowLineNumber(bool show) { showLineNumber_ = show; }
    virtual bool showLevel() const { return showLevel_; }
    virtual void setShowLevel(bool show) { showLevel_ = show; }
    virtual bool showDate() const { return showDate_; }
    virtual void setShowDate(bool show) { showDate_ = show; }

    /// Words shown instead of the levels' own; a level without one has its owner's word, or its plain one.
    virtual const LevelTexts& levelDescriptions() const { return levelDescriptions_; }
    virtual void setLevelDescriptions(LevelTexts descriptions) { levelDescriptions_ = std::move(descriptions); }

    void process(LogDetails& logDetails) override;
    void processInternal(LogDetails& logDetails) override;
    /// Whether `outputLevel() <= level`.
    bool isEnabledFor(Level level) const override;

    /// Emits the composed line `message`. Both arguments are this destination's own, to be changed or moved
    /// from at will. Here it is a fatal error: derive from this class and supply it.
    virtual void output(LogDetails& logDetails, std::string& message);

    std::string debugDescription() const override;

private:
    std::shared_ptr<XCGLogger> owner_;
    std::string identifier_;
    Level outputLevel_ = Level::debug;
    bool haveLoggedAppDetails_ = false;
    Formatters formatters_;
    Filters filters_;
    bool showLogIdentifier_ = false;
    bool showFunctionName_ = true;
    bool showThreadName_ = false;
    bool showFileName_ = true;
    bool showLineNumber_ = true;
    bool showLevel_ = true;
    bool showDate_ = true;
    LevelTexts levelDescriptions_;
};

}  // namespace velora
