#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/OwnFolder.h>

namespace velora {

namespace {

constexpr mode_t fileMode = 0600;
constexpr mode_t folderMode = 0700;

/// Makes one folder with all of its mode, whatever the umask, for the owner of the folder above it.
bool makeFolder(const std::string& path) {
    if (::mkdir(path.c_str(), folderMode) != 0) {
        return false;
    }
    // A folder that not even its owner may read opens in no other way.
    const Descriptor folder(::open(path.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!folder || ::fstat(folder.get(), &status) != 0 || status.st_uid != ::geteuid()) {
        return true;
    }
    if ((status.st_mode & folderMode) != folderMode) {
        // fchmod(2) refuses such a descriptor; the path could have become another folder.
        ::chmod(fmt::format("/proc/self/fd/{}", folder.get()).c_str(), folderMode);
    }
    giveToFolderOwner(folder.get(), path);
    return true;
}

/// Whether the user, or who owns the folder, made the link. The kernel asks the same before it follows one in a folder
/// where all may make links (fs.protected_symlinks in proc(5)), unless the system is set up not to.
bool mayBeFollowed(const std::filesystem::path& link) {
    constexpr mode_t shared = S_ISVTX | S_IWOTH;
    struct stat named {};
    struct stat folder {};
    return ::lstat(link.c_str(), &named) == 0 && ::stat(link.parent_path().c_str(), &folder) == 0 &&
           ((folder.st_mode & shared) != shared || named.st_uid == ::geteuid() || named.st_uid == folder.st_uid);
}

/// A second name of the file is a backup's where only the user could have made it, else perhaps a trap. Whose folder it
/// is may set one too: for root, say, who works with the settings of another user.
bool isOwn(const struct stat& status, const std::string& path) {
    struct stat folder {};
    if (!S_ISREG(status.st_mode) || ::stat(folderOfFile(path).c_str(), &folder) != 0) {
        return false;
    }
    const bool isForAll = (folder.st_mode & S_IWOTH) != 0;
    if (!isForAll && folder.st_uid == ::geteuid()) {
        return true;
    }
    const bool isOfTheFolder = !isForAll && status.st_uid == folder.st_uid;
    return (status.st_uid == ::geteuid() || isOfTheFolder) && status.st_nlink == 1;
}

}  // namespace

std::string folderOfFile(const std::string& path) {
    return std::filesystem::path(path).parent_path().string();
}

int checkOwnFolder(const std::string& path) {
    struct stat above {};
    struct stat status {};
    if (::stat(folderOfFile(path).c_str(), &above) != 0 || ::lstat(path.c_str(), &status) != 0) {
        return errno;
    }
    if ((above.st_mode & S_IWOTH) == 0) {
        return 0;
    }
    const bool isProtected = (above.st_mode & S_ISVTX) != 0;
    if (!isProtected || S_ISLNK(status.st_mode) || status.st_uid != ::geteuid() || (status.st_mode & S_IWOTH) != 0) {
        return EPERM;
    }
    return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
}

int makeOwnFolder(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) {
        return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
    }
    for (std::size_t end = 0; end != std::string::npos;) {
        end = path.find('/', end + 1);
        // On the way down, folders that exist may refuse for other reasons than existing.
        if (!makeFolder(path.substr(0, end)) && end == std::string::npos && errno != EEXIST && errno != EISDIR) {
            return errno;
        }
    }
    return 0;
}

Descriptor openOwnFile(const std::string& path, int flags) {
    Descriptor file(retrying(
        [&] { return ::open(path.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, fileMode); }));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) {
        return Descriptor();
    }
    if (!isOwn(status, path)) {
        errno = EPERM;
        return Descriptor();
    }
    if ((flags & O_CREAT) != 0) {
        if ((status.st_mode & 07777U) != fileMode && status.st_uid == ::geteuid()) {
            // A file system without modes refuses.
            [[maybe_unused]] const int result = ::fchmod(file.get(), fileMode);
        }
        if (status.st_size == 0) {
            giveToFolderOwner(file.get(), path);
        }
    }
    return file;
}

void giveToFolderOwner(int descriptor, const std::string& path) {
    struct stat folder {};
    if (::geteuid() == 0 && ::stat(folderOfFile(path).c_str(), &folder) == 0 && folder.st_uid != 0) {
        // On failure it works for root all the same.
        [[maybe_unused]] const int result = ::fchownat(descriptor, "", folder.st_uid, folder.st_gid, AT_EMPTY_PATH);
    }
}

std::string resolvedOwnPath(const std::string& path) {
    constexpr int maximumLinks = 40;  // as many as the kernel follows
    std::error_code error;
    std::filesystem::path resolved = std::filesystem::absolute(path, error);
    for (int links = 0; links < maximumLinks && std::filesystem::is_symlink(resolved, error) && mayBeFollowed(resolved);
         ++links) {
        resolved = resolved.parent_path() / std::filesystem::read_symlink(resolved, error);
    }
    return resolved.lexically_normal().string();
}

}  // namespace velora
