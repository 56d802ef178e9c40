// How a file destination opens its file and changes it for another one.

#include <cerrno>
#include <chrono>
#include <ctime>
#include <mutex>
#include <unistd.h>
#include <utility>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/Platform/ExtendedAttributes.h>
#include <Velora_UserDefaults/Platform/FileMove.h>
#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestinationState.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>
#include <Velora_UserDefaults/XCGLogger/InternalUserInfo.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora {

namespace {

/// The rotation that the thread starts because of a limit, until it begins; and the file that it is its turn to rotate.
struct ThreadsRotation {
    const void* due = nullptr;
    std::uint64_t changes = 0;
    const void* turn = nullptr;
};
thread_local constinit ThreadsRotation threadsRotation;

/// What time it is, to some milliseconds.
std::int64_t roughTime() noexcept {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return std::int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
}

}  // namespace

// --- State ---

bool FileDestination::State::isTimeToLook() noexcept {
    constexpr std::int64_t interval = 1'000'000'000;
    const std::int64_t now = roughTime();
    std::int64_t last = lastLook.load(std::memory_order_relaxed);
    return (now < last || now - last >= interval) && lastLook.compare_exchange_strong(last, now);
}

void FileDestination::State::look() noexcept {
    lastLook.store(roughTime());
}

void FileDestination::State::lock() noexcept {
    handleMutex.lock();
    bufferMutex.lock();
}

void FileDestination::State::unlock() noexcept {
    bufferMutex.unlock();
    handleMutex.unlock();
}

/// Pending lines are the parent's. A change that another thread was making is over, and has perhaps moved the file.
void FileDestination::State::resetInChild() noexcept {
    pending.forgetText();
    keepsLines.store(false);
    if (isChanging && ::pthread_equal(changer, ::pthread_self()) == 0) {
        if (fresh != nullptr) {
            fresh->reset();
        }
        fresh = nullptr;
        isChanging = false;
        lookSoon();
    }
    completing = 0;
    unlock();
}

// --- Opening ---

thread_local constinit FileDestination::Opening* FileDestination::Opening::current_ = nullptr;

FileDestination::Opening::Opening(FileDestination& destination, bool isRotation)
    : destination_(destination),
      isRotation_(isRotation),
      outer_(std::exchange(current_, this)),
      rotatingFileBefore_(std::exchange(QueuedLines::rotatingFile(), &destination)),
      generation_(destination.state_->generation) {}

FileDestination::Opening::~Opening() {
    if (fresh_) {
        install();
    }
    current_ = outer_;
    QueuedLines::rotatingFile() = rotatingFileBefore_;
}

FileDestination::Opening* FileDestination::Opening::of(const FileDestination& destination) noexcept {
    Opening* opening = current_;
    while (opening != nullptr && (&opening->destination_ != &destination || opening->isOver_)) {
        opening = opening->outer_;
    }
    return opening;
}

void FileDestination::Opening::write(std::string_view message, std::uint64_t count) {
    if (!fresh_ || isSilent_) {
        return;
    }
    WriteFailures failures;
    fresh_->write(std::string(message) + '\n', failures);
    if (!isRotation_) {
        destination_.state_->counted += count;
    }
}

void FileDestination::Opening::setFresh(FileHandle handle) {
    State& state = *destination_.state_;
    adopt(std::move(handle));
    WriteFailures failures;
    const std::scoped_lock lock(state.handleMutex);
    state.fresh = &fresh_;
    if (!state.file && !state.pending.empty()) {
        // From an earlier process; begins a line of this file, whatever that ends with.
        fresh_->beginLine();
        state.file = fresh_;
        destination_.writePending(failures);
        state.file = nullptr;
    }
}

void FileDestination::Opening::install() noexcept {
    {
        WriteFailures failures;
        const std::scoped_lock lock(destination_.state_->handleMutex);
        change(failures);
    }
    retireOld();
}

