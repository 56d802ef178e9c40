// What shells offer to complete the command lines of the tools with: each shell itself is asked, by a script.

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <support/RunningProgram.h>
#include <support/TemporaryFolder.h>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

namespace velora::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::UnorderedElementsAre;

class Completion : public testing::TestWithParam<const char*> {
protected:
    Completion() {
        const auto folderOf = [](const std::string& program) { return program.substr(0, program.rfind('/')); };
        const std::string path = folderOf(VELORA_LOG_PROGRAM) + ":" + folderOf(VELORA_DEFAULTS_PROGRAM) + ":";
        ::setenv("PATH", (path + ::getenv("PATH")).c_str(), 1);
        // Shells leave files in the home folder.
        ::setenv("HOME", home.path().c_str(), 1);
        ::setenv("TERM", "xterm", 1);
        ::setenv("VELORA_DEFAULTS_FILE", store.c_str(), 1);
        ::unsetenv("XDG_CONFIG_HOME");
        ::unsetenv("XDG_DATA_HOME");
    }

    /// What the shell offers at the end of `line`, each as it would stand in the line behind a "=".
    std::vector<std::string> offered(const std::string& line) const {
        const std::string shell = GetParam();
        const std::string command = "cd '" + folder.path().string() + "' && " + shell +
                                    (shell == "zsh"    ? " -f "
                                     : shell == "fish" ? " --no-config "
                                                       : " ") +
                                    VELORA_OFFERED "." + shell + " " VELORA_COMPLETIONS " '" + line + "' >" +
                                    (home / "offered") + " 2>" + (home / "errors");
        EXPECT_EQ(std::system(command.c_str()), 0);
        EXPECT_EQ(readFile(home / "errors"), "");
        std::vector<std::string> offers;
        std::istringstream lines(readFile(home / "offered"));
        for (std::string offer; std::getline(lines, offer);) {
            if (offer.ends_with('/')) {
                offer.pop_back();  // fish marks folders
            }
            const std::size_t equals = offer.starts_with("--") ? offer.find('=') : std::string::npos;
            offers.push_back(equals == std::string::npos ? offer : offer.substr(equals + 1));
        }
        return offers;
    }

    /// The options that the program's help tells, of a command if one is given.
    std::vector<std::string> optionsIn(const std::string& program, std::vector<std::string> arguments) const {
        arguments.emplace_back("--help");
        RunningProgram running(program, std::move(arguments), "/dev/null", home / "errors");
        std::istringstream help(running.everything());
        running.wait();
        std::vector<std::string> options;
        for (std::string line; std::getline(help, line);) {
            // "  -n,--lines NUMBER  …"
            std::istringstream words(line);
            std::string names;
            words >> names;
            std::istringstream each(names);
            for (std::string name; names.starts_with('-') && std::getline(each, name, ',');) {
                if (name.starts_with("--")) {
                    options.push_back(name);
                }
            }
        }
        EXPECT_THAT(options, Contains("--help"));
        return options;
    }

    const TemporaryFolder home;
    const std::string store = home / "store/UserDefaults.json";
    const TemporaryFolder folder;
};

TEST_P(Completion, OffersCommandsAndOptions) {
    EXPECT_THAT(offered("velora-log pr"), ElementsAre("prune"));
    EXPECT_THAT(offered("velora-log p"), UnorderedElementsAre("prune", "purge"));
    EXPECT_THAT(offered("velora-log show --le"), ElementsAre("--level"));
    EXPECT_THAT(offered("velora-log prune --d"), ElementsAre("--dry-run"));
    EXPECT_THAT(offered("velora-defaults re"), UnorderedElementsAre("read", "reset"));
    EXPECT_THAT(offered("velora-defaults write Server_Own -i"), ElementsAre("-int"));
    EXPECT_THAT(offered("velora-defaults list --j"), ElementsAre("--json"));
}

TEST_P(Completion, OffersEveryOptionThereIs) {
    for (const std::string program : {VELORA_LOG_PROGRAM, VELORA_DEFAULTS_PROGRAM}) {
        const std::string name = program.substr(program.rfind('/') + 1);
        EXPECT_THAT(offered(name + " --"), IsSupersetOf(optionsIn(program, {}))) << name;
        const std::vector<std::string> commands = offered(name + " ");
        EXPECT_THAT(commands, testing::SizeIs(testing::Ge(7U)));
        for (const std::string& command : commands) {
            if (command.starts_with('-')) {
                continue;
            }
            std::vector<std::string> offers = offered(name + " " + command + " -");
            if (command == "write") {
                // "-int" is the short way to write "--int".
                for (const std::string type : {"string", "int", "bool", "url"}) {
                    EXPECT_THAT(offers, Contains("-" + type));
                    offers.push_back("--" + type);
                }
            }
            EXPECT_THAT(offers, IsSupersetOf(optionsIn(program, {command}))) << name << ' ' << command;
        }
    }
}

TEST_P(Completion, OffersWhatAnOptionTakes) {
    EXPECT_THAT(offered("velora-log show --level e"), UnorderedElementsAre("error", "emergency"));
    EXPECT_THAT(offered("velora-log show --level=al"), ElementsAre("alert"));
    EXPECT_THAT(offered("velora-log follow --color a"), UnorderedElementsAre("auto", "always"));
    writeFile(folder / "app.log", "");
    EXPECT_THAT(offered("velora-log show --grep ap"), IsEmpty());
}

TEST_P(Completion, OffersFilesAndFoldersWhereTheyBelong) {
    writeFile(folder / "app.log", "");
    std::filesystem::create_directory(folder.path() / "appendix");
    EXPECT_THAT(offered("velora-log show app"), UnorderedElementsAre("app.log", "appendix"));
    EXPECT_THAT(offered("velora-log purge app"), ElementsAre("appendix"));
    EXPECT_THAT(offered("velora-defaults import app"), UnorderedElementsAre("app.log", "appendix"));
}

TEST_P(Completion, OffersKeys) {
    DefaultsStore(store).setString("Server_Own", "1");
    EXPECT_THAT(offered("velora-defaults read Server_"),
                UnorderedElementsAre("Server_ID_String", "Server_ScreenControlMode", "Server_Own"));
    EXPECT_THAT(offered("velora-defaults write --force Server_O"), ElementsAre("Server_Own"));
    EXPECT_THAT(offered("velora-defaults write Server_Own Ser"), IsEmpty()) << "a value is not offered";
}

TEST_P(Completion, TakesKeysForTextAlone) {
    const std::string trap = "own $(touch '" + (folder / "sprung") + "') `touch " + (folder / "sprung") + "` key";
    DefaultsStore(store).setString(trap, "1");
    DefaultsStore(store).setString("own", "1");
    std::vector<std::string> offers = offered("velora-defaults read own");
    for (std::string& offer : offers) {
        std::erase(offer, '\\');  // bash wants its offers quoted
    }
    EXPECT_THAT(offers, UnorderedElementsAre("own", trap));
    EXPECT_FALSE(std::filesystem::exists(folder / "sprung"));
}

INSTANTIATE_TEST_SUITE_P(In, Completion, testing::Values("bash", "zsh", "fish"),
                         [](const auto& shell) { return std::string(shell.param); });

}  // namespace
}  // namespace velora::test
