#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/Descriptor.h>
#include <Velora_UserDefaults/Platform/SharedMapping.h>

namespace velora {

namespace {

constexpr mode_t forTheUserAlone = 0600;

/// Whether the file is empty or begins with `mark`, or with zeros: those of a process that was killed when it had
/// just made the file.
bool beginsWith(int descriptor, std::string_view mark) {
    std::string begin(mark.size(), '\0');
    const ssize_t size = ::pread(descriptor, begin.data(), begin.size(), 0);
    return size >= 0 && (begin.find_first_not_of('\0') == std::string::npos || begin == mark);
}

/// Whether the file is one of this kind and nobody else's, and is open to nobody else from now on: 0, else an error
/// number.
int makeOwn(int descriptor, const struct stat& status, std::string_view mark) {
    if (!S_ISREG(status.st_mode)) {
        return EINVAL;
    }
    if (status.st_uid != ::geteuid()) {
        return EPERM;
    }
    if (!beginsWith(descriptor, mark)) {
        return EEXIST;
    }
    const bool isOpenToOthers = (status.st_mode & 07777U) != forTheUserAlone;
    return isOpenToOthers && ::fchmod(descriptor, forTheUserAlone) != 0 ? errno : 0;
}

/// Has the file take at least `size` bytes of the disk. Returns 0 and how many it has, or an error number.
int lengthen(int descriptor, std::string_view mark, std::size_t& size) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
        return errno;
    }
    if (const int code = makeOwn(descriptor, status, mark); code != 0) {
        return code;
    }
    size = std::max(size, static_cast<std::size_t>(status.st_size));
    return ::posix_fallocate(descriptor, 0, static_cast<off_t>(size));
}

}  // namespace

FileResult<std::unique_ptr<SharedMapping>> SharedMapping::open(const std::string& path, std::size_t size,
                                                               std::string_view mark) {
    constexpr std::string_view couldNot = "couldn’t be mapped into memory";
    if (!canNameFile(path)) {
        return FileError::make(EINVAL, path, couldNot);
    }
    // O_NONBLOCK keeps open from waiting for the other end of a pipe, which is refused below.
    constexpr int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NOFOLLOW | O_NONBLOCK;
    Descriptor descriptor(retrying([&] { return ::open(path.c_str(), flags, forTheUserAlone); }));
    if (!descriptor || ::flock(descriptor.get(), LOCK_EX | LOCK_NB) != 0) {
        return FileError::make(errno, path, couldNot);
    }
    if (const int code = lengthen(descriptor.get(), mark, size); code != 0) {
        return FileError::make(code, path, couldNot);
    }
    void* const memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor.get(), 0);
    if (memory == MAP_FAILED) {
        return FileError::make(errno, path, couldNot);
    }
    return std::unique_ptr<SharedMapping>(
        new SharedMapping(descriptor.release(), std::span(static_cast<char*>(memory), size)));
}

SharedMapping::~SharedMapping() {
    letGo();
}

void SharedMapping::letGo() noexcept {
    if (!bytes_.empty()) {
        ::munmap(bytes_.data(), bytes_.size());
        ::close(descriptor_);
        bytes_ = {};
    }
}

}  // namespace velora
