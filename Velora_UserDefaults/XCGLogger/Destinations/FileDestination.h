#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/FileManager.h>
#include <Velora_UserDefaults/Platform/URL.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseQueuedDestination.h>
#include <Velora_UserDefaults/XCGLogger/FileTarget.h>

namespace velora {

class WriteFailures;

/// Writes lines to one file.
///
///     log->add(velora::make<velora::FileDestination>(nullptr, "/var/log/app.log", "file", /*shouldAppend=*/true));
///
/// The file is opened when the destination gains an owner, which `XCGLogger::add` gives it, and closed when
/// it loses it. An opened file gets the start-up header and a line that announces writing; one that is
/// appended to gets the append marker first.
///
/// **Durability.** Without a queue each line is in the kernel when the log call returns, written by one
/// system call in append mode: it survives a crash of the process. (A process that is killed within a call
/// may leave the beginning of that one line.) With a queue the lines of a batch are written with one call.
/// With a write buffer (`setWriteBufferCapacity`) lines are held back until so many bytes have come together.
/// Data reaches the disk by `flush`, closing, rotation, or the system's own time.
///
/// **Threads.** Any number of threads may log through one destination: no line is torn, lost or doubled, also while
/// another thread rotates or flushes; they do not wait for it. Nothing that a host can override or supply is called
/// with a mutex held: closures, filters and formatters may log, rotate, and wait for other threads.
///
/// **Failures** are internal lines at level `error` on the owner's other destinations: a file that cannot be
/// opened, a rotation that fails. A write that fails prints "Objective-C Exception occurred: …" to standard
/// output, and the next line is tried as usual. A line that is no valid UTF-8 is dropped.
/// A file that could not be opened, at first or after a rotation, is tried again at most once a second, when a line
/// is written; lines until then are lost. If the file is removed or replaced while it is open, the destination notices
/// within a second, when it next writes, and goes on in a file under the same name.
class VELORA_EXPORT FileDestination : public BaseQueuedDestination {
public:
    /// `owner` is usually null. `writeToFile` that is no path or file URL means that nothing is ever written.
    /// `shouldAppend` keeps what an existing file holds; then `appendMarker`, if there is one, is written as a
    /// line of its own. `attributes` are given to the file when it is created; without permissions among
    /// them it is made readable for the user and the group only (0640), less the umask.
    FileDestination(Making key, std::shared_ptr<XCGLogger> owner, const FileTarget& writeToFile, std::string identifier,
                    bool shouldAppend = false, std::optional<std::string> appendMarker = "-- ** ** ** --",
                    std::optional<FileAttributes> attributes = std::nullopt);

    /// A file destination cannot be made without a file: a fatal error.
    [[deprecated("a file destination needs a file: pass it between owner and identifier")]] FileDestination(
        Making key, std::shared_ptr<XCGLogger> owner, std::string identifier);

    /// Closes the file.
    ~FileDestination() override;

    /// The log file. Setting it closes the file and opens the new one.
    virtual const std::optional<URL>& writeToFileURL() const;
    virtual void setWriteToFileURL(const std::optional<FileTarget>& target);

    /// Whether a file is open now.
    bool isOpen() const;

    /// As the constructor's arguments; what is set counts when the file is opened the next time.
    virtual bool shouldAppend() const { return shouldAppend_; }
    virtual void setShouldAppend(bool shouldAppend) { shouldAppend_ = shouldAppend; }
    virtual const std::optional<std::string>& appendMarker() const { return appendMarker_; }
    virtual void setAppendMarker(std::optional<std::string> marker) { appendMarker_ = std::move(marker); }
    virtual const std::optional<FileAttributes>& fileAttributes() const { return fileAttributes_; }
    virtual void setFileAttributes(std::optional<FileAttributes> attributes) {
        fileAttributes_ = std::move(attributes);
    }

    /// How many bytes of lines may be held back before they are written together; 0, as at first, holds nothing
    /// back: each line, or with a queue each batch, is in the kernel when its call returns.
    ///
    ///     file->setWriteBufferCapacity(65'536);
    ///
    /// Fewer system calls, at a price: if the process crashes or is killed, or calls `_exit` or `quick_exit`, the
    /// lines held back are lost, always the last ones and fewer bytes than this. A line at level `error` or above
    /// is written at once, with all before it. So is what is held when the file is flushed, closed or rotated,
    /// when the capacity is set, and at normal exit (`exit`, return from `main`), after which nothing is held back
    /// any more. A forked child starts with an empty buffer: its parent writes what it holds. Any thread.
    std::size_t writeBufferCapacity() const;
    void setWriteBufferCapacity(std::size_t capacity);

    /// Keeps the lines that wait for the queue, or are held back, in the file `target`, so that a crash costs none of
    /// them: a log call returns when its line is there, which needs no system call. Without `target` they wait in the
    /// process's own memory again, as at first. Call it before `add`, so that what is found is written first.
    ///
    ///     file->setLogQueue(XCGLogger::logQueue());
    ///     if (auto kept = file->setPendingLinesFile("/var/lib/app/pending-lines"); !kept) {
    ///         std::cerr << kept.error().description << '\n';
    ///     }
    ///
    /// Lines that a process left there when it crashed or was killed are written to the log: once, in their order,
    /// and before any other. (If another process appends to the same log at the same moment, a few may come twice;
    /// where the log was emptied or is opened without `shouldAppend`, they are in the new one.) After a failure of
    /// the machine some may be missing, as of all that was not brought to the disk.
    ///
    /// `target` is made for the user alone (0600), stays when the destination goes, and serves one destination of one
    /// process at a time. `capacity` is how many bytes may wait there; a log call that finds it full writes
    /// the pending lines. With a queue, filters and formatters run on the logging thread then, and the queue only
    /// writes. Keep it where nothing truncates it, as programs do that rotate all files of a folder: that ends the
    /// process (SIGBUS), as with any mapped file.
    ///
    /// Fails, and lines wait in memory, if `target` is no target, in use (EWOULDBLOCK), another user's (EPERM), some
    /// other file (EEXIST) or cannot be made or mapped. To be set before logging. In a forked child lines wait in
    /// memory: a daemon sets it when it has forked.
    FileResult<void> setPendingLinesFile(const std::optional<FileTarget>& target, std::size_t capacity = 1'048'576);

