#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <system_error>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/DefaultsStoreDocument.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreFile.h>

namespace velora {
namespace {

constexpr mode_t fileMode = 0600;
constexpr mode_t folderMode = 0700;
// No file system that matters stamps its files more coarsely than with the kernel's tick of at most 10 ms.
constexpr std::int64_t stampResolution = 20'000'000;
constexpr std::int64_t youth = 200'000'000;

std::int64_t nanoseconds(const timespec& time) {
    return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec;
}

std::int64_t now() {
    timespec time{};
    ::clock_gettime(CLOCK_REALTIME, &time);
    return nanoseconds(time);
}

std::string folderOf(const std::string& path) {
    return std::filesystem::path(path).parent_path().string();
}

bool writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t written = retrying([&] { return ::write(descriptor, bytes.data(), bytes.size()); });
        if (written < 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

/// Reads up to one byte more than a store may have.
bool readAll(int descriptor, std::size_t expected, std::string& bytes) {
    bytes.resize(std::min(expected, DefaultsStoreDocument::maximumSize) + 1);
    std::size_t length = 0;
    while (length <= DefaultsStoreDocument::maximumSize) {
        if (length == bytes.size()) {
            bytes.resize(std::min(2 * length, DefaultsStoreDocument::maximumSize + 1));
        }
        const ssize_t got = retrying([&] { return ::read(descriptor, bytes.data() + length, bytes.size() - length); });
        if (got < 0) {
            return false;
        }
        if (got == 0) {
            break;
        }
        length += static_cast<std::size_t>(got);
    }
    bytes.resize(length);
    return true;
}

/// What root makes in another user's folder is given to that user.
void giveToFolderOwner(int descriptor, const std::string& path) {
    struct stat folder {};
    if (::geteuid() == 0 && ::stat(folderOf(path).c_str(), &folder) == 0 && folder.st_uid != 0) {
        // On failure the file works for root all the same.
        [[maybe_unused]] const int result = ::fchown(descriptor, folder.st_uid, folder.st_gid);
    }
}

/// A second name of the file is a backup's where only the user could have made it, else perhaps a trap. Whose folder it
/// is may set one too: for root, say, who works with the settings of another user.
bool isOurs(const struct stat& status, const std::string& path) {
    struct stat folder {};
    if (!S_ISREG(status.st_mode) || ::stat(folderOf(path).c_str(), &folder) != 0) {
        return false;
    }
    const bool isForAll = (folder.st_mode & S_IWOTH) != 0;
    if (!isForAll && folder.st_uid == ::geteuid()) {
        return true;
    }
    const bool isOfTheFolder = !isForAll && status.st_uid == folder.st_uid;
    return (status.st_uid == ::geteuid() || isOfTheFolder) && status.st_nlink == 1;
}

/// Gives a file of the user's the mode that files beside the store have, whatever the umask was when it was made.
void keepToOwner(int descriptor, const struct stat& status) {
    if ((status.st_mode & 07777U) != fileMode && status.st_uid == ::geteuid()) {
        // A file system without modes refuses.
        [[maybe_unused]] const int result = ::fchmod(descriptor, fileMode);
    }
}

/// What was the store until now goes, if others could read it: nobody else is to find old settings.
void removeIfOpenToOthers(const std::string& former) {
    struct stat status {};
    if (::lstat(former.c_str(), &status) == 0 && (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        ::unlink(former.c_str());
    }
}

/// Makes one folder with all of its mode, whatever the umask.
bool makeFolder(const std::string& path) {
    if (::mkdir(path.c_str(), folderMode) != 0) {
        return false;
    }
    // A folder that not even its owner may read opens in no other way.
    const Descriptor folder(::open(path.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (folder && ::fstat(folder.get(), &status) == 0 && status.st_uid == ::geteuid() &&
        (status.st_mode & folderMode) != folderMode) {
        // fchmod(2) refuses such a descriptor; the path could have become another folder.
        ::chmod(fmt::format("/proc/self/fd/{}", folder.get()).c_str(), folderMode);
    }
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

bool writeAndSync(Descriptor& file, std::string_view bytes) {
    return writeAll(file.get(), bytes) && retrying([&] { return ::fdatasync(file.get()); }) == 0 && file.close();
}

bool writeNewFile(const std::string& path, std::string_view bytes) {
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
        return false;
    }
    Descriptor file = openBesideStore(path, O_WRONLY | O_CREAT | O_EXCL);
    return file && writeAndSync(file, bytes);
}

/// Whether nobody else has the file open and could be reading it: only then a write lease is granted (fcntl(2)).
bool isOpenNowhereElse(int descriptor) {
    // Whoever opens the file before the lease is given back makes the kernel send a signal. That would be SIGIO, which
    // ends a process that does not expect it; SIGURG is ignored by default.
    return ::fcntl(descriptor, F_SETSIG, SIGURG) == 0 && ::fcntl(descriptor, F_SETLEASE, F_WRLCK) == 0 &&
           ::fcntl(descriptor, F_SETLEASE, F_UNLCK) == 0;
}

/// Writes over the file that was the store until the last write, if that can do no harm: nobody has it open or has
/// given it another name. The space of a file that was synced is dear to free and to allocate again; on a journaling
/// file system that is most of what a write costs.
bool writeOverFormerFile(const std::string& path, std::string_view bytes) {
    Descriptor file = openBesideStore(path, O_WRONLY);
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0 || status.st_uid != ::geteuid() || status.st_nlink > 1 ||
        !isOpenNowhereElse(file.get())) {
        return false;
    }
    return ::fchmod(file.get(), fileMode) == 0 && writeAll(file.get(), bytes) &&
           ::ftruncate(file.get(), static_cast<off_t>(bytes.size())) == 0 &&
           retrying([&] { return ::fdatasync(file.get()); }) == 0 && file.close();
}

/// Puts the file at `spare` in the place of the one at `path`, and that one, if there is one, in its place.
bool exchangeFiles(const std::string& spare, const std::string& path) {
    if (::renameat2(AT_FDCWD, spare.c_str(), AT_FDCWD, path.c_str(), RENAME_EXCHANGE) == 0) {
        return true;
    }
    // No file yet, or a file system that cannot exchange.
    return (errno == ENOENT || errno == EINVAL || errno == ENOSYS) && ::rename(spare.c_str(), path.c_str()) == 0;
}

void syncFolder(const std::string& folder) {
    const Descriptor descriptor(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (descriptor) {
        // Nothing is to be undone if it fails: every process sees the new file already.
        ::fsync(descriptor.get());
    }
}

bool renameToFreeName(const std::string& from, const std::string& to) {
    if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) {
        return true;
    }
    // Not every file system knows the flag.
    return errno == EINVAL && ::link(from.c_str(), to.c_str()) == 0 && ::unlink(from.c_str()) == 0;
}

}  // namespace

DefaultsStoreIdentity DefaultsStoreIdentity::of(const struct stat& status) {
    return {.device = status.st_dev,
            .inode = status.st_ino,
            .size = status.st_size,
            .modified = nanoseconds(status.st_mtim),
            .changed = nanoseconds(status.st_ctim)};
}

std::optional<DefaultsStoreIdentity> DefaultsStoreIdentity::at(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? std::optional(of(status)) : std::nullopt;
}

DefaultsStoreContents DefaultsStoreContents::read(const std::string& path) {
    DefaultsStoreContents contents;
    const std::int64_t before = now();
    // O_NONBLOCK: a named pipe at this path must not hold anybody up.
    const Descriptor file(retrying([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK); }));
    if (!file && (errno == ENOENT || errno == ENOTDIR)) {
        return contents;
    }
    contents.state = State::unreadable;
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) {
        contents.fault = withSystemError("cannot open it");
        contents.identity = DefaultsStoreIdentity::at(path);
        return contents;
    }
    contents.identity = DefaultsStoreIdentity::of(status);
    const std::int64_t age = before - contents.identity->modified;
    contents.settled = before - std::max(contents.identity->modified, contents.identity->changed) > stampResolution;
    contents.young = age < youth && age > -youth;
    if (!S_ISREG(status.st_mode)) {
        contents.fault = S_ISDIR(status.st_mode) ? "it is a folder" : "it is no regular file";
        return contents;
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    if (size <= DefaultsStoreDocument::maximumSize && !readAll(file.get(), size, contents.bytes)) {
        contents.fault = withSystemError("cannot read it");
        return contents;
    }
    if (std::max(size, contents.bytes.size()) > DefaultsStoreDocument::maximumSize) {
        contents.state = State::tooLarge;
        contents.bytes.clear();
        contents.fault = fmt::format("{} bytes are more than a store may have", size);
        return contents;
    }
    contents.state = State::complete;
    return contents;
}

std::string resolvedStorePath(const std::string& path) {
    constexpr int maximumLinks = 40;  // as many as the kernel follows
    std::error_code error;
    std::filesystem::path resolved = std::filesystem::absolute(path, error);
    for (int links = 0; links < maximumLinks && std::filesystem::is_symlink(resolved, error) && mayBeFollowed(resolved);
         ++links) {
        resolved = resolved.parent_path() / std::filesystem::read_symlink(resolved, error);
    }
    return resolved.lexically_normal().string();
}

bool makeStoreFolder(const std::string& path, std::string& fault) {
    const std::string folder = folderOf(path);
    struct stat status {};
    if (::stat(folder.c_str(), &status) == 0) {
        return true;
    }
    for (std::size_t end = 0; end != std::string::npos;) {
        end = folder.find('/', end + 1);
        if (makeFolder(folder.substr(0, end))) {
            continue;
        }
        // On the way down, folders that exist may refuse for other reasons than existing.
        if (end == std::string::npos && errno != EEXIST && errno != EISDIR) {
            fault = withSystemError("cannot make its folder");
            return false;
        }
    }
    return true;
}

Descriptor openBesideStore(const std::string& path, int flags) {
    Descriptor file(retrying(
        [&] { return ::open(path.c_str(), flags | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, fileMode); }));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) {
        return Descriptor();
    }
    if (!isOurs(status, path)) {
        errno = EPERM;
        return Descriptor();
    }
    if ((flags & O_CREAT) != 0) {
        keepToOwner(file.get(), status);
        if (status.st_size == 0) {
            giveToFolderOwner(file.get(), path);
        }
    }
    return file;
}

bool isStillAt(const std::string& path, int descriptor) {
    struct stat named {};
    struct stat opened {};
    return ::lstat(path.c_str(), &named) == 0 && ::fstat(descriptor, &opened) == 0 && named.st_dev == opened.st_dev &&
           named.st_ino == opened.st_ino;
}

bool replaceStoreFile(const std::string& path, std::string_view bytes,
                      const std::function<bool(const std::function<bool()>& move)>& rename, std::string& fault) {
    const std::string spare = path + ".spare";
    const auto move = [&] { return exchangeFiles(spare, path); };
    if ((!writeOverFormerFile(spare, bytes) && !writeNewFile(spare, bytes)) || !rename(move)) {
        fault = withSystemError("cannot write it");
        ::unlink(spare.c_str());
        return false;
    }
    removeIfOpenToOthers(spare);
    syncFolder(folderOf(path));
    return true;
}

bool replaceForeignFile(const std::string& path, std::string_view bytes, std::string& fault) {
    // What lies there may be the terminal or a device, which a rename would put an end to.
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        fault = S_ISDIR(status.st_mode) ? "it is a folder" : "it is no regular file";
        return false;
    }
    std::string written = path + ".XXXXXX";  // a name of its own: in that folder every other file is somebody's
    Descriptor file(::mkostemp(written.data(), O_CLOEXEC));
    if (!file) {
        fault = withSystemError("cannot write it");
        return false;
    }
    giveToFolderOwner(file.get(), path);
    if (!writeAndSync(file, bytes) || ::rename(written.c_str(), path.c_str()) != 0) {
        fault = withSystemError("cannot write it");
        ::unlink(written.c_str());
        return false;
    }
    syncFolder(folderOf(path));
    return true;
}

std::optional<std::string> setStoreFileAside(const std::string& path, std::string& fault) {
    const std::string dated = fmt::format("{}.damaged-{:%Y%m%dT%H%M%SZ}", path, fmt::gmtime(::time(nullptr)));
    std::string name = dated;
    constexpr int maximumTries = 10000;
    for (int number = 2; number < maximumTries; ++number) {
        if (renameToFreeName(path, name)) {
            return name;
        }
        if (errno != EEXIST) {
            break;
        }
        name = fmt::format("{}-{}", dated, number);
    }
    fault = withSystemError("cannot rename it");
    return std::nullopt;
}

std::string withSystemError(std::string_view what) {
    return fmt::format("{}: {}", what, std::generic_category().message(errno));
}

}  // namespace velora