void FileDestination::Opening::change(WriteFailures& failures) noexcept {
    State& state = *destination_.state_;
    if (std::exchange(isInstalled_, true)) {
        return;
    }
    state.fresh = nullptr;
    if (generation_ != state.generation) {
        old_ = std::move(fresh_);
        return;
    }
    // What was counted for the old file goes there.
    reportingExceptions([&] { destination_.writePending(failures); });
    old_ = std::exchange(state.file, std::move(fresh_));
    fresh_ = nullptr;
    state.retiring = old_;
    state.isOpen = state.file != nullptr;
    state.isPipe = state.file && state.file->isPipe();
    ++state.changes;
    state.look();
    if (isRotation_) {
        destination_.setCounted(0, secondsSince1970(currentDate()));
        if (state.file) {
            state.lookSoon();  // another process may have moved it before it took its place
        }
    }
}

void FileDestination::Opening::retireOld() noexcept {
    if (!old_) {
        return;
    }
    reportingExceptions([&] { old_->synchronize(); });
    {
        const std::scoped_lock lock(destination_.state_->handleMutex);
        if (destination_.state_->retiring == old_) {
            destination_.state_->retiring = nullptr;
        }
    }
    old_ = nullptr;
}

void FileDestination::openFile() {
    if (!owner()) {
        return;
    }
    if (!writeToFileURL_) {
        closeFile();
        return;
    }
    writeHeldLines();  // the file may be emptied
    state_->look();
    Opening opening(*this);
    bool isAppending = false;
    if (const auto opened = openNew(opening, isAppending); !opened) {
        opening.install();
        reportFailedOpening(isAppending, opened.error());
        return;
    }
    if (announcesOnQueue()) {
        opening.installAndEnd();
    }
    announceOpening(isAppending);
    opening.install();
}

/// Whether what a thread logs to this file while it opens it goes the way of all lines, behind those that wait.
bool FileDestination::announcesOnQueue() const {
    return logQueue() && !isInBatch() && !state_->keepsLines.load();
}

/// Opens the file at the target's path for `opening`.
FileResult<void> FileDestination::openNew(Opening& opening, bool& isAppending) {
    bool existed = false;
    const bool keeps = shouldAppend();
    auto handle = FileManager::open(writeToFileURL_->path(), /*empties=*/!keeps,
                                    fileAttributes().value_or(FileAttributes()), existed);
    isAppending = existed && keeps;
    if (!handle) {
        return handle.error();
    }
    opening.setFresh(*std::move(handle));
    if (isAppending && appendMarker() && isValidUTF8(*appendMarker())) {
        opening.write(*appendMarker(), 0);
    }
    return {};
}

void FileDestination::reportFailedOpening(bool isAppending, const FileError& error) {
    report(std::string("Attempt to open log file for ") + (isAppending ? "appending" : "writing") +
               " failed: " + error.description,
           Level::error);
}

