#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/XCGLogger/Level.h>

#include "LogLine.h"

namespace velora {

/// A POSIX extended regular expression (regex(7)). Copies share it. Any thread.
class LogPattern {
public:
    /// Nothing if `text` is none; `fault` then says why.
    static std::optional<LogPattern> parsed(const std::string& text, std::string& fault);
    /// Whether it matches somewhere in `text`, where "^" and "$" are also the ends of lines. A NUL is no end.
    bool isIn(std::string_view text) const;

private:
    class Compiled;
    std::shared_ptr<const Compiled> compiled_;
};

/// Which records somebody wants to see: those that meet every condition. A condition on what cannot be recognised in
/// a record is not met.
struct LogFilter {
    /// This level or a more severe one.
    std::optional<Level> level;
    /// Not before and not after.
    std::optional<Date> since;
    std::optional<Date> until;
    /// A text anywhere in the record as it stands in the file; empty for none.
    std::string text;
    std::optional<LogPattern> pattern;
    /// The source file's name and the thread's name; empty for any.
    std::string file;
    std::string thread;

    /// Whether there is any.
    bool hasConditions() const;
    /// Whether a record with the head `head` meets them. `record` has all of its lines.
    bool accepts(const LogHead& head, std::string_view record) const;

    /// A text that every accepted record is known to hold; empty if there is none. Refers to this.
    std::string_view needle() const;
};

}  // namespace velora
