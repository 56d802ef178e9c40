#pragma once

#include <concepts>
#include <memory>
#include <string>
#include <string_view>
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
    /// `debug` at first. May be set while other threads log.
    Level outputLevel() const override { return threshold_.level(); }
    void setOutputLevel(Level level) override { threshold_.setLevel(level); }
    bool haveLoggedAppDetails() const override { return haveLoggedAppDetails_; }
    void setHaveLoggedAppDetails(bool haveLogged) override { haveLoggedAppDetails_ = haveLogged; }
    const Formatters& formatters() const override { return formatters_; }
    void setFormatters(Formatters formatters) override { formatters_ = std::move(formatters); }
    const Filters& filters() const override { return filters_; }
    void setFilters(Filters filters) override { filters_ = std::move(filters); }

    /// The columns. The logger's identifier and the thread are off at first, the others on.
    virtual bool showLogIdentifier() const { return columns_.showLogIdentifier; }
    virtual void setShowLogIdentifier(bool show) { columns_.showLogIdentifier = show; }
    virtual bool showFunctionName() const { return columns_.showFunctionName; }
    virtual void setShowFunctionName(bool show) { columns_.showFunctionName = show; }
    virtual bool showThreadName() const { return columns_.showThreadName; }
    virtual void setShowThreadName(bool show) { columns_.showThreadName = show; }
    virtual bool showFileName() const { return columns_.showFileName; }
    virtual void setShowFileName(bool show) { columns_.showFileName = show; }
    virtual bool showLineNumber() const { return columns_.showLineNumber; }
    virtual void setShowLineNumber(bool show) { columns_.showLineNumber = show; }
    virtual bool showLevel() const { return columns_.showLevel; }
    virtual void setShowLevel(bool show) { columns_.showLevel = show; }
    virtual bool showDate() const { return columns_.showDate; }
    virtual void setShowDate(bool show) { columns_.showDate = show; }

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

    DestinationThreshold* knownThreshold() noexcept override { return overridesNothing_ ? &threshold_ : nullptr; }

    /// Notes whether `Class` overrides an operation that every line would have to ask. Called by `make`.
    template <typename Class>
    void learnClass(Making /*key*/) noexcept {
        using Base = BaseDestination;
        overridesNothing_ = requires {
            requires std::same_as<decltype(&Class::isEnabledFor), decltype(&Base::isEnabledFor)>;
            requires std::same_as<decltype(&Class::outputLevel), decltype(&Base::outputLevel)>;
            requires std::same_as<decltype(&Class::owner), decltype(&Base::owner)>;
            requires std::same_as<decltype(&Class::showLogIdentifier), decltype(&Base::showLogIdentifier)>;
            requires std::same_as<decltype(&Class::showFunctionName), decltype(&Base::showFunctionName)>;
            requires std::same_as<decltype(&Class::showThreadName), decltype(&Base::showThreadName)>;
            requires std::same_as<decltype(&Class::showFileName), decltype(&Base::showFileName)>;
            requires std::same_as<decltype(&Class::showLineNumber), decltype(&Base::showLineNumber)>;
            requires std::same_as<decltype(&Class::showLevel), decltype(&Base::showLevel)>;
            requires std::same_as<decltype(&Class::showDate), decltype(&Base::showDate)>;
            requires std::same_as<decltype(&Class::levelDescriptions), decltype(&Base::levelDescriptions)>;
        };
    }

protected:
    /// Whether the class overrides none of the operations that every line would have to ask.
    bool overridesNothing_ = false;

private:
    struct Columns {
        bool showLogIdentifier = false;
        bool showFunctionName = true;
        bool showThreadName = false;
        bool showFileName = true;
        bool showLineNumber = true;
        bool showLevel = true;
        bool showDate = true;
    };

    const XCGLogger* knownOwner() const;
    const Columns& columns(Columns& asked) const;
    std::string_view levelText(const XCGLogger& owner, Level level) const;
    void outputLine(LogDetails& logDetails, const XCGLogger& owner, const Columns& columns, std::string_view levelWord);

    std::shared_ptr<XCGLogger> owner_;
    std::string identifier_;
    DestinationThreshold threshold_;
    bool haveLoggedAppDetails_ = false;
    Formatters formatters_;
    Filters filters_;
    Columns columns_;
    LevelTexts levelDescriptions_;
};

}  // namespace velora
