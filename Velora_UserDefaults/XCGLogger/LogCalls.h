#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include <Velora_UserDefaults/XCGLogger/Level.h>
#include <Velora_UserDefaults/XCGLogger/Message.h>
#include <Velora_UserDefaults/XCGLogger/SourceLocation.h>
#include <Velora_UserDefaults/XCGLogger/UserInfo.h>

namespace velora {

/// A place in the source that was captured elsewhere.
template <typename Type>
concept PlaceOfACall = std::convertible_to<const Type&, SourceLocation>;

/// What a log call can take as its message: a value, or a closure that makes one.
template <typename Message>
concept MessageSource = (MessageMaker<std::remove_reference_t<Message>> ||
                         Loggable<std::remove_cvref_t<Message>>)&&!PlaceOfACall<std::remove_cvref_t<Message>> &&
                        !UserInfoSource<std::remove_cvref_t<Message>>;

/// What can be the first argument behind a format: a place there belongs to a plain message.
template <typename Argument>
concept FormatArgument = !PlaceOfACall<std::remove_cvref_t<Argument>>;

/// The log calls of one level, in every shape; `log->info` is one of these.
///
///     log->info("text");                                // text as it is: braces mean nothing here
///     log->info(value);                                 // anything {fmt} or operator<< can print
///     log->info([&] { return expensive(); });           // run only if some destination accepts the call
///     log->info("pin length {}", n);                    // checked by the compiler, rendered as late
///     log->info(Tag("net") | Dev("ann"), "retry {}", n);  // user info first, in every shape
///     log->info();                                      // the logger's message for calls without one
///     log->info("text", place);                         // a place captured elsewhere: after the message,
///     log->info(place, info, [&] { return text(); });   // or before a closure
///
/// A message that is an empty optional, or a closure that returns one, logs nothing. The message is
/// rendered at most once, on the calling thread, before the call returns. The place of the call is
/// captured by default arguments. May be called from any thread. Nothing is thrown.
///
/// `Target` knows the logger: `logger()` returns a reference to it.
template <typename Target>
class LogCalls {
public:
    /// The calls of `level` on the logger that `target` knows.
    constexpr LogCalls(Target target, Level level) noexcept : target_(target), level_(level) {}
    LogCalls(const LogCalls&) = delete;
    LogCalls& operator=(const LogCalls&) = delete;

    /// No message.
    void operator()(SourceLocation place = SourceLocation::current()) const {
        log(place, {}, target_.logger().noMessageClosure());
    }
    template <UserInfoSource Info>
    void operator()(const Info& userInfo, SourceLocation place = SourceLocation::current()) const {
        log(place, userInfo, target_.logger().noMessageClosure());
    }
    template <UserInfoSource Info>
    void operator()(SourceLocation place, const Info& userInfo) const {
        (*this)(userInfo, place);
    }

    /// A message: a value or a closure.
    template <MessageSource Message>
    void operator()(Message&& message, SourceLocation place = SourceLocation::current()) const {
        log(place, {}, message);
    }
    template <UserInfoSource Info, MessageSource Message>
    void operator()(const Info& userInfo, Message&& message, SourceLocation place = SourceLocation::current()) const {
        log(place, userInfo, message);
    }
    template <MessageSource Message, UserInfoSource Info>
    void operator()(Message&& message, SourceLocation place, const Info& userInfo) const {
        log(place, userInfo, message);
    }

    /// The place first, then a closure.
    template <MessageMaker Closure>
    void operator()(SourceLocation place, Closure&& closure) const {
        log(place, {}, closure);
    }
    template <UserInfoSource Info, MessageMaker Closure>
    void operator()(SourceLocation place, const Info& userInfo, Closure&& closure) const {
        log(place, userInfo, closure);
    }

    /// A format and its arguments.
    template <FormatArgument First, typename... Rest>
    void operator()(LocatedFormat<std::type_identity_t<First>, std::type_identity_t<Rest>...> format, First&& first,
                    Rest&&... rest) const {
        logFormatted(UserInfoReference(), format, first, rest...);
    }
    template <UserInfoSource Info, FormatArgument First, typename... Rest>
    void operator()(const Info& userInfo,
                    LocatedFormat<std::type_identity_t<First>, std::type_identity_t<Rest>...> format, First&& first,
                    Rest&&... rest) const {
        logFormatted(userInfo, format, first, rest...);
    }

private:
    // What follows the question whether to log at all is not inlined, and takes the place and the format in
    // pieces: so a call that nothing accepts does not even have to put them into memory.

