#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <pwd.h>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/FileContents.h>
#include <Velora_UserDefaults/Platform/FileManager.h>
#include <Velora_UserDefaults/Platform/URL.h>

namespace velora {

namespace {

/// The value of an environment variable if it is an absolute path, else empty. A program that runs with more rights
/// than whoever started it (set-user-ID) takes no path from that user.
std::string absolutePathIn(const char* variable) {
    const char* value = ::secure_getenv(variable);
    return value != nullptr && *value == '/' ? value : "";
}

/// The home of the user called `name`, or of the process's user without a name; empty if there is none.
std::string homeInUserDatabase(const std::string& name = {}) {
    std::vector<char> buffer(1024);
    passwd entry{};
    passwd* found = nullptr;
    const auto ask = [&] {
        return name.empty() ? ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found)
                            : ::getpwnam_r(name.c_str(), &entry, buffer.data(), buffer.size(), &found);
    };
    int code = ask();
    while (code == ERANGE) {
        buffer.resize(buffer.size() * 2);
        code = ask();
    }
    const bool hasHome = code == 0 && found != nullptr && entry.pw_dir != nullptr && *entry.pw_dir == '/';
    return hasHome ? entry.pw_dir : "";
}

/// The path of `name` in the home folder; empty if there is none.
std::string inHomeFolder(std::string_view name) {
    std::string path = FileManager::homeFolder();
    if (!path.empty()) {
        path.append(path.ends_with('/') ? "" : "/").append(name);
    }
    return path;
}

/// The folder that `variable` names, else `name` in the home folder; empty without either.
std::string folderFrom(const char* variable, std::string_view name) {
    std::string folder = absolutePathIn(variable);
    return folder.empty() ? inHomeFolder(name) : folder;
}

std::string_view withoutLeadingBlanks(std::string_view text) {
    const std::size_t start = text.find_first_not_of(" \t");
    return start == std::string_view::npos ? std::string_view() : text.substr(start);
}

bool takePrefix(std::string_view& text, std::string_view prefix) {
    if (!text.starts_with(prefix)) {
        return false;
    }
    text.remove_prefix(prefix.size());
    return true;
}

/// The text up to the closing quotation mark, with backslashes resolved; nothing without a closing one.
std::optional<std::string> unquoted(std::string_view text) {
    std::string value;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '"') {
            return value;
        }
        if (text[i] == '\\' && i + 1 < text.size()) {
            ++i;
        }
        value += text[i];
    }
    return std::nullopt;
}

/// The folder that a line of user-dirs.dirs gives for downloads, if it does: its form is
/// `XDG_DOWNLOAD_DIR="$HOME/yyy"` or `XDG_DOWNLOAD_DIR="/yyy"`.
std::optional<std::string> downloadsFolderIn(std::string_view line) {
    line = withoutLeadingBlanks(line);
    if (!takePrefix(line, "XDG_DOWNLOAD_DIR")) {
        return std::nullopt;
    }
    line = withoutLeadingBlanks(line);
    if (!takePrefix(line, "=")) {
        return std::nullopt;
    }
    line = withoutLeadingBlanks(line);
    if (!takePrefix(line, "\"")) {
        return std::nullopt;
    }
    std::string base;
    if (takePrefix(line, "$HOME")) {
        base = FileManager::homeFolder();
        if (base.empty() || !(line.starts_with('/') || line.starts_with('"'))) {
            return std::nullopt;
        }
    } else if (!line.starts_with('/')) {
        return std::nullopt;
    }
    const std::optional<std::string> rest = unquoted(line);
    return rest ? std::optional(base + *rest) : std::nullopt;
}

std::optional<std::string> configuredDownloadsFolder() {
    const std::string configuration = FileManager::configurationFolder();
    std::istringstream file(configuration.empty() ? "" : contentsOfFile(configuration + "/user-dirs.dirs"));
    std::optional<std::string> folder;
    for (std::string line; std::getline(file, line);) {
        if (auto found = downloadsFolderIn(line)) {
            folder = std::move(found);
        }
    }
    return folder;
}

bool isFolder(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::vector<URL> asFolderURLs(const std::string& path) {
    return path.empty() ? std::vector<URL>() : std::vector<URL>{URL::fileURL(path, true)};
}

}  // namespace

std::vector<URL> FileManager::applicationSupportFolders() {
    return asFolderURLs(folderFrom("XDG_DATA_HOME", ".local/share"));
}

std::vector<URL> FileManager::downloadsFolders() {
    if (const auto configured = configuredDownloadsFolder()) {
        return asFolderURLs(*configured);
    }
    return asFolderURLs(inHomeFolder("Downloads"));
}

std::string FileManager::temporaryFolder() {
    std::string folder = absolutePathIn("TMPDIR");
    if (folder.empty() || !isFolder(folder)) {
        return "/tmp";
    }
    while (folder.size() > 1 && folder.back() == '/') {
        folder.pop_back();
    }
    return folder;
}

std::string FileManager::homeFolder() {
    std::string home = absolutePathIn("HOME");
    if (home.empty()) {
        home = homeInUserDatabase();
    }
    while (home.size() > 1 && home.back() == '/') {
        home.pop_back();
    }
    return home;
}

std::string FileManager::configurationFolder() {
    std::string folder = absolutePathIn("XDG_CONFIG_HOME");
    return folder.empty() && isFolder(homeFolder()) ? inHomeFolder(".config") : folder;
}

std::string FileManager::expandingTilde(std::string_view path) {
    if (!path.starts_with('~')) {
        return std::string(path);
    }
    const std::size_t end = std::min(path.find('/'), path.size());
    const std::string name(path.substr(1, end - 1));
    const std::string home = name.empty() ? homeFolder() : homeInUserDatabase(name);
    return home.empty() ? std::string(path) : home + std::string(path.substr(end));
}

}  // namespace velora
