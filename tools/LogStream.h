#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/Date.h>

#include "LogFilter.h"
#include "LogProgress.h"
#include "LogReader.h"
#include "LogScanner.h"

namespace velora {

/// The accepted records of several files as one stream in the order of their dates. Records of one file keep their
/// order. A record without a date goes with the one before it. No record of a file comes before the date with which the
/// file begins: it is opened when that date has come, and however many files there are, few are open at once if they
/// follow each other. One thread at a time.
class LogStream {
public:
    /// `filter` must outlive the object.
    LogStream(const std::vector<std::string>& paths, const LogFilter& filter);
    ~LogStream();

    /// Has `closure` called before each read, which may take as long as a pipe's writer likes.
    void setBeforeReading(std::function<void()> closure) { beforeReading_ = std::move(closure); }
    /// The next record, which is valid until the next call; nothing at the end.
    std::optional<LogRecord> next();

    /// Whether any file could not be opened or read to its end. Each was complained of.
    bool hasFailed() const { return hasFailed_; }
    LogProgress& progress() { return *progress_; }

private:
    class Source;

    bool advance(Source& source);
    void choose();
    void goOn();
    void remove(const Source& source);

    std::vector<std::unique_ptr<Source>> sources_;
    std::unique_ptr<LogProgress> progress_;
    Source* current_ = nullptr;
    /// The earliest record of the other sources; up to it the current one goes on.
    Date otherDate_{};
    std::function<void()> beforeReading_ = [] {};
    /// Whether dates decide on anything.
    bool hasSeveral_;
    bool hasFailed_ = false;
};

}  // namespace velora
