#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/ConsoleDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIColorLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/EscapingLogFormatter.h>

#include "XCGLogger/LogFormatters/FormatterTestSupport.h"
#include "support/RecordingDestination.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

using namespace std::string_literals;

static_assert(!std::is_default_constructible_v<EscapingLogFormatter>);

std::string formatted(std::string line) {
    return test::formatted(*make<EscapingLogFormatter>(), Level::info, std::move(line));
}

void appendUTF8(std::string& text, std::uint32_t codePoint) {
    const auto add = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
    if (codePoint < 0x80) {
        add(codePoint);
    } else if (codePoint < 0x800) {
        add(0xC0U | codePoint >> 6U);
    } else if (codePoint < 0x10000) {
        add(0xE0U | codePoint >> 12U);
    } else {
        add(0xF0U | codePoint >> 18U);
    }
    for (std::uint32_t size = codePoint < 0x80 ? 0 : codePoint < 0x800 ? 1 : codePoint < 0x10000 ? 2 : 3; size > 0;) {
        --size;
        add(0x80U | (codePoint >> 6U * size & 0x3FU));
    }
}

/// What the escapes of `line` stand for, written from the table in the header alone.
std::string unescaped(std::string_view line) {
    std::string text;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (line[i] != '\\') {
            text += line[i];
            continue;
        }
        const char kind = line[++i];
        if (kind == 'x') {
            text += static_cast<char>(std::stoul(std::string(line.substr(i + 1, 2)), nullptr, 16));
            i += 2;
        } else if (kind == 'u') {
            const std::size_t end = line.find('}', i);
            appendUTF8(text, static_cast<std::uint32_t>(
                                 std::stoul(std::string(line.substr(i + 2, end - i - 2)), nullptr, 16)));
            i = end;
        } else {
            text += kind == 'n' ? '\n' : kind == 'r' ? '\r' : kind == 't' ? '\t' : kind;
        }
    }
    return text;
}

TEST(EscapingLogFormatter, LeavesPlainTextAsItIs) {
    EXPECT_EQ(formatted(""), "");
    std::string printable;
    for (char byte = ' '; byte <= '~'; ++byte) {
        printable += byte == '\\' ? "" : std::string(1, byte);
    }
    EXPECT_EQ(formatted(printable), printable);
    EXPECT_EQ(formatted("grüße 日本語 👩‍👩‍👧 שלום"),
              "grüße 日本語 👩‍👩‍👧 שלום");
}

TEST(EscapingLogFormatter, LeavesNoLineEndThatCouldForgeALine) {
    EXPECT_EQ(formatted("a\n2024-03-01 [Error] > forged"), "a\\n2024-03-01 [Error] > forged");
    EXPECT_EQ(formatted("a\r\nb\n"), "a\\r\\nb\\n");
    EXPECT_EQ(formatted("a\vb\fc\xc2\x85"
                        "d\u2028e\u2029f"),
              "a\\x0bb\\x0cc\\u{85}d\\u{2028}e\\u{2029}f");
}

TEST(EscapingLogFormatter, EscapesEveryControlCharacter) {
    EXPECT_EQ(formatted("\t"), "\\t");
    EXPECT_EQ(formatted("a\0b"s), "a\\x00b");
    EXPECT_EQ(formatted("\x1b[31mred\x1b[0m\a"), "\\x1b[31mred\\x1b[0m\\x07");
    EXPECT_EQ(formatted("\x7f"), "\\x7f");
    EXPECT_EQ(formatted("\u009b31m"), "\\u{9b}31m");
    EXPECT_EQ(formatted("\u0080\u009f\u00a0"), "\\u{80}\\u{9f}\u00a0");
    for (char byte = 0; byte < ' '; ++byte) {
        for (const char left : formatted(std::string(1, byte))) {
            EXPECT_GE(left, ' ') << static_cast<int>(byte);
        }
    }
}

TEST(EscapingLogFormatter, EscapesEveryBidirectionalControl) {
    EXPECT_EQ(formatted("if \u202e\u2066// check\u2069 \u2066"), "if \\u{202e}\\u{2066}// check\\u{2069} \\u{2066}");
    EXPECT_EQ(formatted("\u061c\u200e\u200f"), "\\u{61c}\\u{200e}\\u{200f}");
    EXPECT_EQ(formatted("\u202a\u202b\u202c\u202d\u2067\u2068"),
              "\\u{202a}\\u{202b}\\u{202c}\\u{202d}\\u{2067}\\u{2068}");
    // Their neighbours, without which some scripts and emoji cannot be written.
    EXPECT_EQ(formatted("\u061b\u200c\u200d\u2027\u202f\u2065\u206a"), "\u061b\u200c\u200d\u2027\u202f\u2065\u206a");
}

