#pragma once

#include <optional>
#include <string>
#include <string_view>

/// Base64 as RFC 4648, section 4, defines it: padded, on one line. Internal. Thread-safe.
namespace velora {

std::string base64Encoded(std::string_view bytes);

/// The bytes that `text` stands for; nothing if it is no such text.
std::optional<std::string> base64Decoded(std::string_view text);

}  // namespace velora
