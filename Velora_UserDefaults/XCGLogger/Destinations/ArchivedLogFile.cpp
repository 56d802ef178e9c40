#include <algorithm>
#include <optional>
#include <string_view>
#include <tuple>
#include <utility>

#include <Velora_UserDefaults/Platform/ExtendedAttributes.h>
#include <Velora_UserDefaults/Platform/FileManager.h>
#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/XCGLogger/Constants.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/ArchivedLogFile.h>

namespace velora {

namespace {

/// The attribute's value; nothing if it is missing or cannot be read.
std::optional<std::string> attribute(const std::string& path, std::string_view name) {
    auto value = readExtendedAttribute(path, name);
    return value ? *std::move(value) : std::nullopt;
}

}  // namespace

FileResult<std::vector<ArchivedLogFile>> archivedLogFiles(const std::string& path) {
    FileResult<std::vector<std::string>> entries = FileManager::contentsOfFolder(path, /*skipHidden=*/true);
    if (!entries) {
        return entries.error();
    }
    std::vector<ArchivedLogFile> archives;
    for (std::string& entry : *entries) {
        auto identifier = attribute(entry, Constants::extendedAttributeArchivedLogIdentifierKey);
        if (!identifier) {
            continue;
        }
        auto timestamp = attribute(entry, Constants::extendedAttributeArchivedLogTimestampKey);
        if (timestamp && isValidUTF8(*timestamp)) {
            archives.push_back(
                {.path = std::move(entry), .identifier = *std::move(identifier), .timestamp = *std::move(timestamp)});
        }
    }
    std::ranges::sort(archives, [](const ArchivedLogFile& left, const ArchivedLogFile& right) {
        return std::tie(left.timestamp, left.path) > std::tie(right.timestamp, right.path);
    });
    return archives;
}

}  // namespace velora
