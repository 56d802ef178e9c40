// The program velora-log, run as people and scripts run it, on files that the library wrote.

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <pty.h>
#include <sstream>
#include <string>
#include <support/CountingFormatter.h>
#include <support/RunningProgram.h>
#include <support/TemporaryFolder.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/ThreadInfo.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIColorLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/Base64LogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/JSONLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {
namespace {

namespace fs = std::filesystem;
using testing::_;
using testing::AllOf;
using testing::AnyOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAre;

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

/// The messages of lines in the engine's layout; further lines of a message as they are.
std::vector<std::string> messagesOf(const std::string& text) {
    std::vector<std::string> messages;
    for (const std::string& line : linesOf(text)) {
        const std::size_t arrow = line.find("> ");
        messages.push_back(arrow == std::string::npos ? line : line.substr(arrow + 2));
    }
    return messages;
}

class VeloraLog : public testing::Test {
protected:
    VeloraLog() {
        ::setenv("TZ", "Europe/Berlin", 1);
        ::setenv("LC_ALL", "C.UTF-8", 1);
        ::unsetenv("NO_COLOR");
    }

    Result run(std::vector<std::string> arguments, const std::string& input = "/dev/null") const {
        RunningProgram program(VELORA_LOG_PROGRAM, std::move(arguments), input, folder / "errors");
        std::string output = program.everything();
        const int status = program.wait();
        return {.status = status, .output = std::move(output), .errors = readFile(folder / "errors")};
    }

    /// What `show` prints of the file `content` with these options.
    std::string shown(const std::string& content, std::vector<std::string> options = {}) const {
        writeFile(path, content);
        options.insert(options.begin(), "show");
        options.push_back(path);
        const Result result = run(options);
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(result.status, result.output.empty() ? 1 : 0);
        return result.output;
    }

