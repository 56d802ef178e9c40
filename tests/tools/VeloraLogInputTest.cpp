// What velora-log makes of arguments, files and outputs that are not as they should be.

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <support/RunningProgram.h>
#include <support/TemporaryFolder.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <tools/VeloraLogTestSupport.h>
#include <utility>
#include <vector>

namespace velora::test {
namespace {

using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;

TEST_F(VeloraLog, SaysWhatIsWrongWithItsArguments) {
    writeFile(path, "x\n");
    const auto errorOf = [&](std::vector<std::string> arguments) {
        const Result result = run(std::move(arguments));
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.errors, StartsWith("velora-log: "));
        return result.errors.substr(0, result.errors.find('\n'));
    };
    EXPECT_THAT(errorOf({"show", "--level", "loud", path}), HasSubstr("'loud' is no level"));
    EXPECT_THAT(errorOf({"show", "--since", "2026-02-30", path}), HasSubstr("'2026-02-30' is no date"));
    EXPECT_THAT(errorOf({"show", "--until", "10 parsecs", path}), HasSubstr("'10 parsecs' is no date"));
    EXPECT_THAT(errorOf({"show", "--since", "0001-01-01", path}), HasSubstr("'0001-01-01' is no date"));
    EXPECT_THAT(errorOf({"show", "--since", "", path}), HasSubstr("'' is no date"));
    EXPECT_THAT(errorOf({"show", "--regex", "(", path}), HasSubstr("'(': "));
    EXPECT_THAT(errorOf({"show", "--color", "mauve", path}), HasSubstr("mauve"));
    for (const std::string span : {"1s", "90s", "0m", "2d", "14:30", "today", "2026-11-22", "1h ago", "-1m", ""}) {
        EXPECT_THAT(errorOf({"stats", "--every", span, path}), HasSubstr("'" + span + "' is no duration"));
    }
    EXPECT_THAT(errorOf({"prune", folder.path().string()}), HasSubstr("--keep is required"));
    EXPECT_THAT(errorOf({"prune", "--keep", "-1", folder.path().string()}), HasSubstr("-1"));
    EXPECT_THAT(errorOf({"archives", folder / "missing"}), HasSubstr("missing"));
    EXPECT_THAT(errorOf({"show"}), HasSubstr("FILE is required"));
    EXPECT_THAT(errorOf({}), HasSubstr("subcommand is required"));
    EXPECT_THAT(errorOf({"show", folder.path().string()}), HasSubstr("Is a directory"));
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

/// What one end of a pipe is written to, whose other end is the program's standard input.
class Pipe {
public:
    explicit Pipe(const std::string& path) : path_(path) { EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0); }
    const std::string& path() const { return path_; }
    /// Waits for somebody who reads.
    void open() { stream_.open(path_); }
    void write(const std::string& text) { stream_ << text << std::flush; }
    void close() { stream_.close(); }

private:
    std::string path_;
    std::ofstream stream_;
};

TEST_F(VeloraLog, PrintsWhatHasComeThroughAPipeWhileItWaitsForMore) {
    Pipe pipe(folder / "pipe");
    std::thread opening([&] { pipe.open(); });
    RunningProgram show(VELORA_LOG_PROGRAM, {"show", "-"}, pipe.path(), folder / "errors");
    opening.join();
    const auto record = [](int second) { return fmt::format("2026-11-22 00:00:0{}.000 [Info] > x", second); };
    pipe.write("no date\n");
    pipe.write(record(1) + "\nmore of it\n" + record(2).substr(0, 30));
    EXPECT_EQ(show.line(), "no date");
    EXPECT_EQ(show.line(), record(1));
    EXPECT_EQ(show.line(), "more of it");
    pipe.write(record(2).substr(30) + "\nmore\n");
    pipe.write(record(3));
    EXPECT_EQ(show.line(), record(2));
    EXPECT_EQ(show.line(), "more");
    pipe.close();
    EXPECT_EQ(show.line(), record(3));
    EXPECT_EQ(show.wait(), 0);
}

TEST_F(VeloraLog, DecodesWhatHasComeThroughAPipeWhileItWaitsForMore) {
    Pipe pipe(folder / "pipe");
    std::thread opening([&] { pipe.open(); });
    RunningProgram decode(VELORA_LOG_PROGRAM, {"decode"}, pipe.path(), folder / "errors");
    opening.join();
    pipe.write("QUI=\n");
    EXPECT_EQ(decode.line(), "AB");
    pipe.close();
    EXPECT_EQ(decode.wait(), 0);
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
    const auto expectErrorMessage = [&](const std::string& arguments) {
        const std::string command = VELORA_LOG_PROGRAM " " + arguments + " > /dev/full 2> " + (folder / "errors");
        EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 2) << arguments;
        EXPECT_EQ(readFile(folder / "errors"), "velora-log: the output cannot be written: No space left on device\n");
    };
    expectErrorMessage("show " + path);
    expectErrorMessage("stats " + path);
    expectErrorMessage("decode " + path);
    expectErrorMessage("follow " + path);
    {
        RotatingLog rotating(folder / "rotating.log");
        rotating.file->rotateFile();
        rotating.file->rotateFile();
    }
    expectErrorMessage("archives " + folder.path().string());
    expectErrorMessage("purge --dry-run " + folder.path().string());
    EXPECT_TRUE(std::filesystem::exists(folder / "rotating_1.log"));
    expectErrorMessage("prune --keep 1 " + folder.path().string());
    EXPECT_FALSE(std::filesystem::exists(folder / "rotating_1.log"));
    expectErrorMessage("purge " + folder.path().string());
    EXPECT_FALSE(std::filesystem::exists(folder / "rotating_2.log")) << "what is asked for is done all the same";
}

}  // namespace
}  // namespace velora::test
