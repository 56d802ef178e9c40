#pragma once

#include <string>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/Making.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/LogFormatterProtocol.h>

namespace velora {

class BaseDestination;

/// Replaces each line by a JSON object (RFC 8259) on one line, for programs that collect logs and should need no
/// rules to take a line apart.
///
///     JSONLogFormatter::setUp(*file);
///     log->add(file);
///     log->warning(Tag("net") | UserInfo{{"port", 5900}}, "no route");
///
/// writes, here broken for reading,
///
///     {"date":"2026-11-22T01:23:39.123456Z","level":"Warning","logger":"app","thread":"main","file":"Session.cpp",
///      "line":42,"function":"open","message":"no route","userInfo":{"port":5900,"tamberlo.xcglogger.tags":"net"}}
///
/// - `date` is the record's in UTC, with microseconds, as RFC 3339 has it: as text, such dates sort by time.
/// - `level` is the level's own word, never that of `levelDescriptions`.
/// - `logger` and `thread` are no part of a record: they are taken from the line's columns. `thread` is there if the
///   line shows level, logger and thread; `logger` is so, too, and in lines of the engine about itself whenever they
///   show it. `setUp` turns the columns on.
/// - `file` (without its folder), `line`, `function` and `userInfo` are there if the record has them.
/// - `message` is the record's own, whatever formatters before this one made of the line.
///
/// In `userInfo` each value keeps its type: truth values, numbers, texts, lists and sets of them, dates (as above),
/// levels (their word), and `UserInfo` or maps from text to any of these within. What has no JSON form is null: NaN and
/// infinities (a text in their place would change the type of the member), an empty `std::any`, a null pointer. Of
/// any other type there is the name in angle brackets, such as "<Session>".
///
/// A record is one line of valid UTF-8 whatever it holds: what is no UTF-8 is replaced by U+FFFD, and control
/// characters and Unicode's line separators are escaped.
///
/// It has no state: safe to use from several threads at once.
class VELORA_EXPORT JSONLogFormatter : public LogFormatterProtocol, public MadeInTwoSteps {
public:
    /// `make<JSONLogFormatter>()`
    explicit JSONLogFormatter(Making key);
    ~JSONLogFormatter() override;

    /// Shows all columns of `destination` and makes a new formatter its only one. A file destination gets no append
    /// marker, which formatters do not see. Before logging starts, and for a file before `add`, which opens it.
    static void setUp(BaseDestination& destination);

    /// Replaces `message` by the JSON object.
    const std::string& format(LogDetails& logDetails, std::string& message) override;

    /// The object's own class name.
    std::string debugDescription() const override;
};

}  // namespace velora
