#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <utility>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/Platform/ExtendedAttributes.h>
#include <Velora_UserDefaults/Platform/FatalError.h>
#include <Velora_UserDefaults/Platform/FileHandle.h>
#include <Velora_UserDefaults/Platform/ForkHandlers.h>
#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BufferedFiles.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestinationFile.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/QueuedLine.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>
#include <Velora_UserDefaults/XCGLogger/InternalUserInfo.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora {

namespace {

/// Whether the calling thread holds a file, of this destination or another.
bool holdsAFile() {
    return QueuedLine::Deferral::isActive();
}

/// Of the files that the calling thread holds, the one that it will let go of last.
__attribute__((tls_model("initial-exec"))) thread_local constinit const void* firstHeldFile = nullptr;

/// How much a batch gathers before it is written in the middle.
constexpr std::size_t maximumPendingBytes = 65'536;

}  // namespace

FileDestination::HeldFile::HeldFile(const FileDestination& destination)
    : destination_(destination), isHeld_(true), isNested_(destination.file_->lock.isHeldByThisThread()) {
    destination_.file_->lock.lock();
    begin();
}

FileDestination::HeldFile::HeldFile(const FileDestination& destination, std::string_view line)
    : destination_(destination), isHeld_(true), isNested_(destination.file_->lock.isHeldByThisThread()) {
    File& file = *destination_.file_;
    if (!holdsAFile()) {
        file.lock.lock();
    } else if (!file.lock.try_lock()) {
        isHeld_ = false;
        file.leave(line);
        // Whoever held the file may have looked for lines before this one was there, and have let go since.
        destination_.file_->writeLinesLeft();
        return;
    }
    begin();
}

void FileDestination::HeldFile::begin() {
    if (!holdsAFile()) {
        firstHeldFile = destination_.file_.get();
    }
    QueuedLine::Deferral::begin();
    // Lines left here are older than what this thread is going to write. In the middle of a rotation,
    // though, they would meet a closed file.
    if (!isNested_) {
        destination_.file_->writeLinesLeft();
    }
}

FileDestination::HeldFile::~HeldFile() {
    if (!isHeld_) {
        return;
    }
    RecursiveLock& lock = destination_.file_->lock;
    lock.unlock();
    if (!lock.isHeldByThisThread()) {
        destination_.file_->writeLinesLeft();
    }
    QueuedLine::Deferral::end();
    if (!holdsAFile()) {
        firstHeldFile = nullptr;
        destination_.file_->tellQueueIfWanted();
    }
}

FileDestination::FileDestination(Making key, std::shared_ptr<XCGLogger> owner, const FileTarget& writeToFile,
                                 std::string identifier, bool shouldAppend, std::optional<std::string> appendMarker,
                                 std::optional<FileAttributes> attributes)
    : BaseQueuedDestination(key, std::move(owner), std::move(identifier)),
      writeToFileURL_(writeToFile.url()),
      shouldAppend_(shouldAppend),
      appendMarker_(std::move(appendMarker)),
      fileAttributes_(std::move(attributes)),
      file_(std::make_unique<File>(*this)) {}

FileDestination::FileDestination(Making key, std::shared_ptr<XCGLogger> owner, std::string identifier)
    : BaseQueuedDestination(key, std::move(owner), std::move(identifier)), shouldAppend_(false) {
    fatalError("Use of unimplemented initializer 'init(owner:identifier:)' for class 'XCGLogger.FileDestination'");
}

FileDestination::~FileDestination() {
    file_->close();
}

void FileDestination::finishMaking() {
    BaseQueuedDestination::finishMaking();
    if (owner()) {
        openFile();
    }
}

const std::optional<URL>& FileDestination::writeToFileURL() const {
    return writeToFileURL_;
}

void FileDestination::setWriteToFileURL(const std::optional<FileTarget>& target) {
    finishQueue();
    const HeldFile held(*this);
    writeToFileURL_ = target ? target->url() : std::nullopt;
    openFile();
}

bool FileDestination::isOpen() const {
    const HeldFile held(*this);
    return file_->isOpen();
}

void FileDestination::setOwner(std::shared_ptr<XCGLogger> owner) {
    if (this->owner()) {
        finishQueue();
        // A rotation by one of these lines has put its own announcements on the queue behind them.
        finishQueue();
    }
    const HeldFile held(*this);
    // The base's own override would wait for the queue, which waits for the file.
    BaseDestination::setOwner(std::move(owner));  // NOLINT(bugprone-parent-virtual-call)
    if (this->owner()) {
        openFile();
    } else {
        closeFile();
    }
}

void FileDestination::finishQueue() const {
    if (!holdsAFile()) {
        waitForQueue();
    }
}

