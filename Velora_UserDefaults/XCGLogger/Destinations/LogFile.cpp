#include <chrono>
#include <ctime>
#include <mutex>
#include <utility>

#include <Velora_UserDefaults/Platform/ForkHandlers.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/LogFile.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>
#include <Velora_UserDefaults/XCGLogger/LogCallScope.h>

namespace velora {

namespace {

/// What time it is, to some milliseconds.
Date roughDate() {
    if (const Date ofCall = LogCallScope::date(); ofCall != Date{}) {
        return ofCall;
    }
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return Date(std::chrono::seconds(now.tv_sec) + std::chrono::nanoseconds(now.tv_nsec));
}

}  // namespace

void LogFile::open(FileHandle handle) {
    writePending();
    handle_ = std::move(handle);
    endsInsideALine_ = false;
    look();
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
    while (line.ends_with('\n')) {
        line.remove_suffix(1);
    }
    // At once, lest there be memory for the line only: the next one would go on in it.
    pending_.reserve(pending_.size() + line.size() + 1);
    pending_ += line;
    pending_ += '\n';
}

std::size_t LogFile::tryToWrite(std::string_view bytes) {
    if (endsInsideALine_) {
        // What is left of a line that a full disk cut off gets an end, so that this one begins a line.
        endsInsideALine_ = false;
        if (tryToWrite("\n") == 0) {
            endsInsideALine_ = true;
            return 0;
        }
    }
    std::size_t written = 0;
    // That there is no memory to describe a failure must not keep what is written from being taken out of `pending_`.
    reportingExceptions([&] {
        if (const auto result = handle_.write(bytes, written); !result) {
            printException(result.error().description);
        }
    });
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

void LogFile::look() {
    lastLook_ = roughDate();
}

bool LogFile::isTimeToLook() {
    constexpr auto interval = std::chrono::seconds(1);
    const Date now = roughDate();
    if (now >= lastLook_ && now - lastLook_ < interval) {
        return false;
    }
    lastLook_ = now;
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
