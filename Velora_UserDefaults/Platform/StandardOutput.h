#pragma once

#include <string_view>

/// The way to standard output. Internal.
namespace velora {

/// Writes `text`, `rest` and a line feed to standard output as one line, at once: in order with what the host
/// itself prints by `stdio`, and never mixed with lines of other threads. Where standard output takes no more, as a
/// pipe that is full, this blocks until it does, also if its descriptor is non-blocking (`O_NONBLOCK`). A failing
/// write, as to a closed pipe, is ignored. Thread-safe; never throws.
void printLine(std::string_view text, std::string_view rest = {}) noexcept;

}  // namespace velora
