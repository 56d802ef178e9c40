#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace velora {

/// The prefix that all identifiers and keys of the engine are formed on.
inline constexpr std::string_view identifierPrefix = "tamberlo.xcglogger";

/// What stands behind the prefix; written as a text.
template <std::size_t Size>
struct IdentifierSuffix {
    consteval IdentifierSuffix(const char (&suffix)[Size]) {  // NOLINT(google-explicit-constructor)
        std::copy_n(suffix, Size, text.begin());
    }
    std::array<char, Size> text{};
};

/// The prefix and `suffix` as one text.
template <IdentifierSuffix suffix>
class Identifier {
    static constexpr auto joined = [] {
        std::array<char, identifierPrefix.size() + suffix.text.size()> text{};
        std::ranges::copy(suffix.text, std::ranges::copy(identifierPrefix, text.begin()).out);
        return text;
    }();

public:
    static constexpr std::string_view text{joined.data(), joined.size() - 1};
};

/// The fixed identifiers and keys of the logging engine. `XCGLogger::Constants` is another name for it.
struct Constants {
    /// What all the others begin with.
    static constexpr std::string_view baseIdentifier = identifierPrefix;
    /// Names the shared logger, `XCGLogger::defaultInstance()`.
    static constexpr std::string_view defaultInstanceIdentifier = Identifier<".defaultInstance">::text;
    /// Names the console destination that a logger creates by default.
    static constexpr std::string_view baseConsoleDestinationIdentifier = Identifier<".logdestination.console">::text;
    /// The customary identifier of a system-log destination.
    static constexpr std::string_view systemLogDestinationIdentifier =
        Identifier<".logdestination.console.nslog">::text;
    /// Names the file destination that `setup` creates.
    static constexpr std::string_view fileDestinationIdentifier = Identifier<".logdestination.file">::text;
    /// Labels the process-wide serial queue offered to destinations.
    static constexpr std::string_view logQueueIdentifier = Identifier<".queue">::text;
    /// The user-info keys of tags, of developers and of the mark on the engine's own lines.
    static constexpr std::string_view userInfoKeyTags = Identifier<".tags">::text;
    static constexpr std::string_view userInfoKeyDevs = Identifier<".devs">::text;
    static constexpr std::string_view userInfoKeyInternal = Identifier<".internal">::text;
    /// The engine's version, as the start-up header shows it.
    static constexpr std::string_view versionString = "7.0.1";
    /// The extended attributes that mark an archived log file.
    static constexpr std::string_view extendedAttributeArchivedLogIdentifierKey = Identifier<".archived.by">::text;
    static constexpr std::string_view extendedAttributeArchivedLogTimestampKey = Identifier<".archived.at">::text;
};

}  // namespace velora
