#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string_view>
#include <sys/file.h>
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

/// Brings the name of a new file to the disk. That some file systems cannot do that for folders is no failure.
void synchronizeFolder(const std::string& path) {
    const Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder) {
        ::fsync(folder.get());
    }
}

int copyFile(const std::string& from, const std::string& to) {
    FileCopy copy;
    const int code = copy.begin(from, to);
    return code != 0 ? code : copy.finish();
}

/// Makes a file for a copy, and locks it.
Descriptor makeTemporary(const std::string& to, std::string& path) {
    for (;;) {
        path = temporaryPattern(to);
        Descriptor file(::mkostemp(path.data(), O_CLOEXEC));
        struct stat status {};
        // Another process may have taken it for an abandoned one before it was locked.
        if (!file || ::flock(file.get(), LOCK_EX | LOCK_NB) != 0 || ::fstat(file.get(), &status) != 0 ||
            status.st_nlink > 0) {
            return file;
        }
    }
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
    const StandardStreamsInUse inUse;
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
        const StandardStreamsInUse inUse;
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

int FileCopy::begin(const std::string& from, const std::string& to) {
    removeAbandonedCopies(folderOf(to));
    source_ = Descriptor(::open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!source_) {
        return errno;
    }
    target_ = makeTemporary(to, temporary_);
    if (!target_) {
        return errno;
    }
    to_ = to;
    const int code = copyData(source_.get(), target_.get());
    return code != 0 ? code : ::fdatasync(target_.get()) == 0 ? 0 : errno;
}

int FileCopy::finish() {
    struct stat status {};
    int code = copyData(source_.get(), target_.get());
    if (code == 0) {
        code = ::fstat(source_.get(), &status) == 0 ? finishCopy(source_.get(), target_.get(), status) : errno;
    }
    if (code == 0) {
        code = renameWithoutReplacing(temporary_, to_);
    }
    if (code == 0) {
        to_.clear();
    }
    return code;
}

FileCopy::~FileCopy() {
    if (!to_.empty()) {
        ::unlink(temporary_.c_str());
    }
}

void removeAbandonedCopies(const std::string& folder) {
    std::error_code error;
    const StandardStreamsInUse inUse;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        const std::string& path = entry->path().native();
        if (entry->path().filename().native().size() != std::string_view(".moving-XXXXXX").size() ||
            !entry->path().filename().native().starts_with(".moving-")) {
            continue;
        }
        const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
        struct stat status {};
        if (file && ::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == ::geteuid() &&
            ::flock(file.get(), LOCK_EX | LOCK_NB) == 0) {
            ::unlink(path.c_str());
        }
    }
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
