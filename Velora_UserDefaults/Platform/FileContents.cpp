#include <algorithm>
#include <array>
#include <cstddef>
#include <fcntl.h>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/Descriptor.h>
#include <Velora_UserDefaults/Platform/FileContents.h>

namespace velora {

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

}  // namespace velora
