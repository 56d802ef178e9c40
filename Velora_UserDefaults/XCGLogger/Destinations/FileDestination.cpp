#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/FatalError.h>
#include <Velora_UserDefaults/Platform/ForkHandlers.h>
#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestinationState.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>
#include <Velora_UserDefaults/XCGLogger/InternalUserInfo.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora {

namespace {

/// How much a batch gathers before it is written in the middle.
constexpr std::size_t maximumGatheredBytes = 65'536;

/// The destinations that hold lines back, to be told when the process exits. Never destroyed: a static destructor
/// may still log.
struct BufferedFiles {
    std::atomic<bool> isRegistered = false;
    std::atomic<bool> isExiting = false;
    ForkSafeMutex mutex;
    std::vector<std::weak_ptr<BaseDestination>> files;

    static BufferedFiles& instance() {
        static auto& shared = *new BufferedFiles;
        return shared;
    }
};

// Made before there are threads that could fork.
[[maybe_unused]] const BufferedFiles& madeAtTheStart = BufferedFiles::instance();

std::string_view withoutLineFeeds(std::string_view line) {
    while (line.ends_with('\n')) {
        line.remove_suffix(1);
    }
    return line;
}

}  // namespace

FileDestination::FileDestination(Making key, std::shared_ptr<XCGLogger> owner, const FileTarget& writeToFile,
                                 std::string identifier, bool shouldAppend, std::optional<std::string> appendMarker,
                                 std::optional<FileAttributes> attributes)
    : BaseQueuedDestination(key, std::move(owner), std::move(identifier)),
      writeToFileURL_(writeToFile.url()),
      shouldAppend_(shouldAppend),
      appendMarker_(std::move(appendMarker)),
      fileAttributes_(std::move(attributes)),
      state_(std::make_unique<State>()) {}

FileDestination::FileDestination(Making key, std::shared_ptr<XCGLogger> owner, std::string identifier)
    : BaseQueuedDestination(key, std::move(owner), std::move(identifier)), shouldAppend_(false) {
    fatalError("Use of unimplemented initializer 'init(owner:identifier:)' for class 'XCGLogger.FileDestination'");
}

FileDestination::~FileDestination() {
    closeFile();
}

void FileDestination::finishMaking() {
    BaseQueuedDestination::finishMaking();
    if (owner()) {
        openFile();
    }
}

// --- Settings ---

const std::optional<URL>& FileDestination::writeToFileURL() const {
    return writeToFileURL_;
}

void FileDestination::setWriteToFileURL(const std::optional<FileTarget>& target) {
    finishQueue();
    writeToFileURL_ = target ? target->url() : std::nullopt;
    ++state_->generation;
    openFile();
}

bool FileDestination::isOpen() const {
    return state_->isOpen.load();
}

void FileDestination::setOwner(std::shared_ptr<XCGLogger> owner) {
    if (this->owner()) {
        finishQueue();
        // A rotation by one of these lines has put its own announcements on the queue behind them.
        finishQueue();
    }
    // The base's own override would wait for the queue, whoever calls this.
    BaseDestination::setOwner(std::move(owner));  // NOLINT(bugprone-parent-virtual-call)
    ++state_->generation;
    if (this->owner()) {
        openFile();
    } else {
        closeFile();
    }
}

std::size_t FileDestination::writeBufferCapacity() const {
    return state_->writeBufferCapacity.load(std::memory_order_relaxed);
}

void FileDestination::setWriteBufferCapacity(std::size_t capacity) {
    if (capacity > 0) {
        BufferedFiles& buffered = BufferedFiles::instance();
        if (!buffered.isRegistered.exchange(true)) {
            std::atexit(stopHoldingLinesBack);
        }
        std::weak_ptr<BaseDestination> self = weak_from_this();
        const std::scoped_lock lock(buffered.mutex);
        std::erase_if(buffered.files, [](const auto& known) { return known.expired(); });
        buffered.files.push_back(std::move(self));
    }
    state_->writeBufferCapacity.store(capacity, std::memory_order_relaxed);
    writeHeldLines();
}

