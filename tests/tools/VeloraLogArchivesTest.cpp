// Archives in velora-log: listed, read, pruned and purged.

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <support/MountNamespace.h>
#include <support/RunningProgram.h>
#include <support/TemporaryFolder.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <thread>
#include <tools/VeloraLogTestSupport.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace velora::test {
namespace {

namespace fs = std::filesystem;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

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
            // The next file's lines are later, by what their dates show.
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
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
    // Against root, too, who may remove everything else.
    if (const auto reason = enterMountNamespace()) {
        GTEST_SKIP() << *reason;
    }
    const auto mount = [this](unsigned long flags) {
        return ::mount(logs.c_str(), logs.c_str(), nullptr, flags, nullptr);
    };
    ASSERT_EQ(mount(MS_BIND), 0);
    ASSERT_EQ(mount(MS_BIND | MS_REMOUNT | MS_RDONLY), 0);
    const Result result = run({"purge", logs.string()});
    EXPECT_EQ(::umount(logs.c_str()), 0);
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(linesOf(result.errors), SizeIs(6));
}

void markAsArchive(const std::string& path) {
    for (const auto& [name, value] : {std::pair<std::string, std::string>{"by", "app"}, {"at", "1700000000.0"}}) {
        const std::string attribute = "user.tamberlo.xcglogger.archived." + name;
        EXPECT_EQ(::setxattr(path.c_str(), attribute.c_str(), value.data(), value.size(), 0), 0);
    }
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

std::string lineOfDay(int day) {
    return fmt::format("2026-11-{:02} 00:00:00.000 [Info] > {}\n", day, day);
}

TEST_F(VeloraLog, TellsByTheDateInItsNameWhoseAnArchiveIs) {
    writeFile(path, lineOfDay(22));
    writeFile(folder / "app_2.log", lineOfDay(12));
    writeFile(folder / "app_2026-11-21_000000.log", lineOfDay(21));
    writeFile(folder / "app_2_2026-11-11_000000.log", lineOfDay(11));
    const auto check = [&] {
        EXPECT_EQ(run({"show", "--archives", path}).output, lineOfDay(21) + lineOfDay(22));
        EXPECT_EQ(run({"show", "--archives", folder / "app_2.log"}).output, lineOfDay(11) + lineOfDay(12));
    };
    check();
    for (const char* const archive : {"app_2026-11-21_000000.log", "app_2_2026-11-11_000000.log"}) {
        markAsArchive(folder / archive);
    }
    check();
}

TEST_F(VeloraLog, FindsTheArchivesOfALogWithoutAnExtensionWhereTheLibraryPutsThem) {
    const std::string live = folder / "app";
    const std::string temporary = folder / "temporary";
    fs::create_directory(temporary);
    ASSERT_EQ(::chmod(temporary.c_str(), 01777), 0) << "as /tmp is";
    const auto rotateOnce = [&](const std::string& line) {
        RotatingLog rotating(live);
        rotating.log->info("{}", line);
        rotating.file->rotateFile();
    };
    const auto shownLines = [&] { return run({"show", "--grep", "archived", "--archives", live}).output; };
    ::setenv("TMPDIR", temporary.c_str(), 1);
    EXPECT_EQ(shownLines(), "");
    EXPECT_THAT(namesIn(temporary), IsEmpty()) << "looking makes no folder";
    rotateOnce("archived in log");
    EXPECT_THAT(messagesOf(shownLines()), ElementsAre("archived in log"));
    // A link may be another user's trap: the library does not use it.
    fs::rename(temporary + "/log", folder / "elsewhere");
    fs::create_symlink(folder / "elsewhere", temporary + "/log");
    rotateOnce("archived in another one");
    EXPECT_TRUE(fs::is_directory(temporary + "/log-" + std::to_string(::geteuid())));
    EXPECT_THAT(messagesOf(shownLines()), testing::Contains("archived in another one"));
    ::unsetenv("TMPDIR");
}

TEST_F(VeloraLog, ReadsMoreArchivesThanItMayHaveFilesOpen) {
    std::string all;
    constexpr int archives = 200;
    for (int second = 0; second <= archives; ++second) {
        const std::string line = fmt::format("2026-11-22 00:{:02}:{:02}.000 [Info] > x\n", second / 60, second % 60);
        writeFile(second == archives ? path : folder / fmt::format("app_2026-11-22_{:06}.log", second), line);
        all += line;
    }
    const std::string command = fmt::format("ulimit -n 64; exec {} show --archives {} > {}/output 2> {}/errors",
                                            VELORA_LOG_PROGRAM, path, folder.path().string(), folder.path().string());
    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 0);
    EXPECT_EQ(readFile(folder / "output"), all);
    EXPECT_EQ(readFile(folder / "errors"), "");
}

TEST_F(VeloraLog, MergesFilesWhoseFirstRecordIsFilteredOut) {
    writeFile(path, lineOfDay(1) + lineOfDay(20) + lineOfDay(22));
    writeFile(folder / "b.log", lineOfDay(2) + lineOfDay(10) + lineOfDay(21));
    EXPECT_EQ(run({"show", "--since", "2026-11-03", path, folder / "b.log"}).output,
              lineOfDay(10) + lineOfDay(20) + lineOfDay(21) + lineOfDay(22));
}

}  // namespace
}  // namespace velora::test
