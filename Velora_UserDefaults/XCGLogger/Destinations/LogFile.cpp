#include <chrono>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <string>
#include <system_error>
#include <utility>

#include <Velora_UserDefaults/Platform/FileContents.h>
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

/// Whether the file at `path` has something behind its last line feed.
bool endsInsideALine(const std::string& path) {
    std::error_code ignored;
    const std::uintmax_t size = std::filesystem::file_size(path, ignored);
    return !ignored && size > 0 && contentsOfFile(path, size - 1) != "\n";
}

}  // namespace

void LogFile::open(FileHandle handle) {
    if (isOpen()) {
        writePending();
    }
    handle_ = std::move(handle);
    endsInsideALine_ = !pending_.empty() && endsInsideALine(handle_.path());
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

std::size_t LogFile::tryToWrite(std::string_view bytes, std::size_t done) {
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
        if (const auto result = handle_.write(bytes.substr(done), written); !result) {
            printException(result.error().description);
        }
    });
    done += written;
    endsInsideALine_ = done > 0 && bytes[done - 1] != '\n';
    return done;
}

/// Writes a line that the file for lines that wait has no room for.
void LogFile::appendWithoutRoom(std::string_view line) {
    writePending();
    if (!pending_.append(line)) {
        tryToWrite(std::string(line) + '\n');
    }
}

/// Writes what is pending, of which `done` bytes are in the file, as far as the file takes it.
void LogFile::writeRest(std::size_t done) {
    if (!isOpen()) {
        return;
    }
    const std::string_view text = pending_.text();
    const auto endOfLine = [text](std::size_t position) { return text.find('\n', position) + 1; };
    done = tryToWrite(text, done);
    if (done < text.size()) {
        // The line that failed is lost; each one after it gets a try of its own.
        done = endOfLine(done);
    }
    while (done < text.size()) {
        pending_.willWrite(handle_, text.size() - done);
        const std::size_t end = endOfLine(done);
        tryToWrite(text.substr(done, end - done));
        done = end;
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