void FileDestination::openFile() {
    const HeldFile held(*this);
    if (!owner()) {
        return;
    }
    closeFile();
    if (!writeToFileURL_) {
        return;
    }
    const std::string path = writeToFileURL_->path();
    const bool isAppending = FileManager::fileExists(path) && shouldAppend();
    int creationCode = 0;
    if (!isAppending) {
        const auto create = shouldAppend() ? FileManager::createMissingFile : FileManager::createFile;
        create(path, fileAttributes().value_or(FileAttributes()), &creationCode);
    }
    FileResult<FileHandle> handle = FileHandle::openForWriting(path);
    if (!handle) {
        file_->look();
        // That there is no file helps nobody who may want to know why it could not be made.
        const FileError error = handle.error().code == ENOENT && creationCode != 0
                                    ? FileError::make(creationCode, path, "couldn’t be opened for writing")
                                    : handle.error();
        report(std::string("Attempt to open log file for ") + (isAppending ? "appending" : "writing") +
                   " failed: " + error.description,
               Level::error);
        return;
    }
    file_->open(*std::move(handle));
    if (isAppending && appendMarker() && isValidUTF8(*appendMarker())) {
        file_->append(*appendMarker());
        file_->writePending();
    }
    announceOpening(isAppending);
}

void FileDestination::announceOpening(bool isAppending) {
    const std::shared_ptr<XCGLogger> owner = this->owner();
    owner->logAppDetails(this);
    LogDetails record{.level = Level::info,
                      .date = currentDate(),
                      .message = std::string("XCGLogger ") + (isAppending ? "appending" : "writing") +
                                 " log to: " + writeToFileURL_->absoluteString(),
                      .functionName = {},
                      .fileName = {},
                      .lineNumber = 0,
                      .userInfo = internalUserInfo()};
    owner->_logln(record.message, record.level, this);
    if (!owner->destination(identifier())) {
        processInternal(record);
    }
}

/// Tries, at most once a second, to open a file that could not be opened, and returns whether it is open then. One
/// that is being moved to an archive is closed on purpose.
bool FileDestination::openAgain() {
    if (isMovingFile() || !owner() || !writeToFileURL_ || !file_->isTimeToLook()) {
        return false;
    }
    try {
        goOn(writeToFileURL_->path());
    } catch (...) {
        file_->lookSoon();  // want of memory says nothing about the file
        throw;
    }
    return file_->isOpen();
}

void FileDestination::goOnIfReplaced() {
    if (!file_->isTimeToLook() || !writeToFileURL_) {
        return;
    }
    const std::string path = writeToFileURL_->path();
    if (file_->isStillAt(path)) {
        return;
    }
    goOn(path);
}

/// A child forked while another thread was moving the file has it neither open nor anyone who will open it.
void FileDestination::goOnAfterFork() {
    movingIn_.reset();
    if (!file_->isOpen() && owner() && writeToFileURL_) {
        goOn(writeToFileURL_->path());
    }
}

/// Opens the file at `path` to go on writing, whatever it holds already, and makes it if there is none.
void FileDestination::goOn(const std::string& path) {
    const bool isReplaced = FileManager::fileExists(path);
    if (!isReplaced) {
        FileManager::createMissingFile(path, fileAttributes().value_or(FileAttributes()));
    }
    FileResult<FileHandle> handle = FileHandle::openForWriting(path);
    if (!handle) {
        return;  // the open file, without a name as it is, still takes the lines
    }
    file_->open(*std::move(handle));
    setHaveLoggedAppDetails(false);
    announceOpening(isReplaced);
}

void FileDestination::closeFile() {
    const HeldFile held(*this);
    file_->close();
}

void FileDestination::output(LogDetails& logDetails, std::string& message) {
    if (file_->keepsPendingInFile()) {
        outputNow(logDetails, message);
    } else {
        BaseQueuedDestination::output(logDetails, message);
    }
}

void FileDestination::write(std::string_view message) {
    if (!isValidUTF8(message)) {
        return;
    }
    const HeldFile held(*this, message);
    if (!held) {
        return;
    }
    if (movingIn_ && !isMovingFile() && !held.isNested()) {
        goOnAfterFork();
    }
    if (!file_->isOpen() && !openAgain()) {
        return;
    }
    goOnIfReplaced();
    file_->append(message);
    const std::size_t capacity = bytesToHoldBack();
    const std::shared_ptr<DispatchQueue>& queue = logQueue();
    if (queue && queue->isCurrent() && file_->pendingBytes() < std::max(maximumPendingBytes, capacity)) {
        file_->writeAtEndOfBatch();
    } else if (file_->pendingBytes() >= capacity) {
        if (queue && file_->keepsPendingInFile() && firstHeldFile == file_.get()) {
            file_->leaveToQueue();
        } else {
            file_->writePending();
        }
    }
}

