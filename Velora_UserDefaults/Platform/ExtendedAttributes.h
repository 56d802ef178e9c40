#pragma once

/// Reads and writes small named values that the file system keeps beside a file's contents (xattr(7)).
/// Internal. Any thread; nothing throws.
///
/// Names are given without the prefix `user.`, under which Linux keeps an application's attributes: these functions
/// add it. Symbolic links are followed. Values are bytes and may be empty. How large they may be is up
/// to the file system; ext4 takes about 4 kB for all of a file's attributes together.

#include <optional>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/Platform/FileError.h>

namespace velora {

/// The value of the attribute `name` of the file at `path`. An attribute that cannot be found, for whatever
/// reason (no such attribute, no such file, no attributes on this file system), is absent, and that is no
/// error; one that is there but cannot be read is.
FileResult<std::optional<std::string>> readExtendedAttribute(const std::string& path, std::string_view name);

/// Sets the attribute `name` of the file at `path` to `bytes`, whether it was there or not. Fails for
/// example with ENOENT without a file, ENOTSUP on a file system without attributes, ENOSPC for a value too
/// large for it, EINVAL for a path or a name with a NUL inside.
FileResult<void> writeExtendedAttribute(const std::string& path, std::string_view name, std::string_view bytes);

}  // namespace velora
