#include <array>
#include <cstdlib>
#include <pwd.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

namespace velora {
namespace {

constexpr std::string_view fileInConfigFolder = "/Quillon Velora/UserDefaults.json";

std::string environment(const char* name) {
    const char* value = ::secure_getenv(name);
    return value == nullptr ? "" : value;
}

bool isFolder(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// The home folder; empty if there is none. One that is named but missing (services have such) is not made.
std::string homeFolder() {
    if (std::string home = environment("HOME"); home.starts_with('/')) {
        return isFolder(home) ? home : "";
    }
    std::array<char, 4096> buffer{};
    passwd entry{};
    passwd* found = nullptr;
    ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
    return found != nullptr && isFolder(found->pw_dir) ? found->pw_dir : "";
}

}  // namespace

std::string DefaultsStore::standardPath() {
    if (std::string file = environment("VELORA_DEFAULTS_FILE"); !file.empty()) {
        return file;
    }
    // A relative path in the variable is invalid and to be ignored.
    if (std::string config = environment("XDG_CONFIG_HOME"); config.starts_with('/')) {
        return config.append(fileInConfigFolder);
    }
    std::string home = homeFolder();
    return home.empty() ? home : home.append("/.config").append(fileInConfigFolder);
}

}  // namespace velora
