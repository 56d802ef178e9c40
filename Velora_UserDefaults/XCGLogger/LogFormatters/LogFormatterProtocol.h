#pragma once

#include <string>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/XCGLogger/LogDetails.h>

namespace velora {

/// Rewrites a composed line before its destination writes it; a destination runs all of its
/// formatters in list order, each on what the one before it made.
///
/// A formatter runs where its destination writes: on the logging thread, or on the destination's
/// queue. One shared by several destinations may be run by several threads at once. Set it up before
/// logging starts.
class VELORA_EXPORT LogFormatterProtocol {
public:
    LogFormatterProtocol() = default;
    LogFormatterProtocol(const LogFormatterProtocol&) = delete;
    LogFormatterProtocol& operator=(const LogFormatterProtocol&) = delete;
    virtual ~LogFormatterProtocol();

    /// Replaces `message`, the line, by its formatted form, and returns `message` too. `logDetails` is
    /// the destination's own copy; a formatter may change it.
    virtual const std::string& format(LogDetails& logDetails, std::string& message) = 0;

    /// A text that tells the formatter's class and configuration.
    virtual std::string debugDescription() const = 0;
};

}  // namespace velora
