#include "LogReader.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace velora {

namespace {

constexpr std::size_t usualCapacity = std::size_t{256} * 1024;
constexpr std::size_t largestRecord = std::size_t{64} * 1024 * 1024;

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    if (this != &other) {
        if (isOpen()) {
            ::close(number_);
        }
        number_ = other.release();
    }
    return *this;
}

Descriptor::~Descriptor() {
    if (isOpen()) {
        ::close(number_);
    }
}

int Descriptor::release() noexcept {
    return std::exchange(number_, -1);
}

FileResult<Descriptor> openForReading(const std::string& path) {
    Descriptor file(path == "-" ? ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.number(), &status) != 0) {
        return FileError::make(errno, path, "couldn’t be opened");
    }
    if (S_ISDIR(status.st_mode)) {
        return FileError::make(EISDIR, path, "couldn’t be opened");
    }
    ::posix_fadvise(file.number(), 0, 0, POSIX_FADV_SEQUENTIAL);
    return file;
}

std::size_t beginOfLine(std::string_view text, std::size_t at) noexcept {
    if (at == 0) {
        return 0;
    }
    const void* const feed = ::memrchr(text.data(), '\n', at);
    return feed == nullptr ? 0 : static_cast<std::size_t>(static_cast<const char*>(feed) - text.data()) + 1;
}

std::size_t beginOfNextLine(std::string_view text, std::size_t at) noexcept {
    const void* const feed = std::memchr(text.data() + at, '\n', text.size() - at);
    return feed == nullptr ? text.size() : static_cast<std::size_t>(static_cast<const char*>(feed) - text.data()) + 1;
}

std::string_view lineAt(std::string_view text, std::size_t begin) noexcept {
    const std::size_t next = beginOfNextLine(text, begin);
    const bool hasFeed = next > begin && text[next - 1] == '\n';
    return text.substr(begin, next - begin - (hasFeed ? 1 : 0));
}

LogReader::LogReader(Descriptor file)
    : file_(std::move(file)),
      memory_(std::make_unique_for_overwrite<char[]>(usualCapacity)),
      capacity_(usualCapacity) {}

/// Whether reading on would not wait; so it is at the end of a file, too.
bool LogReader::hasMoreNow() const {
    pollfd file{.fd = file_.number(), .events = POLLIN, .revents = 0};
    return ::poll(&file, 1, 0) != 0;
}

/// Reads until the memory is full, the file ends, or a pipe has given something and has no more for now.
void LogReader::fill() {
    const std::size_t before = end_;
    while (!isAtEnd_ && end_ < capacity_ && (end_ == before || hasMoreNow())) {
        const ssize_t size = ::read(file_.number(), memory_.get() + end_, capacity_ - end_);
        if (size > 0) {
            end_ += static_cast<std::size_t>(size);
            position_ += static_cast<std::uint64_t>(size);
        } else if (size == 0 || errno != EINTR) {
            error_ = size == 0 ? 0 : errno;
            isAtEnd_ = true;
        }
    }
    learnLayout(std::string_view(memory_.get() + before, end_ - before));
}

/// Takes `text`, which was read last, into account.
void LogReader::learnLayout(std::string_view text) {
    if (!layoutIsFixed_ && !text.empty()) {
        sample_ += text.substr(0, logSampleSize - sample_.size());
        layout_ = LogLayout::of(sample_);
        layoutIsFixed_ = sample_.size() == logSampleSize;
    }
}

/// Moves what is left to the front, or gives it more memory if it fills all there is.
void LogReader::makeRoom() {
    const std::size_t size = end_ - begin_;
    if (size == capacity_) {
        auto larger = std::make_unique_for_overwrite<char[]>(capacity_ * 2);
        std::memcpy(larger.get(), memory_.get(), size);
        memory_ = std::move(larger);
        capacity_ *= 2;
    } else {
        std::memmove(memory_.get(), memory_.get() + begin_, size);
    }
    begin_ = 0;
    end_ = size;
}

/// Where the last record begins, which may not be complete; 0 if there is no other before it.
std::size_t LogReader::endOfWholeRecords() const {
    const std::string_view text(memory_.get(), end_);
    std::size_t begin = beginOfLine(text, text.size());
    while (begin > 0 && !layout_.head(lineAt(text, begin)).beginsRecord) {
        begin = beginOfLine(text, begin - 1);
    }
    return begin;
}

std::optional<LogBlock> LogReader::next() {
    makeRoom();
    LogBlock block{.text = {}, .isContinued = isCut_};
    for (;;) {
        fill();
        if (end_ == 0) {
            return std::nullopt;
        }
        begin_ = isAtEnd_ ? end_ : endOfWholeRecords();
        isCut_ = begin_ == 0 && capacity_ >= largestRecord;
        if (isCut_) {
            begin_ = end_;
        }
        if (begin_ > 0) {
            block.text = {memory_.get(), begin_};
            block.isCut = isCut_;
            return block;
        }
        makeRoom();
    }
}

}  // namespace velora
