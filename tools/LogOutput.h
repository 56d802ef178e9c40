#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/XCGLogger/Level.h>

#include "LogScanner.h"

namespace velora {

/// When to colour what is printed.
enum class ColorChoice { automatic, always, never };

/// Whether to colour the standard output: as told, or if it is a terminal that knows colours and the environment's
/// NO_COLOR is not set (https://no-color.org).
bool usesColor(ColorChoice choice);

/// The escape sequence that begins the colour of a level; `colorEnd` ends it.
std::string_view colorBegin(Level level);
inline constexpr std::string_view colorEnd = "\x1b[m";

/// The standard output, in large pieces; on a terminal, record by record. One thread at a time.
class LogOutput {
public:
    explicit LogOutput(bool isColored);
    LogOutput(const LogOutput&) = delete;
    LogOutput& operator=(const LogOutput&) = delete;

    /// Prints the record, ended by a line feed, with its level coloured.
    void print(const LogRecord& record);
    void print(std::string_view text);
    /// Hands everything to the system.
    void flush();

    bool isColored() const { return isColored_; }
    /// Whether anything was printed.
    bool hasPrinted() const { return hasPrinted_; }
    /// The number of the first error; 0 if there was none. After it nothing is printed any more.
    int error() const { return error_; }
    /// Called before anything appears.
    void setBeforeWriting(std::function<void()> closure) { beforeWriting_ = std::move(closure); }

private:
    std::string pending_;
    std::function<void()> beforeWriting_;
    bool isColored_;
    bool isTerminal_;
    bool hasPrinted_ = false;
    int error_ = 0;
};

}  // namespace velora
