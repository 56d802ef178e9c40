#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/Platform/FileError.h>

#include "LogLine.h"

namespace velora {

/// How much of a file's beginning is looked at to learn how its records begin.
inline constexpr std::size_t logSampleSize = std::size_t{64} * 1024;

/// A descriptor that is closed with the object. Moves.
class Descriptor {
public:
    explicit Descriptor(int number = -1) noexcept : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept;
    ~Descriptor();

    int number() const noexcept { return number_; }
    bool isOpen() const noexcept { return number_ >= 0; }

private:
    int release() noexcept;

    int number_;
};

/// Opens the file at `path` for reading; "-" is the standard input. A folder is an error.
FileResult<Descriptor> openForReading(const std::string& path);

/// What a block holds, and how it stands to the one before.
struct LogBlock {
    std::string_view text;
    /// Whether it begins in the middle of a record that was too large for one block.
    bool isContinued = false;
    /// Whether it ends in the middle of such a record, perhaps of a line.
    bool isCut = false;
};

/// Reads a file in large blocks of whole records, whatever is in it and whatever becomes of it meanwhile. Of a pipe
/// that has no more for now the whole records that came are a block. A record beyond 64 MiB comes in several blocks.
/// One thread at a time.
class LogReader {
public:
    explicit LogReader(Descriptor file);

    /// The next block; nothing at the end. It is valid until the next call.
    std::optional<LogBlock> next();

    /// Each line is a record from now on.
    void setLinesAreRecords() { layoutIsFixed_ = true; }
    /// How records begin, as far as the last block tells; learnt from the first 64 kB.
    const LogLayout& layout() const { return layout_; }
    /// How many bytes were read so far.
    std::uint64_t position() const { return position_; }
    /// The number of the error that ended reading early; 0 if there was none.
    int error() const { return error_; }

private:
    void fill();
    bool hasMoreNow() const;
    void learnLayout(std::string_view text);
    void makeRoom();
    std::size_t endOfWholeRecords() const;

    Descriptor file_;
    std::unique_ptr<char[]> memory_;
    std::size_t capacity_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    std::uint64_t position_ = 0;
    LogLayout layout_;
    /// The beginning of the file, as long as there is something to learn from it.
    std::string sample_;
    bool layoutIsFixed_ = false;
    bool isAtEnd_ = false;
    bool isCut_ = false;
    int error_ = 0;
};

/// Where the line that holds `at` begins in `text`, and where the one behind it does.
std::size_t beginOfLine(std::string_view text, std::size_t at) noexcept;
std::size_t beginOfNextLine(std::string_view text, std::size_t at) noexcept;
/// The line that begins at `begin`, without its line feed.
std::string_view lineAt(std::string_view text, std::size_t begin) noexcept;

}  // namespace velora
