// velora-defaults watching the store, and the terminal sessions of its guide.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <support/RunningProgram.h>
#include <support/TemporaryFolder.h>
#include <thread>
#include <tools/VeloraDefaultsTestSupport.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

namespace velora::test {
namespace {

using testing::StartsWith;

/// A `watch` that is looking already.
class Watching : public VeloraDefaults {
protected:
    /// Changes a value until `watching` has shown a change.
    void awaitStart(RunningProgram& watching) const {
        std::jthread changing([this](const std::stop_token& stop) {
            for (int n = 0; !stop.stop_requested(); ++n) {
                DefaultsStore(file).setInteger("start", n);
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        });
        EXPECT_THAT(watching.line(), StartsWith("start: "));
    }

    /// The next line that is about something else than the start.
    static std::string nextLine(RunningProgram& watching) {
        std::string line = watching.line();
        while (line.starts_with("start: ")) {
            line = watching.line();
        }
        return line;
    }
};

TEST_F(Watching, ShowsEachChangeOfAnyProcess) {
    DefaultsStore(file).setInteger("own", 1);
    RunningProgram watching(VELORA_DEFAULTS_PROGRAM, {"watch"}, "/dev/null", folder / "watch errors");
    awaitStart(watching);
    EXPECT_EQ(run({"write", "own", "-int", "2"}), prints(""));
    EXPECT_EQ(nextLine(watching), "own: 1 -> 2");
    DefaultsStore(file).setString("own", "a\nb");
    EXPECT_EQ(nextLine(watching), R"(own: 2 -> "a\nb")");
    EXPECT_EQ(run({"delete", "own"}), prints(""));
    EXPECT_EQ(nextLine(watching), R"(own: "a\nb" -> (absent))");
    DefaultsStore(file).importText("{\"own\": [1,\n2], \"other\": true}");
    EXPECT_EQ(nextLine(watching), "other: (absent) -> true");
    EXPECT_EQ(nextLine(watching), R"(own: (absent) -> [1, 2])");
    writeFile(file, "{\"own\": \"by\x7f hand\xc2\x9b\"}");
    EXPECT_EQ(nextLine(watching), "other: true -> (absent)");
    EXPECT_EQ(nextLine(watching), R"(own: [1, 2] -> "by\u007f hand\u009b")");
    watching.send(SIGTERM);
    watching.everything();
    EXPECT_EQ(watching.wait(), 0);
    EXPECT_EQ(readFile(folder / "watch errors"), "");
}

TEST_F(Watching, ShowsTheKeysThatItIsAskedFor) {
    RunningProgram watching(VELORA_DEFAULTS_PROGRAM, {"watch", "start", "own", "Server_ID_String"}, "/dev/null",
                            folder / "watch errors");
    awaitStart(watching);
    DefaultsStore(file).importText(R"({"another": 1, "Server_ID_String": "a"})");
    EXPECT_EQ(nextLine(watching), R"(Server_ID_String: (absent) -> "a")");
    DefaultsStore(file).importText(R"({"another": 2, "own": 1})");
    EXPECT_EQ(nextLine(watching), "own: (absent) -> 1");
}

TEST_F(Watching, EndsWellWhenInterrupted) {
    RunningProgram watching(VELORA_DEFAULTS_PROGRAM, {"watch"}, "/dev/null", folder / "watch errors");
    awaitStart(watching);
    watching.send(SIGINT);
    watching.everything();
    EXPECT_EQ(watching.wait(), 0);
}

TEST_F(Watching, EndsAfterAsManyChangesAsAskedFor) {
    RunningProgram watching(VELORA_DEFAULTS_PROGRAM, {"watch", "--count", "2"}, "/dev/null", folder / "watch errors");
    awaitStart(watching);
    DefaultsStore(file).importText(R"({"a": 1, "b": 2, "start": "end"})");
    const std::string rest = watching.everything();
    EXPECT_EQ(std::count(rest.begin(), rest.end(), '\n'), 1);
    EXPECT_EQ(watching.wait(), 0);
}

/// The lines of the terminal sessions in docs/preferences.md.
std::vector<std::string> shownSessions() {
    std::istringstream guide(
        readFile(std::filesystem::path(__FILE__).parent_path().parent_path().parent_path() / "docs/preferences.md"));
    std::vector<std::string> lines;
    bool isInside = false;
    for (std::string line; std::getline(guide, line);) {
        if (line.starts_with("```")) {
            isInside = line == "```console";
        } else if (isInside) {
            lines.push_back(line);
        }
    }
    return lines;
}

TEST_F(Watching, DoesWhatTheGuideShows) {
    const std::string program = VELORA_DEFAULTS_PROGRAM;
    const std::string path = "PATH=" + program.substr(0, program.rfind('/')) + ":$PATH; ";
    std::string shown;
    std::string happened;
    const std::vector<std::string> lines = shownSessions();
    for (const std::string& line : lines) {
        shown += line + "\n";
        if (!line.starts_with("$ ")) {
            continue;
        }
        happened += line + "\n";
        if (line == "$ velora-defaults watch") {
            RunningProgram watching(VELORA_DEFAULTS_PROGRAM, {"watch"}, "/dev/null", folder / "watch errors");
            awaitStart(watching);
            DefaultsStore(file).setInteger("Preferences_Security_PinCodeLength", 6);
            happened += nextLine(watching) + "\n";
            continue;
        }
        const std::string command = "{ " + path + line.substr(2) + "; } >" + (folder / "output") + " 2>&1";
        EXPECT_NE(std::system(command.c_str()), -1);
        happened += readFile(folder / "output");
    }
    EXPECT_EQ(happened, shown);
    EXPECT_GT(lines.size(), 5U);
}

}  // namespace
}  // namespace velora::test
