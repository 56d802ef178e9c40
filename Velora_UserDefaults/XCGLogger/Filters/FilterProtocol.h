#pragma once

#include <string>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/XCGLogger/LogDetails.h>

namespace velora {

/// A rule that vetoes lines: a destination asks each of its filters, in list order, and drops the line
/// at the first that says yes.
///
/// A filter runs where its destination writes: on the logging thread, or on the destination's queue.
/// One shared by several destinations may be asked by several threads at once. Set it up before
/// logging starts.
class VELORA_EXPORT FilterProtocol {
public:
    FilterProtocol() = default;
    FilterProtocol(const FilterProtocol&) = delete;
    FilterProtocol& operator=(const FilterProtocol&) = delete;
    virtual ~FilterProtocol();

    /// Whether the line must be dropped. `logDetails` and `message`, the composed line, are the
    /// destination's own copies; a filter may change them.
    virtual bool shouldExclude(LogDetails& logDetails, std::string& message) = 0;

    /// One text that tells the filter's class and configuration.
    virtual std::string debugDescription() const = 0;
};

}  // namespace velora
