#pragma once

#include <cstdint>
#include <string>

namespace velora {

/// What the file at `path` holds from byte `position` on, `most` bytes of it at most; nothing if it cannot be read.
/// Internal. Unlike std::ifstream, this leaves no descriptor to a program that another thread starts at that moment.
std::string contentsOfFile(const std::string& path, std::uint64_t position = 0, std::uint64_t most = UINT64_MAX);

}  // namespace velora
