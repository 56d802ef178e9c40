#pragma once

#include <atomic>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/Making.h>
#include <Velora_UserDefaults/XCGLogger/Constants.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/DestinationProtocol.h>
#include <Velora_UserDefaults/XCGLogger/FileTarget.h>
#include <Velora_UserDefaults/XCGLogger/Level.h>
#include <Velora_UserDefaults/XCGLogger/LevelTexts.h>
#include <Velora_UserDefaults/XCGLogger/LogCalls.h>
#include <Velora_UserDefaults/XCGLogger/LogDetails.h>

namespace velora {

class DateFormatter;
class DispatchQueue;
class XCGLogger;

/// The logger that a call on an object goes to.
class OwnLogger {
public:
    /// Calls go to `logger`, which must outlive this.
    constexpr explicit OwnLogger(XCGLogger& logger) noexcept : logger_(&logger) {}
    /// That logger.
    XCGLogger& logger() const noexcept { return *logger_; }

private:
    XCGLogger* logger_;
};

/// The logger that a class-level call goes to: `XCGLogger::defaultInstance()`.
class DefaultLogger {
public:
    /// The shared logger.
    VELORA_EXPORT static XCGLogger& logger();
};

/// What an application logs through: it holds destinations, builds one record for each call that some
/// destination accepts, and hands it to each of those.
///
///     auto log = velora::make<velora::XCGLogger>("app");        // logs to the console
///     log->info("Hello, {}", name);
///
/// **Threads.** Settings other than levels are made, and destinations added and removed, before logging starts. After
/// that any number of threads may log at once; a call runs on the calling thread up to each destination's writing. A
/// thread may also add or remove destinations in the middle of a log call of its own (in a message closure, filter or
/// callback).
///
/// **Failures.** Nothing is thrown or returned to the caller of a log call. The engine's own problems
/// become internal lines (`_logln`); exceptions from the host's closures, filters and formatters are
/// printed to standard output as "Objective-C Exception occurred: …".
class VELORA_EXPORT XCGLogger : public MadeInTwoSteps,
                                public AllLogCalls<OwnLogger>,
                                public std::enable_shared_from_this<XCGLogger> {
public:
    /// Other names for the types, as members.
    using Level = velora::Level;
    using Constants = velora::Constants;

    /// The calls of every level on `defaultInstance()`: `XCGLogger::Default::info("text")`.
    struct Default;

    /// A logger named `identifier`, at level `debug`. With `includeDefaultDestinations` it starts with a
    /// console destination, otherwise with none. Made by `make<XCGLogger>(…)`.
    explicit XCGLogger(Making key, std::string identifier = "", bool includeDefaultDestinations = true);
    ~XCGLogger() override;

    /// The shared logger, made on first use with its default destinations; lives as long as the process.
    static const std::shared_ptr<XCGLogger>& defaultInstance();
    /// A process-wide serial queue offered to destinations that shall write in the background:
    /// `file->setLogQueue(XCGLogger::logQueue())`. Made on first use.
    static const std::shared_ptr<DispatchQueue>& logQueue();

    /// The logger's name, which lines show if their destination shows it.
    virtual const std::string& identifier() const { return identifier_; }
    virtual void setIdentifier(std::string identifier) { identifier_ = std::move(identifier); }

    /// The threshold. Setting it sets it on every destination present, in list order; those added later
    /// keep their own. May be set while other threads log.
    virtual Level outputLevel() const { return outputLevel_.load(std::memory_order_relaxed); }
    virtual void setOutputLevel(Level level);

    /// What a call without a message logs; by default the empty text.
    virtual const MessageClosure& noMessageClosure() const { return noMessageClosure_; }
    virtual void setNoMessageClosure(MessageClosure closure) { noMessageClosure_ = std::move(closure); }

    /// Words shown instead of the levels' own, by destinations that have none of their own.
    virtual const LevelTexts& levelDescriptions() const { return levelDescriptions_; }
    virtual void setLevelDescriptions(LevelTexts descriptions) { levelDescriptions_ = std::move(descriptions); }

    /// The formatters and filters of the destinations that have no list of their own.
    virtual const Formatters& formatters() const { return formatters_; }
    virtual void setFormatters(Formatters formatters) { formatters_ = std::move(formatters); }
    virtual const Filters& filters() const { return filters_; }
    virtual void setFilters(Filters filters) { filters_ = std::move(filters); }

    /// Formats the date column: the formatter set, or one shared by all loggers with the pattern
    /// "yyyy-MM-dd HH:mm:ss.SSS" in the user's locale. Setting null returns to that one.
    virtual const std::shared_ptr<const DateFormatter>& dateFormatter() const;
    virtual void setDateFormatter(std::shared_ptr<const DateFormatter> formatter);
    /// The formatter set by the host, or null.
    const std::shared_ptr<const DateFormatter>& _customDateFormatter() const { return customDateFormatter_; }

    /// The destinations, in the order in which they were added.
    const std::vector<std::shared_ptr<DestinationProtocol>>& destinations() const { return destinations_; }
    /// The destination with exactly this identifier, or null.
    virtual std::shared_ptr<DestinationProtocol> destination(std::string_view identifier) const;
    /// Adds a destination at the end of the list, taking it from the logger it belongs to. Returns false,
    /// and changes nothing, if its identifier is taken here or it is null.
    virtual bool add(const std::shared_ptr<DestinationProtocol>& destination);
    /// Removes the destination with the same identifier as this one; whether there was one.
    virtual bool remove(const std::shared_ptr<DestinationProtocol>& destination);
    /// Removes the destination with this identifier; whether there was one.
    virtual bool remove(std::string_view identifier);

    /// Whether the logger's own threshold lets `level` through. Log calls do not ask this, they ask the
    /// destinations; `exec` does.
    virtual bool isEnabledFor(Level level) const;

    /// What every log call ends in: asks each destination whether it accepts the level, renders the message
    /// once if any does, and hands each of those its copy of the record, in list order, on this thread.
    ///
    ///     log->logln(Level::info, {functionName, fileName, lineNumber}, userInfo, [&] { return text; });
    virtual void logln(Level level, const SourceLocation& place, UserInfoReference userInfo, MessageReference message);
    /// The same with the message first.
    void logln(MessageReference message, Level level, SourceLocation place = SourceLocation::current(),
               UserInfoReference userInfo = {}) {
        logln(level, place, userInfo, message);
    }
    /// The same with a message alone.
    void logln(Level level, MessageReference message, SourceLocation place = SourceLocation::current(),
               UserInfoReference userInfo = {}) {
        logln(level, place, userInfo, message);
    }

    /// Whether `logln` may have something to do for a call at `level`. If not, a log call ends here: every
    /// destination's threshold is above the level, and neither their classes nor this one's override what would
    /// have to be asked. Any thread.
    bool mayAccept(Level level) const noexcept {
        return rawValue(level) >= lowestAccepted_.load(std::memory_order_relaxed);
    }

    /// Runs `closure`, on this thread, only if `isEnabledFor(level)`. What it throws goes to the caller.
    template <std::invocable Closure>
    void exec(Level level, Closure&& closure) {
        if (isEnabledFor(level)) {
            std::forward<Closure>(closure)();
        }
    }

    /// Writes the two-line start-up header to `selectedDestination`, or to all if it is null: once to each,
    /// and only to those that accept `info`.
    virtual void logAppDetails(DestinationProtocol* selectedDestination = nullptr);

    /// Writes a line about the engine itself, such as a file that cannot be opened, to every destination
    /// that accepts `level`. At `error` and above those with `source`'s identifier are left out: one that
    /// reports its own failure is not asked to write the report.
    virtual void _logln(std::string_view message, Level level, const DestinationProtocol* source = nullptr);

    struct SetupOptions;
    /// Configures the logger for the common case: the level, the columns of its console destination, and
    /// optionally a file. Ends with the start-up header.
    ///
    ///     log->setup({.level = Level::info, .showThreadName = true, .writeToFile = "/tmp/app.log"});
    virtual void setup(const SetupOptions& options);

    /// The logger's class, identifier and destinations. Its lines end in carriage returns.
    virtual std::string debugDescription() const;

    /// Notes whether `Class` overrides the one operation that every call would have to go through. Called by `make`.
    template <typename Class>
    void learnClass(Making /*key*/) noexcept {
        overridesNothing_ = requires {
            requires std::same_as<decltype(classOfLogln(&Class::logln)), std::type_identity<XCGLogger>>;
        };
        learnThresholds();
    }

protected:
    void finishMaking() override;
    /// Adds what a logger starts with: one console destination.
    virtual void addDefaultDestinations();

private:
    /// A destination, and its threshold if that can be read without asking it.
    struct Recipient {
        DestinationProtocol* destination;
        const DestinationThreshold* threshold;
    };

    template <typename Class>
    static std::type_identity<Class> classOfLogln(void (Class::*)(Level, const SourceLocation&, UserInfoReference,
                                                                  MessageReference));
    static bool accepts(const Recipient& recipient, Level level);
    void logAccepted(std::size_t firstAccepting, Level level, const SourceLocation& place, UserInfoReference userInfo,
                     MessageReference message);
    void stopObserving(DestinationProtocol& destination) noexcept;
    void learnRecipients();
    void learnThresholds() noexcept;
    std::int64_t lowestThreshold() const noexcept;

    std::atomic<std::int64_t> lowestAccepted_{0};
    bool overridesNothing_ = false;
    std::vector<Recipient> recipients_;
    std::string identifier_;
    std::atomic<Level> outputLevel_ = Level::debug;
    bool includeDefaultDestinations_;
    MessageClosure noMessageClosure_;
    LevelTexts levelDescriptions_;
    Formatters formatters_;
    Filters filters_;
    std::shared_ptr<const DateFormatter> customDateFormatter_;
    std::vector<std::shared_ptr<DestinationProtocol>> destinations_;
};

/// How `setup` configures a logger.
struct XCGLogger::SetupOptions {
    /// The level of the logger and of every destination it has.
    Level level = Level::debug;
    /// The columns of the console and file destinations.
    bool showLogIdentifier = false;
    bool showFunctionName = true;
    bool showThreadName = false;
    bool showLevel = true;
    bool showFileNames = true;
    bool showLineNumbers = true;
    bool showDate = true;
    /// A file to log to as well, emptied first.
    std::optional<FileTarget> writeToFile = std::nullopt;
    /// The file's own level; absent: `level`.
    std::optional<Level> fileLevel = std::nullopt;
};

/// The calls of every level on the shared logger.
struct XCGLogger::Default {
    /// Log at the level of that name.
    static constexpr LogCalls<DefaultLogger> verbose{{}, Level::verbose};
    static constexpr LogCalls<DefaultLogger> debug{{}, Level::debug};
    static constexpr LogCalls<DefaultLogger> info{{}, Level::info};
    static constexpr LogCalls<DefaultLogger> notice{{}, Level::notice};
    static constexpr LogCalls<DefaultLogger> warning{{}, Level::warning};
    static constexpr LogCalls<DefaultLogger> error{{}, Level::error};
    static constexpr LogCalls<DefaultLogger> severe{{}, Level::severe};
    static constexpr LogCalls<DefaultLogger> alert{{}, Level::alert};
    static constexpr LogCalls<DefaultLogger> emergency{{}, Level::emergency};

    /// Run a closure if the shared logger lets the level of that name through.
    static constexpr ExecCalls<DefaultLogger> verboseExec{{}, Level::verbose};
    static constexpr ExecCalls<DefaultLogger> debugExec{{}, Level::debug};
    static constexpr ExecCalls<DefaultLogger> infoExec{{}, Level::info};
    static constexpr ExecCalls<DefaultLogger> noticeExec{{}, Level::notice};
    static constexpr ExecCalls<DefaultLogger> warningExec{{}, Level::warning};
    static constexpr ExecCalls<DefaultLogger> errorExec{{}, Level::error};
    static constexpr ExecCalls<DefaultLogger> severeExec{{}, Level::severe};
    static constexpr ExecCalls<DefaultLogger> alertExec{{}, Level::alert};
    static constexpr ExecCalls<DefaultLogger> emergencyExec{{}, Level::emergency};

    /// `exec` on the shared logger.
    template <std::invocable Closure>
    static void exec(Level level, Closure&& closure) {
        DefaultLogger::logger().exec(level, std::forward<Closure>(closure));
    }
};

}  // namespace velora