void FileDestination::closeFile() {
    Opening(*this).install();
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

/// Looks whether the file is still where it was, and goes on in another one if not, or if there is none.
void FileDestination::look() {
    if (!owner() || !writeToFileURL_) {
        return;
    }
    State& state = *state_;
    const std::string path = writeToFileURL_->path();
    {
        const std::scoped_lock lock(state.handleMutex);
        if (state.isChanging) {
            return;
        }
        if (state.file) {
            state.file->readLimit();
            if (state.file->isStillAt(path)) {
                return;
            }
        }
        state.isChanging = true;
        state.changer = ::pthread_self();
    }
    bool isDone = false;
    reportingExceptions([&] {
        goOn(path);
        isDone = true;
    });
    if (!isDone) {
        state.lookSoon();  // want of memory says nothing about the file
    }
    const std::scoped_lock lock(state.handleMutex);
    state.isChanging = false;
}

/// Opens the file at `path` to go on writing, whatever it holds already, and makes it if there is none.
void FileDestination::goOn(const std::string& path) {
    Opening opening(*this);
    bool existed = false;
    auto handle = FileManager::open(path, /*empties=*/false, fileAttributes().value_or(FileAttributes()), existed);
    if (!handle) {
        return;  // the open file, without a name as it is, still takes the lines
    }
    opening.setFresh(*std::move(handle));
    setHaveLoggedAppDetails(false);
    if (announcesOnQueue()) {
        opening.installAndEnd();
    }
    announceOpening(existed);
    opening.install();
}

// --- Rotating ---

bool FileDestination::rotateFile(const FileTarget& to, const std::function<void(bool success)>& closure) {
    finishQueue();
    const bool isDue = threadsRotation.due == this;
    const bool hasTurn = threadsRotation.turn == this;
    const bool hasBegun = hasTurn || beginRotation();
    threadsRotation.turn = hasTurn ? nullptr : threadsRotation.turn;
    State& state = *state_;
    bool success = false;
    if (hasBegun) {
        reportingExceptions([&] { success = moveFile(to); });
        const std::scoped_lock lock(state.handleMutex);
        state.isChanging = false;
        ++state.completing;
        ++state.changes;
        if (!success && !state.file) {
            state.lookSoon();
        }
    }
    if (closure && (hasBegun || !isDue)) {
        // What it logs starts no rotation: it would be called again and again.
        const void* const before = std::exchange(QueuedLines::rotatingFile(), this);
        reportingExceptions([&] { closure(success); });
        QueuedLines::rotatingFile() = before;
    }
    if (hasBegun) {
        const std::scoped_lock lock(state.handleMutex);
        state.completing -= state.completing > 0 ? 1 : 0;
    }
    return success;
}

/// Makes the calling thread the one that changes the file, unless another one is about to, or has done so since the
/// rotation was due.
bool FileDestination::beginRotation() {
    State& state = *state_;
    const std::scoped_lock lock(state.handleMutex);
    const bool isDue = std::exchange(threadsRotation.due, nullptr) == this;
    const bool isRefused =
        state.isChanging || (isDue && (state.completing > 0 || threadsRotation.changes != state.changes));
    state.wasDueMeanwhile = state.wasDueMeanwhile || (isDue && isRefused);
    if (!isRefused) {
        state.isChanging = true;
        state.changer = ::pthread_self();
    }
    return !isRefused;
}

void FileDestination::endRotation() noexcept {
    const std::scoped_lock lock(state_->handleMutex);
    state_->isChanging = false;
}

FileDestination::Turn::Turn(FileDestination& file)
    : file_(file),
      outer_(threadsRotation.turn),
      rotatingFileBefore_(QueuedLines::rotatingFile()),
      hasBegun_(file.beginRotation()) {
    if (hasBegun_) {
        threadsRotation.turn = &file;
        QueuedLines::rotatingFile() = &file;
    }
}

void FileDestination::Turn::end() noexcept {
    if (hasBegun_ && threadsRotation.turn == &file_) {
        threadsRotation.turn = nullptr;
        file_.endRotation();
    }
}

FileDestination::Turn::~Turn() {
    end();
    threadsRotation.turn = outer_;
    QueuedLines::rotatingFile() = rotatingFileBefore_;
}

void FileDestination::rotateWhileDue(std::uint64_t changes, const std::function<void()>& rotate,
                                     const std::function<bool()>& isStillDue) {
    for (bool isDue = true; isDue; isDue = isDue && isStillDue()) {
        threadsRotation.due = this;
        threadsRotation.changes = changes;
        rotate();
        threadsRotation.due = nullptr;
        changes = this->changes();
        const std::scoped_lock lock(state_->handleMutex);
        const bool isBusy = state_->isChanging || state_->completing > 0;
        isDue = !isBusy && std::exchange(state_->wasDueMeanwhile, false);
    }
}

bool FileDestination::mayStartRotation() noexcept {
    return QueuedLines::rotatingFile() == nullptr;
}

std::uint64_t FileDestination::changes() const noexcept {
    return state_->changes.load();
}

std::uint64_t FileDestination::counted() const noexcept {
    return state_->counted.load();
}

double FileDestination::beginning() const noexcept {
    return state_->beginning.load();
}

void FileDestination::setCounted(std::uint64_t counted, double beginning) noexcept {
    state_->counted.store(counted);
    state_->beginning.store(beginning);
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
    setHaveLoggedAppDetails(false);
    Opening opening(*this, /*isRotation=*/true);
    int code = canNameFile(path) && canNameFile(archivePath) ? renameWithoutReplacing(path, archivePath) : EINVAL;
    FileResult<void> opened;
    bool isAppending = false;
    bool isInstalled = code == EXDEV;
    if (isInstalled) {
        code = moveAcross(opening, path, archivePath, opened);
    }
    if (code != 0) {
        openFile();
        report("Unable to rotate file " + path + " to " + archivePath + ": " +
                   FileError::make(code, path, "couldn’t be moved to “" + archivePath + "”").description,
               Level::error);
        return false;
    }
    const FileResult<void> marked = markArchive(archivePath);
    if (!isInstalled && owner()) {
        opened = openNew(opening, isAppending);
        if (!opened && (opened.error().code == EMFILE || opened.error().code == ENFILE)) {
            opened = openInPlace(opening, path);
            isInstalled = true;
        }
    }
    if (announcesOnQueue()) {
        opening.installAndEnd();
    }
    opening.setSilent(true);
    if (!marked) {
        report("Unable to set extended file attributes on file " + archivePath + ": " + marked.error().description,
               Level::error);
    }
    report("Rotated file " + path + " to " + archivePath, Level::info);
    opening.setSilent(false);
    if (isInstalled) {
        opening.installAndEnd();
    }
    if (!opened) {
        reportFailedOpening(isAppending, opened.error());
    } else if (owner()) {
        announceOpening(isAppending);
    }
    opening.install();
    return true;
}

/// Moves the file to another file system and puts the new one in its place; returns 0 or an error number. Others
/// append to it while it is copied, but not while the rest is and the new one takes its place.
int FileDestination::moveAcross(Opening& opening, const std::string& path, const std::string& archivePath,
                                FileResult<void>& opened) {
    FileCopy copy;
    if (const int code = copy.begin(path, archivePath); code != 0) {
        return code;
    }
    const bool hasOwner = owner() != nullptr;
    const FileAttributes attributes = fileAttributes().value_or(FileAttributes());
    {
        WriteFailures failures;
        const std::scoped_lock lock(state_->handleMutex);
        writePending(failures);
        int code = copy.finish();
        if (code == 0 && ::unlink(path.c_str()) != 0) {
            code = errno;
            ::unlink(archivePath.c_str());
        }
        if (code != 0) {
            return code;
        }
        if (hasOwner) {
            bool existed = false;
            auto handle = FileManager::open(path, /*empties=*/false, attributes, existed);
            if (handle) {
                opening.adopt(*std::move(handle));
            } else {
                opened = handle.error();
            }
        }
        opening.change(failures);
    }
    opening.retireOld();
    return 0;
}

/// Opens the new file with the descriptor of the old one, where there is no other.
FileResult<void> FileDestination::openInPlace(Opening& opening, const std::string& path) {
    const FileAttributes attributes = fileAttributes().value_or(FileAttributes());
    FileResult<void> opened;
    WriteFailures failures;
    const std::scoped_lock lock(state_->handleMutex);
    writePending(failures);
    if (state_->file) {
        state_->file->synchronize();
        state_->file = nullptr;
    }
    bool existed = false;
    if (auto handle = FileManager::open(path, /*empties=*/false, attributes, existed); handle) {
        opening.adopt(*std::move(handle));
    } else {
        opened = handle.error();
    }
    opening.change(failures);
    return opened;
}

FileResult<void> FileDestination::markArchive(const std::string& path) const {
    FileResult<void> marked =
        writeExtendedAttribute(path, Constants::extendedAttributeArchivedLogIdentifierKey, identifier());
    if (marked) {
        marked = writeExtendedAttribute(path, Constants::extendedAttributeArchivedLogTimestampKey,
                                        shortestRoundTripText(secondsSince1970(currentDate())));
    }
    return marked;
}

}  // namespace velora
