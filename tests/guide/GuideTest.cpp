// Runs the C++ examples of the documentation, each as a process of its own in an empty folder, and compares what it
// prints with what the page shows. Their sources are made of the pages by examples.py.

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <guide/Example.h>
#include <regex>
#include <spawn.h>
#include <sstream>
#include <string>
#include <support/TemporaryFolder.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace velora::test {
namespace {

constexpr const char* exampleVariable = "VELORA_GUIDE_EXAMPLE";

int runExample(const std::string& name) {
    for (const Example& example : Example::all()) {
        if (example.name() == name) {
            example.run(make<XCGLogger>("app"));
            // An example may show expectations of a test.
            return testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed() ? EXIT_FAILURE : EXIT_SUCCESS;
        }
    }
    return EXIT_FAILURE;
}

/// The environment of an example: this one's, with every folder of the user and the system in `folder`.
std::vector<std::string> environmentIn(const std::string& folder, const std::string& name) {
    std::vector<std::string> variables{std::string(exampleVariable) + "=" + name, "HOME=" + folder, "TMPDIR=" + folder,
                                       "XDG_CONFIG_HOME=" + folder, "XDG_DATA_HOME=" + folder,
                                       "VELORA_DEFAULTS_FILE=" + folder + "/UserDefaults.json",
                                       // A logger of an example lives as long as its program.
                                       "LSAN_OPTIONS=detect_leaks=0", "LC_ALL=C.UTF-8"};
    const auto isSet = [&variables](const std::string& variable) {
        const std::string key = variable.substr(0, variable.find('=') + 1);
        return std::ranges::any_of(variables, [&key](const std::string& set) { return set.starts_with(key); });
    };
    for (char** variable = environ; *variable != nullptr; ++variable) {
        if (!isSet(*variable)) {
            variables.emplace_back(*variable);
        }
    }
    return variables;
}

/// Runs the example in `folder`, its standard output in the file `output`; its status as waitpid(2) gives it.
int statusOfExample(const Example& example, const std::string& folder, const std::string& output) {
    std::vector<std::string> variables = environmentIn(folder, example.name());
    std::vector<char*> environment;
    environment.reserve(variables.size() + 1);
    for (std::string& variable : variables) {
        environment.push_back(variable.data());
    }
    environment.push_back(nullptr);
    std::string program = "/proc/self/exe";
    std::array<char*, 2> arguments{program.data(), nullptr};
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_CREAT | O_WRONLY | O_APPEND, 0600);
    ::posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
    pid_t process = -1;
    int status = -1;
    if (::posix_spawn(&process, program.c_str(), &actions, nullptr, arguments.data(), environment.data()) == 0) {
        ::waitpid(process, &status, 0);
    }
    ::posix_spawn_file_actions_destroy(&actions);
    return status;
}

/// What of an output is the same in every run: dates and times are not, nor are folders, nor line numbers of other
/// sources than the example itself.
std::string lasting(const std::string& output, const Example& example) {
    static const std::regex time(R"(\d{4}-\d\d-\d\d|\b\d\d:\d\d(:\d\d)?(\.\d+)?)");
    static const std::regex place(R"(\[([^\[\]]+\.cpp):\d+\])");
    static const std::regex folder(R"(file:///\S*/)");
    std::istringstream lines(output);
    std::string result;
    for (std::string line; std::getline(lines, line);) {
        if (line.find(example.shown) == std::string::npos) {
            continue;
        }
        line = std::regex_replace(line, time, "#");
        line = std::regex_replace(line, folder, "file:///#/");
        if (line.find("[" + example.file + ":") == std::string::npos) {
            line = std::regex_replace(line, place, "[$1:#]");
        }
        result += line + "\n";
    }
    return result;
}

class ExampleTest : public testing::Test {
public:
    explicit ExampleTest(const Example& example) : example_(example) {}

    void TestBody() override {
        const TemporaryFolder folder;
        const TemporaryFolder outputs;
        const std::string output = outputs / "output";
        const int status = statusOfExample(example_, folder.path(), output);
        const std::string printed = readFile(output);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS) << "status " << status << "\n" << printed;
        EXPECT_EQ(printed.find("Objective-C Exception"), std::string::npos) << printed;
        if (example_.output) {
            EXPECT_EQ(lasting(printed, example_), lasting(*example_.output, example_)) << "printed:\n" << printed;
        }
    }

private:
    const Example& example_;
};

/// "first-line.md" as a part of a test's name.
std::string identifier(std::string page) {
    std::ranges::replace_if(
        page, [](char character) { return std::isalnum(static_cast<unsigned char>(character)) == 0; }, '_');
    return page;
}

TEST(GuideExamples, AreThere) {
    EXPECT_GT(Example::all().size(), 20U);
}

}  // namespace
}  // namespace velora::test

int main(int argumentCount, char** arguments) {
    using velora::test::Example;
    if (const char* name = ::getenv(velora::test::exampleVariable)) {
        return velora::test::runExample(name);
    }
    testing::InitGoogleTest(&argumentCount, arguments);
    for (const Example& example : Example::all()) {
        testing::RegisterTest(("Guide_" + velora::test::identifier(example.page)).c_str(),
                              ("Line" + std::to_string(example.line)).c_str(), nullptr, nullptr, __FILE__, __LINE__,
                              [&example] { return new velora::test::ExampleTest(example); });
    }
    return RUN_ALL_TESTS();
}
