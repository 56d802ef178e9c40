// velora-log following a file, across rotations.

#include <array>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <support/RunningProgram.h>
#include <support/TemporaryFolder.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <tools/VeloraLogTestSupport.h>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {
namespace {

namespace fs = std::filesystem;
using testing::AnyOf;
using testing::EndsWith;
using testing::HasSubstr;

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

TEST_F(VeloraLogFollow, LosesNoLineWhenAnotherProgramRenamesTheFileAndMakesANewOne) {
    // The writer finds out by itself, up to a second later, and writes to the renamed file until then.
    const auto log = make<XCGLogger>("app", false);
    const auto file = make<FileDestination>(nullptr, path, "file");
    ASSERT_TRUE(log->add(file));
    log->info("line begin");
    const auto following = follow({"--grep", "line ", "--lines", "1000"});
    EXPECT_THAT(following->line(), EndsWith("> line begin"));
    fs::rename(path, path + ".1");
    writeFile(path, "");
    int line = 0;
    int afterwards = 0;
    while (afterwards < 5) {
        log->info("line {}", line);
        afterwards += fs::file_size(path) > 0 ? 1 : 0;
        ASSERT_THAT(following->line(), EndsWith("> line " + std::to_string(line)));
        ++line;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_GT(line, afterwards) << "some stand in the renamed file";
    EXPECT_EQ(interrupt(*following), 0);
    log->remove(file);
}

TEST_F(VeloraLogFollow, PrintsTheLastLineOfARenamedFileThoughItHasNoEnd) {
    writeFile(path, "1\nhalf");
    const auto following = follow();
    EXPECT_EQ(following->line(), "1");
    fs::rename(path, path + ".1");
    writeFile(path, "");
    EXPECT_EQ(following->line(), "half");
}

TEST_F(VeloraLogFollow, BeginsWithTheLastLinesWhateverTheyBelongTo) {
    std::string record = "2026-11-22 00:00:00.000 [Error] > long\n";
    for (int line = 0; line < 50; ++line) {
        record += "more " + std::to_string(line) + "\n";
    }
    writeFile(path, "2026-11-22 00:00:00.000 [Info] > before\n" + record);
    const auto following = follow({"-n", "3"});
    EXPECT_EQ(following->line(), "more 47");
    EXPECT_EQ(following->line(), "more 48");
    EXPECT_EQ(following->line(), "more 49");
    append("more 50\n");
    EXPECT_EQ(following->line(), "more 50");

    const auto filtered = follow({"-n", "3", "--level", "error"});
    EXPECT_THAT(filtered->line(), EndsWith("> long"));
    for (int line = 0; line <= 50; ++line) {
        ASSERT_EQ(filtered->line(), "more " + std::to_string(line));
    }
    append("more 51\n");
    EXPECT_EQ(filtered->line(), "more 51");

    const auto others = follow({"-n", "3", "--level", "alert"});
    // Nothing is to come: what is printed first shows it.
    append("2026-11-22 00:00:00.000 [Alert] > awaited\n");
    EXPECT_THAT(others->line(), EndsWith("> awaited"));
}

TEST_F(VeloraLogFollow, GoesBackFarForTheRecordThatItBeginsIn) {
    const std::string line = std::string(1000, 'x') + "\n";
    std::string record = "2026-11-22 00:00:00.000 [Error] > long\n";
    for (int count = 0; count < 1000; ++count) {
        record += line;
    }
    writeFile(path, "2026-11-22 00:00:00.000 [Info] > before\n" + record);
    const auto following = follow({"-n", "1", "--level", "error"});
    EXPECT_THAT(following->line(), EndsWith("> long"));
    // Without a line before it either.
    writeFile(folder / "other", "no date\n" + line + "2026-11-22 00:00:00.000 [Info] > late\n");
    RunningProgram other(VELORA_LOG_PROGRAM, {"follow", "-n", "2", "--grep", "no date", folder / "other"}, "/dev/null",
                         folder / "errors");
    EXPECT_EQ(other.line(), "no date");
}

TEST_F(VeloraLogFollow, RefusesWhatDoesNotGrow) {
    EXPECT_EQ(run({"follow", folder.path().string()}),
              (Result{2, "", "velora-log: " + folder.path().string() + " cannot be followed: Is a directory\n"}));
    EXPECT_EQ(run({"follow", "-"}),
              (Result{2, "", "velora-log: the standard input cannot be followed; show reads it as it comes\n"}));
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    EXPECT_EQ(run({"follow", folder / "pipe"}),
              (Result{2, "", "velora-log: " + (folder / "pipe") + " cannot be followed: it is no regular file\n"}));
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

}  // namespace
}  // namespace velora::test