    /// Setting an owner opens the file, taking it away closes it.
    void setOwner(std::shared_ptr<XCGLogger> owner) override;

    /// As the base's. With a file for pending lines, what is left for the queue is to write pending lines there.
    void output(LogDetails& logDetails, std::string& message) override;

    /// Writes one line, ended by exactly one line feed.
    void write(std::string_view message) override;

    /// Has everything written so far made durable (fdatasync(2)), then calls `closure`: here and now, or with a queue
    /// after every line logged before, on the queue. Other threads log on meanwhile.
    virtual void flush(std::function<void()> closure = nullptr);

    /// Moves the file to `to`, marks it there with this destination's identifier and the time, and goes on in a
    /// new, empty file. Calls `closure` with whether it succeeded, and returns the same.
    ///
    /// Other threads log on meanwhile, into the archive, until the new file takes its place. While one rotation runs,
    /// another one is refused at once: `closure(false)`. From `closure` on, one works again.
    ///
    /// Fails, with the file untouched and still open, if `to` is no target or exists already. If the file cannot be
    /// moved to `to`, this fails, too, and the file is opened anew, which without `shouldAppend` empties it: set
    /// `shouldAppend` where that must not be. An archive that could not be marked is a success. Internal lines at level
    /// `error` report both.
    virtual bool rotateFile(const FileTarget& to, const std::function<void(bool success)>& closure = nullptr);

protected:
    void finishMaking() override;
    /// Writes what is held back, if the line was an important one.
    void finishWriting(Level level) override;
    /// Writes what a batch of the queue has gathered.
    void finishBatch() override;

    /// Writes one line as `write` does. `count` is what it adds to `counted()`, unless a rotation of this file logs it.
    void writeLine(std::string_view message, std::uint64_t count);
    /// What the lines of the file count together, and when it was begun, in seconds since 1970: since it was opened,
    /// rotated, or this was set. Thread-safe.
    std::uint64_t counted() const noexcept;
    double beginning() const noexcept;
    void setCounted(std::uint64_t counted, double beginning) noexcept;

    /// Whether a line that the calling thread writes may start a rotation: not one that a rotation logs.
    static bool mayStartRotation() noexcept;
    /// How often the file has changed so far.
    std::uint64_t changes() const noexcept;
    /// Calls `rotate`, because a limit was found to be reached when the file had changed `changes` times. A rotation
    /// that it starts is skipped if another thread is about to rotate or has done so since; then, and if lines of other
    /// threads reached the limit again, `isStillDue` decides whether to rotate once more.
    void rotateWhileDue(std::uint64_t changes, const std::function<void()>& rotate,
                        const std::function<bool()>& isStillDue);
    /// The calling thread's turn to rotate the file, while it lives or until the thread's next `rotateFile(to, …)`,
    /// which uses it. Whatever else rotates the file meanwhile is refused, and what the thread logs while this lives
    /// starts no rotation of any file.
    class Turn {
    public:
        /// Begins the turn, unless somebody else has it.
        explicit Turn(FileDestination& file);
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
        ~Turn();
        /// Ends the turn before this goes.
        void end() noexcept;
        /// False if the file is being changed, or a rotation that was due has been made by another thread.
        explicit operator bool() const noexcept { return hasBegun_; }

    private:
        FileDestination& file_;
        const void* outer_;
        const void* rotatingFileBefore_;
        bool hasBegun_;
    };

    /// Waits for the lines that are on the queue: they were logged for the file as it is now. A task of that queue and
    /// a thread that reports a rotation do not wait.
    void finishQueue() const;
    /// Has the owner, if there is one, log an internal line with this destination as its source.
    void report(const std::string& text, Level level);

private:
    struct State;
    class Opening;

    static void stopHoldingLinesBack();
    std::size_t bytesToHoldBack() const noexcept;
    std::size_t append(std::string_view message, std::uint64_t count);
    void writeAtOnce(std::string_view message, std::uint64_t count);
    void waitForReader() const;
    void writeHeldLines();
    void writePending(WriteFailures& failures);
    void look();
    void goOn(const std::string& path);
    void openFile();
    void closeFile();
    bool announcesOnQueue() const;
    void announceOpening(bool isAppending);
    bool beginRotation();
    void endRotation() noexcept;
    bool moveFile(const FileTarget& to);
    int moveAcross(Opening& opening, const std::string& path, const std::string& archivePath, FileResult<void>& opened);
    FileResult<void> openNew(Opening& opening, bool& isAppending);
    FileResult<void> openInPlace(Opening& opening, const std::string& path);
    void reportFailedOpening(bool isAppending, const FileError& error);
    FileResult<void> markArchive(const std::string& path) const;

    std::optional<URL> writeToFileURL_;
    bool shouldAppend_;
    std::optional<std::string> appendMarker_;
    std::optional<FileAttributes> fileAttributes_;
    std::unique_ptr<State> state_;
};

}  // namespace velora
