#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/Platform/FileHandle.h>
#include <Velora_UserDefaults/Platform/ForkHandlers.h>
#include <Velora_UserDefaults/Platform/RecursiveLock.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/PendingLines.h>

namespace velora {

/// An open log file and the lines that wait to be written to it. Internal.
///
/// Lines are appended to a buffer, each with its line feed, and written together by `writePending`. The
/// caller has exclusive use, by `lock`; only `leave` and `takeLeft` are for any thread at any time.
class LogFile {
public:
    LogFile() = default;
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    /// Guards all the rest, and everything that a destination does with its file.
    RecursiveLock lock;

    bool isOpen() const noexcept { return handle_.isOpen(); }
    /// Goes on with `handle`. What is pending is written to the file it was meant for, if that is open. What is pending
    /// then, from an earlier process, begins a line of the new one, whatever that ends with.
    void open(FileHandle handle);
    /// Writes what is pending, brings it to the disk and closes the file.
    void close();
    /// Writes what is pending and brings it to the disk.
    void synchronize();

    /// Appends `line` and one line feed to what is pending; the line's own line feeds at its end count for it.
    void append(std::string_view line) {
        dropWhatTheParentHad();
        while (line.ends_with('\n')) {
            line.remove_suffix(1);
        }
        if (!pending_.append(line)) [[unlikely]] {
            appendWithoutRoom(line);
        }
    }
    /// How many bytes are pending.
    std::size_t pendingBytes() const noexcept { return pending_.size(); }
    /// Writes what is pending with one call. A line that cannot be written is reported on standard output and
    /// dropped; the ones after it are tried each by itself.
    void writePending() {
        dropWhatTheParentHad();
        if (pending_.empty() || (!isOpen() && pending_.isMapped())) {
            return;
        }
        pending_.willWrite(handle_, pending_.size());
        const std::size_t done = endsInsideALine_ ? 0 : handle_.writeOnce(pending_.text());
        if (done < pending_.size()) [[unlikely]] {
            writeRest(done);
        }
        pending_.clear();
    }

    /// Has what is pending wait in a file; see `PendingLines::moveTo`. What is pending now is written before.
    FileResult<void> keepPendingIn(const std::string& path, std::size_t capacity, const std::string& logPath) {
        writePending();
        return pending_.moveTo(path, capacity, logPath);
    }
    /// Has it wait in memory again, after what is pending now is written.
    void keepPendingInMemory() {
        writePending();
        pending_.moveToMemory();
    }
    /// Whether what is pending waits in a file.
    bool keepsPendingInFile() const noexcept { return pending_.isMapped(); }

    /// Whether it is time to look again if the file is still where it was: at most once a second, and at once
    /// after the clock has jumped.
    bool isTimeToLook();
    /// Has it be time again only in a second.
    void look();
    /// Has it be time at once.
    void lookSoon() noexcept { lastLook_ = Date{}; }
    /// Whether `path` still names the open file.
    bool isStillAt(const std::string& path) const { return handle_.stillAt(path); }

    /// Leaves a line for the thread that has exclusive use now.
    void leave(std::string_view line);
    bool hasLeft() const noexcept { return hasLeft_.load(std::memory_order_seq_cst); }
    /// Takes the lines left by other threads, in their order.
    std::vector<std::string> takeLeft();

private:
    /// Lines that were pending when the process forked are written by the parent.
    void dropWhatTheParentHad() {
        if (pendingGeneration_ != forkGeneration()) [[unlikely]] {
            pendingGeneration_ = forkGeneration();
            pending_.clear();
        }
    }
    void dropWhatWasLeftInTheParent();
    void appendWithoutRoom(std::string_view line);
    void writeRest(std::size_t done);
    /// Writes `bytes`, of which `done` are in the file already, and returns how many are.
    std::size_t tryToWrite(std::string_view bytes, std::size_t done = 0);

    FileHandle handle_;
    PendingLines pending_;
    std::uint64_t pendingGeneration_ = 0;
    bool endsInsideALine_ = false;
    Date lastLook_{};

    RecursiveLock leftLock_;
    std::vector<std::string> left_;
    std::uint64_t leftGeneration_ = 0;
    std::atomic<bool> hasLeft_{false};
};

}  // namespace velora
