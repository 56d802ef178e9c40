#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseQueuedDestination.h>

namespace velora {

/// Writes lines to the system's log, on Linux by `syslog(3)`: facility `user`, priority `notice`.
///
/// A message is never taken as a format: percent signs arrive as they are. The system log stamps each entry
/// with its own date, so the date column is always off; switching it on is accepted and ignored.
class VELORA_EXPORT AppleSystemLogDestination : public BaseQueuedDestination {
public:
    /// Made by `make<AppleSystemLogDestination>(nullptr, identifier)`.
    AppleSystemLogDestination(Making key, std::shared_ptr<XCGLogger> owner, std::string identifier);

    /// Changes nothing: `showDate()` is always false.
    void setShowDate(bool show) override;

    void write(std::string_view message) override;
};

}  // namespace velora
