#pragma once

#include <string_view>

namespace velora {

// What a script can rely on; as grep(1) has it.
inline constexpr int found = 0;
inline constexpr int foundNothing = 1;
inline constexpr int failed = 2;

/// Says what went wrong on the standard error.
void complain(std::string_view text);

/// The system's words for an error number.
std::string_view reasonOf(int error);

}  // namespace velora