    TemporaryFolder folder;
    const std::string path = folder / "app.log";
};

/// Has a file written by the library, with the columns that `setUp` asks for.
template <typename SetUp, typename Write>
void writeLog(const std::string& path, SetUp setUp, Write write) {
    const auto log = make<XCGLogger>("app", false);
    const auto file = make<FileDestination>(nullptr, path, "file");
    file->setOutputLevel(Level::verbose);
    log->setOutputLevel(Level::verbose);
    setUp(*file);
    ASSERT_TRUE(log->add(file));
    write(*log);
    log->remove(file);
}

void logAllLevels(const XCGLogger& log) {
    log.verbose("a verbose one");
    log.debug("a debug one\nwith a second line\n\nand a fourth");
    log.info("an info");
    log.notice("a notice");
    log.warning("a warning\n[Error] no record, but a line of one");
    log.error("an error");
    log.severe("a severe one");
    log.alert("an alert");
    log.emergency("an emergency");
}

// What the filter and the layout make of each other.

TEST_F(VeloraLog, ShowsAFileAsItIs) {
    writeLog(
        path, [](auto&) {}, logAllLevels);
    EXPECT_EQ(run({"show", path}), (Result{0, readFile(path), ""}));
}

TEST_F(VeloraLog, FiltersByLevelWhateverColumnsAreShown) {
    const auto expectErrors = [&] {
        const Result result = run({"show", "--level", "error", path});
        EXPECT_EQ(result.status, 0);
        EXPECT_THAT(messagesOf(result.output), ElementsAre("an error", "a severe one", "an alert", "an emergency"))
            << readFile(path);
    };
    for (int columns = 0; columns < 64; ++columns) {
        writeLog(
            path,
            [&](FileDestination& file) {
                const auto isOn = [&](unsigned bit) { return (static_cast<unsigned>(columns) >> bit & 1U) != 0; };
                file.setShowDate(isOn(0));
                file.setShowLogIdentifier(isOn(1));
                file.setShowThreadName(isOn(2));
                file.setShowFileName(isOn(3));
                file.setShowLineNumber(isOn(4));
                file.setShowFunctionName(isOn(5));
            },
            [](const XCGLogger& log) {
                log.warning("a warning\nwith a second line");
                log.error("an error");
                log.severe("a severe one");
                log.info("an info");
                log.alert("an alert");
                log.emergency("an emergency");
            });
        expectErrors();
    }
}

TEST_F(VeloraLog, KeepsFurtherLinesOfAMessageWithTheirRecord) {
    writeLog(
        path, [](auto&) {}, logAllLevels);
    EXPECT_THAT(linesOf(run({"show", "--grep", "second line", path}).output),
                ElementsAre(EndsWith("> a debug one"), "with a second line", "", "and a fourth"));
    EXPECT_THAT(linesOf(run({"show", "--grep", "an error", path}).output), ElementsAre(EndsWith("> an error")));
    EXPECT_THAT(linesOf(run({"show", "--level", "error", path}).output), SizeIs(4)) << "a line is no record of its own";
}

TEST_F(VeloraLog, TakesEachLineForARecordWhereNothingIsRecognised) {
    EXPECT_EQ(shown("one\ntwo\nthree\n", {"--grep", "t"}), "two\nthree\n");
    EXPECT_EQ(shown("one\ntwo\n", {"--level", "verbose"}), "");
    EXPECT_EQ(shown("> one\nmore\n> two\n", {"--grep", "more"}), "> one\nmore\n");
}

TEST_F(VeloraLog, ReadsJSONLines) {
    writeLog(
        path, [](FileDestination& file) { JSONLogFormatter::setUp(file); },
        [](const XCGLogger& log) {
            log.info("plain");
            std::thread([&] {
                setCurrentThreadName("render");
                log.error("two\nlines");
            }).join();
        });
    const std::vector<std::string> all = linesOf(readFile(path));
    ASSERT_THAT(all, SizeIs(5));
    EXPECT_EQ(run({"show", "--level", "error", path}).output, all[4] + "\n");
    EXPECT_EQ(run({"show", "--thread", "render", path}).output, all[4] + "\n");
    EXPECT_EQ(run({"show", "--thread", "main", path}).output, all[3] + "\n");
    EXPECT_EQ(run({"show", "--file", "VeloraLogTest.cpp", path}).output, all[3] + "\n" + all[4] + "\n");
    EXPECT_EQ(run({"show", "--since", "1m", path}).output, readFile(path));
    EXPECT_EQ(run({"show", "--until", "1m", path}).status, 1);
    EXPECT_EQ(run({"show", "--color", "always", "--level", "error", path}).output,
              all[4].substr(0, all[4].find("\"Error\"")) + "\x1b[31m\"Error\"\x1b[m" +
                  all[4].substr(all[4].find("\"Error\"") + 7) + "\n");
}

TEST_F(VeloraLog, ReadsLinesThatAreColouredAlready) {
    writeLog(
        path,
        [](FileDestination& file) {
            const auto colors = make<ANSIColorLogFormatter>();
            colors->colorize(Level::error, ANSIColor::red, ANSIColor::black);
            file.setFormatters({{colors}});
        },
        logAllLevels);
    EXPECT_THAT(run({"show", "--level", "error", path}).output, AllOf(StartsWith("\x1b["), HasSubstr("an error")));
    EXPECT_THAT(linesOf(run({"show", "--level", "error", path}).output), SizeIs(4));
}

TEST_F(VeloraLog, FiltersByFileAndThread) {
    writeLog(
        path, [](FileDestination& file) { file.setShowThreadName(true); },
        [](const XCGLogger& log) {
            log.info("from main about render and Other.cpp");
            std::thread([&] {
                setCurrentThreadName("render");
                log.info("from render");
                log.info(SourceLocation("open", "/src/Other.cpp", 7), [] { return "from elsewhere"; });
            }).join();
        });
    EXPECT_THAT(messagesOf(run({"show", "--thread", "render", path}).output),
                ElementsAre("from render", "from elsewhere"));
    EXPECT_THAT(messagesOf(run({"show", "--file", "Other.cpp", path}).output), ElementsAre("from elsewhere"));
    EXPECT_THAT(messagesOf(run({"show", "--thread", "main", "--file", "VeloraLogTest.cpp", path}).output),
                ElementsAre("from main about render and Other.cpp"));
    EXPECT_EQ(run({"show", "--thread", "rend", path}).status, 1) << "a name is meant as a whole";
}

const std::string hours =
    "2026-11-21 23:59:59.999 [Info] [a.cpp:1] f > before midnight\n"
    "2026-11-22 00:00:00.000 [Info] [a.cpp:1] f > midnight\n"
    "2026-11-22 01:23:39.500 [Info] [a.cpp:1] f > half\n"
    "and its second line\n"
    "2026-11-22 14:30:00.000 [Info] [a.cpp:1] f > afternoon\n";

TEST_F(VeloraLog, FiltersByTimeInWhicheverFormItIsGiven) {
    const auto since = [&](const std::string& moment) { return linesOf(shown(hours, {"--since", moment})).size(); };
    EXPECT_EQ(since("2026-11-22"), 4);
    EXPECT_EQ(since("2026-11-22 00:00"), 4);
    EXPECT_EQ(since("2026-11-22 00:00:00.001"), 3);
    EXPECT_EQ(since("2026-11-22T00:23:39.5Z"), 3) << "an hour behind the local clock";
    EXPECT_EQ(since("2026-11-22T00:23:39.501Z"), 1);
    EXPECT_EQ(since("2026-11-22T02:23:39.501+02:00"), 1);
    EXPECT_EQ(since("2026-11-21 19:23:39 -0500"), 3);
    EXPECT_EQ(since("2026-11-22T14:30:00.000000001"), 0);
}

TEST_F(VeloraLog, IncludesTheMomentsThemselves) {
    EXPECT_THAT(messagesOf(shown(hours, {"--since", "2026-11-22 00:00:00", "--until", "2026-11-22 01:23:39.500"})),
                ElementsAre("midnight", "half", "and its second line"));
    EXPECT_THAT(messagesOf(shown(hours, {"--until", "2026-11-21 23:59:59.999"})), ElementsAre("before midnight"));
}

TEST_F(VeloraLog, UnderstandsTimesRelativeToNow) {
    const DateFormatter formatter("yyyy-MM-dd HH:mm:ss.SSS");
    const auto line = [&](std::chrono::minutes ago, const std::string& message) {
        return formatter.string(currentDate() - ago) + " [Info] > " + message + "\n";
    };
    using namespace std::chrono_literals;
    const std::string content = line(48h, "days") + line(3h, "hours") + line(15min, "minutes") + line(0min, "now");
    EXPECT_THAT(messagesOf(shown(content, {"--since", "10m"})), ElementsAre("now"));
    EXPECT_THAT(messagesOf(shown(content, {"--since", "2h ago"})), ElementsAre("minutes", "now"));
    EXPECT_THAT(messagesOf(shown(content, {"--since", "1 day 1 hour", "--until", "1h30m"})), ElementsAre("hours"));
    EXPECT_THAT(messagesOf(shown(content, {"--until", "1d"})), ElementsAre("days"));
    EXPECT_THAT(messagesOf(shown(content, {"--since", "now"})), IsEmpty());
    EXPECT_THAT(messagesOf(shown(content, {"--until", "today"})), testing::Contains("days"));
}

TEST_F(VeloraLog, ReadsZonesInLines) {
    EXPECT_EQ(shown("2026-01-02 03:04:05 +0000 [Info] > x\n", {"--since", "2026-01-02T03:04:05Z"}),
              "2026-01-02 03:04:05 +0000 [Info] > x\n");
    EXPECT_EQ(shown("2026-01-02 03:04:05 +0000 [Info] > x\n", {"--since", "2026-01-02T03:04:06Z"}), "");
    EXPECT_EQ(shown("2026-07-02 03:04:05.000 [Info] > summer\n", {"--since", "2026-07-02T01:04:06Z"}), "");
    EXPECT_EQ(shown("2026-07-02 03:04:05.000 [Info] > summer\n", {"--until", "2026-07-02T01:04:05Z"}),
              "2026-07-02 03:04:05.000 [Info] > summer\n");
}

TEST_F(VeloraLog, SearchesFixedTextAndPatterns) {
    const std::string content =
        "2026-11-22 00:00:00.000 [Info] > a.b\n2026-11-22 00:00:01.000 [Info] > axb\nsecond 42\n";
    EXPECT_THAT(messagesOf(shown(content, {"--grep", "a.b"})), ElementsAre("a.b"));
    EXPECT_THAT(messagesOf(shown(content, {"--regex", "a.b"})), ElementsAre("a.b", "axb", "second 42"));
    EXPECT_THAT(messagesOf(shown(content, {"--regex", "^second [0-9]+$"})), ElementsAre("axb", "second 42"));
}

// Bad input of all kinds.

TEST_F(VeloraLog, SaysWhatIsWrongWithItsArguments) {
    writeFile(path, "x\n");
    const auto complaint = [&](std::vector<std::string> arguments) {
        const Result result = run(std::move(arguments));
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.errors, StartsWith("velora-log: "));
        return result.errors.substr(0, result.errors.find('\n'));
    };
    EXPECT_THAT(complaint({"show", "--level", "loud", path}), HasSubstr("'loud' is no level"));
    EXPECT_THAT(complaint({"show", "--since", "2026-02-30", path}), HasSubstr("'2026-02-30' is no date"));
    EXPECT_THAT(complaint({"show", "--until", "10 parsecs", path}), HasSubstr("'10 parsecs' is no date"));
    EXPECT_THAT(complaint({"show", "--since", "0001-01-01", path}), HasSubstr("'0001-01-01' is no date"));
    EXPECT_THAT(complaint({"show", "--since", "", path}), HasSubstr("'' is no date"));
    EXPECT_THAT(complaint({"show", "--regex", "(", path}), HasSubstr("'(': "));
    EXPECT_THAT(complaint({"show", "--color", "mauve", path}), HasSubstr("mauve"));
    EXPECT_THAT(complaint({"stats", "--every", "1s", path}), HasSubstr("'1s' is no duration"));
    EXPECT_THAT(complaint({"prune", folder.path().string()}), HasSubstr("--keep is required"));
    EXPECT_THAT(complaint({"prune", "--keep", "-1", folder.path().string()}), HasSubstr("-1"));
    EXPECT_THAT(complaint({"archives", folder / "missing"}), HasSubstr("missing"));
    EXPECT_THAT(complaint({"show"}), HasSubstr("FILE is required"));
    EXPECT_THAT(complaint({}), HasSubstr("subcommand is required"));
    EXPECT_THAT(complaint({"show", folder.path().string()}), HasSubstr("Is a directory"));
}

