#pragma once

#include <string>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/Making.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/LogFormatterProtocol.h>

namespace velora {

/// Escapes what could make a reader of the log see something else than was logged: a message with a line end
/// cannot forge a second line, one with an escape sequence cannot repaint a terminal, one with a
/// bidirectional control cannot reorder what is shown.
///
///     destination->setFormatters({{make<EscapingLogFormatter>(), colors}});
///
/// Put it before formatters that add control characters of their own, as those for colours do: it would
/// escape them. It works on the whole line, columns included, so that neither a thread's name nor a file's can
/// break out. The line end that a destination puts after each line comes later and stays.
///
/// | in the line | becomes |
/// | --- | --- |
/// | backslash | `\\` |
/// | line feed, carriage return, tab | `\n`, `\r`, `\t` |
/// | another control character below U+0020, and U+007F | `\x1b`: two digits |
/// | U+0080 to U+009F, U+2028, U+2029, bidirectional controls | `\u{202e}`: without leading zeros |
/// | each byte that is not part of well-formed UTF-8 (RFC 3629) | `\xff`: two digits |
///
/// Bidirectional controls are U+061C, U+200E, U+200F, U+202A to U+202E and U+2066 to U+2069.
/// Digits are hexadecimal with small letters. All other text stays as it is. Because the backslash is escaped
/// too, two different lines never become the same one, and the original can be had back byte for byte. What comes out
/// is valid UTF-8: a file destination, which drops lines that are not, keeps it.
///
/// A line with nothing to escape is only looked at: no copy, no allocation. It has no state: safe to use from several
/// threads at once.
class VELORA_EXPORT EscapingLogFormatter : public LogFormatterProtocol, public MadeInTwoSteps {
public:
    /// `make<EscapingLogFormatter>()`
    explicit EscapingLogFormatter(Making key);
    ~EscapingLogFormatter() override;

    /// Replaces `message` by its escaped form.
    const std::string& format(LogDetails& logDetails, std::string& message) override;

    /// The object's own class name.
    std::string debugDescription() const override;
};

}  // namespace velora