    void log(const SourceLocation& place, UserInfoReference userInfo, MessageReference message) const {
        auto& logger = target_.logger();
        if (logger.mayAccept(level_)) {
            logNow(logger, level_, userInfo, message, place.functionName, place.fileName, place.lineNumber,
                   place.isStatic);
        }
    }

    template <typename Logger>
    [[gnu::noinline]] static void logNow(Logger& logger, Level level, UserInfoReference userInfo,
                                         MessageReference message, std::string_view functionName,
                                         std::string_view fileName, std::int64_t lineNumber, bool isStatic) {
        logger.logln(level, SourceLocation::of(functionName, fileName, lineNumber, isStatic), userInfo, message);
    }

    template <typename Format, typename... Arguments>
    void logFormatted(UserInfoReference userInfo, const Format& format, Arguments&... arguments) const {
        auto& logger = target_.logger();
        if (logger.mayAccept(level_)) {
            const SourceLocation& place = format.location;
            logFormattedNow(logger, level_, userInfo, fmt::string_view(format.format), format.fields,
                            place.functionName, place.fileName, place.lineNumber, place.isStatic, arguments...);
        }
    }

    template <typename Logger, typename... Arguments>
    [[gnu::noinline]] static void logFormattedNow(Logger& logger, Level level, UserInfoReference userInfo,
                                                  fmt::string_view format, ReplacementFields fields,
                                                  std::string_view functionName, std::string_view fileName,
                                                  std::int64_t lineNumber, bool isStatic, Arguments&... arguments) {
        auto filledIn = [&](std::string& out) {
            if constexpr ((isPlainArgument<Arguments> && ...)) {
                if (fields.count() == sizeof...(Arguments)) {
                    appendFilledIn(out, format, fields, arguments...);
                    return;
                }
            }
            appendFormatted(out, format, fmt::make_format_args(arguments...));
        };
        logger.logln(level, SourceLocation::of(functionName, fileName, lineNumber, isStatic), userInfo,
                     MessageReference::appendedBy(filledIn));
    }

    Target target_;
    Level level_;
};

/// The conditional execution of one level: `log->infoExec([&] { dumpState(); })` runs the closure, on
/// the calling thread, only if the logger's own threshold lets the level through. What the closure
/// throws goes to the caller.
template <typename Target>
class ExecCalls {
public:
    /// The calls of `level` on the logger that `target` knows.
    constexpr ExecCalls(Target target, Level level) noexcept : target_(target), level_(level) {}
    ExecCalls(const ExecCalls&) = delete;
    ExecCalls& operator=(const ExecCalls&) = delete;

    /// Runs `closure`, or does nothing.
    template <std::invocable Closure>
    void operator()(Closure&& closure) const {
        target_.logger().exec(level_, std::forward<Closure>(closure));
    }

private:
    Target target_;
    Level level_;
};

/// The nine levels' calls, written once for a logger's own and for the class-level ones.
template <typename Target>
struct AllLogCalls {
    /// The calls on the logger that `target` knows.
    constexpr explicit AllLogCalls(Target target) noexcept
        : verbose(target, Level::verbose),
          debug(target, Level::debug),
          info(target, Level::info),
          notice(target, Level::notice),
          warning(target, Level::warning),
          error(target, Level::error),
          severe(target, Level::severe),
          alert(target, Level::alert),
          emergency(target, Level::emergency),
          verboseExec(target, Level::verbose),
          debugExec(target, Level::debug),
          infoExec(target, Level::info),
          noticeExec(target, Level::notice),
          warningExec(target, Level::warning),
          errorExec(target, Level::error),
          severeExec(target, Level::severe),
          alertExec(target, Level::alert),
          emergencyExec(target, Level::emergency) {}

    /// Log at the level of that name.
    LogCalls<Target> verbose;
    LogCalls<Target> debug;
    LogCalls<Target> info;
    LogCalls<Target> notice;
    LogCalls<Target> warning;
    LogCalls<Target> error;
    LogCalls<Target> severe;
    LogCalls<Target> alert;
    LogCalls<Target> emergency;
    /// Run a closure if the logger lets the level of that name through.
    ExecCalls<Target> verboseExec;
    ExecCalls<Target> debugExec;
    ExecCalls<Target> infoExec;
    ExecCalls<Target> noticeExec;
    ExecCalls<Target> warningExec;
    ExecCalls<Target> errorExec;
    ExecCalls<Target> severeExec;
    ExecCalls<Target> alertExec;
    ExecCalls<Target> emergencyExec;
};

}  // namespace velora