TEST_F(VeloraLog, ReadsTheOtherFilesWhenOneIsMissing) {
    writeFile(path, "x\n");
    EXPECT_EQ(run({"show", folder / "missing", path}),
              (Result{2, "x\n",
                      "velora-log: The file “" + (folder / "missing") +
                          "” couldn’t be opened: No such file or directory\n"}));
}

TEST_F(VeloraLog, TellsByItsStatusWhetherThereWasSomething) {
    writeFile(path, "x\n");
    EXPECT_EQ(run({"show", "--grep", "x", path}).status, 0);
    EXPECT_EQ(run({"show", "--grep", "y", path}).status, 1);
    EXPECT_EQ(run({"stats", "--grep", "y", path}), (Result{1, "", ""}));
    writeFile(path, "");
    EXPECT_EQ(run({"show", path}), (Result{1, "", ""}));
}

TEST_F(VeloraLog, ReadsTheStandardInput) {
    writeFile(path, hours);
    EXPECT_THAT(messagesOf(run({"show", "--grep", "midnight", "-"}, path).output),
                ElementsAre("before midnight", "midnight"));
}

TEST_F(VeloraLog, SurvivesBytesOfAllKinds) {
    const std::string head = "2026-11-22 00:00:00.000 [Info] [a.cpp:1] f > ";
    const std::string content = head + std::string("nul \0 byte\n", 11) + head + "bad \xff\xfe UTF-8\n" + head + "end";
    EXPECT_EQ(shown(content), content + "\n") << "a last line gets its end";
    EXPECT_EQ(shown(content, {"--grep", "byte"}), head + std::string("nul \0 byte\n", 11));
    EXPECT_EQ(shown(content, {"--regex", "byte$"}), head + std::string("nul \0 byte\n", 11));
    EXPECT_EQ(shown(content, {"--grep", "\xfe UTF"}), head + "bad \xff\xfe UTF-8\n");
    std::string noise;
    std::uint32_t state = 1;
    for (int byte = 0; byte < 500'000; ++byte) {
        state = state * 1'664'525U + 1'013'904'223U;
        noise += static_cast<char>(state >> 24U);
    }
    EXPECT_EQ(shown(noise + "\n"), noise + "\n");
    for (const char* const option : {"--level=info", "--since=1d", "--file=a", "--thread=b", "--regex=x{3}"}) {
        EXPECT_NE(run({"show", option, path}).status, -1) << option;
    }
    EXPECT_EQ(run({"stats", path}).status, 0);
    EXPECT_NE(run({"decode", path}).status, -1);
    const std::string json = R"({"date":"2026-11-22T00:00:00.000000Z","level":"Error","thread":"t","file":"a"})";
    std::string brokenJSON;
    for (std::size_t size = 0; size <= json.size(); ++size) {
        brokenJSON += json.substr(0, size) + "\n";
    }
    EXPECT_THAT(linesOf(shown(brokenJSON, {"--thread", "t"})), SizeIs(1));
    EXPECT_NE(shown(brokenJSON, {"--level", "error", "--color", "always"}), "");
}

