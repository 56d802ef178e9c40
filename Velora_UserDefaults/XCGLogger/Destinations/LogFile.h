#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <Velora_UserDefaults/Platform/FileHandle.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/PendingLines.h>

namespace velora {

/// What could not be written. Reported on standard output when this goes, which is when no mutex is held. Internal.
class WriteFailures {
public:
    WriteFailures() = default;
    WriteFailures(const WriteFailures&) = delete;
    WriteFailures& operator=(const WriteFailures&) = delete;
    ~WriteFailures();

    /// Notes what `failing()` returns, or that it throws.
    template <typename Failing>
    void note(Failing failing) noexcept {
        try {
            descriptions_.push_back(failing());
        } catch (...) {
            isWithoutMemory_ = true;
        }
    }

private:
    std::vector<std::string> descriptions_;
    bool isWithoutMemory_ = false;
};

/// An open log file. Closed, with a report if that loses something, when the object goes. Internal.
///
/// One thread at a time writes; `synchronize`, `isStillAt` and `waitForReader` are thread-safe.
class LogFile {
public:
    explicit LogFile(FileHandle handle);
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;
    ~LogFile();

    /// Writes `text`, which is whole lines, with one call. A line that cannot be written is noted in `failures` and
    /// dropped; the ones after it are tried each by itself. `source`, if given, is told where its text goes.
    void write(std::string_view text, WriteFailures& failures, PendingLines* source = nullptr) {
        if (source != nullptr) {
            source->willWrite(handle_, text.size());
        }
        std::size_t done = 0;
        if (!endsInsideALine_ && size_ + text.size() <= largestSize_) [[likely]] {
            done = handle_.writeOnce(text);
            size_ += done;
        }
        if (done < text.size()) [[unlikely]] {
            writeRest(text, done, failures, source);
        }
    }

    /// Whether it is a pipe, and writing so may wait for whoever reads it.
    bool isPipe() const noexcept { return isPipe_; }
    /// Waits until a pipe takes something, or cannot any more.
    void waitForReader() const noexcept;

    /// Waits until what was written is durable.
    void synchronize();
    /// Whether `path` still names the file.
    bool isStillAt(const std::string& path) const { return handle_.stillAt(path); }
    /// Asks how large the process may make files (RLIMIT_FSIZE): the kernel ends one that goes beyond.
    void readLimit();
    /// Has the next line begin one, though the file may end inside of one.
    void beginLine();

private:
    void writeRest(std::string_view text, std::size_t done, WriteFailures& failures, PendingLines* source);
    std::size_t tryToWrite(std::string_view bytes, std::size_t done, WriteFailures& failures);
    std::size_t room(std::size_t wanted);

    FileHandle handle_;
    /// At least as many bytes as this destination knows the file to have, while there is a limit.
    std::uint64_t size_ = 0;
    std::uint64_t largestSize_ = UINT64_MAX;
    bool endsInsideALine_ = false;
    bool isPipe_ = false;
};

}  // namespace velora
