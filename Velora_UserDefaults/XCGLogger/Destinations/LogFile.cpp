#include <ctime>
#include <mutex>
#include <utility>

#include <Velora_UserDefaults/Platform/ForkHandlers.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/LogFile.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>

namespace velora {

namespace {

std::int64_t coarseMilliseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<std::int64_t>(now.tv_sec) * 1'000 + now.tv_nsec / 1'000'000;
}

constexpr std::int64_t lookInterval = 1'000;

}  // namespace

void LogFile::open(FileHandle handle) {
    writePending();
    handle_ = std::move(handle);
    endsInsideALine_ = false;
    nextLook_ = coarseMilliseconds() + lookInterval;
}

void LogFile::close() {
    if (!isOpen()) {
        return;
    }
    synchronize();
    if (const auto closed = handle_.close(); !closed) {
        printException(closed.error().description);
    }
}

void LogFile::synchronize() {
    writePending();
    if (isOpen()) {
        if (const auto synchronized = handle_.synchronize(); !synchronized) {
            printException(synchronized.error().description);
        }
    }
}

void LogFile::dropWhatTheParentHad() {
    // Lines that were pending when the process forked are written by the parent.
    if (pendingGeneration_ != forkGeneration()) {
        pendingGeneration_ = forkGeneration();
        pending_.clear();
    }
}

void LogFile::append(std::string_view line) {
    dropWhatTheParentHad();
    const std::size_t lastCharacter = line.find_last_not_of('\n');
    line = line.substr(0, lastCharacter == std::string_view::npos ? 0 : lastCharacter + 1);
    pending_ += line;
    pending_ += '\n';
}

std::size_t LogFile::tryToWrite(std::string_view bytes) {
    if (endsInsideALine_) {
        // What is left of a line that a full disk cut off gets an end, so that this one begins a line.
        const std::string onNewLine = "\n" + std::string(bytes);
        endsInsideALine_ = false;
        const std::size_t written = tryToWrite(onNewLine);
        if (written == 0) {
            endsInsideALine_ = true;
            return 0;
        }
        return written - 1;
    }
    std::size_t written = 0;
    if (const auto result = handle_.write(bytes, written); !result) {
        printException(result.error().description);
    }
    endsInsideALine_ = written > 0 && bytes[written - 1] != '\n';
    return written;
}

void LogFile::writePending() {
    dropWhatTheParentHad();
    if (pending_.empty()) {
        return;
    }
    if (isOpen()) {
        const auto endOfLine = [this](std::size_t position) { return pending_.find('\n', position) + 1; };
        std::size_t done = tryToWrite(pending_);
        if (done < pending_.size()) {
            // The line that failed is lost; each one after it gets a try of its own.
            done = endOfLine(done);
        }
        while (done < pending_.size()) {
            const std::size_t end = endOfLine(done);
            tryToWrite(std::string_view(pending_).substr(done, end - done));
            done = end;
        }
    }
    constexpr std::size_t keptCapacity = 262'144;
    if (pending_.capacity() > keptCapacity) {
        std::string().swap(pending_);  // an assignment would keep the memory
    } else {
        pending_.clear();
    }
}

bool LogFile::isTimeToLook() {
    const std::int64_t now = coarseMilliseconds();
    if (now < nextLook_) {
        return false;
    }
    nextLook_ = now + lookInterval;
    return true;
}

void LogFile::dropWhatWasLeftInTheParent() {
    if (leftGeneration_ != forkGeneration()) {
        leftGeneration_ = forkGeneration();
        left_.clear();
    }
}

void LogFile::leave(std::string_view line) {
    const std::scoped_lock guard(leftLock_);
    dropWhatWasLeftInTheParent();
    left_.emplace_back(line);
    hasLeft_.store(true, std::memory_order_seq_cst);
}

std::vector<std::string> LogFile::takeLeft() {
    const std::scoped_lock guard(leftLock_);
    dropWhatWasLeftInTheParent();
    hasLeft_.store(false, std::memory_order_seq_cst);
    return std::exchange(left_, {});
}

}  // namespace velora
