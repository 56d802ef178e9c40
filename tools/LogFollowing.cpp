#include "LogFollowing.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <ctime>
#include <fmt/format.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "Complaint.h"
#include "LogArchives.h"
#include "LogReader.h"
#include "LogScanner.h"

namespace velora {

namespace {

constexpr std::size_t pieceSize = std::size_t{64} * 1024;
// A line that is longer is shown in parts.
constexpr std::size_t longestLine = std::size_t{64} * 1024 * 1024;
constexpr timespec betweenLooks{.tv_sec = 0, .tv_nsec = 100'000'000};
// A writer of the library finds out within a second that its file was renamed.
constexpr std::chrono::seconds longestStay{2};
// Others than the last ones have no writer any more, or this program could not keep up anyway.
constexpr std::size_t mostLeftFiles = 16;

volatile std::sig_atomic_t isAskedToEnd = 0;

void endOnSignals() {
    struct sigaction action {};
    action.sa_handler = [](int /*signal*/) { isAskedToEnd = 1; };
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

/// Which file a path or a descriptor means, whatever its name.
struct FileIdentity {
    dev_t device = 0;
    ino_t number = 0;
    bool operator==(const FileIdentity&) const = default;
};

std::optional<FileIdentity> identityOf(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? std::optional(FileIdentity{status.st_dev, status.st_ino})
                                              : std::nullopt;
}

/// A file that is read as it grows.
class GrowingFile {
public:
    GrowingFile(Descriptor file, const LogFilter& filter)
        : file_(std::move(file)), scanner_(filter), isFiltered_(filter.hasConditions()) {
        struct stat status {};
        if (::fstat(file_.number(), &status) == 0) {
            identity_ = {status.st_dev, status.st_ino};
        }
    }

    const FileIdentity& identity() const { return identity_; }

    /// Goes to the beginning of the last `lines` lines; with a filter, to that of the record they begin in, which
    /// alone tells whether the filter accepts them.
    void skipToLastLines(std::size_t lines) {
        offset_ = beginOfLastLines(lines);
        if (!isFiltered_) {
            return;
        }
        if (lines == 0) {
            isInRecord_ = true;
        } else {
            learnLayout();
            offset_ = beginOfRecord(offset_);
        }
    }

    /// Notes how much is there now: as far as `print` goes.
    void lookAtSize() {
        known_ = size();
        if (known_ < offset_) {
            offset_ = 0;
            pending_.clear();
            hasLayout_ = false;
            isInRecord_ = false;
        }
    }

    /// Prints what had come when the size was looked at last; with `isFinished` also a last line without an end.
    void print(LogOutput& output, bool isFinished) {
        while (readPiece()) {
            if (pending_.size() >= longestLine) {
                printPending(pending_.size(), output);
            }
        }
        const std::size_t feed = pending_.rfind('\n');
        printPending(isFinished ? pending_.size() : feed == std::string::npos ? 0 : feed + 1, output);
    }

private:
    off_t size() const {
        struct stat status {};
        return ::fstat(file_.number(), &status) == 0 ? status.st_size : 0;
    }

    /// What stands from `begin` to `end`.
    std::string textAt(off_t begin, off_t end) const {
        std::string text(static_cast<std::size_t>(std::max<off_t>(0, end - begin)), '\0');
        const ssize_t got = ::pread(file_.number(), text.data(), text.size(), begin);
        text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return text;
    }

    off_t beginOfLastLines(std::size_t lines) const {
        const off_t last = size();
        std::size_t feeds = 0;
        for (off_t end = last; end > 0 && lines > 0;) {
            const off_t begin = std::max<off_t>(0, end - static_cast<off_t>(pieceSize));
            const std::string piece = textAt(begin, end);
            for (std::size_t index = piece.size(); index-- > 0;) {
                const off_t next = begin + static_cast<off_t>(index) + 1;
                if (piece[index] == '\n' && next != last && ++feeds == lines) {
                    return next;
                }
            }
            end = begin;
        }
        return lines == 0 ? last : 0;
    }

    /// Where the record begins to which the line at `offset` belongs.
    off_t beginOfRecord(off_t offset) const {
        const off_t end = std::min(size(), offset + static_cast<off_t>(pieceSize));
        if (layout_.head(lineAt(textAt(offset, end), 0)).beginsRecord) {
            return offset;
        }
        for (std::size_t size = pieceSize; size <= longestLine; size *= 2) {
            const off_t begin = std::max<off_t>(0, offset - static_cast<off_t>(size));
            const std::string text = textAt(begin, offset);
            for (std::size_t at = text.size(); at > 0;) {
                at = beginOfLine(text, at - 1);
                if (at > 0 && layout_.head(lineAt(text, at)).beginsRecord) {
                    return begin + static_cast<off_t>(at);
                }
            }
            if (begin == 0) {
                return 0;
            }
        }
        return offset;
    }

    bool readPiece() {
        if (!hasLayout_) {
            learnLayout();
        }
        const std::string piece = textAt(offset_, std::min(known_, offset_ + static_cast<off_t>(pieceSize)));
        pending_ += piece;
        offset_ += static_cast<off_t>(piece.size());
        return !piece.empty();
    }

    void learnLayout() {
        const std::string sample = textAt(0, logSampleSize);
        layout_ = LogLayout::of(sample);
        hasLayout_ = sample.find('\n') != std::string::npos;
    }

    void printPending(std::size_t size, LogOutput& output) {
        if (size == 0) {
            return;
        }
        // A message may go on where the last look ended.
        const LogBlock block{.text = std::string_view(pending_).substr(0, size), .isContinued = isInRecord_};
        scanner_.begin(block, layout_);
        while (const auto record = scanner_.next()) {
            output.print(*record);
        }
        isInRecord_ = true;
        pending_.erase(0, size);
    }

    Descriptor file_;
    FileIdentity identity_;
    LogScanner scanner_;
    bool isFiltered_;
    off_t offset_ = 0;
    off_t known_ = 0;
    std::string pending_;
    LogLayout layout_;
    bool hasLayout_ = false;
    /// Whether what comes may belong to a record that was there before.
    bool isInRecord_ = false;
};

class Follower {
public:
    Follower(const Following& following, const LogFilter& filter, LogOutput& output)
        : following_(following), filter_(filter), output_(output) {}

    void run() {
        open(following_.path);
        if (file_) {
            file_->skipToLastLines(following_.lines);
        } else {
            complain(fmt::format("{} cannot be opened yet: {}", following_.path, reasonOf(errno)));
        }
        for (;;) {
            look();
            output_.flush();
            if (isAskedToEnd != 0 || output_.error() != 0) {
                break;
            }
            ::nanosleep(&betweenLooks, nullptr);
        }
        finishLeftFiles(Clock::time_point::max());
        output_.flush();
    }

private:
    using Clock = std::chrono::steady_clock;

    /// A file with another in its place, to which somebody may still write who does not know.
    struct LeftFile {
        GrowingFile file;
        Clock::time_point end;
    };

    void look() {
        do {
            // The sizes first: who has left a file for the next one wrote to it before.
            if (file_) {
                file_->lookAtSize();
            }
            for (LeftFile& left : left_) {
                left.file.lookAtSize();
                left.file.print(output_, /*isFinished=*/false);
            }
            if (file_) {
                file_->print(output_, /*isFinished=*/false);
            }
        } while (goOnIfReplaced());
        finishLeftFiles(Clock::now());
    }

    /// Goes on with the file that comes after the current one, if there is one; returns whether.
    bool goOnIfReplaced() {
        const auto identity = identityOf(following_.path);
        if (!identity || (file_ && *identity == file_->identity())) {
            return false;
        }
        // What is in the place now is opened before archives are looked for: it cannot get lost any more.
        auto live = openForReading(following_.path);
        if (!live) {
            return false;
        }
        GrowingFile next(*std::move(live), filter_);
        if (file_) {
            const auto archive = archiveAfter(file_->identity(), next.identity());
            leave();
            if (archive) {
                open(*archive);
                return true;
            }
        }
        file_.emplace(std::move(next));
        return true;
    }

    /// Puts the current file among those that were left.
    void leave() {
        left_.push_back({.file = *std::move(file_), .end = Clock::now() + longestStay});
        file_.reset();
        if (left_.size() > mostLeftFiles) {
            finish(left_.front());
            left_.erase(left_.begin());
        }
    }

    void finish(LeftFile& left) {
        left.file.lookAtSize();
        left.file.print(output_, /*isFinished=*/true);
    }

    /// Is done with the files that were to be read until `now`.
    void finishLeftFiles(Clock::time_point now) {
        while (!left_.empty() && left_.front().end <= now) {
            finish(left_.front());
            left_.erase(left_.begin());
        }
    }

    /// The path of the archive that was made next after the file `current`, unless that is `live`.
    std::optional<std::string> archiveAfter(const FileIdentity& current, const FileIdentity& live) const {
        const std::vector<std::string> archives = archivesOfLiveFile(following_.path, following_.archiveFolder);
        const auto isCurrent = [&](const std::string& path) { return identityOf(path) == current; };
        const auto found = std::find_if(archives.begin(), archives.end(), isCurrent);
        if (found == archives.end() || found + 1 == archives.end()) {
            return std::nullopt;
        }
        const auto next = identityOf(*(found + 1));
        return next && *next != live ? std::optional(*(found + 1)) : std::nullopt;
    }

    void open(const std::string& path) {
        file_.reset();
        if (auto file = openForReading(path)) {
            file_.emplace(*std::move(file), filter_);
        }
    }

    const Following& following_;
    const LogFilter& filter_;
    LogOutput& output_;
    std::optional<GrowingFile> file_;
    std::vector<LeftFile> left_;
};

}  // namespace

std::string whyNotFollowed(const std::string& path) {
    struct stat status {};
    if (path == "-") {
        return "the standard input cannot be followed; show reads it as it comes";
    }
    if (::stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode)) {
        return {};
    }
    return fmt::format("{} cannot be followed: {}", path,
                       S_ISDIR(status.st_mode) ? reasonOf(EISDIR) : "it is no regular file");
}

void follow(const Following& following, const LogFilter& filter, LogOutput& output) {
    endOnSignals();
    Follower(following, filter, output).run();
}

}  // namespace velora
