#include "LogStream.h"

#include <fmt/format.h>
#include <limits>
#include <sys/stat.h>
#include <utility>

#include "Complaint.h"

namespace velora {

/// A file with its next accepted record.
class LogStream::Source {
public:
    Source(std::string path, Descriptor file, const LogFilter& filter, bool isAlone)
        : path_(std::move(path)), reader_(std::move(file)), scanner_(filter), needsDates_(!isAlone) {}

    /// Goes on to the next record; returns whether there is one.
    bool advance(LogProgress& progress) {
        while (!(record_ = scanner_.next())) {
            const std::uint64_t before = reader_.position();
            const auto block = reader_.next();
            progress.advance(reader_.position() - before);
            if (!block) {
                return false;
            }
            scanner_.begin(*block, reader_.layout());
        }
        if (needsDates_) {
            date_ = dateOf(record_->text, record_->head).value_or(date_);
        }
        return true;
    }

    const LogRecord& record() const { return *record_; }
    Date date() const { return date_; }
    const std::string& path() const { return path_; }
    int error() const { return reader_.error(); }

private:
    std::string path_;
    LogReader reader_;
    LogScanner scanner_;
    std::optional<LogRecord> record_;
    bool needsDates_;
    Date date_ = Date::min();
};

namespace {

std::uint64_t sizeOfFile(const Descriptor& file) {
    struct stat status {};
    return ::fstat(file.number(), &status) == 0 && S_ISREG(status.st_mode) ? static_cast<std::uint64_t>(status.st_size)
                                                                           : 0;
}

}  // namespace

LogStream::LogStream(const std::vector<std::string>& paths, const LogFilter& filter) {
    std::uint64_t total = 0;
    std::vector<std::pair<std::string, Descriptor>> files;
    for (const std::string& path : paths) {
        auto file = openForReading(path);
        if (file) {
            total += sizeOfFile(*file);
            files.emplace_back(path, *std::move(file));
        } else {
            complain(file.error().description);
            hasFailed_ = true;
        }
    }
    progress_ = std::make_unique<LogProgress>(total);
    for (auto& [path, file] : files) {
        auto source = std::make_unique<Source>(path, std::move(file), filter, files.size() == 1);
        sources_.push_back(std::move(source));
    }
}

LogStream::~LogStream() = default;

/// Makes the source with the earliest record the current one.
void LogStream::choose() {
    current_ = nullptr;
    otherDate_ = Date::max();
    for (const auto& source : sources_) {
        if (current_ == nullptr || source->date() < current_->date()) {
            otherDate_ = current_ == nullptr ? otherDate_ : current_->date();
            current_ = source.get();
        } else {
            otherDate_ = std::min(otherDate_, source->date());
        }
    }
}

std::optional<LogRecord> LogStream::next() {
    const auto advanceOrRemove = [this](Source& source) {
        if (source.advance(*progress_)) {
            return true;
        }
        if (source.error() != 0) {
            complain(fmt::format("{}: {}", source.path(), reasonOf(source.error())));
            hasFailed_ = true;
        }
        return false;
    };
    if (!std::exchange(hasBegun_, true)) {
        std::erase_if(sources_, [&](const auto& source) { return !advanceOrRemove(*source); });
        choose();
    } else if (current_ != nullptr) {
        if (!advanceOrRemove(*current_)) {
            std::erase_if(sources_, [this](const auto& source) { return source.get() == current_; });
            choose();
        } else if (current_->date() > otherDate_) {
            choose();
        }
    }
    return current_ == nullptr ? std::nullopt : std::optional(current_->record());
}

}  // namespace velora
