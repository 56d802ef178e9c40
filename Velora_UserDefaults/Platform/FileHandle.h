#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/FileError.h>

namespace velora {

class Descriptor;

/// An open file that is written at its end; closed when the object goes.
///
/// Both forms of `write` and `synchronize` may be called by several threads at once on one handle, and
/// `descriptor`, `isOpen` and `stillAt` beside them. Opening, closing, moving and destroying belong to one
/// thread, while no other uses the handle. Nothing throws.
///
/// Every write lands behind the last byte that the file has at that moment (`O_APPEND`), also when
/// another process writes to it or has cut it short. The descriptor is not inherited by programs that the process
/// starts (`O_CLOEXEC`).
class VELORA_EXPORT FileHandle {
public:
    /// Opens the file at `path`, which must exist, for writing. Fails with ENOENT if there is none, EISDIR for a
    /// folder, ENXIO for a pipe (FIFO) that nobody reads: opening never waits.
    static FileResult<FileHandle> openForWriting(const std::string& path);

    /// Takes over `descriptor`, which was opened for appending at `path` without waiting (O_NONBLOCK): from now on
    /// writing waits as usual. Internal.
    static FileResult<FileHandle> adopt(Descriptor descriptor, std::string path);

    /// A handle without a file: not open; writes fail with EBADF.
    FileHandle() = default;
    FileHandle(FileHandle&& other) noexcept;
    FileHandle& operator=(FileHandle&& other) noexcept;
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    ~FileHandle();

    /// Writes all of `bytes` with one system call, if the kernel takes them in one, as it does with files unless
    /// the disk is full: so the bytes of one call stay together whoever else writes. Interrupted and partial
    /// writes are continued.
    ///
    /// On failure part of the bytes may have been written. A pipe whose reader has gone is a failure (EPIPE) like
    /// others: the calling thread gets no SIGPIPE.
    FileResult<void> write(std::string_view bytes);
    /// As above; `written` gets the number of bytes written, which is less than all only on failure; also if there is
    /// no memory for the description of a failure, which then is thrown.
    FileResult<void> write(std::string_view bytes, std::size_t& written);
    /// Writes as much of `bytes` as one system call takes, in nearly every case all, and returns how much: nothing
    /// if that failed, or is better left to `write`, which does the rest and tells of failures.
    // NOLINTNEXTLINE(readability-make-member-function-const): what is changed is the file
    std::size_t writeOnce(std::string_view bytes) noexcept {
        if (!isOpen() || canRaiseSigpipe_) {
            return 0;
        }
        const ssize_t written = ::write(descriptor_, bytes.data(), bytes.size());
        return written > 0 ? static_cast<std::size_t>(written) : 0;
    }
    /// Writes `first` and then `second`, together as above, without copying them into one.
    FileResult<void> write(std::string_view first, std::string_view second);

    /// Waits until what was written is on the disk (fdatasync(2)). For what cannot be brought to a disk, as a
    /// pipe or a terminal, there is nothing to wait for, and this succeeds.
    FileResult<void> synchronize();

    /// Moves the descriptor's position to the end of the file and returns it in bytes, so that it tells the
    /// file's size. Writes go there in any case. Fails with ESPIPE for what has no position, as a pipe.
    FileResult<off_t> seekToEnd();

    /// Closes the file; the handle is then not open. Fails if the system reports, late, that something written
    /// was lost; the file is closed all the same. Nothing happens if it is not open.
    FileResult<void> close();

    /// Whether the handle has a file.
    [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }

    /// The file's descriptor, which stays the handle's; -1 if it is not open.
    [[nodiscard]] int descriptor() const { return descriptor_; }

    /// Which file it is, whatever its name.
    [[nodiscard]] dev_t device() const { return device_; }
    [[nodiscard]] ino_t inode() const { return inode_; }

    /// The path that the file was opened by.
    [[nodiscard]] const std::string& path() const { return path_; }

    /// Whether `path` still names the open file: false if the file was removed or renamed, or
    /// another one took its name. Costs one stat(2).
    [[nodiscard]] bool stillAt(const std::string& path) const;

private:
    FileHandle(int descriptor, std::string path);

    [[nodiscard]] FileError failure(int code, std::string_view what) const;
    int writeParts(std::string_view first, std::string_view second, std::size_t& written);
    [[nodiscard]] FileResult<void> resultOfWriting(int code) const;

    int descriptor_ = -1;
    bool canRaiseSigpipe_ = false;
    dev_t device_ = 0;
    ino_t inode_ = 0;
    std::string path_;
};

}  // namespace velora
