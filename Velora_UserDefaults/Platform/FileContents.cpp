#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstddef>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/Descriptor.h>
#include <Velora_UserDefaults/Platform/FileContents.h>
#include <Velora_UserDefaults/Platform/OwnFolder.h>

namespace velora {

namespace {

/// The open file that a path names; -1 for any other path.
int descriptorNamedBy(std::string_view path) {
    if (path == "/dev/stdout" || path == "/dev/stderr") {
        return path.ends_with("out") ? STDOUT_FILENO : STDERR_FILENO;
    }
    int number = -1;
    for (const std::string_view folder : {"/dev/fd/", "/proc/self/fd/"}) {
        if (path.starts_with(folder)) {
            std::from_chars(path.data() + folder.size(), path.data() + path.size(), number);
        }
    }
    return number;
}

}  // namespace

std::string contentsOfFile(const std::string& path, std::uint64_t position, std::uint64_t most) {
    constexpr int flags = O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    const Descriptor file(retrying([&] { return ::open(path.c_str(), flags); }));
    std::string contents;
    std::array<char, 16'384> block{};
    ssize_t size = 1;
    while (file && size > 0 && contents.size() < most) {
        const auto wanted = std::min<std::uint64_t>(block.size(), most - contents.size());
        const auto place = static_cast<off_t>(position + contents.size());
        size = retrying([&] { return ::pread(file.get(), block.data(), static_cast<std::size_t>(wanted), place); });
        contents.append(block.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    }
    return contents;
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

bool writeAndSync(int descriptor, std::string_view bytes) {
    return writeAll(descriptor, bytes) && retrying([&] { return ::fdatasync(descriptor); }) == 0;
}

void syncFolder(const std::string& path) {
    const Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (folder) {
        // Nothing is to be undone if it fails: every process sees what the folder holds already.
        ::fsync(folder.get());
    }
}

std::string replaceFile(const std::string& path, std::string_view bytes) {
    const auto fault = [] { return "cannot write it: " + std::generic_category().message(errno); };
    if (const int open = descriptorNamedBy(path); open >= 0) {
        return writeAll(open, bytes) ? "" : fault();
    }
    // What lies there may be the terminal or a device, which a rename would put an end to.
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        return S_ISDIR(status.st_mode) ? "it is a folder" : "it is no regular file";
    }
    std::string written = path + ".XXXXXX";  // a unique name: in that folder every other file is somebody's
    const Descriptor file(::mkostemp(written.data(), O_CLOEXEC));
    if (!file) {
        return fault();
    }
    giveToFolderOwner(file.get(), path);
    if (!writeAndSync(file.get(), bytes) || ::rename(written.c_str(), path.c_str()) != 0) {
        std::string text = fault();
        ::unlink(written.c_str());
        return text;
    }
    syncFolder(folderOfFile(path));
    return {};
}

}  // namespace velora
