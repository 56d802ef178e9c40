#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <pthread.h>
#include <string>
#include <string_view>
#include <utility>

#include <Velora_UserDefaults/Platform/ForkHandlers.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/LogFile.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/PendingLines.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/QueuedLines.h>

namespace velora {

/// What of a `FileDestination` its threads share. Internal.
///
/// Two mutexes, taken in this order. Nothing but system calls is made with one held. A fork takes both, so that the
/// descriptor and the memory of a child belong together.
struct FileDestination::State {
    // For writing, and for changing the file. Guards what follows.
    std::mutex handleMutex;
    std::shared_ptr<LogFile> file;
    /// The file before it, until that is durable.
    std::shared_ptr<LogFile> retiring;
    std::string line;
    /// Whether a thread, the changer, is about to put another file in the place of this one; how many completions of
    /// its rotations are running; and whether one that was due has been skipped for that.
    bool isChanging = false;
    int completing = 0;
    bool wasDueMeanwhile = false;
    pthread_t changer = {};
    /// The new file of the changer, as long as that is the only one to write to it.
    std::shared_ptr<LogFile>* fresh = nullptr;

    // For appending. Guards what follows.
    std::mutex bufferMutex;
    PendingLines pending;
    /// Whether there may be some, so that a line that is written at once comes behind them. Changed with the mutex
    /// held.
    std::atomic<bool> hasPending = false;

    // For anybody to read.
    std::atomic<bool> isOpen = false;
    std::atomic<bool> isPipe = false;
    std::atomic<bool> keepsLines = false;
    std::atomic<std::size_t> writeBufferCapacity = 0;
    std::atomic<std::uint64_t> counted = 0;
    std::atomic<double> beginning = 0;
    std::atomic<std::uint64_t> changes = 0;
    /// Grows when the owner or the target is set: a file that was opened for an earlier one takes no place any more.
    std::atomic<std::uint64_t> generation = 0;
    /// When it was last looked whether the file is still where it was, in nanoseconds since 1970.
    std::atomic<std::int64_t> lastLook = 0;

    /// Whether to look now: once a second, and at once after the clock has jumped. One thread is told so.
    bool isTimeToLook() noexcept;
    void look() noexcept;
    void lookSoon() noexcept { lastLook.store(0); }

    void lock() noexcept;
    void unlock() noexcept;
    void resetInChild() noexcept;
    ForkHandler forkHandler{{.beforeFork = [](void* state) { static_cast<State*>(state)->lock(); },
                             .inParent = [](void* state) { static_cast<State*>(state)->unlock(); },
                             .inChild = [](void* state) { static_cast<State*>(state)->resetInChild(); }},
                            this};
};

/// An opening of the file by the calling thread, as long as this lives. What the thread logs to the file meanwhile, its
/// header above all, goes to the new one before anybody else's lines, or nowhere while there is none.
class FileDestination::Opening {
public:
    explicit Opening(FileDestination& destination, bool isRotation = false);
    Opening(const Opening&) = delete;
    Opening& operator=(const Opening&) = delete;
    /// A new file takes its place, whatever happened.
    ~Opening();

    /// The innermost one of the calling thread and `destination`; or null.
    static Opening* of(const FileDestination& destination) noexcept;

    void write(std::string_view message, std::uint64_t count);
    /// Gives it the new file, which gets the pending lines if there is no old one.
    void setFresh(FileHandle handle);
    void adopt(FileHandle handle) { fresh_ = std::make_shared<LogFile>(std::move(handle)); }
    /// Puts the new file, or none, in the place of the old one, which gets the pending lines; then that is made
    /// durable.
    void install() noexcept;
    /// What `install` does while nobody writes. With the handle's mutex held.
    void change(WriteFailures& failures) noexcept;
    void retireOld() noexcept;
    /// From then on the thread's own lines go the way of all lines.
    void installAndEnd() noexcept {
        install();
        isOver_ = true;
    }
    /// Whether the thread's own lines are dropped meanwhile.
    void setSilent(bool isSilent) noexcept { isSilent_ = isSilent; }

private:
    __attribute__((tls_model("initial-exec"))) static thread_local constinit Opening* current_;

    FileDestination& destination_;
    bool isRotation_;
    bool isSilent_ = false;
    bool isInstalled_ = false;
    bool isOver_ = false;
    Opening* outer_;
    const void* rotatingFileBefore_;
    std::uint64_t generation_;
    std::shared_ptr<LogFile> fresh_;
    std::shared_ptr<LogFile> old_;
};

}  // namespace velora
