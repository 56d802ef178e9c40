#pragma once

#include <string_view>

#include <Velora_UserDefaults/Platform/Export.h>

namespace velora {

/// Ends the process for a mistake that the program cannot go on from: writes `text` and a newline
/// to standard error, in one write, and aborts (SIGABRT). Destructors and exit handlers do not run.
/// Allocates nothing. Safe to call from any thread.
[[noreturn]] VELORA_EXPORT void fatalError(std::string_view text) noexcept;

}  // namespace velora
