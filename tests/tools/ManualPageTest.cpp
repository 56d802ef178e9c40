// Whether the manual pages of the tools and their own help name the same options.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <ostream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <support/RunningProgram.h>
#include <support/TemporaryFolder.h>
#include <utility>
#include <vector>

namespace velora::test {
namespace {

using testing::IsSubsetOf;

struct Tool {
    std::string name;
    std::string program;
};

void PrintTo(const Tool& tool, std::ostream* stream) {
    *stream << tool.name;
}

using Options = std::set<std::string>;

/// Every option that `text` names: "--keep", "-n".
Options optionsIn(const std::string& text) {
    static const std::regex option("(^|[^A-Za-z0-9-])(--[a-z][a-z-]*|-[a-z])(?![A-Za-z0-9-])");
    Options options;
    for (auto match = std::sregex_iterator(text.begin(), text.end(), option); match != std::sregex_iterator();
         ++match) {
        options.insert((*match)[2]);
    }
    return options;
}

class ManualPage : public testing::TestWithParam<Tool> {
protected:
    Options optionsOf(std::vector<std::string> command) const {
        command.emplace_back("--help");
        const RunningProgram program(GetParam().program, command, "/dev/null", folder / "errors");
        const std::string help = program.everything();
        // Options begin their lines; what is said of them may name others.
        static const std::regex line("\n  (-[^ ]*)");
        std::string names;
        for (auto match = std::sregex_iterator(help.begin(), help.end(), line); match != std::sregex_iterator();
             ++match) {
            names += " " + match->str(1);
        }
        return optionsIn(names);
    }

    /// The page's text without what roff makes of it: "\-" is a dash, macros and changes of font are left out.
    std::string page() const {
        const std::string source = readFile(VELORA_MANUAL_PAGES "/" + GetParam().name + ".1");
        static const std::regex marks("\\\\f.|\"|\\.[A-Z]+ ");
        const std::string text = std::regex_replace(source, marks, "");
        return std::regex_replace(text, std::regex("\\\\-"), "-");
    }

    /// The commands in the order of the synopsis, each with the options there.
    std::vector<std::pair<std::string, Options>> synopsis() const {
        const std::string text = page();
        std::vector<std::pair<std::string, Options>> commands;
        std::istringstream lines(text.substr(text.find("SYNOPSIS"), text.find("DESCRIPTION") - text.find("SYNOPSIS")));
        bool isCommand = false;
        for (std::string line; std::getline(lines, line);) {
            if (isCommand) {
                commands.push_back({line, {}});
            } else if (!commands.empty()) {
                commands.back().second.merge(optionsIn(line));
            }
            isCommand = line == GetParam().name;
        }
        return commands;
    }

    TemporaryFolder folder;
};

TEST_P(ManualPage, NamesTheOptionsThatTheProgramTakesAndNoOthers) {
    Options all = optionsOf({});
    ASSERT_FALSE(synopsis().empty());
    for (const auto& [command, options] : synopsis()) {
        const Options taken = optionsOf({command});
        EXPECT_FALSE(taken.empty()) << command;
        EXPECT_THAT(options, IsSubsetOf(taken)) << command;
        all.insert(taken.begin(), taken.end());
    }
    EXPECT_EQ(optionsIn(page()), all);
}

TEST_P(ManualPage, NamesTheCommandsThatTheProgramHasAndNoOthers) {
    const RunningProgram program(GetParam().program, {"--help"}, "/dev/null", folder / "errors");
    const std::string help = program.everything();
    static const std::regex line("\n  ([a-z]+) ");
    const std::string listed = help.substr(help.find("Subcommands:"));
    std::set<std::string> offered;
    for (auto match = std::sregex_iterator(listed.begin(), listed.end(), line); match != std::sregex_iterator();
         ++match) {
        offered.insert(match->str(1));
    }
    std::set<std::string> named;
    for (const auto& [command, options] : synopsis()) {
        named.insert(command);
    }
    EXPECT_EQ(named, offered);
}

INSTANTIATE_TEST_SUITE_P(, ManualPage,
                         testing::Values(Tool{"velora-log", VELORA_LOG_PROGRAM},
                                         Tool{"velora-defaults", VELORA_DEFAULTS_PROGRAM}),
                         [](const auto& tool) { return tool.param.name == "velora-log" ? "Log" : "Defaults"; });

}  // namespace
}  // namespace velora::test