void FileDestination::finishWriting(Level level) {
    if (level >= Level::error && bytesToHoldBack() > 0) {
        writeHeldLines();
    }
}

std::size_t FileDestination::writeBufferCapacity() const {
    return writeBufferCapacity_.load(std::memory_order_relaxed);
}

FileResult<void> FileDestination::setPendingLinesFile(const std::optional<FileTarget>& target, std::size_t capacity) {
    finishQueue();
    const HeldFile held(*this);
    if (!target) {
        file_->keepPendingInMemory();
        return {};
    }
    if (!target->url()) {
        return FileError::make(EINVAL, "", "couldn’t be used for lines that wait to be written");
    }
    const std::string logPath = writeToFileURL_ ? writeToFileURL_->path() : std::string();
    FileResult<void> result = file_->keepPendingIn(target->url()->path(), capacity, logPath);
    file_->writePending();
    return result;
}

void FileDestination::setWriteBufferCapacity(std::size_t capacity) {
    if (capacity > 0) {
        static const int registered = std::atexit(stopHoldingLinesBack);
        static_cast<void>(registered);
        BufferedFiles::instance().add(weak_from_this());
    }
    writeBufferCapacity_.store(capacity, std::memory_order_relaxed);
    writeHeldLines();
}

/// How many bytes of lines may wait at the moment.
std::size_t FileDestination::bytesToHoldBack() const noexcept {
    const std::size_t capacity = writeBufferCapacity_.load(std::memory_order_relaxed);
    return capacity > 0 && BufferedFiles::instance().isExiting.load(std::memory_order_relaxed) ? 0 : capacity;
}

void FileDestination::writeHeldLines() {
    const HeldFile held(*this);
    file_->writePending();
}

void FileDestination::stopHoldingLinesBack() {
    BufferedFiles& buffered = BufferedFiles::instance();
    buffered.isExiting.store(true, std::memory_order_relaxed);
    for (const auto& file : buffered.all()) {
        if (const std::shared_ptr<BaseDestination> destination = file.lock()) {
            static_cast<FileDestination&>(*destination).writeHeldLines();
        }
    }
}

void FileDestination::flush(std::function<void()> closure) {
    auto work = [self = shared_from_this(), this, closure = std::move(closure)] {
        {
            const HeldFile held(*this);
            file_->synchronize();
        }
        if (closure) {
            reportingExceptions(closure);
        }
    };
    if (const std::shared_ptr<DispatchQueue>& queue = logQueue()) {
        queue->async(std::move(work));
    } else {
        work();
    }
}

bool FileDestination::rotateFile(const FileTarget& to, const std::function<void(bool success)>& closure) {
    finishQueue();
    const HeldFile held(*this);
    bool success = false;
    if (!isMovingFile()) {
        movingIn_ = forkGeneration();
        reportingExceptions([&] { success = moveFile(to); });
        movingIn_.reset();
        if (!success && !file_->isOpen() && owner() && writeToFileURL_) {
            // An exception, such as for want of memory, may have come between closing and opening. If there still is
            // none, the next line tries again.
            file_->lookSoon();
            reportingExceptions([&] { goOn(writeToFileURL_->path()); });
        }
    }
    if (closure) {
        reportingExceptions([&] { closure(success); });
    }
    return success;
}

bool FileDestination::isMovingFile() const noexcept {
    return movingIn_ == forkGeneration();
}

bool FileDestination::moveFile(const FileTarget& to) {
    if (!to.url() || !writeToFileURL_) {
        return false;
    }
    const std::string path = writeToFileURL_->path();
    const std::string archivePath = to.url()->path();
    if (FileManager::fileExists(archivePath)) {
        return false;
    }
    closeFile();
    setHaveLoggedAppDetails(false);
    if (const auto moved = FileManager::move(path, archivePath); !moved) {
        openFile();
        report("Unable to rotate file " + path + " to " + archivePath + ": " + moved.error().description, Level::error);
        return false;
    }
    markArchive(archivePath);
    report("Rotated file " + path + " to " + archivePath, Level::info);
    openFile();
    return true;
}

void FileDestination::markArchive(const std::string& path) {
    FileResult<void> marked =
        writeExtendedAttribute(path, Constants::extendedAttributeArchivedLogIdentifierKey, identifier());
    if (marked) {
        marked = writeExtendedAttribute(path, Constants::extendedAttributeArchivedLogTimestampKey,
                                        shortestRoundTripText(secondsSince1970(currentDate())));
    }
    if (!marked) {
        report("Unable to set extended file attributes on file " + path + ": " + marked.error().description,
               Level::error);
    }
}

void FileDestination::report(const std::string& text, Level level) {
    if (const std::shared_ptr<XCGLogger> owner = this->owner()) {
        owner->_logln(text, level, this);
    }
}

}  // namespace velora
