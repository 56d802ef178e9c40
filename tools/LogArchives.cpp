#include "LogArchives.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>

#include <Velora_UserDefaults/Platform/FileManager.h>

namespace velora {

namespace {

bool isRegularFile(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

/// A log file's name as rotation takes it apart; the extension has its dot.
struct NameOfLiveFile {
    std::string base;
    std::string extension;

    explicit NameOfLiveFile(const std::filesystem::path& path)
        : base(path.stem().string()), extension(path.extension().string()) {}

    bool fits(std::string_view archive) const {
        return archive.size() > base.size() + extension.size() && archive.starts_with(base) &&
               archive.ends_with(extension);
    }
    /// What stands between base and extension.
    std::string_view suffix(std::string_view archive) const {
        return archive.substr(base.size(), archive.size() - base.size() - extension.size());
    }
};

/// Whether `suffix` is what rotation puts into a name by default: "_2024-03-01_154502".
bool isDefaultSuffix(std::string_view suffix) {
    constexpr std::string_view form = "_dddd-dd-dd_dddddd";
    return suffix.size() == form.size() &&
           std::equal(suffix.begin(), suffix.end(), form.begin(),
                      [](char is, char form) { return form == 'd' ? is >= '0' && is <= '9' : is == form; });
}

std::string nameOf(const std::string& path) {
    return std::filesystem::path(path).filename().string();
}

std::vector<std::string> filesIn(const std::string& folder) {
    auto paths = FileManager::contentsOfFolder(folder, /*skipHidden=*/true);
    return paths ? *std::move(paths) : std::vector<std::string>();
}

}  // namespace

FileResult<std::vector<ArchivedLogFile>> archivesIn(const std::string& path,
                                                    const std::optional<std::string>& identifier) {
    auto archives = archivedLogFiles(path);
    if (archives) {
        std::erase_if(*archives, [&](const ArchivedLogFile& archive) {
            return (identifier && archive.identifier != *identifier) || !isRegularFile(archive.path);
        });
    }
    return archives;
}

std::vector<std::string> archivesOfLiveFile(const std::string& liveFile, const std::string& folder) {
    const std::filesystem::path path(liveFile);
    const NameOfLiveFile name(path);
    const std::string liveFolder = path.has_parent_path() ? path.parent_path().string() : ".";
    const std::string defaultFolder = name.extension.empty() ? FileManager::temporaryFolder() + "/log" : liveFolder;
    const std::string& archiveFolder = folder.empty() ? defaultFolder : folder;

    std::vector<std::string> paths;
    if (const auto marked = archivesIn(archiveFolder, std::nullopt)) {
        for (const ArchivedLogFile& archive : *marked) {
            paths.insert(paths.begin(), archive.path);
        }
    }
    std::vector<std::string> others = filesIn(archiveFolder);
    std::ranges::sort(others);
    for (const std::string& other : others) {
        const std::string otherName = nameOf(other);
        if (std::ranges::find(paths, other) == paths.end() && name.fits(otherName) &&
            isDefaultSuffix(name.suffix(otherName))) {
            paths.push_back(other);
        }
    }
    std::vector<NameOfLiveFile> longerNames;
    for (const std::string& other : filesIn(liveFolder)) {
        const NameOfLiveFile otherName(other);
        if (std::ranges::find(paths, other) == paths.end() && otherName.base.size() > name.base.size() &&
            otherName.base.starts_with(name.base) && otherName.extension == name.extension) {
            longerNames.push_back(otherName);
        }
    }
    std::erase_if(paths, [&](const std::string& archive) {
        const std::string archiveName = nameOf(archive);
        return !name.fits(archiveName) ||
               std::ranges::any_of(longerNames, [&](const NameOfLiveFile& longer) { return longer.fits(archiveName); });
    });
    return paths;
}

}  // namespace velora