TEST_F(VeloraLog, ReadsRecordsThatAreLargerThanItsBlocks) {
    const std::string head = "2026-11-22 00:00:00.000 [Error] > ";
    const std::string large = head + std::string(3'000'000, 'x') + "\nneedle\n" + std::string(2'000'000, 'y') + "\n";
    std::string small;
    for (int line = 0; line < 20'000; ++line) {
        small += "2026-11-22 00:00:00.000 [Info] > line " + std::to_string(line) + "\n";
    }
    const std::string content = small + large + small;
    EXPECT_EQ(shown(content, {"--grep", "needle"}), large);
    EXPECT_EQ(shown(content, {"--level", "error"}), large);
    EXPECT_EQ(shown(content), content);
}

TEST_F(VeloraLog, PrintsARecordBeyondAllMeasureInPieces) {
    std::string content = "2026-11-22 00:00:00.000 [Error] > ";
    for (int line = 0; line < 80; ++line) {
        content += std::string(1'000'000, static_cast<char>('a' + line % 26)) + "\n";
    }
    const std::string after = "2026-11-22 00:00:00.000 [Info] > after\n";
    EXPECT_TRUE(shown(content + after, {"--level", "error"}) == content);
    EXPECT_TRUE(run({"show", "--level", "info", path}).output == content + after);
    EXPECT_EQ(run({"show", "--grep", "after", path}).output, after);
    const std::string endless = "2026-11-22 00:00:00.000 [Error] > " + std::string(70'000'000, 'x') + "\n";
    EXPECT_TRUE(shown(endless + after, {"--level", "error"}) == endless) << "no line end gets into it";
}

TEST_F(VeloraLog, EndsQuietlyWhenNobodyReadsOn) {
    std::string content;
    for (int line = 0; line < 200'000; ++line) {
        content += "2026-11-22 00:00:00.000 [Info] > line " + std::to_string(line) + "\n";
    }
    writeFile(path, content);
    const std::string command = "bash -c '" VELORA_LOG_PROGRAM " show " + path + " 2> " + (folder / "errors") +
                                " | head -n 1 > /dev/null; exit ${PIPESTATUS[0]}'";
    const int status = std::system(command.c_str());
    EXPECT_EQ(WEXITSTATUS(status), 128 + SIGPIPE);
    EXPECT_EQ(readFile(folder / "errors"), "");
}

TEST_F(VeloraLog, SaysThatItsOutputCannotBeWritten) {
    writeFile(path, "x\n");
    const std::string command = VELORA_LOG_PROGRAM " show " + path + " > /dev/full 2> " + (folder / "errors");
    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 2);
    EXPECT_EQ(readFile(folder / "errors"), "velora-log: the output cannot be written: No space left on device\n");
}

// Colours and terminals.

TEST_F(VeloraLog, ColoursLevelsWhenToldTo) {
    const std::string line = "2026-11-22 00:00:00.000 [Error] [a.cpp:1] f > x\n";
    EXPECT_EQ(shown(line), line) << "a pipe gets no colours";
    EXPECT_EQ(shown(line, {"--color", "always"}), "2026-11-22 00:00:00.000 \x1b[31m[Error]\x1b[m [a.cpp:1] f > x\n");
    EXPECT_EQ(shown(line, {"--color=never"}), line);
}

/// What the program prints to a terminal that is its standard output and, if told, its standard error. `input` is
/// written to its standard input in pieces, some time apart.
std::string onTerminal(std::vector<std::string> arguments, bool alsoOutput,
                       const std::vector<std::string>& input = {}) {
    int terminal = -1;
    int inputPipe[2] = {-1, -1};
    EXPECT_EQ(::pipe2(inputPipe, O_CLOEXEC), 0);
    const pid_t child = ::forkpty(&terminal, nullptr, nullptr, nullptr);
    if (child == 0) {
        ::dup2(inputPipe[0], STDIN_FILENO);
        if (!alsoOutput) {
            ::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO);
        }
        std::vector<char*> argv{const_cast<char*>(VELORA_LOG_PROGRAM)};
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        ::execv(VELORA_LOG_PROGRAM, argv.data());
        ::_exit(127);
    }
    ::close(inputPipe[0]);
    for (const std::string& piece : input) {
        EXPECT_EQ(::write(inputPipe[1], piece.data(), piece.size()), static_cast<ssize_t>(piece.size()));
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
    }
    ::close(inputPipe[1]);
    std::string text;
    char buffer[4096];
    for (ssize_t size = ::read(terminal, buffer, sizeof buffer); size > 0;
         size = ::read(terminal, buffer, sizeof buffer)) {
        text.append(buffer, static_cast<std::size_t>(size));
    }
    ::close(terminal);
    ::waitpid(child, nullptr, 0);
    return text;
}

