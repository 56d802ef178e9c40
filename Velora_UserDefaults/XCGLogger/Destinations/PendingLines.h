#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/Platform/FileError.h>
#include <Velora_UserDefaults/Platform/FileHandle.h>
#include <Velora_UserDefaults/Platform/SharedMapping.h>

namespace velora {

/// The lines that wait to be written to a log file, one after the other, each with its line feed. Internal.
///
/// They wait in ordinary memory, or in a file that is mapped into memory: then they outlive a crash of the process,
/// and the next one that maps the file has them again. So that no line is written twice, the file also tells where
/// in the log they were being written: what the log holds already is then dropped.
///
/// Not synchronised.
class PendingLines {
public:
    bool empty() const noexcept { return size() == 0; }
    std::size_t size() const noexcept { return text().size(); }
    /// What is pending. Valid until something is changed here.
    std::string_view text() const noexcept { return isMapped() ? mappedText() : std::string_view(text_); }

    /// Appends `line`, which has no line feed at its end, and one line feed. Returns false, and changes nothing, if
    /// a mapped file has no room for it.
    bool append(std::string_view line) {
        if (isMapped()) {
            return appendToMapping(line);
        }
        // At once, lest there be memory for the line only: the next one would go on in it.
        text_.reserve(text_.size() + line.size() + 1);
        text_.append(line);
        text_.push_back('\n');
        return true;
    }

    /// Forgets what is pending.
    void clear();

    /// Notes that the last `size` bytes of what is pending are about to be appended to the file of `handle`, and
    /// that those before them are no longer pending.
    void willWrite(const FileHandle& handle, std::size_t size) noexcept {
        if (isMapped()) {
            noteWriting(handle, size);
        }
    }

    /// Has lines wait in the file at `path` from now on, `capacity` bytes of them or as many as that file was made
    /// for. Nothing may be pending in memory. Lines that wait there already are pending here then, without those that
    /// are in the log at `logPath`; one of which the log has only the beginning is completed there. Fails with EEXIST
    /// for a file that is something else, and as `SharedMapping::open`.
    FileResult<void> moveTo(const std::string& path, std::size_t capacity, const std::string& logPath);
    /// Has lines wait in ordinary memory again; what is pending stays in the file.
    void moveToMemory();
    /// Whether the lines wait in a file. In a forked child they no longer do.
    bool isMapped() const noexcept { return mapping_ && !mapping_->bytes().empty(); }

private:
    struct Header;

    Header& header() const noexcept;
    char* data() const noexcept;
    std::size_t capacity() const noexcept;
    std::string_view mappedText() const noexcept;
    bool appendToMapping(std::string_view line) noexcept;
    void noteWriting(const FileHandle& handle, std::size_t size) noexcept;
    void recover(const std::string& logPath);
    std::size_t sizeInLog(const std::string& path) const;

    std::string text_;
    std::unique_ptr<SharedMapping> mapping_;
};

}  // namespace velora
