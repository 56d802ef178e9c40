// The formatters of lines. A digit is the level; then follow a line each for the text before, the text after, a custom
// code and a colour, eight bytes each for two colours as numbers, and the message. Taking the codes off again, undoing
// the escapes and reading the JSON must give the message back.

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <support/Fuzzing.h>

#include <Velora_UserDefaults/Platform/Making.h>
#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIColorLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/Base64LogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/EscapingLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/JSONLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/PrePostFixLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/XcodeColorsLogFormatter.h>

namespace velora::test {
namespace {

struct Line {
    Level level;
    std::string message;
};

std::string formatted(LogFormatterProtocol& formatter, const Line& line, Level level) {
    LogDetails details{.level = level, .message = line.message};
    std::string message = line.message;
    const std::string& returned = formatter.format(details, message);
    require(&returned == &message, "a formatter returns the message it was given");
    return message;
}

std::string formatted(LogFormatterProtocol& formatter, const Line& line) {
    return formatted(formatter, line, line.level);
}

/// The bytes of groups of four digits; nothing if they are none.
std::optional<std::string> base64Decoded(const std::string& text) {
    const std::string digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    unsigned bits = 0;
    unsigned count = 0;
    for (const char character : text) {
        const std::size_t value = digits.find(character);
        if (value == std::string::npos) {
            break;
        }
        bits = (bits << 6U | static_cast<unsigned>(value)) & 0xFFFFFFU;
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count & 0xFFU);
        }
    }
    const std::size_t padding = text.size() - std::min(text.find('='), text.size());
    const bool isComplete = text.size() % 4 == 0 && padding == (3 - bytes.size() % 3) % 3;
    return isComplete ? std::optional(bytes) : std::nullopt;
}

void checkBase64(const Line& line) {
    const auto formatter = make<Base64LogFormatter>();
    const std::string text = formatted(*formatter, line);
    if (isValidUTF8(line.message)) {
        requireEqual(base64Decoded(text).value_or("(no Base64)"), line.message, "a line from its Base64");
    } else {
        requireEqual(text, line.message, "what is no UTF-8 stays as it is");
    }
}

void checkSurrounding(const Line& line, const std::string& before, const std::string& after, Level other) {
    const auto formatter = make<PrePostFixLogFormatter>();
    formatter->apply(before, after, line.level);
    requireEqual(formatted(*formatter, line), before + line.message + after, "a line between its texts");
    require(formatter->debugDescription().find(before + " | " + after) != std::string::npos, "the texts are described");
    if (other != line.level) {
        requireEqual(formatted(*formatter, line, other), line.message, "another level's line is left alone");
    }
    formatter->apply(std::nullopt, after);
    requireEqual(formatted(*formatter, line, other), line.message + after, "a text of all levels");
    formatter->clearFormatting();
    requireEqual(formatted(*formatter, line), line.message, "no texts");
}

int numberOf(std::uint64_t word, unsigned part) {
    return static_cast<int>(word >> (part * 16U) & 0xFFFFU) - 1'000;
}

int nearestPart(int number) {
    return number < 0 ? 0 : number > 255 ? 255 : number;
}

/// The parameters of a colour by the numbers given, as a terminal takes them.
std::string codeOf(std::string_view command, std::uint64_t word) {
    return fmt::format("{};2;{};{};{}", command, nearestPart(numberOf(word, 0)), nearestPart(numberOf(word, 1)),
                       nearestPart(numberOf(word, 2)));
}

ANSIColor ansiColor(std::uint64_t word) {
    return ANSIColor::rgb(numberOf(word, 0), numberOf(word, 1), numberOf(word, 2));
}

void checkANSI(const Line& line, std::string_view custom, std::uint64_t with, std::uint64_t on) {
    const std::string reset(ANSIColorLogFormatter::reset);
    const auto formatter = make<ANSIColorLogFormatter>();
    formatter->colorize(line.level, custom);
    const std::string_view code = custom.starts_with("\x1b[") ? custom.substr(2) : custom;
    requireEqual(formatted(*formatter, line), "\x1b[" + std::string(code) + line.message + reset, "a custom code");

    formatter->colorize(line.level, ansiColor(with), ansiColor(on), {ANSIOption::bold, ANSIOption::strikethrough});
    requireEqual(formatted(*formatter, line),
                 "\x1b[" + codeOf("38", with) + ";" + codeOf("48", on) + ";1;9m" + line.message + reset,
                 "a line in mixed colours");
    formatter->colorize(line.level, ANSIColor::colorIndex(numberOf(with, 3)));
    requireEqual(formatted(*formatter, line),
                 fmt::format("\x1b[38;5;{};49m{}{}", nearestPart(numberOf(with, 3)), line.message, reset),
                 "a line in a colour of the palette");
}

