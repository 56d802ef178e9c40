#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <Velora_UserDefaults/Platform/Date.h>

#include "LogFilter.h"
#include "LogProgress.h"
#include "LogReader.h"
#include "LogScanner.h"

namespace velora {

/// The accepted records of several files as one stream in the order of their dates. Records of one file keep their
/// order. A record without a date goes with the one before it. One thread at a time.
class LogStream {
public:
    /// `filter` must outlive the object.
    LogStream(const std::vector<std::string>& paths, const LogFilter& filter);
    ~LogStream();

    /// The next record, which is valid until the next call; nothing at the end.
    std::optional<LogRecord> next();

    /// Whether any file could not be opened or read to its end. Each was complained of.
    bool hasFailed() const { return hasFailed_; }
    LogProgress& progress() { return *progress_; }

private:
    class Source;

    void choose();

    std::vector<std::unique_ptr<Source>> sources_;
    std::unique_ptr<LogProgress> progress_;
    Source* current_ = nullptr;
    /// The earliest record of the other sources; up to it the current one goes on.
    Date otherDate_{};
    bool hasBegun_ = false;
    bool hasFailed_ = false;
};

}  // namespace velora
