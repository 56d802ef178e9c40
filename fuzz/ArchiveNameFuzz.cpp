// The names of archives, for log files of any name. The first line is the name of the log file, the second a pattern
// for the date in between; the rest is written to the log. The archive must be found again by the destination, with
// the name that is promised, and every other file of the folder must stay.

#include <cstdint>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <string>
#include <string_view>
#include <support/Fuzzing.h>
#include <support/RecordingDestination.h>
#include <support/TemporaryFolder.h>
#include <vector>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/Making.h>
#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t longestName = 100;

/// A formatter of archives' names that gives the same text for every date.
class FixedSuffix : public DateFormatter {
public:
    explicit FixedSuffix(std::string text) : DateFormatter("", "en_US", "UTC"), text_(std::move(text)) {}
    void append(Date /*date*/, std::string& out) const override { out += text_; }

private:
    std::string text_;
};

bool isFileName(std::string_view name) {
    return !name.empty() && name != "." && name != ".." && name.size() <= longestName &&
           name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

struct Names {
    std::string base;
    std::string extension;
};

/// What comes before and after the last dot, which is neither the first character nor the last one of the name.
Names split(const std::string& name) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string::npos || dot == 0) {
        return {.base = name, .extension = ""};
    }
    return {.base = name.substr(0, dot), .extension = name.substr(dot + 1)};
}

/// The archive's name for a live file's.
std::string archiveName(const std::string& name, const std::string& suffix) {
    const Names names = split(name);
    return names.base + suffix + (names.extension.empty() ? "" : "." + names.extension);
}

void check(const std::string& name, const std::string& suffix, const std::string& text) {
    const TemporaryFolder folder;
    const std::string bystander = folder / "a file of somebody else's_2026-01-01.log";
    writeFile(bystander, "untouched");
    const auto log = make<XCGLogger>("fuzz", /*includeDefaultDestinations=*/false);
    const auto file = make<AutoRotatingFileDestination>(
        nullptr, FileTarget(folder / name), "file",
        AutoRotatingFileDestination::Options{.maxTimeInterval = 0,
                                             .archiveSuffixDateFormatter = std::make_shared<FixedSuffix>(suffix)});
    file->setArchiveFolderURL(URL::fileURL(folder.path().native(), true));
    log->add(file);
    file->write(text);
    const std::string before = readFile(folder / name);
    requireEqual(file->baseFileName(), split(name).base, "the name without its extension");
    requireEqual(file->fileExtension(), split(name).extension, "the extension");

    const std::string archive = archiveName(name, suffix);
    const bool isFree = archive != name && !fs::exists(folder.path() / archive);
    bool success = false;
    file->setAutoRotationCompletion([&success](bool done) { success = done; });
    file->rotateFile();
    removeDestinations(*log);

    requireSame(success, isFree, "a file can be archived under a name that is free");
    requireEqual(readFile(folder / (success ? archive : name)).substr(0, before.size()), before, "no byte is lost");
    require(fs::exists(folder.path() / name), "the log goes on under its own name");
    requireEqual(readFile(bystander), "untouched", "other files stay");
    const std::vector<URL> archives = file->archivedFileURLs();
    const bool isHidden = archive.starts_with('.');
    requireSame(archives.size(), std::size_t{success && !isHidden ? 1U : 0U}, "an archive is found again");
    if (!archives.empty()) {
        requireEqual(archives.front().lastPathComponent(), archive, "the archive's name");
    }
    file->purgeArchivedLogFiles();
    requireSame(fs::exists(folder.path() / archive), isHidden || !isFree, "an archive can be purged");
    requireEqual(readFile(bystander), "untouched", "purging leaves other files");
}

}  // namespace
}  // namespace velora::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    velora::test::Input input(data, size);
    const std::string name(input.line());
    const std::string suffix(input.line());
    if (velora::test::isFileName(name) && (suffix.empty() || velora::test::isFileName("_" + suffix))) {
        velora::test::check(name, suffix, std::string(input.rest()));
    }
    return 0;
}
