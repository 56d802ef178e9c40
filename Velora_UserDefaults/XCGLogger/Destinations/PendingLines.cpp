#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <sys/stat.h>
#include <system_error>

#include <Velora_UserDefaults/Platform/FileContents.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/PendingLines.h>

namespace velora {

namespace {

constexpr std::string_view mark = "Velora pending 1";

/// The header has as much room as a page, so that the text begins on one.
constexpr std::size_t headerSize = 4'096;

/// Which file, whatever its name.
struct FileIdentity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    bool operator==(const FileIdentity&) const = default;
};

std::optional<FileIdentity> identityOf(const std::string& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return std::nullopt;
    }
    return FileIdentity{.device = status.st_dev, .inode = status.st_ino};
}

/// Where a file is now that was at `path`: there, or under another name in the same folder.
std::optional<std::string> findFile(const std::string& path, const FileIdentity& identity) {
    if (identityOf(path) == identity) {
        return path;
    }
    std::error_code ignored;
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    for (std::filesystem::directory_iterator each(folder, ignored), end; !ignored && each != end;
         each.increment(ignored)) {
        if (identityOf(each->path().native()) == identity) {
            return each->path().native();
        }
    }
    return std::nullopt;
}

/// Ends the line of which the file at `path` has the beginning, and returns whether that was possible.
bool complete(const std::string& path, std::string_view restOfLine) {
    auto handle = FileHandle::openForWriting(path);
    return handle && handle->write(restOfLine);
}

/// How much of the beginning of `text` is in `log`, which holds what was appended since `text` was about to be.
std::size_t sizeWritten(std::string_view text, std::string_view log) {
    const std::string_view firstLine = text.substr(0, text.find('\n') + 1);
    std::size_t begin = log.find(firstLine);
    if (begin == std::string_view::npos) {
        // Perhaps its beginning, then at the end of the log.
        const std::size_t lastFeed = log.rfind('\n');
        begin = lastFeed == std::string_view::npos ? 0 : lastFeed + 1;
        const std::string_view lastLine = log.substr(begin);
        return firstLine.starts_with(lastLine) ? lastLine.size() : 0;
    }
    const std::string_view found = log.substr(begin);
    const auto [difference, inLog] = std::ranges::mismatch(text, found);
    const auto same = static_cast<std::size_t>(difference - text.begin());
    // A line of which the log has the beginning, and then something else, is written anew.
    return inLog == found.end() ? same : text.substr(0, same).rfind('\n') + 1;
}

}  // namespace

/// What the file holds before the text. Each value is stored by one instruction, and in an order in which a process
/// may be killed at any time.
struct PendingLines::Header {
    /// What kind of file this is.
    std::array<char, mark.size()> kind;
    /// What is pending, as a part of the text: twice where it begins, and one more while it is being written; and
    /// where it ends.
    std::atomic<std::uint64_t> beginAndState;
    std::atomic<std::uint64_t> end;
    /// Where it is being written: to which file, and how long that was before.
    std::atomic<std::uint64_t> device;
    std::atomic<std::uint64_t> inode;
    std::atomic<std::uint64_t> length;

    std::uint64_t begin() const noexcept { return beginAndState.load(std::memory_order_relaxed) / 2; }
    bool isBeingWritten() const noexcept { return beginAndState.load(std::memory_order_relaxed) % 2 != 0; }
    void setBegin(std::uint64_t begin, bool isBeingWritten) noexcept {
        beginAndState.store(2 * begin + (isBeingWritten ? 1 : 0), std::memory_order_release);
    }
};

PendingLines::Header& PendingLines::header() const noexcept {
    static_assert(sizeof(Header) <= headerSize && std::atomic<std::uint64_t>::is_always_lock_free);
    return *reinterpret_cast<Header*>(mapping_->bytes().data());
}

char* PendingLines::data() const noexcept {
    return mapping_->bytes().data() + headerSize;
}

std::size_t PendingLines::capacity() const noexcept {
    return mapping_->bytes().size() - headerSize;
}

std::string_view PendingLines::mappedText() const noexcept {
    const std::size_t begin = header().begin();
    return {data() + begin, header().end.load(std::memory_order_relaxed) - begin};
}

bool PendingLines::appendToMapping(std::string_view line) noexcept {
    const std::size_t end = header().end.load(std::memory_order_relaxed);
    if (line.size() >= capacity() - end) {
        return false;
    }
    char* const place = data() + end;
    std::memcpy(place, line.data(), line.size());
    place[line.size()] = '\n';
    header().end.store(end + line.size() + 1, std::memory_order_release);
    return true;
}

void PendingLines::noteWriting(const FileHandle& handle, std::size_t size) noexcept {
    struct stat status {};
    if (::fstat(handle.descriptor(), &status) != 0) {
        return;
    }
    Header& header = this->header();
    const std::uint64_t begin = header.end.load(std::memory_order_relaxed) - size;
    header.setBegin(begin, false);
    header.device.store(status.st_dev, std::memory_order_release);
    header.inode.store(status.st_ino, std::memory_order_release);
    header.length.store(static_cast<std::uint64_t>(status.st_size), std::memory_order_release);
    header.setBegin(begin, true);
}

void PendingLines::clear() {
    if (isMapped()) {
        Header& header = this->header();
        // Nothing is pending once the end is 0, whatever the beginning.
        header.end.store(0, std::memory_order_release);
        header.setBegin(0, false);
        return;
    }
    constexpr std::size_t keptCapacity = 262'144;
    if (text_.capacity() > keptCapacity) {
        std::string().swap(text_);  // an assignment would keep the memory
    } else {
        text_.clear();
    }
}

FileResult<void> PendingLines::moveTo(const std::string& path, std::size_t capacity, const std::string& logPath) {
    moveToMemory();
    auto opened = SharedMapping::open(path, headerSize + capacity, mark);
    if (!opened) {
        return opened.error();
    }
    mapping_ = *std::move(opened);
    if (header().kind[0] == 0) {
        mark.copy(header().kind.data(), mark.size());
    } else {
        recover(logPath);
    }
    return {};
}

void PendingLines::moveToMemory() {
    mapping_ = nullptr;
}

/// Takes over what another process left.
void PendingLines::recover(const std::string& logPath) {
    Header& header = this->header();
    const std::size_t begin = header.begin();
    const std::size_t end = header.end;
    // Only whole lines: after a failure of the machine there may be anything.
    const std::size_t usable = begin < end && end <= capacity() ? std::string_view(data(), end).rfind('\n') + 1 : 0;
    if (usable <= begin) {
        clear();
        return;
    }
    header.end = usable;
    if (header.isBeingWritten()) {
        const auto log = findFile(logPath, {.device = header.device, .inode = header.inode});
        // With one instruction: this process may be killed, too.
        header.setBegin(begin + (log ? sizeInLog(*log) : 0), false);
    }
}

/// How much of what is pending is in the file at `path`, to which it was being written. Ends with a line.
std::size_t PendingLines::sizeInLog(const std::string& path) const {
    // Other processes may have written between.
    constexpr std::size_t usualSizeOfOthers = 16'777'216;
    const std::string_view text = mappedText();
    const std::size_t written =
        sizeWritten(text, contentsOfFile(path, header().length, text.size() + usualSizeOfOthers));
    if (written == 0 || text[written - 1] == '\n') {
        return written;
    }
    const std::size_t endOfLine = text.find('\n', written) + 1;
    return complete(path, text.substr(written, endOfLine - written)) ? endOfLine : text.rfind('\n', written) + 1;
}

}  // namespace velora