/// How many bytes of lines may wait at the moment.
std::size_t FileDestination::bytesToHoldBack() const noexcept {
    const std::size_t capacity = writeBufferCapacity();
    return capacity > 0 && BufferedFiles::instance().isExiting.load(std::memory_order_relaxed) ? 0 : capacity;
}

void FileDestination::stopHoldingLinesBack() {
    BufferedFiles& buffered = BufferedFiles::instance();
    buffered.isExiting.store(true, std::memory_order_relaxed);
    std::vector<std::weak_ptr<BaseDestination>> files;
    {
        const std::scoped_lock lock(buffered.mutex);
        files = buffered.files;
    }
    for (const auto& file : files) {
        if (const std::shared_ptr<BaseDestination> destination = file.lock()) {
            static_cast<FileDestination&>(*destination).writeHeldLines();
        }
    }
}

FileResult<void> FileDestination::setPendingLinesFile(const std::optional<FileTarget>& target, std::size_t capacity) {
    finishQueue();
    writeHeldLines();
    // Files are mapped and unmapped with no mutex held: that waits for a fork, which waits for the mutexes.
    const auto replaceMapping = [this](PendingLines kept) {
        const std::scoped_lock handleLock(state_->handleMutex);
        const std::scoped_lock bufferLock(state_->bufferMutex);
        auto before = state_->pending.replaceMapping(kept);
        state_->keepsLines.store(state_->pending.isMapped());
        state_->hasPending.store(!state_->pending.empty());
        if (state_->file && state_->pending.isMapped()) {
            state_->file->beginLine();
        }
        return before;
    };
    replaceMapping({}).reset();
    FileResult<void> result;
    if (target && !target->url()) {
        result = FileError::make(EINVAL, "", "couldn’t be used for lines that wait to be written");
    } else if (target) {
        PendingLines kept;
        result = kept.moveTo(target->url()->path(), capacity, writeToFileURL_ ? writeToFileURL_->path() : "");
        replaceMapping(std::move(kept));
    }
    writeHeldLines();
    return result;
}

// --- Writing ---

void FileDestination::output(LogDetails& logDetails, std::string& message) {
    // What a rotation logs that runs on the queue belongs to the beginning of the new file, before pending lines.
    if (state_->keepsLines.load(std::memory_order_relaxed) || (isInBatch() && Opening::of(*this) != nullptr)) {
        outputNow(logDetails, message);
    } else {
        BaseQueuedDestination::output(logDetails, message);
    }
}

void FileDestination::write(std::string_view message) {
    writeLine(message, 0);
}

void FileDestination::writeLine(std::string_view message, std::uint64_t count) {
    if (!isValidUTF8(message)) {
        return;
    }
    message = withoutLineFeeds(message);
    if (Opening* const own = Opening::of(*this)) {
        own->write(message, count);
        return;
    }
    State& state = *state_;
    if (QueuedLines::rotatingFile() == this) {
        count = 0;
    }
    if (state.isTimeToLook()) {
        look();
    }
    const std::size_t capacity = bytesToHoldBack();
    const bool keepsLines = state.keepsLines.load(std::memory_order_relaxed);
    const bool isGathering = isInBatch();
    if (!isOpen() || (capacity == 0 && !keepsLines && !isGathering)) {
        writeAtOnce(message, count);
        return;
    }
    std::size_t size = append(message, count);
    if (size == 0) {
        writeHeldLines();
        size = append(message, count);
    }
    if (size == 0) {
        writeAtOnce(message, count);
    } else if (isGathering) {
        if (size >= std::max(maximumGatheredBytes, capacity)) {
            writeHeldLines();
        }
    } else if (size >= capacity && !(keepsLines && submitBatch())) {
        writeHeldLines();
    }
}

