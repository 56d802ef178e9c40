#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include <Velora_UserDefaults/Platform/FileError.h>
#include <Velora_UserDefaults/Platform/FileHandle.h>
#include <Velora_UserDefaults/Platform/SharedMapping.h>

namespace velora {

/// The lines that wait to be written to a log file, each with its line feed, in two buffers that change places: one
/// that lines are appended to, and one that is being written. Internal.
///
/// They are in ordinary memory, or in a file that is mapped into memory: then they outlive a crash of the process,
/// and the next one that maps the file has them again. So that no line is written twice, the file also tells where
/// in the log they were being written: what the log holds already is then dropped.
///
/// `willWrite`, and reading what `take` has returned, may go on while another thread appends. All else is for one
/// thread at a time.
class PendingLines {
public:
    bool empty() const noexcept { return size() == 0; }
    /// How many bytes are pending, in both buffers.
    std::size_t size() const noexcept { return taken().size() + appended().size(); }

    /// What is in each of them.
    std::string_view taken() const noexcept { return isMapped() ? mapped(false) : texts_[1 - active_]; }
    std::string_view appended() const noexcept { return isMapped() ? mapped(true) : texts_[active_]; }

    /// Appends `line`, which has no line feed at its end, and one line feed. Returns false, and changes nothing, if
    /// a mapped file has no room for it.
    bool append(std::string_view line) {
        if (isMapped()) {
            return appendToMapping(line);
        }
        // At once, lest there be memory for the line only: the next one would go on in it.
        std::string& text = texts_[active_];
        if (text.capacity() - text.size() <= line.size()) {
            text.reserve(std::max(2 * text.capacity(), text.size() + line.size() + 1));
        }
        text.append(line);
        text.push_back('\n');
        return true;
    }

    /// What is to be written first: what was taken and is not finished, or else all that was appended, which is taken
    /// by that. Valid until `finish`.
    std::string_view take() noexcept;
    /// Forgets what was taken.
    void finish() noexcept;
    /// Forgets all that waits in ordinary memory.
    void forgetText() noexcept;

    /// Notes that the last `size` bytes of what was taken are about to be appended to the file of `handle`, and
    /// that those before them are no longer pending.
    void willWrite(const FileHandle& handle, std::size_t size) noexcept {
        if (isMapped()) {
            noteWriting(handle, size);
        }
    }

    /// Has lines wait in the file at `path` from now on, `capacity` bytes of them, or as many as that file was made
    /// for, while as many are being written. Nothing may be pending in memory. Lines that wait there already are
    /// pending here then, without those that are in the log at `logPath`; one of which the log has only the beginning
    /// is completed there. Fails with EEXIST for a file that is something else, and as `SharedMapping::open`.
    FileResult<void> moveTo(const std::string& path, std::size_t capacity, const std::string& logPath);
    /// Has lines wait in ordinary memory again; what is pending stays in the file.
    void moveToMemory();
    /// Has lines wait in the file of `other` from now on, or in memory if that has none, and returns the file's mapping
    /// before.
    std::unique_ptr<SharedMapping> replaceMapping(PendingLines& other) noexcept {
        return std::exchange(mapping_, std::move(other.mapping_));
    }
    /// Whether the lines wait in a file. In a forked child they no longer do.
    bool isMapped() const noexcept { return mapping_ && !mapping_->bytes().empty(); }

private:
    struct Buffer;
    struct Header;

    Header& header() const noexcept;
    Buffer& buffer(bool isActive) const noexcept;
    char* data(bool isActive) const noexcept;
    std::size_t largestCapacity() const noexcept;
    std::string_view mapped(bool isActive) const noexcept;
    bool appendToMapping(std::string_view line) noexcept;
    void noteWriting(const FileHandle& handle, std::size_t size) noexcept;
    void forget(bool isActive) noexcept;
    void recover(const std::string& logPath);
    void keepWholeLines(bool isActive);
    std::size_t sizeInLog(const std::string& path) const;

    std::array<std::string, 2> texts_;
    std::size_t active_ = 0;
    std::unique_ptr<SharedMapping> mapping_;
};

}  // namespace velora
