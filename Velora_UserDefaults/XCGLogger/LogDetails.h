#pragma once

#include <cstdint>
#include <string>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/XCGLogger/Level.h>
#include <Velora_UserDefaults/XCGLogger/SourceLocation.h>
#include <Velora_UserDefaults/XCGLogger/UserInfo.h>

namespace velora {

/// One log record: what a log call hands to every destination that accepts its level.
///
/// A value: each destination works on a copy of its own, which it, its filters and its formatters may
/// change without effect on what other destinations see. One that a test or a filter of a host makes names
/// only the values it needs: `LogDetails{.level = Level::info, .message = "text"}`.
struct LogDetails {
    /// The level of the call.
    Level level = Level::debug;
    /// When the logger built the record; wall clock.
    Date date{};
    /// The message, already rendered to text; UTF-8.
    std::string message{};
    /// The calling function's name.
    SourceText functionName{};
    /// The calling source file's full path; destinations shorten it for display.
    SourceText fileName{};
    /// The line of the call in that file, from 1 on.
    std::int64_t lineNumber = 0;
    /// Metadata: tags, developers, the mark of internal lines, whatever the host adds.
    UserInfo userInfo{};
};

}  // namespace velora
