#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace velora {

/// What the file at `path` holds from byte `position` on, `most` bytes of it at most; nothing if it cannot be read.
/// Internal. Unlike std::ifstream, this leaves no descriptor to a program that another thread starts at that moment.
std::string contentsOfFile(const std::string& path, std::uint64_t position = 0, std::uint64_t most = UINT64_MAX);

/// Writes all of `bytes` to an open file. False if that failed; then errno says why. Internal.
bool writeAll(int descriptor, std::string_view bytes);
/// The same, durably.
bool writeAndSync(int descriptor, std::string_view bytes);

/// Makes durable which files the folder at `path` holds. Internal.
void syncFolder(const std::string& path);

/// Puts `bytes` in the place of the regular file at `path`, or makes it for the user alone (0600): durably, as a whole
/// or not at all, and touching no other file. What root makes belongs to the owner of the folder. A path that names an
/// open file of the process (/dev/stdout, /dev/stderr, /dev/fd/N, /proc/self/fd/N) is written to, not replaced. Returns
/// why it failed; empty if it did not. Internal; thread-safe.
std::string replaceFile(const std::string& path, std::string_view bytes);

}  // namespace velora
