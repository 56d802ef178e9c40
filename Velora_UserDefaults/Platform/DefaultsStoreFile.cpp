#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <system_error>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/DefaultsStoreDocument.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreFile.h>
#include <Velora_UserDefaults/Platform/FileContents.h>
#include <Velora_UserDefaults/Platform/OwnFolder.h>

namespace velora {
namespace {

// No file system that matters stamps its files more coarsely than with the kernel's tick of at most 10 ms.
constexpr std::int64_t stampResolution = 20'000'000;

std::int64_t nanoseconds(const timespec& time) {
    return time.tv_sec * std::int64_t{1'000'000'000} + time.tv_nsec;
}

/// Reads up to little more than a store may have.
bool readAll(int descriptor, std::string& bytes) {
    std::array<char, 16'384> block{};
    ssize_t size = 1;
    while (size > 0 && bytes.size() <= DefaultsStoreDocument::maximumSize) {
        size = retrying([&] { return ::read(descriptor, block.data(), block.size()); });
        bytes.append(block.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    }
    return size >= 0;
}

std::string besideName(const std::string& path) {
    return path + ".new";
}

}  // namespace

DefaultsStoreIdentity DefaultsStoreIdentity::of(const struct stat& status) {
    return {.device = status.st_dev,
            .inode = status.st_ino,
            .size = status.st_size,
            .modified = nanoseconds(status.st_mtim),
            .changed = nanoseconds(status.st_ctim)};
}

std::optional<DefaultsStoreIdentity> DefaultsStoreIdentity::of(int descriptor) {
    struct stat status {};
    return ::fstat(descriptor, &status) == 0 ? std::optional(of(status)) : std::nullopt;
}

std::optional<DefaultsStoreIdentity> DefaultsStoreIdentity::at(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? std::optional(of(status)) : std::nullopt;
}

DefaultsStoreContents DefaultsStoreContents::read(const std::string& path) {
    DefaultsStoreContents contents;
    timespec before{};
    ::clock_gettime(CLOCK_REALTIME, &before);
    // O_NONBLOCK: a named pipe at this path must not hold anybody up.
    const Descriptor file(retrying([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK); }));
    if (!file && (errno == ENOENT || errno == ENOTDIR)) {
        return contents;
    }
    contents.state = State::unreadable;
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) != 0) {
        contents.fault = withSystemError("cannot open it");
        return contents;
    }
    contents.identity = DefaultsStoreIdentity::of(status);
    contents.settled =
        nanoseconds(before) - std::max(contents.identity->modified, contents.identity->changed) > stampResolution;
    if (!S_ISREG(status.st_mode)) {
        contents.fault = S_ISDIR(status.st_mode) ? "it is a folder" : "it is no regular file";
        return contents;
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    if (size <= DefaultsStoreDocument::maximumSize && !readAll(file.get(), contents.bytes)) {
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

Descriptor writeBeside(const std::string& path, std::string_view bytes) {
    const std::string name = besideName(path);
    if (::unlink(name.c_str()) != 0 && errno != ENOENT) {
        return Descriptor();
    }
    Descriptor file = openOwnFile(name, O_WRONLY | O_CREAT | O_EXCL);
    if (file && !writeAndSync(file.get(), bytes)) {
        const int error = errno;
        file.close();
        ::unlink(name.c_str());
        errno = error;
    }
    return file;
}

bool putInPlace(const std::string& path) {
    const std::string name = besideName(path);
    if (::rename(name.c_str(), path.c_str()) == 0) {
        return true;
    }
    const int error = errno;
    ::unlink(name.c_str());
    errno = error;
    return false;
}

std::optional<std::string> setStoreFileAside(const std::string& path) {
    const std::string dated = fmt::format("{}.damaged-{:%Y%m%dT%H%M%SZ}", path, fmt::gmtime(::time(nullptr)));
    std::string name = dated;
    for (int number = 2; ::renameat2(AT_FDCWD, path.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE) != 0; ++number) {
        // Not every file system knows the flag.
        if (errno == EINVAL && ::link(path.c_str(), name.c_str()) == 0) {
            return ::unlink(path.c_str()) == 0 ? std::optional(name) : std::nullopt;
        }
        if (errno != EEXIST) {
            return std::nullopt;
        }
        name = fmt::format("{}-{}", dated, number);
    }
    return name;
}

std::string withSystemError(std::string_view what) {
    return fmt::format("{}: {}", what, std::generic_category().message(errno));
}

}  // namespace velora