/// Appends a pending line, and returns how many bytes are pending then; 0 if there is no room for it.
std::size_t FileDestination::append(std::string_view message, std::uint64_t count) {
    const std::scoped_lock lock(state_->bufferMutex);
    if (!state_->pending.append(message)) {
        return 0;
    }
    state_->counted += count;
    state_->hasPending.store(true, std::memory_order_relaxed);
    return state_->pending.size();
}

/// Writes a line, behind all that waits.
void FileDestination::writeAtOnce(std::string_view message, std::uint64_t count) {
    waitForReader();
    WriteFailures failures;
    const std::scoped_lock lock(state_->handleMutex);
    state_->counted += count;
    // Lines that were held back until just now, when the process began to exit or the capacity was set.
    if (state_->hasPending.load(std::memory_order_relaxed)) [[unlikely]] {
        writePending(failures);
    }
    if (!state_->file) {
        return;
    }
    std::string& line = state_->line;
    line.assign(message);
    line.push_back('\n');
    state_->file->write(line, failures);
    constexpr std::size_t keptCapacity = 65'536;
    if (line.capacity() > keptCapacity) {
        std::string().swap(line);
    }
}

void FileDestination::finishWriting(Level level) {
    if (level >= Level::error && bytesToHoldBack() > 0) {
        writeHeldLines();
    }
}

void FileDestination::finishBatch() {
    std::size_t size = 0;
    {
        const std::scoped_lock lock(state_->bufferMutex);
        size = state_->pending.size();
    }
    if (size > 0 && size >= bytesToHoldBack()) {
        writeHeldLines();
    }
}

/// A fork would wait for a thread that waits for the reader of a pipe with the mutex held.
void FileDestination::waitForReader() const {
    if (!state_->isPipe.load(std::memory_order_relaxed)) [[likely]] {
        return;
    }
    std::shared_ptr<LogFile> file;
    {
        const std::scoped_lock lock(state_->handleMutex);
        file = state_->file;
    }
    if (file) {
        file->waitForReader();
    }
}

void FileDestination::writeHeldLines() {
    waitForReader();
    WriteFailures failures;
    const std::scoped_lock lock(state_->handleMutex);
    writePending(failures);
}

/// Writes the pending lines. With the handle's mutex held.
void FileDestination::writePending(WriteFailures& failures) {
    State& state = *state_;
    // What an earlier process left, or was taken and not written for want of a file, comes first.
    for (int taken = 0; taken < 2; ++taken) {
        std::string_view text;
        {
            const std::scoped_lock lock(state.bufferMutex);
            // While a thread changes the file with no other descriptor, there is none for a moment.
            if (!state.file && (state.pending.isMapped() || state.isOpen.load())) {
                return;
            }
            text = state.pending.take();
        }
        if (state.file && !text.empty()) {
            state.file->write(text, failures, &state.pending);
        }
        const std::scoped_lock lock(state.bufferMutex);
        state.pending.finish();
        if (state.pending.empty()) {
            state.hasPending.store(false, std::memory_order_relaxed);
            return;
        }
    }
}

void FileDestination::flush(std::function<void()> closure) {
    auto work = [self = shared_from_this(), this, closure = std::move(closure)] {
        writeHeldLines();
        std::shared_ptr<LogFile> file;
        std::shared_ptr<LogFile> retiring;
        {
            const std::scoped_lock lock(state_->handleMutex);
            file = state_->file;
            retiring = state_->retiring;
        }
        for (const auto& each : {retiring, file}) {
            if (each) {
                each->synchronize();
            }
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

void FileDestination::finishQueue() const {
    if (mayStartRotation()) {
        waitForQueue();
    }
}

void FileDestination::report(const std::string& text, Level level) {
    if (const std::shared_ptr<XCGLogger> owner = this->owner()) {
        owner->_logln(text, level, this);
    }
}

}  // namespace velora