/// The colour of six or eight hexadecimal digits.
std::optional<std::array<unsigned, 3>> longColor(std::string text) {
    text = text.starts_with('#') ? text.substr(1) : text;
    if ((text.size() != 6 && text.size() != 8) ||
        text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        return std::nullopt;
    }
    std::array<unsigned, 3> parts{};
    std::sscanf(text.c_str(), "%2x%2x%2x", &parts[0], &parts[1], &parts[2]);
    return parts;
}

void checkXcode(const Line& line, const std::string& colorText, std::uint64_t word) {
    const auto formatter = make<XcodeColorsLogFormatter>();
    const std::array<int, 3> on{numberOf(word, 0), numberOf(word, 1), numberOf(word, 2)};
    const auto color = Color::fromHex(colorText);
    const auto expected = longColor(colorText);
    if (colorText.size() > 5) {
        requireSame(color.has_value(), expected.has_value(), "whether a text is a colour");
    }
    formatter->colorize(line.level, XcodeColor(color), XcodeColor(on[0], on[1], on[2]));
    const std::string text = formatted(*formatter, line);
    const std::string background = fmt::format("\x1b[bg{},{},{};", on[0], on[1], on[2]);
    require(text.ends_with(background + line.message + "\x1b[;"), "a line in colours");
    if (expected) {
        const auto& parts = *expected;
        requireEqual(text.substr(0, text.find(background)),
                     fmt::format("\x1b[fg{},{},{};", parts[0], parts[1], parts[2]), "a colour of digits");
    }
}

/// The text that an escaped line stands for; the line must be one.
std::string unescaped(std::string_view line) {
    std::string text;
    while (!line.empty()) {
        const std::size_t plain = std::min(line.find('\\'), line.size());
        text += line.substr(0, plain);
        line.remove_prefix(plain);
        if (line.empty()) {
            break;
        }
        require(line.size() > 1, "a backslash is followed by something");
        const char kind = line[1];
        line.remove_prefix(2);
        const std::string_view letters = "\\nrt";
        if (const std::size_t letter = letters.find(kind); letter != std::string_view::npos) {
            text += "\\\n\r\t"[letter];
            continue;
        }
        require(kind == 'x' || (kind == 'u' && line.starts_with('{')), "an escape is one of those promised");
        const std::string digits(kind == 'x' ? line.substr(0, 2) : line.substr(1, line.find('}') - 1));
        line.remove_prefix(digits.size() + (kind == 'x' ? 0 : 2));
        const auto number = static_cast<char32_t>(std::stoul(digits, nullptr, 16));
        if (kind == 'x') {
            text += static_cast<char>(number);
        } else if (number < 0x800) {
            text += {static_cast<char>(0xC0 | number >> 6U), static_cast<char>(0x80 | (number & 0x3F))};
        } else {
            text += {static_cast<char>(0xE0 | number >> 12U), static_cast<char>(0x80 | (number >> 6U & 0x3F)),
                     static_cast<char>(0x80 | (number & 0x3F))};
        }
    }
    return text;
}

bool hasControls(std::string_view text) {
    return std::ranges::any_of(text, [](char each) {
        const auto byte = static_cast<unsigned char>(each);
        return byte < ' ' || byte == 0x7F;
    });
}

void checkEscaping(const Line& line) {
    const std::string text = formatted(*make<EscapingLogFormatter>(), line);
    require(isValidUTF8(text) && !hasControls(text), "an escaped line is text of one line");
    requireEqual(unescaped(text), line.message, "a line from its escapes");
}

void checkJSON(const Line& line) {
    const std::string text = formatted(*make<JSONLogFormatter>(), line);
    require(isValidUTF8(text) && !hasControls(text), "an object is text of one line");
    const auto object = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
    require(object.is_object(), "a line of JSON is an object");
    if (isValidUTF8(line.message)) {
        requireEqual(object["message"].get<std::string>(), line.message, "a message from its JSON");
    }
    requireEqual(object["level"].get<std::string>(), description(line.level), "a level from its JSON");
}

}  // namespace
}  // namespace velora::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    velora::test::Input input(data, size);
    const velora::Level level = velora::Levels::allCases.at(input.number(10));
    const std::string before(input.line());
    const std::string after(input.line());
    const std::string_view custom = input.line();
    const std::string color(input.line());
    const std::uint64_t with = input.word();
    const std::uint64_t on = input.word();
    const velora::test::Line line{.level = level, .message = std::string(input.rest())};
    velora::test::checkBase64(line);
    velora::test::checkSurrounding(line, before, after, velora::Levels::allCases.at(with % 10));
    velora::test::checkANSI(line, custom, with, on);
    velora::test::checkXcode(line, color, on);
    velora::test::checkEscaping(line);
    velora::test::checkJSON(line);
    return 0;
}
