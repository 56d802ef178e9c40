// Which records velora-log shows, of files that the library wrote.

#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <support/RunningProgram.h>
#include <support/TemporaryFolder.h>
#include <thread>
#include <tools/VeloraLogTestSupport.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/ThreadInfo.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIColorLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/JSONLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

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
        const auto shows = [&](const std::string& option, const std::string& name) {
            return run({"show", "--level", "error", option, name, path}).status == 0;
        };
        EXPECT_EQ(shows("--thread", "app"), (columns & 2) != 0 && (columns & 4) == 0) << readFile(path);
        EXPECT_EQ(shows("--thread", "main"), (columns & 4) != 0) << readFile(path);
        EXPECT_EQ(shows("--file", "VeloraLogShowTest.cpp"), (columns & 8) != 0) << readFile(path);
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
    EXPECT_EQ(run({"show", "--file", "VeloraLogShowTest.cpp", path}).output, all[3] + "\n" + all[4] + "\n");
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
    EXPECT_THAT(messagesOf(run({"show", "--thread", "main", "--file", "VeloraLogShowTest.cpp", path}).output),
                ElementsAre("from main about render and Other.cpp"));
    EXPECT_EQ(run({"show", "--thread", "rend", path}).status, 1) << "a name is meant as a whole";
}

TEST_F(VeloraLog, TellsPlacesFromNamesOfThreads) {
    const auto line = [](const std::string& columns) { return "2026-11-22 00:00:00.000 [Info] " + columns + "> x\n"; };
    const auto has = [&](const std::string& columns, const std::string& option, const std::string& name) {
        return !shown(line(columns), {option, name}).empty();
    };
    for (const std::string thread : {"worker.3", "net.example.queue", "42", "pool:7", "main.", ".cpp."}) {
        EXPECT_TRUE(has("[app] [" + thread + "] ", "--thread", thread)) << thread;
        EXPECT_FALSE(has("[app] [" + thread + "] ", "--file", thread)) << thread;
        EXPECT_TRUE(has("[" + thread + "] [a.cpp:1] ", "--thread", thread)) << thread;
        EXPECT_TRUE(has("[app] [" + thread + "] [7] f ", "--thread", thread)) << thread;
    }
    for (const std::string file : {"Session.cpp", "Session.h", "a.b.mm"}) {
        for (const std::string columns : {"", "[app] ", "[app] [main] "}) {
            EXPECT_TRUE(has(columns + "[" + file + "] f ", "--file", file)) << columns << file;
            EXPECT_TRUE(has(columns + "[" + file + ":12] f ", "--file", file)) << columns << file;
        }
    }
    EXPECT_TRUE(has("[app] [Script.lua:3] ", "--file", "Script.lua")) << "a line tells it whatever the extension";
    EXPECT_TRUE(has("[app] [main] [Makefile:3] ", "--file", "Makefile")) << "behind two others it can be nothing else";
    EXPECT_TRUE(has("[app] [main] [worker.3] ", "--file", "worker.3"));
    EXPECT_TRUE(has("[app] [7] f ", "--thread", "app")) << "the number may be a line";
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

TEST_F(VeloraLog, MergesFilesByTimeAndKeepsTheOrderWithinOne) {
    writeFile(path,
              "2026-11-22 00:00:00.000 [Info] > a1\nmore of a1\n2026-11-22 00:00:02.000 [Info] > a2\n"
              "2026-11-22 00:00:01.500 [Info] > a3\n");
    writeFile(folder / "b.log", "no date\n2026-11-22 00:00:01.000 [Info] > b1\n2026-11-22 00:00:03.000 [Info] > b2\n");
    EXPECT_THAT(messagesOf(run({"show", path, folder / "b.log"}).output),
                ElementsAre("no date", "a1", "more of a1", "b1", "a2", "a3", "b2"));
}

}  // namespace
}  // namespace velora::test
