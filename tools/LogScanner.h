#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "LogFilter.h"
#include "LogLine.h"
#include "LogReader.h"

namespace velora {

/// A record as it stands in a file: its line and the further lines of its message, with their line feeds. Refers
/// to the block.
struct LogRecord {
    std::string_view text;
    LogHead head;
    /// Whether there is more of it in the next block.
    bool isCut = false;
};

/// Finds the records of blocks that a filter accepts. Looks for the text that all of these hold, if there is one, and
/// takes apart only the records that hold it. One thread at a time.
class LogScanner {
public:
    /// `filter` must outlive the object.
    explicit LogScanner(const LogFilter& filter) : filter_(&filter), needle_(filter.needle()) {}

    /// Goes on with `block`, in which records begin as `layout` says. Lines at its beginning that begin none belong,
    /// if it is continued, to the last record of the block before; else they are a record by themselves.
    void begin(const LogBlock& block, const LogLayout& layout);
    /// The next record; nothing if there is no more in the block.
    std::optional<LogRecord> next();

private:
    void lookAt(std::size_t begin);
    void goToEndOfRecord();
    bool goToNextCandidate();

    const LogFilter* filter_;
    std::string_view needle_;
    std::string_view text_;
    LogLayout layout_;
    /// Where the line begins that was looked at last, where the next does, and what the look told.
    std::size_t at_ = 0;
    std::size_t next_ = 0;
    LogHead head_;
    bool beginsInRecord_ = false;
    bool isCut_ = false;
    /// Whether the last record of the block so far was accepted.
    bool lastIsAccepted_ = false;
};

}  // namespace velora
