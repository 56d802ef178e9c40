#pragma once

#include <string>
#include <string_view>

namespace velora {

/// `text` for one line of a terminal: control characters are written as \n, \t or \xNN.
std::string printable(std::string_view text);

}  // namespace velora
