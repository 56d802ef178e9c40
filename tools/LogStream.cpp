#include "LogStream.h"

#include <fmt/format.h>
#include <limits>
#include <sys/stat.h>
#include <utility>

#include "Complaint.h"

namespace velora {

namespace {

// Files stay open until their turn, so that a rotation meanwhile does no harm, but only so many, the last ones: these
// are the most recent ones, of which alone that can be expected.
constexpr std::size_t mostOpenBeforeTurn = 32;

/// Whether the file can be closed and opened again.
bool isRegular(const Descriptor& file, std::uint64_t& size) {
    struct stat status {};
    const bool isIt = ::fstat(file.number(), &status) == 0 && S_ISREG(status.st_mode);
    size = isIt ? static_cast<std::uint64_t>(status.st_size) : 0;
    return isIt;
}

/// The date of the record that the file begins with; the earliest of all if it has none.
Date firstDate(const Descriptor& file) {
    std::string sample(logSampleSize, '\0');
    const ssize_t size = ::pread(file.number(), sample.data(), sample.size(), 0);
    sample.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    const std::string_view line = lineAt(sample, 0);
    return dateOf(line, LogLayout::of(sample).head(line)).value_or(Date::min());
}

}  // namespace

/// A file with its next accepted record. Until its turn comes there is none: its date is that with which it begins.
class LogStream::Source {
public:
    Source(std::string path, Descriptor file, const LogFilter& filter, Date date)
        : path_(std::move(path)), file_(std::move(file)), scanner_(filter), date_(date) {}

    /// Goes on to the next record; returns whether there is one.
    bool advance(LogProgress& progress, bool needsDate, const std::function<void()>& beforeReading) {
        if (!reader_) {
            reader_.emplace(std::move(file_));
        }
        while (!(record_ = scanner_.next())) {
            const std::uint64_t before = reader_->position();
            beforeReading();
            const auto block = reader_->next();
            progress.advance(reader_->position() - before);
            if (!block) {
                return false;
            }
            scanner_.begin(*block, reader_->layout());
        }
        if (needsDate) {
            date_ = dateOf(record_->text, record_->head).value_or(date_);
        }
        return true;
    }

    void closeUntilTurn() { file_ = Descriptor(); }
    /// Opens the file again if it was closed.
    FileResult<void> reopen() {
        if (!reader_ && !file_.isOpen()) {
            auto file = openForReading(path_);
            if (!file) {
                return file.error();
            }
            file_ = *std::move(file);
        }
        return {};
    }

    bool hasRecord() const { return record_.has_value(); }
    const LogRecord& record() const { return *record_; }
    Date date() const { return date_; }
    const std::string& path() const { return path_; }
    int error() const { return reader_ ? reader_->error() : 0; }

private:
    std::string path_;
    Descriptor file_;
    std::optional<LogReader> reader_;
    LogScanner scanner_;
    std::optional<LogRecord> record_;
    Date date_;
};

LogStream::LogStream(const std::vector<std::string>& paths, const LogFilter& filter) : hasSeveral_(paths.size() > 1) {
    std::uint64_t total = 0;
    bool knowsTotal = true;
    for (std::size_t index = 0; index < paths.size(); ++index) {
        const std::string& path = paths[index];
        auto file = openForReading(path);
        if (!file) {
            complain(file.error().description);
            hasFailed_ = true;
            continue;
        }
        std::uint64_t size = 0;
        const bool isOrdinary = isRegular(*file, size) && path != "-";
        total += size;
        knowsTotal = knowsTotal && isOrdinary;
        const Date date = hasSeveral_ && isOrdinary ? firstDate(*file) : Date::min();
        sources_.push_back(std::make_unique<Source>(path, *std::move(file), filter, date));
        if (isOrdinary && paths.size() - index > mostOpenBeforeTurn) {
            sources_.back()->closeUntilTurn();
        }
    }
    progress_ = std::make_unique<LogProgress>(knowsTotal ? total : 0);
}

LogStream::~LogStream() = default;

/// Makes the source with the earliest date the current one.
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

void LogStream::remove(const Source& source) {
    std::erase_if(sources_, [&](const auto& each) { return each.get() == &source; });
}

/// Goes on to the source's next record; complains if that fails.
bool LogStream::advance(Source& source) {
    if (const auto opened = source.reopen(); !opened) {
        complain(opened.error().description);
        hasFailed_ = true;
        return false;
    }
    if (source.advance(*progress_, hasSeveral_, beforeReading_)) {
        return true;
    }
    if (source.error() != 0) {
        complain(fmt::format("{}: {}", source.path(), reasonOf(source.error())));
        hasFailed_ = true;
    }
    return false;
}

/// Has the current source go on, and another one come if it is its turn then.
void LogStream::goOn() {
    if (!advance(*current_)) {
        remove(*current_);
        choose();
    } else if (current_->date() > otherDate_) {
        choose();
    }
}

std::optional<LogRecord> LogStream::next() {
    if (current_ == nullptr) {
        choose();
    } else {
        goOn();
    }
    while (current_ != nullptr && !current_->hasRecord()) {
        goOn();
    }
    return current_ == nullptr ? std::nullopt : std::optional(current_->record());
}

}  // namespace velora
