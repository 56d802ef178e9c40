#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/XCGLogger/Level.h>

/// The lines of a log file, taken apart as far as somebody asks.
namespace velora {

/// What the beginning of a line tells at a glance. Offsets are into the line.
struct LogHead {
    /// Whether the line begins a record; else it goes on with the message of the one before.
    bool beginsRecord = false;
    bool isJSON = false;
    bool hasDate = false;
    std::uint32_t dateAt = 0;
    /// Where the level's word stands, with its brackets or quotes.
    std::uint32_t levelAt = 0;
    std::uint32_t levelSize = 0;
    /// Where the columns behind date and level begin.
    std::uint32_t columnsAt = 0;
    std::optional<Level> level;
};

/// The columns that only some questions need. Empty if the line does not have them.
struct LogColumns {
    std::string logger;
    std::string thread;
    std::string file;
    /// Whether what is taken for the thread may be the line of the source, and the logger's name the thread's.
    bool mayLackThread = false;
};

/// How the records of a file begin, learnt from a sample: any subset of the columns may be shown.
///
/// In a file with dates, only a line with a date begins a record, so that whatever a message holds on its further
/// lines is recognised as belonging to it; in one without, only a line with a level's word; in one without these, only
/// a line with the arrow in front of messages. If there is nothing of all this each line is a record. A JSON object
/// that begins with a date always is one. A colour sequence in front is skipped.
class LogLayout {
public:
    /// Each line is a record.
    LogLayout() = default;
    /// What the lines of `sample`, the beginning of a file, have in common.
    static LogLayout of(std::string_view sample);

    /// Takes a look at `line`, which has no line feed at its end.
    LogHead head(std::string_view line) const;

private:
    enum class Kind : std::uint8_t { anything, arrow, levelAnywhere, level, date };

    explicit LogLayout(Kind kind) : kind_(kind) {}

    Kind kind_ = Kind::anything;
};

/// The date of a line with that head.
std::optional<Date> dateOf(std::string_view line, const LogHead& head);

/// The columns of a line with that head. Where only one of logger and thread is shown, nothing tells which: it is
/// both. The last of three columns is the source place; of fewer, one that is a name with an extension and a line
/// ("Session.cpp:42") or with one of the usual extensions of sources. A number alone may be a line or a thread: it
/// is taken for a thread.
LogColumns columnsOf(std::string_view line, const LogHead& head);

/// The level with that word, in any case: "warning".
std::optional<Level> levelOfWord(std::string_view word);

}  // namespace velora
