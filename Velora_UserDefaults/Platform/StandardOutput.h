#pragma once

#include <string_view>

/// The way to standard output. Internal.
namespace velora {

/// Writes `text`, `rest` and a line feed to standard output as one line, at once: in order with what the host
/// itself prints by `stdio`, and never mixed with lines of other threads. A failing write, as to a closed
/// pipe, is ignored. Any thread; never throws.
void printLine(std::string_view text, std::string_view rest = {}) noexcept;

}  // namespace velora
