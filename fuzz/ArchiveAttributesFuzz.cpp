// Archives among other files, told by their extended attributes, which may hold anything. The first line is the
// identifier of the destination; then each line is a file: a digit that says which attributes it has, and their values
// parted by the byte 0xFE.

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fmt/format.h>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <support/Fuzzing.h>
#include <support/TemporaryFolder.h>
#include <sys/xattr.h>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/ExtendedAttributes.h>
#include <Velora_UserDefaults/Platform/Making.h>
#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/XCGLogger/Constants.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>

namespace velora::test {
namespace {

constexpr std::size_t mostFiles = 12;
constexpr std::size_t longestAttribute = 200;

struct MarkedFile {
    std::string path;
    std::optional<std::string> identifier;
    std::optional<std::string> timestamp;
};

void set(const std::string& path, std::string_view name, const std::optional<std::string>& value) {
    if (!value) {
        return;
    }
    const std::string systemName = "user." + std::string(name);
    require(::setxattr(path.c_str(), systemName.c_str(), value->data(), value->size(), 0) == 0,
            "the temporary folder has room for attributes");
    requireEqual(readExtendedAttribute(path, name)->value(), *value, "an attribute is read as it was written");
}

std::vector<MarkedFile> makeFiles(const TemporaryFolder& folder, Input& input) {
    std::vector<MarkedFile> files;
    while (!input.atEnd() && files.size() < mostFiles) {
        const std::size_t which = input.number(4);
        const std::string_view line = input.line();
        const std::size_t end = std::min(line.find('\xFE'), line.size());
        const std::string identifier(line.substr(0, std::min(end, longestAttribute)));
        const std::string timestamp(line.substr(std::min(end + 1, line.size()), longestAttribute));
        MarkedFile file{.path = folder / fmt::format("file{}.log", files.size()), .identifier = {}, .timestamp = {}};
        if ((which & 1U) == 0) {
            file.identifier = identifier;
        }
        if ((which & 2U) == 0) {
            file.timestamp = timestamp;
        }
        writeFile(file.path, "old");
        set(file.path, Constants::extendedAttributeArchivedLogIdentifierKey, file.identifier);
        set(file.path, Constants::extendedAttributeArchivedLogTimestampKey, file.timestamp);
        files.push_back(std::move(file));
    }
    return files;
}

/// The paths of the destination's own archives, the newest first.
std::vector<std::string> archivesOf(const std::vector<MarkedFile>& files, const std::string& identifier) {
    std::vector<std::pair<std::string, std::string>> own;
    for (const MarkedFile& file : files) {
        if (isValidUTF8(identifier) && file.identifier == identifier && file.timestamp &&
            isValidUTF8(*file.timestamp)) {
            own.emplace_back(*file.timestamp, file.path);
        }
    }
    std::sort(own.begin(), own.end(), std::greater<>());
    std::vector<std::string> paths;
    std::transform(own.begin(), own.end(), std::back_inserter(paths),
                   [](const auto& archive) { return archive.second; });
    return paths;
}

std::vector<std::string> pathsOf(const std::vector<URL>& urls) {
    std::vector<std::string> paths;
    std::transform(urls.begin(), urls.end(), std::back_inserter(paths), [](const URL& url) { return url.path(); });
    return paths;
}

void check(const std::string& identifier, Input& input) {
    const TemporaryFolder folder;
    const std::vector<MarkedFile> files = makeFiles(folder, input);
    const auto destination = make<AutoRotatingFileDestination>(nullptr, FileTarget(folder / "live.log"), identifier,
                                                               AutoRotatingFileDestination::Options{});
    std::vector<std::string> expected = archivesOf(files, identifier);
    require(pathsOf(destination->archivedFileURLs()) == expected, "the archives are the destination's own, in order");
    constexpr std::uint8_t kept = 2;
    destination->setTargetMaxLogFiles(kept);
    for (const MarkedFile& file : files) {
        const auto place = std::find(expected.begin(), expected.end(), file.path) - expected.begin();
        const bool isOwn = place != static_cast<std::ptrdiff_t>(expected.size());
        requireSame(std::filesystem::exists(file.path), !isOwn || place < kept, "only old archives are deleted");
    }
}

}  // namespace
}  // namespace velora::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    velora::test::Input input(data, size);
    const std::string identifier(input.line().substr(0, velora::test::longestAttribute));
    velora::test::check(identifier, input);
    return 0;
}