TEST(EscapingLogFormatter, ShowsBytesThatAreNoUTF8) {
    EXPECT_EQ(formatted("caf\xe9!"), "caf\\xe9!");
    EXPECT_EQ(formatted("\xc3"), "\\xc3");
    EXPECT_EQ(formatted("\xe2\x82"), "\\xe2\\x82");
    EXPECT_EQ(formatted("\xe2\x82z\xe2\x82\xac"), "\\xe2\\x82z€");
    EXPECT_EQ(formatted("\x85\xff\xfe"), "\\x85\\xff\\xfe");
    EXPECT_EQ(formatted("\xc0\x8a"), "\\xc0\\x8a") << "an overlong line feed";
    EXPECT_EQ(formatted("\xe0\x80\x8a\xf0\x80\x80\x8a"), "\\xe0\\x80\\x8a\\xf0\\x80\\x80\\x8a");
    EXPECT_EQ(formatted("\xed\xa0\x80"), "\\xed\\xa0\\x80") << "a surrogate";
    EXPECT_EQ(formatted("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80") << "above U+10FFFF";
    EXPECT_EQ(formatted("\xf4\x8f\xbf\xbf"), "\xf4\x8f\xbf\xbf");
}

TEST(EscapingLogFormatter, GivesDifferentLinesForDifferentTexts) {
    EXPECT_EQ(formatted("\\n"), "\\\\n");
    EXPECT_EQ(formatted("C:\\new"), "C:\\\\new");
    const std::set<std::string> lines{formatted("\x85"),    formatted("\u0085"),  formatted("\\x85"),
                                      formatted("\\u{85}"), formatted("\\\\x85"), formatted("\n"),
                                      formatted("\\n"),     formatted("\\\n"),    formatted("\\\\n")};
    EXPECT_EQ(lines.size(), 9U);
}

TEST(EscapingLogFormatter, CanBeUndoneByteForByteAndGivesOneLineOfUTF8) {
    std::mt19937 random(20240301);
    // Bytes from which characters that matter are likely to come together.
    const std::string bytes =
        "a\\nxu{}\n\r\t\x1b\x7f\x80\x8b\x85\xa8\xa9\xae\xbf\xc2\xc3\xd8\xe2\xed\xf0\xf4\xff"s + '\0';
    for (int round = 0; round < 20'000; ++round) {
        std::string text;
        for (std::size_t size = random() % 12; size > 0; --size) {
            text += random() % 8 == 0 ? std::string("\u202e\u2028\U0001f600")
                                      : std::string(1, bytes[random() % bytes.size()]);
        }
        const std::string line = formatted(text);
        ASSERT_EQ(unescaped(line), text);
        ASSERT_TRUE(isValidUTF8(line));
        ASSERT_EQ(line.find_first_of("\n\r\x1b"), std::string::npos);
    }
}

TEST(EscapingLogFormatter, LetsAFileHaveOneLineForEachMessage) {
    const TemporaryFolder folder;
    const RecordedLogger<> logger;
    const auto file = make<FileDestination>(nullptr, folder / "app.log", "file");
    hideColumns(*file);
    file->setFormatters({{make<EscapingLogFormatter>()}});
    logger.log->add(file);
    const std::size_t beginning = readFile(folder / "app.log").size();
    logger.log->info("a\n> forged\n");
    logger.log->info("not UTF-8: \xff");
    EXPECT_EQ(readFile(folder / "app.log").substr(beginning), "> a\\n> forged\\n\n> not UTF-8: \\xff\n");
}

TEST(EscapingLogFormatter, LeavesATerminalToTheColoursOfFormattersAfterIt) {
    const RecordedLogger<> logger;
    const auto console = make<ConsoleDestination>(nullptr, "console");
    hideColumns(*console);
    const auto colors = make<ANSIColorLogFormatter>();
    colors->colorize(Level::info, ANSIColor::red);
    console->setFormatters({{make<EscapingLogFormatter>(), colors}});
    logger.log->add(console);
    ::testing::internal::CaptureStdout();
    logger.log->info("\x1b]0;title\a");
    const std::string shown = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(shown.find("\x1b]"), std::string::npos);
    EXPECT_NE(shown.find("> \\x1b]0;title\\x07"), std::string::npos);
    EXPECT_TRUE(shown.starts_with("\x1b["));
}

TEST(EscapingLogFormatter, DescribesItselfByTheNameOfItsClass) {
    expectDescribesItselfByItsClass<EscapingLogFormatter>("EscapingLogFormatter");
}

}  // namespace
}  // namespace velora::test
