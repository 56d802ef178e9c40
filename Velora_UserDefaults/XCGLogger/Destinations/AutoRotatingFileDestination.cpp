#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <limits>
#include <unistd.h>
#include <utility>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/FatalError.h>
#include <Velora_UserDefaults/Platform/FileManager.h>
#include <Velora_UserDefaults/Platform/FileMove.h>
#include <Velora_UserDefaults/Platform/Lazy.h>
#include <Velora_UserDefaults/Platform/OwnFolder.h>
#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/ArchivedLogFile.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>

namespace velora {

namespace {

std::atomic<std::uint64_t> defaultMaxFileSize{1'048'576};
std::atomic<double> defaultMaxTimeInterval{600};

std::uint64_t sizeOrUnlimited(std::uint64_t size) {
    return size == 0 ? std::numeric_limits<std::uint64_t>::max() : size;
}

double intervalOrOff(double seconds) {
    return seconds >= 1 ? seconds : 0;
}

double now() {
    return secondsSince1970(currentDate());
}

/// Where the default log folder may be, best first. In a temporary folder of all users another one may have been
/// faster.
std::array<URL, 2> defaultLogFolders() {
    const URL temporary = URL::fileURL(FileManager::temporaryFolder(), true);
    return {temporary.appendingPathComponent("log", true),
            temporary.appendingPathComponent("log-" + std::to_string(::geteuid()), true)};
}

/// 0, or why nothing is moved to or deleted from `folder`: the library has chosen it, and another user may have
/// prepared it. A folder that the host chose is the host's business.
int checkArchiveFolder(const URL& folder) {
    const std::array<URL, 2> chosenHere = defaultLogFolders();
    const auto isIt = [&](const URL& chosen) { return chosen.path() == folder.path(); };
    return std::ranges::any_of(chosenHere, isIt) ? checkOwnFolder(folder.path()) : 0;
}

/// The end of an archive's name, which is to stay in the archive folder whatever the pattern of the date.
std::string suffixOfArchive(const DateFormatter& formatter) {
    std::string suffix = formatter.string(currentDate());
    std::ranges::replace(suffix, '/', '-');
    return suffix;
}

template <typename Value>
const Value* find(const FileAttributes& attributes, std::string_view key) {
    const auto found = attributes.find(key);
    return found == attributes.end() ? nullptr : std::any_cast<Value>(&found->second);
}

}  // namespace

AutoRotatingFileDestination::AutoRotatingFileDestination(Making key, std::shared_ptr<XCGLogger> owner,
                                                         const FileTarget& writeToFile, std::string identifier,
                                                         Options options)
    : FileDestination(key, std::move(owner), writeToFile, std::move(identifier), /*shouldAppend=*/true,
                      options.shouldAppend ? std::move(options.appendMarker) : std::nullopt,
                      std::move(options.attributes)),
      shouldAppendAtFirst_(options.shouldAppend),
      targetMaxFileSize_(sizeOrUnlimited(options.maxFileSize)),
      targetMaxTimeInterval_(intervalOrOff(options.maxTimeInterval)),
      targetMaxLogFiles_(options.targetMaxLogFiles),
      customArchiveSuffixDateFormatter_(std::move(options.archiveSuffixDateFormatter)) {
    setCounted(0, now());
}

AutoRotatingFileDestination::AutoRotatingFileDestination(
    Making key, std::shared_ptr<XCGLogger> owner, const FileTarget& writeToFile, std::string identifier,
    bool shouldAppend, std::optional<std::string> appendMarker, std::optional<FileAttributes> attributes,
    std::uint64_t maxFileSize, double maxTimeInterval, std::shared_ptr<const DateFormatter> archiveSuffixDateFormatter,
    std::uint8_t targetMaxLogFiles)
    : AutoRotatingFileDestination(key, std::move(owner), writeToFile, std::move(identifier),
                                  Options{.shouldAppend = shouldAppend,
                                          .appendMarker = std::move(appendMarker),
                                          .attributes = std::move(attributes),
                                          .maxFileSize = maxFileSize,
                                          .maxTimeInterval = maxTimeInterval,
                                          .archiveSuffixDateFormatter = std::move(archiveSuffixDateFormatter),
                                          .targetMaxLogFiles = targetMaxLogFiles}) {}

AutoRotatingFileDestination::AutoRotatingFileDestination(Making key, std::shared_ptr<XCGLogger> owner,
                                                         const FileTarget& writeToFile, std::string identifier,
                                                         bool /*shouldAppend*/,
                                                         const std::optional<std::string>& /*appendMarker*/,
                                                         const std::optional<FileAttributes>& /*attributes*/)
    : AutoRotatingFileDestination(key, std::move(owner), writeToFile, std::move(identifier), Options()) {
    fatalError(
        "Use of unimplemented initializer 'init(owner:writeToFile:identifier:shouldAppend:appendMarker:attributes:)' "
        "for class 'XCGLogger.AutoRotatingFileDestination'");
}

AutoRotatingFileDestination::~AutoRotatingFileDestination() = default;

void AutoRotatingFileDestination::finishMaking() {
    // The header alone may cross a limit, before the archive's name and folder are known.
    FileDestination::finishMaking();
    setShouldAppend(shouldAppendAtFirst_);
    if (!writeToFileURL()) {
        return;
    }
    findNames();
    if (checkArchiveFolder(archiveFolder()) == 0) {
        removeAbandonedCopies(archiveFolder().path());
    }
    takeOverLiveFile();
    if (!shouldAppendAtFirst_ || shouldRotate()) {
        rotateFile();
    }
}

void AutoRotatingFileDestination::findNames() {
    fileExtension_ = writeToFileURL()->pathExtension();
    baseFileName_ = writeToFileURL()->lastPathComponent();
    if (baseFileName_.ends_with("." + fileExtension_)) {
        baseFileName_.resize(baseFileName_.size() - fileExtension_.size() - 1);
    }
    const std::string path = writeToFileURL()->path();
    const std::string name = baseFileName_ + "." + fileExtension_;
    if (path.ends_with(name)) {
        setArchiveFolderURL(URL::fileURL(path.substr(0, path.size() - name.size()), /*isDirectory=*/true));
    }
    if (!archiveFolderURL()) {
        setArchiveFolderURL(defaultLogFolderURL());
    }
}

void AutoRotatingFileDestination::takeOverLiveFile() {
    const FileResult<FileAttributes> attributes = FileManager::attributesOf(writeToFileURL()->path());
    if (!attributes) {
        report("Unable to determine current file attributes of log file: " + attributes.error().description,
               Level::warning);
        return;
    }
    const auto* const size = find<std::uint64_t>(*attributes, FileAttributeKey::size);
    const auto* const creationDate = find<Date>(*attributes, FileAttributeKey::creationDate);
    setCounted(size == nullptr ? 0 : *size, creationDate == nullptr ? now() : secondsSince1970(*creationDate));
}

std::uint64_t AutoRotatingFileDestination::autoRotatingFileDefaultMaxFileSize() {
    return defaultMaxFileSize;
}

void AutoRotatingFileDestination::setAutoRotatingFileDefaultMaxFileSize(std::uint64_t size) {
    defaultMaxFileSize = size;
}

double AutoRotatingFileDestination::autoRotatingFileDefaultMaxTimeInterval() {
    return defaultMaxTimeInterval;
}

void AutoRotatingFileDestination::setAutoRotatingFileDefaultMaxTimeInterval(double seconds) {
    defaultMaxTimeInterval = seconds;
}

URL AutoRotatingFileDestination::defaultLogFolderURL() {
    const std::array<URL, 2> folders = defaultLogFolders();
    for (const URL& folder : folders) {
        static_cast<void>(FileManager::createFolder(folder.path(), /*withIntermediates=*/true));
        if (checkOwnFolder(folder.path()) != EPERM) {
            return folder;
        }
    }
    return folders.front();
}

void AutoRotatingFileDestination::setTargetMaxFileSize(std::uint64_t size) {
    targetMaxFileSize_ = sizeOrUnlimited(size);
}

void AutoRotatingFileDestination::setTargetMaxTimeInterval(double seconds) {
    targetMaxTimeInterval_ = intervalOrOff(seconds);
}

void AutoRotatingFileDestination::setTargetMaxLogFiles(std::uint8_t count) {
    targetMaxLogFiles_ = count;
    cleanUpLogFiles();
}

void AutoRotatingFileDestination::setArchiveFolderURL(std::optional<URL> url) {
    if (url) {
        static_cast<void>(FileManager::createFolder(url->path(), /*withIntermediates=*/true));
    }
    archiveFolderURL_ = std::move(url);
}

void AutoRotatingFileDestination::setAutoRotationCompletion(std::function<void(bool success)> closure) {
    autoRotationCompletion_ = std::move(closure);
}

const std::shared_ptr<const DateFormatter>& AutoRotatingFileDestination::archiveSuffixDateFormatter() const {
    if (customArchiveSuffixDateFormatter_) {
        return customArchiveSuffixDateFormatter_;
    }
    static constinit Lazy<const std::shared_ptr<const DateFormatter>> standard;
    return standard.get(
        [] { return new std::shared_ptr<const DateFormatter>(new const DateFormatter("_yyyy-MM-dd_HHmmss")); });
}

void AutoRotatingFileDestination::setArchiveSuffixDateFormatter(std::shared_ptr<const DateFormatter> formatter) {
    customArchiveSuffixDateFormatter_ = std::move(formatter);
}

void AutoRotatingFileDestination::setOwner(std::shared_ptr<XCGLogger> owner) {
    FileDestination::setOwner(std::move(owner));
    if (this->owner() && mayStartRotation() && shouldRotate()) {
        rotateFile();
    }
}

void AutoRotatingFileDestination::write(std::string_view message) {
    const std::uint64_t changes = this->changes();
    writeLine(message, userPerceivedCharacterCount(message));
    if (mayStartRotation() && shouldRotate()) {
        rotateWhileDue(
            changes, [this] { rotateFile(); }, [this] { return shouldRotate(); });
    }
}

bool AutoRotatingFileDestination::shouldRotate() const {
    if (!writeToFileURL()) {
        return false;
    }
    if (currentLogFileSize() >= targetMaxFileSize()) {
        return true;
    }
    const double interval = targetMaxTimeInterval();
    return interval > 0 && now() - currentLogStartTimeInterval() >= interval;
}

void AutoRotatingFileDestination::rotateFile() {
    finishQueue();
    // Before the archive has a name: names are to be in the order of rotations, and none left out.
    Turn turn(*this);
    if (!turn) {
        return;
    }
    if (!archiveTo(archiveFolder(), turn)) {
        setCounted(0, now());
    }
    cleanUpLogFiles();
}

bool AutoRotatingFileDestination::archiveTo(const URL& folder, Turn& turn) {
    const std::string name = baseFileName_ + suffixOfArchive(*archiveSuffixDateFormatter());
    const URL archive = folder.appendingPathComponent(name).appendingPathExtension(fileExtension_);
    const std::function<void(bool success)>& completion = autoRotationCompletion();
    const int code = checkArchiveFolder(folder);
    if (code == 0) {
        return rotateFile(archive, completion);
    }
    const FileError error = FileError::make(code, folder.path(), "is no place for archives", "folder");
    report("Unable to rotate file " + writeToFileURL()->path() + " to " + archive.path() + ": " + error.description,
           Level::error);
    turn.end();
    if (completion) {
        reportingExceptions([&] { completion(false); });
    }
    return false;
}

URL AutoRotatingFileDestination::archiveFolder() const {
    const std::optional<URL>& folder = archiveFolderURL();
    return folder ? *folder : defaultLogFolderURL();
}

std::vector<URL> AutoRotatingFileDestination::archivedFileURLs() const {
    const URL folder = archiveFolder();
    if (checkArchiveFolder(folder) != 0) {
        return {};
    }
    const FileResult<std::vector<ArchivedLogFile>> archives = archivedLogFiles(folder.path());
    if (!archives || !isValidUTF8(identifier())) {
        return {};
    }
    std::vector<URL> urls;
    for (const ArchivedLogFile& archive : *archives) {
        if (archive.identifier == identifier()) {
            urls.push_back(URL::fileURL(archive.path, /*isDirectory=*/false));
        }
    }
    return urls;
}

void AutoRotatingFileDestination::cleanUpLogFiles() {
    const std::vector<URL> archives = archivedFileURLs();
    for (std::size_t index = targetMaxLogFiles(); index < archives.size(); ++index) {
        remove(archives[index]);
    }
}

void AutoRotatingFileDestination::purgeArchivedLogFiles() {
    for (const URL& archive : archivedFileURLs()) {
        remove(archive);
    }
}

void AutoRotatingFileDestination::remove(const URL& archive) {
    const std::string path = archive.path();
    if (const FileResult<void> removed = FileManager::remove(path); !removed) {
        report("Unable to delete old archived log file " + path + ": " + removed.error().description, Level::error);
    }
}

}  // namespace velora
