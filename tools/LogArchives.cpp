#include "LogArchives.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

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
};

/// What rotation puts into a name by default: "_2024-03-01_154502".
constexpr std::string_view defaultSuffix = "_dddd-dd-dd_dddddd";

bool isDefaultSuffix(std::string_view suffix) {
    return suffix.size() == defaultSuffix.size() &&
           std::equal(suffix.begin(), suffix.end(), defaultSuffix.begin(),
                      [](char is, char form) { return form == 'd' ? is >= '0' && is <= '9' : is == form; });
}

/// The base of the log file whose archive has the name `archive`, if that ends in a default suffix.
std::optional<std::string_view> baseBeforeDefaultSuffix(std::string_view archive, const std::string& extension) {
    const std::string_view stem = archive.substr(0, archive.size() - extension.size());
    if (!archive.ends_with(extension) || stem.size() < defaultSuffix.size()) {
        return std::nullopt;
    }
    const std::size_t size = stem.size() - defaultSuffix.size();
    return isDefaultSuffix(stem.substr(size)) ? std::optional(stem.substr(0, size)) : std::nullopt;
}

/// Whether the file named `archive` is one of the log file with the name `name`, if its folder also has log files
/// with the `longerNames`, which begin with that name.
bool isArchiveOf(const NameOfLiveFile& name, std::string_view archive, const std::vector<NameOfLiveFile>& longerNames) {
    const auto base = baseBeforeDefaultSuffix(archive, name.extension);
    if (base && base->size() <= name.base.size()) {
        return *base == name.base;
    }
    return name.fits(archive) &&
           std::ranges::none_of(longerNames, [&](const NameOfLiveFile& longer) { return longer.fits(archive); });
}

/// Who owns what is at `path`.
std::optional<uid_t> ownerOf(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? std::optional(status.st_uid) : std::nullopt;
}

/// The folders in which rotation puts the archives of `liveFile` by default: beside it, or, if its name has no
/// extension, the default log folder of the user who writes it. That is one of two, and not always was the same;
/// one of another user holds nothing of this file.
std::vector<std::string> defaultArchiveFolders(const std::string& liveFile, const std::string& liveFolder) {
    if (!NameOfLiveFile(liveFile).extension.empty()) {
        return {liveFolder};
    }
    const uid_t writer = ownerOf(liveFile).value_or(::geteuid());
    const std::string temporary = FileManager::temporaryFolder();
    std::vector<std::string> folders = {temporary + "/log", temporary + "/log-" + std::to_string(writer)};
    std::erase_if(folders, [&](const std::string& folder) { return ownerOf(folder) != writer; });
    return folders;
}

std::string nameOf(const std::string& path) {
    return std::filesystem::path(path).filename().string();
}

std::vector<std::string> filesIn(const std::string& folder) {
    auto paths = FileManager::contentsOfFolder(folder, /*skipHidden=*/true);
    return paths ? *std::move(paths) : std::vector<std::string>();
}

/// The files in `folder` that are marked as archives, and those that are named as archives of `name` are by default;
/// oldest first.
std::vector<std::string> archiveCandidates(const std::string& folder, const NameOfLiveFile& name) {
    std::vector<std::string> paths;
    if (const auto marked = archivesIn(folder, std::nullopt)) {
        for (const ArchivedLogFile& archive : *marked) {
            paths.insert(paths.begin(), archive.path);
        }
    }
    std::vector<std::string> others = filesIn(folder);
    std::ranges::sort(others);
    for (const std::string& other : others) {
        if (std::ranges::find(paths, other) == paths.end() && isRegularFile(other) &&
            baseBeforeDefaultSuffix(nameOf(other), name.extension) == name.base) {
            paths.push_back(other);
        }
    }
    return paths;
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

    std::vector<std::string> paths;
    for (const std::string& archiveFolder :
         folder.empty() ? defaultArchiveFolders(liveFile, liveFolder) : std::vector{folder}) {
        const std::vector<std::string> archives = archiveCandidates(archiveFolder, name);
        paths.insert(paths.end(), archives.begin(), archives.end());
    }
    std::vector<NameOfLiveFile> longerNames;
    for (const std::string& other : filesIn(liveFolder)) {
        const NameOfLiveFile otherName(other);
        if (std::ranges::find(paths, other) == paths.end() && otherName.base.size() > name.base.size() &&
            otherName.base.starts_with(name.base) && otherName.extension == name.extension) {
            longerNames.push_back(otherName);
        }
    }
    std::erase_if(paths, [&](const std::string& archive) { return !isArchiveOf(name, nameOf(archive), longerNames); });
    return paths;
}

}  // namespace velora
