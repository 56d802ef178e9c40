#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velora {

/// The UTF-8 text that `line` is the Base64 encoding of (RFC 4648, section 4: with padding); nothing if it is empty, no
/// such encoding, or that of something else.
std::optional<std::string> decodedLine(std::string_view line);

}  // namespace velora
