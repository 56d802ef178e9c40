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
#include <utility>

#include <Velora_UserDefaults/Platform/Descriptor.h>
#include <Velora_UserDefaults/Platform/FileContents.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/PendingLines.h>

namespace velora {

namespace {

constexpr std::string_view mark = "Velora pending 2";

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

/// Where a file is now that was at `path`: there, or, since programs that rotate logs move them, under another name in
/// the same folder, a folder beside it or one in either.
std::optional<std::string> findFile(const std::string& path, const FileIdentity& identity) {
    if (identityOf(path) == identity) {
        return path;
    }
    constexpr int furthestDepth = 2;
    constexpr int mostEntries = 100'000;
    std::error_code ignored;
    const StandardStreamsInUse inUse;
    const std::filesystem::path folder = std::filesystem::absolute(path, ignored).parent_path();
    for (const auto& [root, depth] : {std::pair(folder, 1), std::pair(folder.parent_path(), furthestDepth)}) {
        std::filesystem::recursive_directory_iterator each(
            root, std::filesystem::directory_options::skip_permission_denied, ignored);
        for (int count = 0; !ignored && each != std::filesystem::end(each) && count < mostEntries; ++count) {
            if (identityOf(each->path().native()) == identity) {
                return each->path().native();
            }
            if (each.depth() >= depth) {
                each.disable_recursion_pending();
            }
            each.increment(ignored);
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

/// What the file tells of one of the two texts. Each value is stored by one instruction, and in an order in which a
/// process may be killed at any time.
struct PendingLines::Buffer {
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

/// What the file holds before the two texts.
struct PendingLines::Header {
    /// What kind of file this is.
    std::array<char, mark.size()> kind;
    /// For how many bytes each text has room.
    std::atomic<std::uint64_t> capacity;
    /// Which of the two is appended to.
    std::atomic<std::uint64_t> active;
    std::array<Buffer, 2> buffers;
};

PendingLines::Header& PendingLines::header() const noexcept {
    static_assert(sizeof(Header) <= headerSize && std::atomic<std::uint64_t>::is_always_lock_free);
    return *reinterpret_cast<Header*>(mapping_->bytes().data());
}

PendingLines::Buffer& PendingLines::buffer(bool isActive) const noexcept {
    const std::uint64_t active = header().active.load(std::memory_order_relaxed) % 2;
    return header().buffers[isActive ? active : 1 - active];
}

char* PendingLines::data(bool isActive) const noexcept {
    const bool isFirst = &buffer(isActive) == header().buffers.data();
    return mapping_->bytes().data() + headerSize + (isFirst ? 0 : header().capacity.load(std::memory_order_relaxed));
}

std::size_t PendingLines::largestCapacity() const noexcept {
    return (mapping_->bytes().size() - headerSize) / 2;
}

std::string_view PendingLines::mapped(bool isActive) const noexcept {
    const Buffer& buffer = this->buffer(isActive);
    const std::size_t end = buffer.end.load(std::memory_order_relaxed);
    const std::size_t begin = end == 0 ? 0 : buffer.begin();
    return {data(isActive) + begin, end - begin};
}

bool PendingLines::appendToMapping(std::string_view line) noexcept {
    Buffer& buffer = this->buffer(true);
    const std::size_t end = buffer.end.load(std::memory_order_relaxed);
    if (line.size() >= header().capacity.load(std::memory_order_relaxed) - end) {
        return false;
    }
    char* const place = data(true) + end;
    std::memcpy(place, line.data(), line.size());
    place[line.size()] = '\n';
    buffer.end.store(end + line.size() + 1, std::memory_order_release);
    return true;
}

std::string_view PendingLines::take() noexcept {
    if (taken().empty()) {
        if (isMapped()) {
            header().active.store(1 - header().active.load(std::memory_order_relaxed) % 2, std::memory_order_release);
        } else {
            active_ = 1 - active_;
        }
    }
    return taken();
}

void PendingLines::finish() noexcept {
    if (!isMapped()) {
        constexpr std::size_t keptCapacity = 262'144;
        std::string& text = texts_[1 - active_];
        if (text.capacity() > keptCapacity) {
            std::string().swap(text);  // an assignment would keep the memory
        } else {
            text.clear();
        }
        return;
    }
    forget(false);
    if (empty()) {
        header().capacity.store(largestCapacity(), std::memory_order_release);
    }
}

void PendingLines::forgetText() noexcept {
    for (std::string& text : texts_) {
        text.clear();
    }
}

void PendingLines::forget(bool isActive) noexcept {
    // Nothing is pending once the end is 0, whatever the beginning.
    buffer(isActive).end.store(0, std::memory_order_release);
    buffer(isActive).setBegin(0, false);
}

void PendingLines::noteWriting(const FileHandle& handle, std::size_t size) noexcept {
    struct stat status {};
    if (::fstat(handle.descriptor(), &status) != 0) {
        return;
    }
    Buffer& buffer = this->buffer(false);
    const std::uint64_t begin = buffer.end.load(std::memory_order_relaxed) - size;
    buffer.setBegin(begin, false);
    buffer.device.store(status.st_dev, std::memory_order_release);
    buffer.inode.store(status.st_ino, std::memory_order_release);
    buffer.length.store(static_cast<std::uint64_t>(status.st_size), std::memory_order_release);
    buffer.setBegin(begin, true);
}

FileResult<void> PendingLines::moveTo(const std::string& path, std::size_t capacity, const std::string& logPath) {
    moveToMemory();
    auto opened = SharedMapping::open(path, headerSize + 2 * capacity, mark);
    if (!opened) {
        return opened.error();
    }
    mapping_ = *std::move(opened);
    if (header().kind[0] == 0) {
        mark.copy(header().kind.data(), mark.size());
    } else {
        recover(logPath);
    }
    if (empty()) {
        header().capacity.store(largestCapacity(), std::memory_order_release);
    }
    return {};
}

void PendingLines::moveToMemory() {
    mapping_ = nullptr;
}

/// Takes over what another process left.
void PendingLines::recover(const std::string& logPath) {
    if (header().capacity.load() > largestCapacity()) {
        forget(false);
        forget(true);
        return;
    }
    keepWholeLines(false);
    keepWholeLines(true);
    Buffer& taken = buffer(false);
    if (taken.end != 0 && taken.isBeingWritten()) {
        const auto log = findFile(logPath, {.device = taken.device, .inode = taken.inode});
        const std::size_t begin = taken.begin() + (log ? sizeInLog(*log) : 0);
        // With one instruction: this process may be killed, too.
        taken.setBegin(begin, false);
        if (begin == taken.end) {
            forget(false);
        }
    }
}

/// After a failure of the machine there may be anything.
void PendingLines::keepWholeLines(bool isActive) {
    Buffer& buffer = this->buffer(isActive);
    const std::size_t begin = buffer.begin();
    const std::size_t end = buffer.end;
    const bool isPossible = begin < end && end <= header().capacity;
    const std::size_t usable = isPossible ? std::string_view(data(isActive), end).rfind('\n') + 1 : 0;
    if (usable <= begin) {
        forget(isActive);
    } else {
        buffer.end = usable;
    }
}

/// How much of what was taken is in the file at `path`, to which it was being written. Ends with a line.
std::size_t PendingLines::sizeInLog(const std::string& path) const {
    // Other processes may have written between.
    constexpr std::size_t usualSizeOfOthers = 16'777'216;
    const std::string_view text = mapped(false);
    const std::size_t written =
        sizeWritten(text, contentsOfFile(path, buffer(false).length, text.size() + usualSizeOfOthers));
    if (written == 0 || text[written - 1] == '\n') {
        return written;
    }
    const std::size_t endOfLine = text.find('\n', written) + 1;
    return complete(path, text.substr(written, endOfLine - written)) ? endOfLine : text.rfind('\n', written) + 1;
}

}  // namespace velora
