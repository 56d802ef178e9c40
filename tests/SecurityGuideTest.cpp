// The tests that docs/security.md names: they exist, so that no promise stands there without one.

#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

std::filesystem::path testsFolder() {
    return std::filesystem::path(__FILE__).parent_path();
}

/// The source of each test program, by its name.
std::map<std::string, std::string> testSources() {
    std::map<std::string, std::string> sources;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(testsFolder())) {
        if (entry.path().extension() == ".cpp") {
            sources[entry.path().stem().string()] = readFile(entry.path());
        }
    }
    return sources;
}

/// The words in `line` that stand as code and look like names of tests or test programs.
std::vector<std::string> namesIn(const std::string& line) {
    static const std::regex name("`([A-Z][A-Za-z0-9]*)`");
    std::vector<std::string> names;
    for (std::sregex_iterator match(line.begin(), line.end(), name), end; match != end; ++match) {
        names.push_back((*match)[1]);
    }
    return names;
}

TEST(SecurityGuide, NamesTestsThatExistForEveryPromise) {
    const auto sources = testSources();
    std::istringstream guide(readFile(testsFolder() / "../docs/security.md"));
    std::string program;
    int promises = 0;
    for (std::string line; std::getline(guide, line);) {
        if (!line.starts_with("| ") || line.starts_with("| ---")) {
            continue;
        }
        // A table whose tests are all in one program says so in its head.
        const std::string tests = line.substr(line.rfind(" | ") + 3);
        const bool isHead = tests.starts_with("shown by");
        promises += isHead ? 0 : 1;
        EXPECT_TRUE(isHead || !namesIn(tests).empty()) << line;
        for (const std::string& name : namesIn(tests)) {
            if (name.ends_with("Test")) {
                program = name;
                EXPECT_TRUE(sources.contains(name)) << name;
            } else {
                const auto source = sources.find(program);
                EXPECT_TRUE(source != sources.end() && source->second.find(name + ")") != std::string::npos)
                    << name << " in " << program;
            }
        }
    }
    EXPECT_GT(promises, 20);
}

}  // namespace
}  // namespace velora::test
