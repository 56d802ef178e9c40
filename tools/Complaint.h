#pragma once

#include <string_view>

namespace velora {

/// Says what went wrong on the standard error, in one line behind the tool's name.
void complain(std::string_view text);

/// The system's words for an error number.
std::string_view reasonOf(int error);

}  // namespace velora