TEST_F(VeloraLog, ColoursLevelsOnATerminalUnlessToldOtherwise) {
    ::setenv("TERM", "xterm", 1);
    writeFile(path, "2026-11-22 00:00:00.000 [Error] > x\n");
    EXPECT_THAT(onTerminal({"show", path}, true), HasSubstr("\x1b[31m[Error]\x1b[m"));
    EXPECT_THAT(onTerminal({"show", "--color=never", path}, true), Not(HasSubstr("\x1b")));
    ::setenv("NO_COLOR", "1", 1);
    EXPECT_THAT(onTerminal({"show", path}, true), Not(HasSubstr("\x1b")));
    EXPECT_THAT(onTerminal({"show", "--color=always", path}, true), HasSubstr("\x1b[31m[Error]\x1b[m"));
    ::unsetenv("NO_COLOR");
    ::setenv("TERM", "dumb", 1);
    EXPECT_THAT(onTerminal({"show", path}, true), Not(HasSubstr("\x1b")));
}

TEST_F(VeloraLog, ShowsHowFarALongScanIsAndTakesTheBarAway) {
    const std::vector<std::string> pieces(60, std::string(60'000, 'x') + "\n");
    std::vector<std::string> slow(3);
    for (const std::string& piece : pieces) {
        slow.back() += piece;
    }
    // Two pauses first; then enough for several blocks.
    slow[0] = slow[1] = "x\n";
    const std::string bar = onTerminal({"stats", "-"}, false, slow);
    EXPECT_THAT(bar, ContainsRegex("\r\x1b\\[K[0-9]+ MB"));
    EXPECT_THAT(bar, EndsWith("\r\x1b[K"));
    writeFile(path, "x\n");
    EXPECT_EQ(onTerminal({"stats", path}, false), "") << "a short scan needs none";
}

// Archives.

/// A rotating destination that numbers its archives: app_1.log, app_2.log …
class RotatingLog {
public:
    explicit RotatingLog(const std::string& path, const std::string& identifier = "rotating", std::uint64_t size = 0)
        : file(make<AutoRotatingFileDestination>(
              nullptr, path, identifier,
              AutoRotatingFileDestination::Options{.maxFileSize = size,
                                                   .maxTimeInterval = 0,
                                                   .archiveSuffixDateFormatter = std::make_shared<CountingFormatter>(),
                                                   .targetMaxLogFiles = 255})) {
        EXPECT_TRUE(log->add(file));
    }
    RotatingLog(const RotatingLog&) = delete;
    RotatingLog& operator=(const RotatingLog&) = delete;
    ~RotatingLog() { log->remove(file); }

    const std::shared_ptr<XCGLogger> log = make<XCGLogger>("app", false);
    const std::shared_ptr<AutoRotatingFileDestination> file;
};

std::vector<std::string> namesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::ranges::sort(names);
    return names;
}

class VeloraLogArchives : public VeloraLog {
protected:
    VeloraLogArchives() {
        fs::create_directory(logs);
        for (const std::string name : {"app", "app_server"}) {
            RotatingLog rotating(logs / (name + ".log"), name);
            for (int rotation = 1; rotation <= 3; ++rotation) {
                rotating.log->info("{} {}", name, rotation);
                rotating.file->rotateFile();
            }
            rotating.log->info("{} live", name);
        }
        writeFile(logs / "app_0.log", "somebody else's\n");
    }

    /// The messages in `text` that begin with "app".
    static std::vector<std::string> own(const std::string& text) {
        std::vector<std::string> messages = messagesOf(text);
        std::erase_if(messages, [](const std::string& message) {
            return !message.starts_with("app") || message.find("process") != std::string::npos;
        });
        return messages;
    }

    const fs::path logs = folder.path() / "logs";
};

TEST_F(VeloraLogArchives, AreListedWithWhatThereIsToKnow) {
    const Result result = run({"archives", logs.string()});
    EXPECT_EQ(result.status, 0);
    const std::vector<std::string> lines = linesOf(result.output);
    ASSERT_THAT(lines, SizeIs(7));
    EXPECT_THAT(lines[0], ContainsRegex("^NAME +IDENTIFIER +ARCHIVED AT +SIZE +LINES$"));
    EXPECT_THAT(lines[1], ContainsRegex("^app_server_3\\.log +app_server +20[0-9-]+ [0-9:]+ +" +
                                        std::to_string(fs::file_size(logs / "app_server_3.log")) + " +" +
                                        std::to_string(linesOf(readFile(logs / "app_server_3.log")).size()) + "$"));
    EXPECT_THAT(lines[6], StartsWith("app_1.log"));
    EXPECT_THAT(linesOf(run({"archives", logs.string(), "--identifier", "app"}).output), SizeIs(4));
    EXPECT_EQ(run({"archives", logs.string(), "--identifier", "none"}), (Result{1, "", ""}));
}

TEST_F(VeloraLogArchives, AreReadBeforeTheirLiveFile) {
    const std::string live = logs / "app.log";
    EXPECT_THAT(own(run({"show", "--archives", live}).output), ElementsAre("app 1", "app 2", "app 3", "app live"));
    EXPECT_THAT(own(run({"show", live}).output), ElementsAre("app live")) << "only if they are asked for";
    EXPECT_THAT(own(run({"show", "--archives", logs / "app_server.log"}).output),
                ElementsAre("app_server 1", "app_server 2", "app_server 3", "app_server live"));
    EXPECT_THAT(own(run({"stats", "--archives", live}).output), IsEmpty());
}

TEST_F(VeloraLogArchives, AreReadFromWhicheverFolderTheyLieIn) {
    fs::create_directory(folder.path() / "old");
    fs::rename(logs / "app_2.log", folder.path() / "old/app_2.log");
    EXPECT_THAT(own(run({"show", "--archive-folder", folder / "old", logs / "app.log"}).output),
                ElementsAre("app 2", "app live"));
}

TEST_F(VeloraLogArchives, AreMergedWithOtherFilesByTime) {
    const Result result = run({"show", "--archives", logs / "app_server.log", logs / "app.log"});
    EXPECT_THAT(own(result.output), ElementsAre("app 1", "app 2", "app 3", "app live", "app_server 1", "app_server 2",
                                                "app_server 3", "app_server live"));
}

TEST_F(VeloraLogArchives, ArePrunedForEachDestination) {
    const auto all = namesIn(logs);
    const Result tried = run({"prune", logs.string(), "--keep", "2", "--dry-run"});
    EXPECT_EQ(tried,
              (Result{0, (logs / "app_server_1.log").string() + "\n" + (logs / "app_1.log").string() + "\n", ""}));
    EXPECT_EQ(namesIn(logs), all);
    EXPECT_EQ(run({"prune", logs.string(), "--keep", "2"}), tried);
    EXPECT_THAT(namesIn(logs), ElementsAre("app.log", "app_0.log", "app_2.log", "app_3.log", "app_server.log",
                                           "app_server_2.log", "app_server_3.log"));
    EXPECT_EQ(run({"prune", logs.string(), "--keep", "2"}), (Result{1, "", ""}));
    EXPECT_EQ(run({"prune", logs.string(), "--keep", "0", "--identifier", "app"}).status, 0);
    EXPECT_THAT(namesIn(logs),
                ElementsAre("app.log", "app_0.log", "app_server.log", "app_server_2.log", "app_server_3.log"));
}

TEST_F(VeloraLogArchives, ArePurgedAndNothingElseIs) {
    fs::create_directory(logs / "sub");
    fs::rename(logs / "app_3.log", logs / "sub/app_3.log");
    fs::create_symlink(logs / "sub/app_3.log", logs / "link.log");
    const std::string half = logs / "half.log";
    writeFile(half, "");
    ASSERT_EQ(::setxattr(half.c_str(), "user.tamberlo.xcglogger.archived.by", "app", 3, 0), 0);
    const auto all = namesIn(logs);
    EXPECT_THAT(linesOf(run({"purge", logs.string(), "--dry-run"}).output), SizeIs(5));
    EXPECT_EQ(namesIn(logs), all);
    EXPECT_EQ(run({"purge", logs.string()}).status, 0);
    EXPECT_THAT(namesIn(logs), ElementsAre("app.log", "app_0.log", "app_server.log", "half.log", "link.log", "sub"));
    EXPECT_TRUE(fs::exists(logs / "sub/app_3.log"));
    EXPECT_EQ(run({"purge", logs.string()}), (Result{1, "", ""}));
}

TEST_F(VeloraLogArchives, ThatCannotBeRemovedAreNamed) {
    if (::geteuid() == 0) {
        GTEST_SKIP() << "root may remove everything";
    }
    fs::permissions(logs, fs::perms::owner_read | fs::perms::owner_exec);
    const Result result = run({"purge", logs.string()});
    fs::permissions(logs, fs::perms::owner_all);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(linesOf(result.errors), SizeIs(6));
}

TEST_F(VeloraLog, ReadsArchivesByTheirNamesWhereTheyAreNotMarked) {
    const auto line = [](const std::string& day) { return "2026-11-" + day + " 00:00:00.000 [Info] > " + day + "\n"; };
    writeFile(path, line("22"));
    writeFile(folder / "app_2026-11-21_000000.log", line("20"));
    writeFile(folder / "app_2026-11-22_000000.log", line("21"));
    writeFile(folder / "app_backup.log", line("19"));
    EXPECT_EQ(run({"show", "--archives", path}).output, line("20") + line("21") + line("22"));
    EXPECT_EQ(run({"purge", folder.path().string()}), (Result{1, "", ""})) << "but never removes them";
    EXPECT_THAT(namesIn(folder.path()), SizeIs(5));
}

TEST_F(VeloraLog, MergesFilesByTimeAndKeepsTheOrderWithinOne) {
    writeFile(path,
              "2026-11-22 00:00:00.000 [Info] > a1\nmore of a1\n2026-11-22 00:00:02.000 [Info] > a2\n"
              "2026-11-22 00:00:01.500 [Info] > a3\n");
    writeFile(folder / "b.log", "no date\n2026-11-22 00:00:01.000 [Info] > b1\n2026-11-22 00:00:03.000 [Info] > b2\n");
    EXPECT_THAT(messagesOf(run({"show", path, folder / "b.log"}).output),
                ElementsAre("no date", "a1", "more of a1", "b1", "a2", "a3", "b2"));
}

// Decoding and counting.

TEST_F(VeloraLog, DecodesLinesThatABase64FormatterWrote) {
    const std::string plain = folder / "plain.log";
    for (const std::string& each : {path, plain}) {
        writeLog(
            each,
            [&](FileDestination& file) {
                file.setShowDate(false);
                if (each == path) {
                    file.setFormatters({{make<Base64LogFormatter>()}});
                }
            },
            [&](const XCGLogger& log) {
                log.info("plain");
                log.error("München\nand more");
            });
    }
    const auto ownLines = [](const std::string& text) {
        std::vector<std::string> lines = linesOf(text);
        lines.erase(lines.begin(), lines.begin() + 3);
        return lines;
    };
    EXPECT_NE(readFile(path), readFile(plain));
    EXPECT_EQ(run({"decode", path}).status, 0);
    EXPECT_EQ(ownLines(run({"decode", path}).output), ownLines(readFile(plain)));
    EXPECT_EQ(run({"decode"}, path), run({"decode", path})) << "from the standard input, too";
    EXPECT_EQ(run({"decode", plain}), (Result{1, readFile(plain), ""})) << "other lines stay";
    writeFile(path, "aGk\nQQ==\n=AAA\nA===\n/w==\n\nQUI=\n");
    EXPECT_EQ(run({"decode", path}).output, "aGk\nA\n=AAA\nA===\n/w==\n\nAB\n") << "0xFF is no text";
}

TEST_F(VeloraLog, CountsRecordsByLevelAndMinute) {
    writeFile(path,
              "2026-11-22 01:23:00.000 [Info] > a\nmore\n2026-11-22 01:23:59.999 [Error] > b\n"
              "2026-11-22 01:24:00.000 [Info] > c\n2026-11-22 01:23:01.000 [Info] > d\n2026-11-22 01:26:00.000 > e\n");
    const std::string block = "█";
    const auto bar = [&](int size) {
        std::string text;
        for (int each = 0; each < size; ++each) {
            text += block;
        }
        return text;
    };
    EXPECT_EQ(run({"stats", path}).output,
              "TIME                  Info     Error     Other       ALL\n"
              "2026-11-22 01:23         2         1         0         3  " +
                  bar(40) +
                  "\n"
                  "2026-11-22 01:24         1         0         0         1  " +
                  bar(13) +
                  "\n"
                  "2026-11-22 01:26         0         0         1         1  " +
                  bar(13) +
                  "\n"
                  "all                      3         1         1         5\n");
    EXPECT_THAT(linesOf(run({"stats", "--every", "1h", "--level", "info", path}).output),
                ElementsAre(_, StartsWith("2026-11-22 01:00         3         1         4  ██"), StartsWith("all")));
    EXPECT_THAT(run({"stats", "--color", "always", "--level", "error", path}).output, HasSubstr("\x1b[31m█"));
    ::setenv("LC_ALL", "C", 1);
    EXPECT_THAT(run({"stats", path}).output, AllOf(HasSubstr("  ####"), Not(HasSubstr(block))));
}

TEST_F(VeloraLog, MakesItsBarsStandForMoreTimeWhenThereAreManyMinutes) {
    std::string content;
    for (int minute = 0; minute < 300; ++minute) {
        content += "2026-11-22 0" + std::to_string(minute / 60) + ":" + (minute % 60 < 10 ? "0" : "") +
                   std::to_string(minute % 60) + ":00.000 [Info] > x\n";
    }
    writeFile(path, content);
    const auto lines = linesOf(run({"stats", path}).output);
    EXPECT_THAT(lines, SizeIs(2 + 20)) << "a quarter of an hour each";
    EXPECT_THAT(lines[2], StartsWith("2026-11-22 00:15        15"));
    EXPECT_THAT(linesOf(run({"stats", "--every", "1m", path}).output), SizeIs(2 + 300));
}

// Following.

class VeloraLogFollow : public VeloraLog {
protected:
    std::unique_ptr<RunningProgram> follow(std::vector<std::string> options = {}) const {
        options.insert(options.begin(), "follow");
        options.push_back(path);
        return std::make_unique<RunningProgram>(VELORA_LOG_PROGRAM, options, "/dev/null", folder / "errors");
    }
    static int interrupt(RunningProgram& program) {
        program.send(SIGINT);
        return program.wait();
    }
    void append(const std::string& text) const { std::ofstream(path, std::ios::app) << text; }
};

TEST_F(VeloraLogFollow, PrintsTheLastLinesAndWhatComes) {
    writeFile(path, "1\n2\n3\n4\n");
    const auto following = follow({"-n", "2"});
    EXPECT_EQ(following->line(), "3");
    EXPECT_EQ(following->line(), "4");
    append("5\n6");
    EXPECT_EQ(following->line(), "5");
    append("6\n");
    EXPECT_EQ(following->line(), "66");
    EXPECT_EQ(interrupt(*following), 0);
    EXPECT_EQ(readFile(folder / "errors"), "");
}

TEST_F(VeloraLogFollow, BeginsAtTheEndOrTheBeginning) {
    writeFile(path, "1\n2\n");
    const auto all = follow({"--lines", "1000"});
    EXPECT_EQ(all->line(), "1");
    EXPECT_EQ(all->line(), "2");
    const auto none = follow({"--lines", "0"});
    // Whether it has started shows only by what it prints.
    std::string line;
    std::thread writer([&] {
        for (int attempt = 0; attempt < 100; ++attempt) {
            append("new\n");
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    });
    EXPECT_EQ(none->line(), "new");
    writer.join();
}

TEST_F(VeloraLogFollow, FiltersWhatItPrints) {
    writeFile(path, "2026-11-22 00:00:00.000 [Error] > old\n");
    const auto following = follow({"--level", "error"});
    EXPECT_THAT(following->line(), EndsWith("> old"));
    append("2026-11-22 00:00:01.000 [Info] > no\nnor this\n2026-11-22 00:00:01.000 [Error] > yes\n");
    EXPECT_THAT(following->line(), EndsWith("> yes"));
    append("and its second line, later\n");
    EXPECT_EQ(following->line(), "and its second line, later");
    EXPECT_EQ(interrupt(*following), 0);
}

TEST_F(VeloraLogFollow, LosesNoLineAcrossRotationsHoweverFastTheyCome) {
    { RotatingLog first(path); }
    const auto following = follow({"--grep", "line ", "--lines", "1000"});
    std::array<int, 2> start{};
    ASSERT_EQ(::pipe2(start.data(), O_CLOEXEC), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        RotatingLog rotating(path);
        rotating.log->info("line begin");
        char go = 0;
        EXPECT_EQ(::read(start[0], &go, 1), 1);
        for (int line = 0; line < 400; ++line) {
            rotating.log->info("line {}", line);
            if (line % 100 == 50) {
                rotating.file->rotateFile();
            }
        }
        ::_exit(0);
    }
    EXPECT_THAT(following->line(), EndsWith("> line begin"));
    EXPECT_EQ(::write(start[1], "g", 1), 1);
    for (int line = 0; line < 400; ++line) {
        ASSERT_THAT(following->line(), EndsWith("> line " + std::to_string(line)));
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(interrupt(*following), 0);
    EXPECT_THAT(namesIn(folder.path()), testing::IsSupersetOf({"app_1.log", "app_2.log", "app_3.log", "app_4.log"}));
}

TEST_F(VeloraLogFollow, GoesOnAfterSlowRotations) {
    RotatingLog rotating(path);
    const auto following = follow({"--grep", "line ", "--lines", "0"});
    std::string seen;
    for (int line = 0; line < 4; ++line) {
        // Until the first one is seen, the program may not have started.
        do {
            rotating.log->info("line {}", line);
            std::this_thread::sleep_for(std::chrono::milliseconds(line == 0 ? 300 : 0));
        } while (line == 0 && !following->isReadable());
        do {
            seen = following->line();
        } while (line > 0 && seen.ends_with("> line " + std::to_string(line - 1)));
        EXPECT_THAT(seen, EndsWith("> line " + std::to_string(line)));
        rotating.file->rotateFile();
    }
    EXPECT_EQ(interrupt(*following), 0);
}

TEST_F(VeloraLogFollow, ReadsAnewWhatWasCutOff) {
    writeFile(path, "first\n");
    const auto following = follow();
    EXPECT_EQ(following->line(), "first");
    writeFile(path, "new\n");
    EXPECT_EQ(following->line(), "new");
}

TEST_F(VeloraLogFollow, WaitsForAFileThatIsNotThereYetOrNoMore) {
    const auto following = follow();
    writeFile(folder / "new", "first\n");
    fs::rename(folder / "new", path);
    EXPECT_EQ(following->line(), "first");
    EXPECT_THAT(readFile(folder / "errors"), AnyOf("", HasSubstr("cannot be opened yet: No such file or directory")));
    fs::remove(path);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    writeFile(folder / "new", "second\n");
    fs::rename(folder / "new", path);
    EXPECT_EQ(following->line(), "second");
    writeFile(folder / "new", "third\n");
    fs::rename(folder / "new", path);
    EXPECT_EQ(following->line(), "third");
    EXPECT_EQ(interrupt(*following), 0);
}

TEST_F(VeloraLogFollow, EndsWithTheStatusOfNothingFound) {
    writeFile(path, "x\n");
    const auto following = follow({"--grep", "y"});
    // A signal before it listens to signals would kill it.
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_EQ(interrupt(*following), 1);
}

// Completion.

class VeloraLogCompletion : public VeloraLog {
protected:
    /// What bash offers for the last of `words`, each followed by a newline.
    std::string offered(const std::string& words) const {
        const std::string command = "cd " + folder.path().string() +
                                    " && bash -c 'source " VELORA_COMPLETION "; COMP_WORDS=(velora-log " + words +
                                    R"(); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _velora_log; )"
                                    R"(printf "%s\n" "${COMPREPLY[@]}"' >)" +
                                    (folder / "offered");
        EXPECT_EQ(std::system(command.c_str()), 0);
        return readFile(folder / "offered");
    }
};

TEST_F(VeloraLogCompletion, OffersCommandsOptionsValuesAndFiles) {
    writeFile(path, "");
    fs::create_directory(folder.path() / "appendix");
    EXPECT_EQ(offered("pr"), "prune\n");
    EXPECT_EQ(offered("show --le"), "--level\n");
    EXPECT_EQ(offered("show --level e"), "error\nemergency\n");
    EXPECT_EQ(offered("show --level = al"), "alert\n");
    EXPECT_EQ(offered("follow --color a"), "auto\nalways\n");
    EXPECT_EQ(offered("prune --d"), "--dry-run\n");
    EXPECT_THAT(linesOf(offered("show app")), UnorderedElementsAre("app.log", "appendix"));
    EXPECT_EQ(offered("purge app"), "appendix\n");
    EXPECT_EQ(offered("show --grep ap"), "\n");
}

TEST_F(VeloraLogCompletion, OffersEveryOptionThereIs) {
    for (const std::string command : {"archives", "show", "follow", "stats", "decode", "prune", "purge"}) {
        const std::string offers = offered(command + " --");
        std::istringstream help(run({command, "--help"}).output);
        for (std::string word; help >> word;) {
            word = word.substr(word.starts_with("-n,") ? 3 : 0);
            word = word.substr(word.starts_with("-h,") ? 3 : 0);
            if (word.starts_with("--")) {
                EXPECT_THAT(offers, HasSubstr(word + "\n")) << command;
            }
        }
    }
}

}  // namespace
}  // namespace velora::test
