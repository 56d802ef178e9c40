#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/Descriptor.h>
#include <Velora_UserDefaults/Platform/FileMove.h>

namespace velora {

namespace {

std::string folderOf(const std::string& path) {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    return folder.empty() ? "." : folder;
}

/// For a name beside `path` that no listing without hidden files shows.
std::string temporaryPattern(const std::string& path) {
    return folderOf(path) + "/.moving-XXXXXX";
}

int writeFully(int descriptor, const char* bytes, std::size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(descriptor, bytes, size);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return written < 0 ? errno : EIO;
        }
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
    return 0;
}

int copyData(int from, int to) {
    constexpr std::size_t blockSize = std::size_t{128} * 1024;
    const auto block = std::make_unique<char[]>(blockSize);
    for (;;) {
        const ssize_t count = ::read(from, block.get(), blockSize);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return count < 0 ? errno : 0;
        }
        if (const int code = writeFully(to, block.get(), static_cast<std::size_t>(count)); code != 0) {
            return code;
        }
    }
}

int copyAttribute(int from, int to, const char* name) {
    const ssize_t size = ::fgetxattr(from, name, nullptr, 0);
    if (size < 0) {
        return errno;
    }
    std::string value(static_cast<std::size_t>(size), '\0');
    const ssize_t length = size == 0 ? 0 : ::fgetxattr(from, name, value.data(), value.size());
    if (length < 0 || ::fsetxattr(to, name, value.data(), static_cast<std::size_t>(length), 0) != 0) {
        return errno;
    }
    return 0;
}

int copyUserAttributes(int from, int to) {
    const ssize_t size = ::flistxattr(from, nullptr, 0);
    if (size <= 0) {
        return 0;
    }
    std::string names(static_cast<std::size_t>(size), '\0');
    const ssize_t length = ::flistxattr(from, names.data(), names.size());
    if (length < 0) {
        return errno;
    }
    names.resize(static_cast<std::size_t>(length));
    for (std::size_t start = 0; start < names.size();) {
        const char* name = names.c_str() + start;
        start += std::string_view(name).size() + 1;
        if (!std::string_view(name).starts_with("user.")) {
            continue;
        }
        const int code = copyAttribute(from, to, name);
        if (code == ENOTSUP) {
            return 0;  // the new file system has no attributes at all
        }
        if (code != 0) {
            return code;
        }
    }
    return 0;
}

/// Gives the open file `to` all that `from` has but its contents, and brings it to the disk.
int finishCopy(int from, int to, const struct stat& status) {
    if (const int code = copyUserAttributes(from, to); code != 0) {
        return code;
    }
    // Giving a file to another user is allowed to few; and it takes away the set-id bits, so permissions come after.
    // Where the owner changes, nobody gave the new one's rights to those who run the file.
    const bool hasOwners = ::fchown(to, status.st_uid, status.st_gid) == 0;
    const mode_t permissions = status.st_mode & (hasOwners ? 07777U : 01777U);
    const std::array<timespec, 2> dates{status.st_atim, status.st_mtim};
    if (::fchmod(to, permissions) != 0 || ::futimens(to, dates.data()) != 0 || ::fsync(to) != 0) {
        return errno;
    }
    return 0;
}

int copyFileInto(int from, const struct stat& status, int to) {
    const int code = copyData(from, to);
    return code != 0 ? code : finishCopy(from, to, status);
}

/// Brings the name of a new file to the disk. That some file systems cannot do that for folders is no failure.
void synchronizeFolder(const std::string& path) {
    const Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder) {
        ::fsync(folder.get());
    }
}

int copyFile(const std::string& from, const std::string& to) {
    const Descriptor source(::open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat status {};
    if (!source || ::fstat(source.get(), &status) != 0) {
        return errno;
    }
    std::string temporary = temporaryPattern(to);
    const Descriptor target(::mkostemp(temporary.data(), O_CLOEXEC));
    if (!target) {
        return errno;
    }
    int code = copyFileInto(source.get(), status, target.get());
    if (code == 0) {
        code = renameWithoutReplacing(temporary, to);
    }
    if (code != 0) {
        ::unlink(temporary.c_str());
    }
    return code;
}

int copyLink(const std::string& from, const std::string& to) {
    std::error_code error;
    const std::filesystem::path target = std::filesystem::read_symlink(from, error);
    if (error) {
        return error.value();
    }
    return ::symlink(target.c_str(), to.c_str()) == 0 ? 0 : errno;
}

int copyEntry(const std::string& from, const std::string& to);

int copyFolderInto(const std::string& from, const std::string& to) {
    const Descriptor source(::open(from.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
    const Descriptor target(::open(to.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
    struct stat status {};
    if (!source || !target || ::fstat(source.get(), &status) != 0) {
        return errno;
    }
    std::error_code error;
    for (std::filesystem::directory_iterator entry(from, error), end; !error && entry != end; entry.increment(error)) {
        const std::filesystem::path name = entry->path().filename();
        const std::string copy = std::filesystem::path(to) / name;
        if (const int code = copyEntry(entry->path().native(), copy); code != 0) {
            return code;
        }
    }
    return error ? error.value() : finishCopy(source.get(), target.get(), status);
}

int copyFolder(const std::string& from, const std::string& to) {
    std::string temporary = temporaryPattern(to);
    if (::mkdtemp(temporary.data()) == nullptr) {
        return errno;
    }
    int code = copyFolderInto(from, temporary);
    if (code == 0) {
        code = renameWithoutReplacing(temporary, to);
    }
    if (code != 0) {
        std::error_code ignored;
        std::filesystem::remove_all(temporary, ignored);
    }
    return code;
}

int copyEntry(const std::string& from, const std::string& to) {
    struct stat status {};
    if (::lstat(from.c_str(), &status) != 0) {
        return errno;
    }
    switch (status.st_mode & S_IFMT) {
        case S_IFREG:
            return copyFile(from, to);
        case S_IFLNK:
            return copyLink(from, to);
        case S_IFDIR:
            return copyFolder(from, to);
        default:
            return ENOTSUP;
    }
}

/// For file systems that cannot rename without replacing.
int linkAndUnlink(const std::string& from, const std::string& to) {
    if (::linkat(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), 0) != 0) {
        return errno;
    }
    if (::unlink(from.c_str()) != 0) {
        const int code = errno;
        ::unlink(to.c_str());
        return code;
    }
    return 0;
}

int checkAndRename(const std::string& from, const std::string& to) {
    struct stat status {};
    if (::lstat(to.c_str(), &status) == 0) {
        return EEXIST;
    }
    return ::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
}

}  // namespace

int renameWithoutReplacing(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return 0;
    }
    if (errno != EINVAL && errno != ENOSYS) {
        return errno;
    }
    const int code = linkAndUnlink(from, to);
    const bool cannotLink = code == EPERM || code == ENOTSUP || code == ENOSYS || code == EMLINK;
    return cannotLink ? checkAndRename(from, to) : code;
}

int copyWithoutReplacing(const std::string& from, const std::string& to) {
    struct stat status {};
    if (::lstat(to.c_str(), &status) == 0) {
        return EEXIST;  // found out before anything is copied
    }
    const int code = copyEntry(from, to);
    if (code == 0) {
        synchronizeFolder(folderOf(to));
    }
    return code;
}

}  // namespace velora
