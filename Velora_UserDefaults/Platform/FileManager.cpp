#include <array>
#include <cerrno>
#include <chrono>
#include <concepts>
#include <cstdint>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <Velora_UserDefaults/Platform/Descriptor.h>
#include <Velora_UserDefaults/Platform/FileHandle.h>
#include <Velora_UserDefaults/Platform/FileManager.h>
#include <Velora_UserDefaults/Platform/FileMove.h>

namespace velora {

namespace {

using FileDate = std::chrono::sys_time<std::chrono::nanoseconds>;

template <class Integer>
std::optional<long long> wholeNumber(const std::any& value) {
    const auto* number = std::any_cast<Integer>(&value);
    return number != nullptr && std::in_range<long long>(*number) ? std::optional<long long>(*number) : std::nullopt;
}

template <class... Integers>
std::optional<long long> firstWholeNumber(const std::any& value) {
    std::optional<long long> number;
    static_cast<void>(((number = wholeNumber<Integers>(value)).has_value() || ...));
    return number;
}

const std::any* valueOf(const FileAttributes& attributes, const char* key) {
    const auto entry = attributes.find(key);
    return entry == attributes.end() ? nullptr : &entry->second;
}

std::optional<long long> numberOf(const FileAttributes& attributes, const char* key) {
    const std::any* value = valueOf(attributes, key);
    return value == nullptr ? std::nullopt
                            : firstWholeNumber<int, unsigned, long, unsigned long, short, unsigned short, long long,
                                               unsigned long long>(*value);
}

std::optional<long long> permissionsIn(const FileAttributes& attributes) {
    const std::any* value = valueOf(attributes, FileAttributeKey::posixPermissions);
    if (value != nullptr) {
        if (const auto* permissions = std::any_cast<std::filesystem::perms>(value)) {
            return static_cast<long long>(*permissions);
        }
    }
    return numberOf(attributes, FileAttributeKey::posixPermissions);
}

constexpr long long allPermissions = 07777;

bool setPermissions(int file, std::optional<long long> permissions) {
    if (!permissions) {
        return true;
    }
    return *permissions >= 0 && *permissions <= allPermissions &&
           ::fchmod(file, static_cast<mode_t>(*permissions)) == 0;
}

bool setOwners(int file, const FileAttributes& attributes) {
    constexpr long long unchanged = std::numeric_limits<std::uint32_t>::max();
    const auto owner = numberOf(attributes, FileAttributeKey::ownerAccountID);
    const auto group = numberOf(attributes, FileAttributeKey::groupOwnerAccountID);
    if (!owner && !group) {
        return true;
    }
    const auto isAccount = [](std::optional<long long> id) { return !id || (*id >= 0 && *id < unchanged); };
    return isAccount(owner) && isAccount(group) &&
           ::fchown(file, static_cast<uid_t>(owner.value_or(unchanged)),
                    static_cast<gid_t>(group.value_or(unchanged))) == 0;
}

bool setModificationDate(int file, const FileAttributes& attributes) {
    const std::any* value = valueOf(attributes, FileAttributeKey::modificationDate);
    const auto* date = value == nullptr ? nullptr : std::any_cast<FileDate>(value);
    if (date == nullptr) {
        return true;
    }
    const auto seconds = std::chrono::floor<std::chrono::seconds>(*date);
    timespec unchanged{};
    unchanged.tv_nsec = UTIME_OMIT;
    timespec modification{};
    modification.tv_sec = static_cast<time_t>(seconds.time_since_epoch().count());
    modification.tv_nsec = static_cast<long>((*date - seconds).count());
    const std::array<timespec, 2> dates{unchanged, modification};
    return ::futimens(file, dates.data()) == 0;
}

FileDate dateFrom(const statx_timestamp& time) {
    return FileDate(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

bool isFolder(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

std::string withoutTrailingSlashes(std::string path) {
    while (path.size() > 1 && path.back() == '/') {
        path.pop_back();
    }
    return path;
}

/// Makes the folder and those missing above it, and returns 0 or the error number.
int makeFolders(const std::string& path) {
    constexpr mode_t permissions = 0750;
    if (::mkdir(path.c_str(), permissions) == 0) {
        return 0;
    }
    int code = errno;
    const std::size_t slash = path.find_last_of('/');
    if (code == ENOENT && slash != std::string::npos && slash > 0) {
        code = makeFolders(withoutTrailingSlashes(path.substr(0, slash)));
        if (code == 0) {
            code = ::mkdir(path.c_str(), permissions) == 0 ? 0 : errno;
        }
    }
    return code != 0 && isFolder(path) ? 0 : code;
}

/// Moves to another file system, and returns 0 or the error number.
int copyAndRemove(const std::string& from, const std::string& to) {
    if (const int code = copyWithoutReplacing(from, to); code != 0) {
        return code;
    }
    if (const FileResult<void> removed = FileManager::remove(from); !removed) {
        if (!isFolder(from)) {
            ::unlink(to.c_str());
        }
        return removed.error().code;
    }
    return 0;
}

struct FolderClosing {
    void operator()(DIR* folder) const noexcept { ::closedir(folder); }
};

/// Calls `take` with the name of each entry of a folder, and returns 0 or the error number. The standard library's
/// iterator would end the program where there is no memory for it.
template <typename Take>
int listFolder(const std::string& path, Take take) {
    Descriptor descriptor(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const std::unique_ptr<DIR, FolderClosing> folder(descriptor ? ::fdopendir(descriptor.get()) : nullptr);
    if (!folder) {
        return errno;
    }
    descriptor.release();
    errno = 0;
    // No other thread has this stream.
    while (const dirent* const entry = ::readdir(folder.get())) {  // NOLINT(concurrency-mt-unsafe)
        const std::string_view name = entry->d_name;
        if (name != "." && name != "..") {
            take(name);
        }
        errno = 0;
    }
    return errno;
}

/// Gives an open file, which was just made or emptied, its attributes; whether all could be given.
bool setAttributes(int file, const FileAttributes& attributes, std::optional<long long> permissions) {
    // The owner first: changing it takes away the set-id bits.
    const bool hasOwners = setOwners(file, attributes);
    const bool hasPermissions = setPermissions(file, permissions);
    const bool hasDate = setModificationDate(file, attributes);
    return hasOwners && hasPermissions && hasDate;
}

mode_t modeOf(std::optional<long long> permissions) {
    constexpr long long usualPermissions = 0640;
    return static_cast<mode_t>(permissions.value_or(usualPermissions) & allPermissions);
}

bool makeFile(const std::string& path, const FileAttributes& attributes, int* code) {
    int ignored = 0;
    int& reason = code != nullptr ? *code : ignored;
    if (!canNameFile(path)) {
        reason = EINVAL;
        return false;
    }
    const std::optional<long long> permissions = permissionsIn(attributes);
    // O_NONBLOCK: nothing here waits for the reader of a pipe.
    constexpr int flagsOfMaking = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_TRUNC;
    const Descriptor file(retrying([&] { return ::open(path.c_str(), flagsOfMaking, modeOf(permissions)); }));
    reason = file ? 0 : errno;
    return file && setAttributes(file.get(), attributes, permissions);
}

}  // namespace

bool FileManager::fileExists(const std::string& path) {
    struct stat status {};
    return canNameFile(path) && ::stat(path.c_str(), &status) == 0;
}

bool FileManager::createFile(const std::string& path, const FileAttributes& attributes, int* code) {
    return makeFile(path, attributes, code);
}

FileResult<FileHandle> FileManager::open(const std::string& path, bool empties, const FileAttributes& attributes,
                                         bool& existed) {
    constexpr std::string_view couldNot = "couldn’t be opened for writing";
    existed = false;
    if (!canNameFile(path)) {
        return FileError::make(EINVAL, path, couldNot);
    }
    std::string copyOfPath = path;  // while there is no descriptor to lose for want of memory
    const std::optional<long long> permissions = permissionsIn(attributes);
    const auto openWith = [&](int flags) {
        constexpr int common = O_WRONLY | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
        return retrying([&] { return ::open(path.c_str(), common | flags, modeOf(permissions)); });
    };
    Descriptor file(openWith(O_CREAT | O_EXCL));
    if (!file && errno == EEXIST) {
        file = Descriptor(openWith(empties ? O_TRUNC : 0));
        existed = file || errno != ENOENT;
        if (!existed) {
            file = Descriptor(openWith(O_CREAT));  // a link that leads nowhere, or somebody has just removed it
        }
    }
    if (!file) {
        const int code = errno;
        existed = fileExists(path);
        return FileError::make(code, path, couldNot);
    }
    if (!existed || empties) {
        setAttributes(file.get(), attributes, permissions);
    }
    return FileHandle::adopt(std::move(file), std::move(copyOfPath));
}

FileResult<void> FileManager::createFolder(const std::string& path, bool withIntermediates) {
    int code = EINVAL;
    if (canNameFile(path)) {
        constexpr mode_t permissions = 0750;
        if (withIntermediates) {
            code = makeFolders(withoutTrailingSlashes(path));
        } else {
            code = ::mkdir(path.c_str(), permissions) == 0 ? 0 : errno;
        }
    }
    if (code != 0) {
        return FileError::make(code, path, "couldn’t be made", "folder");
    }
    return {};
}

FileResult<void> FileManager::move(const std::string& from, const std::string& to) {
    int code = EINVAL;
    if (canNameFile(from) && canNameFile(to)) {
        code = renameWithoutReplacing(from, to);
        if (code == EXDEV) {
            code = copyAndRemove(withoutTrailingSlashes(from), withoutTrailingSlashes(to));
        }
    }
    if (code != 0) {
        return FileError::make(code, from, "couldn’t be moved to “" + to + "”");
    }
    return {};
}

FileResult<void> FileManager::remove(const std::string& path) {
    constexpr std::string_view couldNot = "couldn’t be removed";
    // With a slash at its end the name of a link would mean the folder that the link leads to.
    const std::string name = withoutTrailingSlashes(path);
    struct stat status {};
    if (!canNameFile(name) || ::lstat(name.c_str(), &status) != 0) {
        return FileError::make(canNameFile(name) ? errno : EINVAL, path, couldNot);
    }
    std::error_code error;
    if (S_ISDIR(status.st_mode)) {
        const StandardStreamsInUse inUse;
        std::filesystem::remove_all(name, error);
    } else if (::unlink(name.c_str()) != 0) {
        error.assign(errno, std::generic_category());
    }
    if (error) {
        return FileError::make(error.value(), path, couldNot);
    }
    return {};
}

FileResult<std::vector<std::string>> FileManager::contentsOfFolder(const std::string& path, bool skipHidden) {
    std::vector<std::string> contents;
    int code = EINVAL;
    if (canNameFile(path)) {
        code = listFolder(path, [&](std::string_view name) {
            if (!skipHidden || !name.starts_with('.')) {
                contents.push_back(path + (path.ends_with('/') ? "" : "/") + std::string(name));
            }
        });
    }
    if (code != 0) {
        return FileError::make(code, path, "couldn’t be listed", "folder");
    }
    return contents;
}

FileResult<FileAttributes> FileManager::attributesOf(const std::string& path) {
    struct statx status {};
    const bool canBeNamed = canNameFile(path);
    if (!canBeNamed ||
        ::statx(AT_FDCWD, path.c_str(), AT_STATX_SYNC_AS_STAT, STATX_BASIC_STATS | STATX_BTIME, &status) != 0) {
        return FileError::make(canBeNamed ? errno : EINVAL, path, "couldn’t be asked for its attributes");
    }
    FileAttributes attributes;
    attributes[FileAttributeKey::size] = std::uint64_t{status.stx_size};
    attributes[FileAttributeKey::posixPermissions] = static_cast<int>(status.stx_mode & allPermissions);
    attributes[FileAttributeKey::ownerAccountID] = unsigned{status.stx_uid};
    attributes[FileAttributeKey::groupOwnerAccountID] = unsigned{status.stx_gid};
    attributes[FileAttributeKey::modificationDate] = dateFrom(status.stx_mtime);
    if ((status.stx_mask & STATX_BTIME) != 0) {
        attributes[FileAttributeKey::creationDate] = dateFrom(status.stx_btime);
    }
    return attributes;
}

}  // namespace velora
