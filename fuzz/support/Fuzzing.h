#pragma once

/// What the programs of this folder have in common: how an input is taken apart, and how a promise that the
/// library broke is told.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fmt/format.h>
#include <string>
#include <string_view>
#include <unistd.h>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/SourceLocation.h>

namespace velora::test {

/// One input, taken apart from its beginning: mostly lines of text, so that people can read and write inputs.
/// What is beyond the end is empty or 0.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size)
        : bytes_(reinterpret_cast<const char*>(data), size) {}  // bytes of an input are as good as any

    bool atEnd() const { return bytes_.empty(); }

    /// What comes before the next `end`, which is dropped.
    std::string_view until(char end) {
        const std::size_t length = std::min(bytes_.find(end), bytes_.size());
        const std::string_view text = bytes_.substr(0, length);
        bytes_.remove_prefix(std::min(length + 1, bytes_.size()));
        return text;
    }
    std::string_view line() { return until('\n'); }
    std::string_view rest() { return std::exchange(bytes_, {}); }

    /// A number below `limit` from one byte; a digit stands for itself.
    std::size_t number(std::size_t limit) {
        if (atEnd()) {
            return 0;
        }
        const auto byte = static_cast<unsigned char>(bytes_.front() - '0');
        bytes_.remove_prefix(1);
        return byte % limit;
    }

    /// A number from eight bytes.
    std::uint64_t word() {
        std::uint64_t value = 0;
        for (std::size_t count = 0; count < sizeof value; ++count) {
            value = value << 8U | (atEnd() ? 0 : static_cast<unsigned char>(bytes_.front()));
            bytes_.remove_prefix(atEnd() ? 0 : 1);
        }
        return value;
    }

private:
    std::string_view bytes_;
};

/// The arguments of a command line, which are parted by tabs.
inline std::vector<std::string> argumentsOf(std::string_view line) {
    std::vector<std::string> arguments;
    Input input(reinterpret_cast<const std::uint8_t*>(line.data()), line.size());
    while (!input.atEnd()) {
        // A NUL ends an argument, as it does for a real program.
        const std::string argument(input.until('\t'));
        arguments.emplace_back(argument.c_str());
    }
    return arguments;
}

/// `text` in quotes, with what cannot be printed as \xNN.
inline std::string quoted(std::string_view text) {
    std::string result = "\"";
    for (const char character : text) {
        const bool isPlain = character >= ' ' && character <= '~' && character != '"' && character != '\\';
        result += isPlain ? std::string(1, character) : fmt::format("\\x{:02x}", static_cast<unsigned char>(character));
    }
    return result + "\"";
}

/// Ends the program, which makes libFuzzer keep the input.
[[noreturn]] inline void fail(std::string_view what, const SourceLocation& place) {
    fmt::print(stderr, "\n{}:{}: {}\n", place.fileName, place.lineNumber, what);
    std::abort();
}

/// `what` says what was expected.
inline void require(bool condition, std::string_view what, const SourceLocation& place = SourceLocation::current()) {
    if (!condition) {
        fail(what, place);
    }
}

inline void requireEqual(std::string_view actual, std::string_view expected, std::string_view what,
                         const SourceLocation& place = SourceLocation::current()) {
    if (actual != expected) {
        fail(fmt::format("{}: {} instead of {}", what, quoted(actual), quoted(expected)), place);
    }
}

template <typename Number>
void requireSame(Number actual, Number expected, std::string_view what,
                 const SourceLocation& place = SourceLocation::current()) {
    if (!(actual == expected)) {
        fail(fmt::format("{}: {} instead of {}", what, actual, expected), place);
    }
}

/// Makes temporary folders be made in memory, where the system has such a place: nothing waits for a disk then.
inline void useMemoryForTemporaryFolders() {
    if (::access("/dev/shm", W_OK) == 0) {
        ::setenv("TMPDIR", "/dev/shm", 1);
    }
}

}  // namespace velora::test
