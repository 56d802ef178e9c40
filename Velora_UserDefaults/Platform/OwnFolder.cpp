#include <cerrno>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/OwnFolder.h>

namespace velora {

int checkOwnFolder(const std::string& path) {
    struct stat above {};
    struct stat status {};
    if (::stat(std::filesystem::path(path).parent_path().c_str(), &above) != 0 || ::lstat(path.c_str(), &status) != 0) {
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

}  // namespace velora
