#include "LogFollowing.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "Complaint.h"
#include "LogArchives.h"
#include "LogReader.h"
#include "LogScanner.h"

namespace velora {

namespace {

constexpr std::size_t sampleSize = std::size_t{64} * 1024;
constexpr std::size_t pieceSize = std::size_t{64} * 1024;
// A line that is longer is shown in parts.
constexpr std::size_t longestLine = std::size_t{64} * 1024 * 1024;
constexpr timespec betweenLooks{.tv_sec = 0, .tv_nsec = 100'000'000};

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
    explicit GrowingFile(Descriptor file) : file_(std::move(file)) {
        struct stat status {};
        if (::fstat(file_.number(), &status) == 0) {
            identity_ = {status.st_dev, status.st_ino};
        }
    }

    const FileIdentity& identity() const { return identity_; }

    /// Goes to the beginning of the last `lines` lines.
    void skipToLastLines(std::size_t lines) {
        off_t end = size();
        std::string piece;
        offset_ = end;
        std::size_t feeds = 0;
        while (end > 0) {
            const off_t begin = std::max<off_t>(0, end - static_cast<off_t>(pieceSize));
            piece.resize(static_cast<std::size_t>(end - begin));
            const ssize_t got = ::pread(file_.number(), piece.data(), piece.size(), begin);
            for (ssize_t index = got - 1; index >= 0; --index) {
                const bool isLast = begin + index + 1 == offset_;
                if (piece[static_cast<std::size_t>(index)] == '\n' && !isLast && ++feeds == lines) {
                    offset_ = begin + index + 1;
                    return;
                }
            }
            if (lines == 0) {
                return;
            }
            end = begin;
        }
        offset_ = 0;
    }

    /// Prints what has come since; with `isFinished` also a last line without an end.
    void print(LogScanner& scanner, LogOutput& output, bool isFinished) {
        if (size() < offset_) {
            offset_ = 0;
            pending_.clear();
            hasLayout_ = false;
        }
        while (readPiece()) {
            if (pending_.size() >= longestLine) {
                printPending(pending_.size(), scanner, output);
            }
        }
        const std::size_t feed = pending_.rfind('\n');
        printPending(isFinished ? pending_.size() : feed == std::string::npos ? 0 : feed + 1, scanner, output);
    }

private:
    off_t size() const {
        struct stat status {};
        return ::fstat(file_.number(), &status) == 0 ? status.st_size : 0;
    }

    bool readPiece() {
        if (!hasLayout_) {
            learnLayout();
        }
        const std::size_t known = pending_.size();
        pending_.resize(known + pieceSize);
        const ssize_t got = ::pread(file_.number(), pending_.data() + known, pieceSize, offset_);
        pending_.resize(known + (got > 0 ? static_cast<std::size_t>(got) : 0));
        offset_ += got > 0 ? got : 0;
        return got > 0;
    }

    void learnLayout() {
        std::string sample(sampleSize, '\0');
        const ssize_t got = ::pread(file_.number(), sample.data(), sample.size(), 0);
        sample.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        layout_ = LogLayout::of(sample);
        hasLayout_ = sample.find('\n') != std::string::npos;
    }

    void printPending(std::size_t size, LogScanner& scanner, LogOutput& output) {
        if (size == 0) {
            return;
        }
        // A message may go on where the last look ended.
        scanner.begin({.text = std::string_view(pending_).substr(0, size), .isContinued = true}, layout_);
        while (const auto record = scanner.next()) {
            output.print(*record);
        }
        pending_.erase(0, size);
    }

    Descriptor file_;
    FileIdentity identity_;
    off_t offset_ = 0;
    std::string pending_;
    LogLayout layout_;
    bool hasLayout_ = false;
};

class Follower {
public:
    Follower(const Following& following, const LogFilter& filter, LogOutput& output)
        : following_(following), filter_(filter), scanner_(filter), output_(output) {}

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
    }

private:
    void look() {
        do {
            if (file_) {
                file_->print(scanner_, output_, /*isFinished=*/false);
            }
        } while (goOnIfReplaced());
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
        GrowingFile next(*std::move(live));
        if (file_) {
            const auto archive = archiveAfter(file_->identity(), next.identity());
            file_->print(scanner_, output_, /*isFinished=*/true);
            if (archive) {
                open(*archive);
                return true;
            }
        }
        file_.emplace(std::move(next));
        scanner_ = LogScanner(filter_);
        return true;
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
            file_.emplace(*std::move(file));
        }
        scanner_ = LogScanner(filter_);
    }

    const Following& following_;
    const LogFilter& filter_;
    LogScanner scanner_;
    LogOutput& output_;
    std::optional<GrowingFile> file_;
};

}  // namespace

void follow(const Following& following, const LogFilter& filter, LogOutput& output) {
    endOnSignals();
    Follower(following, filter, output).run();
}

}  // namespace velora
