#include <cstddef>
#include <fmt/format.h>
#include <iterator>
#include <string_view>

#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/Platform/TypeName.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/EscapingLogFormatter.h>

namespace velora {

namespace {

/// Where a character lies in the bytes of a line, and which it is.
struct Character {
    std::size_t size;
    char32_t codePoint;
    bool isWellFormed;
};

bool isPlainASCII(char byte) {
    return byte >= ' ' && byte <= '~' && byte != '\\';
}

/// How many bytes a character has that begins with `lead`, if it is one.
std::size_t sizeFrom(unsigned lead) {
    if (lead < 0x80U) {
        return 1;
    }
    if (lead < 0xE0U) {
        return 2;
    }
    return lead < 0xF0U ? 3 : 4;
}

/// The first character of `text`, which is not empty, or its first byte if that begins none.
Character firstCharacter(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    const std::string_view bytes = text.substr(0, sizeFrom(lead));
    if (!isValidUTF8(bytes)) {
        return {.size = 1, .codePoint = lead, .isWellFormed = false};
    }
    // The lead byte of a sequence of n bytes has n + 1 bits before those of the character.
    char32_t codePoint = bytes.size() == 1 ? lead : lead & (0x7FU >> bytes.size());
    for (const char byte : bytes.substr(1)) {
        codePoint = codePoint << 6U | (static_cast<unsigned char>(byte) & 0x3FU);
    }
    return {.size = bytes.size(), .codePoint = codePoint, .isWellFormed = true};
}

/// Whether a character above ASCII ends lines, controls terminals or reorders text: the controls C1, the separators,
/// and what Unicode gives the property Bidi_Control (UAX #9).
bool misleads(char32_t codePoint) {
    const auto isWithin = [codePoint](char32_t first, char32_t last) {
        return first <= codePoint && codePoint <= last;
    };
    return isWithin(0x80, 0x9F) || codePoint == 0x61C || isWithin(0x200E, 0x200F) || isWithin(0x2028, 0x202E) ||
           isWithin(0x2066, 0x2069);
}

bool isToBeEscaped(const Character& character) {
    if (!character.isWellFormed) {
        return true;
    }
    return character.codePoint < 0x80 ? !isPlainASCII(static_cast<char>(character.codePoint))
                                      : misleads(character.codePoint);
}

/// The position of the first byte at or after `start` that is to be escaped; the line's size if there is none.
std::size_t findEscape(std::string_view line, std::size_t start) {
    while (start < line.size()) {
        if (isPlainASCII(line[start])) {
            ++start;
            continue;
        }
        const Character character = firstCharacter(line.substr(start));
        if (isToBeEscaped(character)) {
            break;
        }
        start += character.size;
    }
    return start;
}

void appendEscape(std::string& escaped, const Character& character) {
    switch (character.codePoint) {
        case '\\':
            escaped += "\\\\";
            return;
        case '\n':
            escaped += "\\n";
            return;
        case '\r':
            escaped += "\\r";
            return;
        case '\t':
            escaped += "\\t";
            return;
        default:
            break;
    }
    const auto number = static_cast<unsigned>(character.codePoint);
    if (!character.isWellFormed || number < 0x80) {
        fmt::format_to(std::back_inserter(escaped), "\\x{:02x}", number);
    } else {
        fmt::format_to(std::back_inserter(escaped), "\\u{{{:x}}}", number);
    }
}

std::string escapedFrom(std::string_view line, std::size_t firstEscape) {
    std::string escaped;
    escaped.reserve(line.size() + line.size() / 8 + 8);
    std::size_t start = 0;
    for (std::size_t end = firstEscape; end < line.size(); end = findEscape(line, start)) {
        const Character character = firstCharacter(line.substr(end));
        escaped += line.substr(start, end - start);
        appendEscape(escaped, character);
        start = end + character.size;
    }
    return escaped.append(line.substr(start));
}

}  // namespace

EscapingLogFormatter::EscapingLogFormatter(Making key) : MadeInTwoSteps(key) {}

EscapingLogFormatter::~EscapingLogFormatter() = default;

const std::string& EscapingLogFormatter::format(LogDetails& /*logDetails*/, std::string& message) {
    const std::size_t firstEscape = findEscape(message, 0);
    if (firstEscape < message.size()) {
        message = escapedFrom(message, firstEscape);
    }
    return message;
}

std::string EscapingLogFormatter::debugDescription() const {
    return dynamicTypeName(*this);
}

}  // namespace velora
