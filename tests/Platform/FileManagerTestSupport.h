#pragma once

#include <chrono>
#include <string>
#include <sys/stat.h>

#include <Velora_UserDefaults/Platform/FileError.h>

namespace velora {

using FileDate = std::chrono::sys_time<std::chrono::nanoseconds>;

inline int permissionsOf(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 07777) : -1;
}

inline int codeOf(const FileResult<void>& result) {
    return result ? 0 : result.error().code;
}

}  // namespace velora
