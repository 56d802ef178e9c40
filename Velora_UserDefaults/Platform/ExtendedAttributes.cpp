#include <cerrno>
#include <fmt/format.h>
#include <sys/xattr.h>

#include <Velora_UserDefaults/Platform/ExtendedAttributes.h>

namespace velora {

namespace {

std::string systemName(std::string_view name) {
    return "user." + std::string(name);
}

}  // namespace

FileResult<std::optional<std::string>> readExtendedAttribute(const std::string& path, std::string_view name) {
    if (!canNameFile(path) || !canNameFile(name)) {
        return std::optional<std::string>();
    }
    const std::string key = systemName(name);
    for (;;) {
        const ssize_t size = ::getxattr(path.c_str(), key.c_str(), nullptr, 0);
        if (size < 0) {
            return std::optional<std::string>();
        }
        std::string bytes(static_cast<std::size_t>(size), '\0');
        // With a size of 0 this would ask for the size once more.
        const ssize_t read = size == 0 ? 0 : ::getxattr(path.c_str(), key.c_str(), bytes.data(), bytes.size());
        if (read >= 0) {
            bytes.resize(static_cast<std::size_t>(read));
            return std::optional(std::move(bytes));
        }
        // ERANGE: the value has grown since its size was asked.
        if (errno != ERANGE) {
            return FileError::make(errno, path, fmt::format("has an attribute “{}” that couldn’t be read", name));
        }
    }
}

FileResult<void> writeExtendedAttribute(const std::string& path, std::string_view name, std::string_view bytes) {
    const bool canBeNamed = canNameFile(path) && canNameFile(name);
    if (canBeNamed && ::setxattr(path.c_str(), systemName(name).c_str(), bytes.data(), bytes.size(), 0) == 0) {
        return {};
    }
    return FileError::make(canBeNamed ? errno : EINVAL, path,
                           fmt::format("couldn’t be given the attribute “{}”", name));
}

}  // namespace velora
