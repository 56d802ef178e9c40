#pragma once

#include <string_view>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseQueuedDestination.h>

namespace velora {

/// Writes lines to standard output, each followed by a single line feed.
///
/// A line goes out whole and at once, in order with what the host itself prints by `stdio`; lines of several
/// threads do not mix. Failing writes are ignored; a closed pipe raises SIGPIPE, as always, unless the host ignores
/// that.
class VELORA_EXPORT ConsoleDestination : public BaseQueuedDestination {
public:
    /// Made by `make<ConsoleDestination>(nullptr, identifier)`.
    using BaseQueuedDestination::BaseQueuedDestination;

    void write(std::string_view message) override;
};

}  // namespace velora
