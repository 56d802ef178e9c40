#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <system_error>
#include <utility>

#include <Velora_UserDefaults/Platform/FileContents.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/LogFile.h>
#include <Velora_UserDefaults/XCGLogger/EngineGuard.h>

namespace velora {

WriteFailures::~WriteFailures() {
    for (const std::string& description : descriptions_) {
        printException(description);
    }
    if (isWithoutMemory_) {
        printException("std::bad_alloc");
    }
}

LogFile::LogFile(FileHandle handle) : handle_(std::move(handle)) {
    struct stat status {};
    isPipe_ = ::fstat(handle_.descriptor(), &status) == 0 && S_ISFIFO(status.st_mode);
    readLimit();
}

void LogFile::waitForReader() const noexcept {
    pollfd pipe{.fd = handle_.descriptor(), .events = POLLOUT, .revents = 0};
    while (::poll(&pipe, 1, -1) < 0 && errno == EINTR) {
    }
}

LogFile::~LogFile() {
    reportingExceptions([this] {
        if (const auto closed = handle_.close(); !closed) {
            printException(closed.error().description);
        }
    });
}

void LogFile::synchronize() {
    if (const auto synchronized = handle_.synchronize(); !synchronized) {
        printException(synchronized.error().description);
    }
}

void LogFile::readLimit() {
    rlimit limit{};
    largestSize_ = UINT64_MAX;
    if (::getrlimit(RLIMIT_FSIZE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) {
        largestSize_ = limit.rlim_cur;
        room(0);
    }
}

void LogFile::beginLine() {
    std::error_code ignored;
    const std::uintmax_t size = std::filesystem::file_size(handle_.path(), ignored);
    endsInsideALine_ = !ignored && size > 0 && contentsOfFile(handle_.path(), size - 1) != "\n";
}

/// How many of `wanted` bytes the file may still take.
std::size_t LogFile::room(std::size_t wanted) {
    struct stat status {};
    if (largestSize_ == UINT64_MAX || ::fstat(handle_.descriptor(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return wanted;
    }
    size_ = static_cast<std::uint64_t>(status.st_size);
    return size_ >= largestSize_ ? 0 : static_cast<std::size_t>(std::min<std::uint64_t>(wanted, largestSize_ - size_));
}

/// Writes the bytes behind the first `done`, and returns how many are in the file.
std::size_t LogFile::tryToWrite(std::string_view bytes, std::size_t done, WriteFailures& failures) {
    if (endsInsideALine_) {
        // What is left of a line that a full disk cut off gets an end, so that this one begins a line.
        endsInsideALine_ = false;
        if (tryToWrite("\n", 0, failures) == 0) {
            endsInsideALine_ = true;
            return done;
        }
    }
    const std::size_t possible = room(bytes.size() - done);
    std::size_t written = 0;
    // That there is no memory to describe a failure must not keep what is written from being counted.
    try {
        const auto result = handle_.write(bytes.substr(done, possible), written);
        if (!result) {
            failures.note([&] { return result.error().description; });
        } else if (done + possible < bytes.size()) {
            failures.note([&] { return FileError::make(EFBIG, handle_.path(), "couldn’t be written").description; });
        }
    } catch (...) {
        failures.note([]() -> std::string { throw; });
    }
    size_ += written;
    done += written;
    endsInsideALine_ = done > 0 && bytes[done - 1] != '\n';
    return done;
}

/// Writes what is behind the first `done` bytes, as far as the file takes it.
void LogFile::writeRest(std::string_view text, std::size_t done, WriteFailures& failures, PendingLines* source) {
    done = tryToWrite(text, done, failures);
    if (done < text.size()) {
        // The line that failed is lost; each one after it gets a try of its own.
        done = text.find('\n', done) + 1;
    }
    while (done < text.size()) {
        if (source != nullptr) {
            source->willWrite(handle_, text.size() - done);
        }
        const std::size_t end = text.find('\n', done) + 1;
        tryToWrite(text.substr(done, end - done), 0, failures);
        done = end;
    }
}

}  // namespace velora
