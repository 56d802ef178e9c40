#pragma once

#include <string>
#include <string_view>

namespace velora {

/// `text` for one line of a terminal, from which it can be told what it was: a backslash is written as \\, line feeds
/// and tabs as \n and \t, other control characters as \xNN or, those beyond ASCII, which terminals obey as well, as
/// \u0080 to \u009f. A byte that is no UTF-8 is \xNN.
std::string printable(std::string_view text);

/// JSON text for one line of a terminal, which means the same: control characters are written as \uNNNN in its
/// strings, and as spaces between its tokens.
std::string printableJSON(std::string_view json);

}  // namespace velora
