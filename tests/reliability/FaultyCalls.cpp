// The functions that take the place of the system's in a program of the tests of failing calls.

#include "reliability/FaultyCalls.h"

#include <cerrno>
#include <cstdarg>
#include <ctime>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

namespace velora::test {
namespace {

int failing(int code) {
    errno = code;
    return -1;
}

}  // namespace
}  // namespace velora::test

// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the system's functions
extern "C" {

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    int code = 0;
    if (velora::test::FaultyCalls::fails(velora::test::Call::open, std::string_view(path), code) && code != 0) {
        return velora::test::failing(code);
    }
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, path, flags, mode));
}

/// Closes even if it fails, as the system does.
int close(int descriptor) {
    int code = 0;
    const bool fails = velora::test::FaultyCalls::fails(velora::test::Call::close, descriptor, code) && code != 0;
    const auto result = static_cast<int>(::syscall(SYS_close, descriptor));
    return fails ? velora::test::failing(code) : result;
}

ssize_t write(int descriptor, const void* bytes, size_t size) {
    int code = 0;
    if (velora::test::FaultyCalls::fails(velora::test::Call::write, descriptor, code)) {
        if (code != 0) {
            return velora::test::failing(code);
        }
        size = size > 1 ? size / 2 : size;
    }
    return ::syscall(SYS_write, descriptor, bytes, size);
}

int fdatasync(int descriptor) {
    int code = 0;
    if (velora::test::FaultyCalls::fails(velora::test::Call::synchronize, descriptor, code) && code != 0) {
        return velora::test::failing(code);
    }
    return static_cast<int>(::syscall(SYS_fdatasync, descriptor));
}

int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const auto result = static_cast<int>(::syscall(SYS_clock_gettime, clock, time));
    if (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE) {
        time->tv_sec += velora::test::FaultyCalls::passedTime();
    }
    return result;
}

int stat(const char* path, struct stat* status) noexcept {
    int code = 0;
    if (velora::test::FaultyCalls::fails(velora::test::Call::stat, std::string_view(path), code) && code != 0) {
        return velora::test::failing(code);
    }
    return static_cast<int>(::syscall(SYS_newfstatat, AT_FDCWD, path, status, 0));
}

int renameat2(int fromFolder, const char* from, int toFolder, const char* to, unsigned flags) noexcept {
    int code = 0;
    if (velora::test::FaultyCalls::fails(velora::test::Call::rename, std::string_view(from), code) && code != 0) {
        return velora::test::failing(code);
    }
    return static_cast<int>(::syscall(SYS_renameat2, fromFolder, from, toFolder, to, flags));
}

int setxattr(const char* path, const char* name, const void* value, size_t size, int flags) noexcept {
    int code = 0;
    if (velora::test::FaultyCalls::fails(velora::test::Call::setAttribute, std::string_view(path), code) && code != 0) {
        return velora::test::failing(code);
    }
    return static_cast<int>(::syscall(SYS_setxattr, path, name, value, size, flags));
}
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
