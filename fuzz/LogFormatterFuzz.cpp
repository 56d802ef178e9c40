// The formatters of lines. A digit is the level; then follow a line each for the text before, the text after, a custom
// code and a colour, eight bytes each for two colours as numbers, and the message. Taking the codes off again must give
// the message back.

#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <support/Fuzzing.h>

#include <Velora_UserDefaults/Platform/Making.h>
#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIColorLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/Base64LogFormatter.h>
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
    return 0;
}
