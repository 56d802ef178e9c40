#include "LogOutput.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <unistd.h>

namespace velora {

bool usesColor(ColorChoice choice) {
    if (choice != ColorChoice::automatic) {
        return choice == ColorChoice::always;
    }
    const auto variable = [](const char* name) {
        const char* const value = std::getenv(name);
        return std::string_view(value == nullptr ? "" : value);
    };
    const std::string_view terminal = variable("TERM");
    return variable("NO_COLOR").empty() && !terminal.empty() && terminal != "dumb" && ::isatty(STDOUT_FILENO) == 1;
}

std::string_view colorBegin(Level level) {
    constexpr std::array<std::string_view, Levels::allCases.size()> colors = {
        "\x1b[2m",  "\x1b[36m",   "\x1b[32m",   "\x1b[34m",      "\x1b[33m",
        "\x1b[31m", "\x1b[1;31m", "\x1b[1;35m", "\x1b[1;37;41m", ""};
    return colors[static_cast<std::size_t>(level)];
}

LogOutput::LogOutput(bool isColored) : isColored_(isColored), isTerminal_(::isatty(STDOUT_FILENO) == 1) {}

void LogOutput::print(const LogRecord& record) {
    const LogHead& head = record.head;
    if (isColored_ && head.level) {
        print(record.text.substr(0, head.levelAt));
        print(colorBegin(*head.level));
        print(record.text.substr(head.levelAt, head.levelSize));
        print(colorEnd);
        print(record.text.substr(head.levelAt + head.levelSize));
    } else {
        print(record.text);
    }
    if (!record.isCut && !record.text.ends_with('\n')) {
        print("\n");
    }
    if (isTerminal_) {
        flush();
    }
}

void LogOutput::print(std::string_view text) {
    constexpr std::size_t pieceSize = std::size_t{64} * 1024;
    hasPrinted_ = hasPrinted_ || !text.empty();
    pending_ += text;
    if (pending_.size() >= pieceSize) {
        flush();
    }
}

void LogOutput::flush() {
    std::string_view rest = pending_;
    if (!rest.empty() && beforeWriting_) {
        beforeWriting_();
    }
    while (!rest.empty() && error_ == 0) {
        const ssize_t size = ::write(STDOUT_FILENO, rest.data(), rest.size());
        if (size >= 0) {
            rest.remove_prefix(static_cast<std::size_t>(size));
        } else if (errno != EINTR) {
            error_ = errno;
        }
    }
    pending_.clear();
}

}  // namespace velora
