#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utility>

#include <Velora_UserDefaults/Platform/Descriptor.h>
#include <Velora_UserDefaults/Platform/FileHandle.h>

namespace velora {

namespace {

/// Keeps SIGPIPE from the calling thread while it lives. MSG_NOSIGNAL is for sockets only, and a library must not
/// change what the whole process does about a signal.
class SigpipeBlock {
public:
    SigpipeBlock() {
        ::sigemptyset(&sigpipe_);
        ::sigaddset(&sigpipe_, SIGPIPE);
        sigset_t pending;
        ::sigpending(&pending);
        wasPending_ = ::sigismember(&pending, SIGPIPE) == 1;
        ::pthread_sigmask(SIG_BLOCK, &sigpipe_, &maskBefore_);
    }
    SigpipeBlock(const SigpipeBlock&) = delete;
    SigpipeBlock& operator=(const SigpipeBlock&) = delete;
    ~SigpipeBlock() {
        if (!wasPending_) {
            // A SIGPIPE raised meanwhile is taken back before it can be delivered.
            const timespec noTime{};
            while (::sigtimedwait(&sigpipe_, nullptr, &noTime) < 0 && errno == EINTR) {
            }
        }
        ::pthread_sigmask(SIG_SETMASK, &maskBefore_, nullptr);
    }

private:
    sigset_t sigpipe_{};
    sigset_t maskBefore_{};
    bool wasPending_ = false;
};

/// Writes all of `parts`, which it uses up, and returns 0 or an error number.
int writeAll(int descriptor, std::array<iovec, 2>& parts) {
    while (parts[0].iov_len + parts[1].iov_len > 0) {
        const bool both = parts[0].iov_len > 0 && parts[1].iov_len > 0;
        const iovec& only = parts[0].iov_len > 0 ? parts[0] : parts[1];
        const ssize_t result = both ? ::writev(descriptor, parts.data(), 2)  //
                                    : ::write(descriptor, only.iov_base, only.iov_len);
        if (result < 0 && errno == EINTR) {
            continue;
        }
        if (result <= 0) {
            return result < 0 ? errno : EIO;
        }
        auto written = static_cast<std::size_t>(result);
        for (iovec& part : parts) {
            const std::size_t share = std::min(written, part.iov_len);
            part.iov_base = static_cast<char*>(part.iov_base) + share;
            part.iov_len -= share;
            written -= share;
        }
    }
    return 0;
}

iovec asPart(std::string_view bytes) {
    return {.iov_base = const_cast<char*>(bytes.data()), .iov_len = bytes.size()};
}

}  // namespace

FileResult<FileHandle> FileHandle::openForWriting(const std::string& path) {
    constexpr std::string_view couldNot = "couldn’t be opened for writing";
    if (!canNameFile(path)) {
        return FileError::make(EINVAL, path, couldNot);
    }
    std::string copyOfPath = path;  // while there is no descriptor to lose for want of memory
    // O_NONBLOCK keeps open from waiting for the reader of a pipe; writing waits as usual.
    constexpr int flagsOfOpening = O_WRONLY | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    Descriptor descriptor(retrying([&] { return ::open(path.c_str(), flagsOfOpening); }));
    if (!descriptor) {
        return FileError::make(errno, path, couldNot);
    }
    return adopt(std::move(descriptor), std::move(copyOfPath));
}

FileResult<FileHandle> FileHandle::adopt(Descriptor descriptor, std::string path) {
    FileHandle handle(descriptor.release(), std::move(path));
    struct stat status {};
    const int flags = ::fcntl(handle.descriptor_, F_GETFL);
    if (::fstat(handle.descriptor_, &status) != 0 || flags < 0 ||
        ::fcntl(handle.descriptor_, F_SETFL, flags & ~O_NONBLOCK) != 0) {
        return handle.failure(errno, "couldn’t be opened for writing");
    }
    handle.canRaiseSigpipe_ = S_ISFIFO(status.st_mode);
    handle.device_ = status.st_dev;
    handle.inode_ = status.st_ino;
    return handle;
}

FileHandle::FileHandle(int descriptor, std::string path) : descriptor_(descriptor), path_(std::move(path)) {}

FileHandle::FileHandle(FileHandle&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)),
      canRaiseSigpipe_(other.canRaiseSigpipe_),
      device_(other.device_),
      inode_(other.inode_),
      path_(std::move(other.path_)) {}

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
    if (this != &other) {
        static_cast<void>(close());
        descriptor_ = std::exchange(other.descriptor_, -1);
        canRaiseSigpipe_ = other.canRaiseSigpipe_;
        device_ = other.device_;
        inode_ = other.inode_;
        path_ = std::move(other.path_);
    }
    return *this;
}

FileHandle::~FileHandle() {
    static_cast<void>(close());
}

FileResult<void> FileHandle::write(std::string_view bytes) {
    std::size_t written = 0;
    return resultOfWriting(writeParts(bytes, {}, written));
}

FileResult<void> FileHandle::write(std::string_view bytes, std::size_t& written) {
    return resultOfWriting(writeParts(bytes, {}, written));
}

FileResult<void> FileHandle::write(std::string_view first, std::string_view second) {
    std::size_t written = 0;
    return resultOfWriting(writeParts(first, second, written));
}

/// Returns 0 or an error number.
// NOLINTNEXTLINE(readability-make-member-function-const): what is changed is the file
int FileHandle::writeParts(std::string_view first, std::string_view second, std::size_t& written) {
    written = 0;
    if (!isOpen()) {
        return EBADF;
    }
    std::array<iovec, 2> parts{asPart(first), asPart(second)};
    int code = 0;
    if (canRaiseSigpipe_) {
        const SigpipeBlock noSigpipe;
        code = writeAll(descriptor_, parts);
    } else {
        code = writeAll(descriptor_, parts);
    }
    written = first.size() + second.size() - parts[0].iov_len - parts[1].iov_len;
    return code;
}

FileResult<void> FileHandle::resultOfWriting(int code) const {
    if (code != 0) {
        return failure(code, "couldn’t be written");
    }
    return {};
}

FileResult<void> FileHandle::synchronize() {
    int result = 0;
    do {
        result = ::fdatasync(descriptor_);
    } while (result != 0 && errno == EINTR);
    if (result != 0 && errno != EINVAL && errno != EROFS) {
        return failure(errno, "couldn’t be brought to the disk");
    }
    return {};
}

FileResult<off_t> FileHandle::seekToEnd() {
    const off_t position = ::lseek(descriptor_, 0, SEEK_END);
    if (position < 0) {
        return failure(errno, "couldn’t be positioned at its end");
    }
    return position;
}

FileResult<void> FileHandle::close() {
    if (!isOpen()) {
        return {};
    }
    // Linux closes the descriptor whatever close(2) returns; closing again could hit a new file of another thread.
    if (::close(std::exchange(descriptor_, -1)) != 0 && errno != EINTR) {
        return failure(errno, "couldn’t be closed without loss");
    }
    return {};
}

bool FileHandle::stillAt(const std::string& path) const {
    struct stat status {};
    return isOpen() && canNameFile(path) && ::stat(path.c_str(), &status) == 0 && status.st_dev == device_ &&
           status.st_ino == inode_;
}

FileError FileHandle::failure(int code, std::string_view what) const {
    return FileError::make(code, path_, what);
}

}  // namespace velora
