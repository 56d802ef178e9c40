// The C++ of docs/preferences.md, compiled and run: the text and this file may not part.

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <support/TemporaryFolder.h>
#include <vector>

#include <Velora_UserDefaults/UserDefaults/UserDefaultsManager.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "PreferencesTestSupport.h"

namespace velora::test {
namespace {

std::optional<std::string> proxy;

void connectThrough(const std::optional<std::string>& address, const std::optional<std::string>& port) {
    proxy = address.value_or("") + ":" + port.value_or("");
}

// clang-format off

void useProperties() {
    auto& preferences = velora::UserDefaultsManager::shared();
    preferences.setPinCodeLength(8);
    preferences.setComputerDisplayName("Ann's PC");
    if (preferences.useProxy()) {
        connectThrough(preferences.manualAddressProxy(), preferences.manualPortProxy());
    }
}

void assignAndClear(const std::shared_ptr<XCGLogger>& log) {
    velora::logger = log;        // any thread, at any time
    useProperties();
    velora::logger = nullptr;    // no lines any more
}

// clang-format on

std::filesystem::path guide() {
    return std::filesystem::path(__FILE__).parent_path() / "../../docs/preferences.md";
}

/// The lines of the guide's blocks in `language`.
std::vector<std::string> linesOfBlocks(const std::string& language) {
    std::istringstream text(readFile(guide()));
    std::vector<std::string> lines;
    bool isInside = false;
    bool isWanted = false;
    for (std::string line; std::getline(text, line);) {
        if (line.starts_with("```")) {
            isInside = !isInside;
            isWanted = isInside && line == "```" + language;
        } else if (isWanted) {
            lines.push_back(line);
        }
    }
    return lines;
}

std::string withoutIndentation(const std::string& line) {
    return line.substr(std::min(line.find_first_not_of(' '), line.size()));
}

TEST(PreferencesGuide, ShowsTheCodeThatIsCompiledHere) {
    std::istringstream source(readFile(__FILE__));
    std::vector<std::string> compiled;
    for (std::string line; std::getline(source, line);) {
        compiled.push_back(withoutIndentation(line));
    }
    const std::vector<std::string> shown = linesOfBlocks("cpp");
    ASSERT_GT(shown.size(), 5U);
    auto next = compiled.begin();
    for (const std::string& line : shown) {
        const auto found = std::find(next, compiled.end(), withoutIndentation(line));
        ASSERT_NE(found, compiled.end()) << "not compiled, or not in this order: " << line;
        next = found + 1;
    }
}

class PreferencesGuideCode : public PreferencesTest {};

TEST_F(PreferencesGuideCode, DoesWhatTheGuideSays) {
    useProperties();
    EXPECT_EQ(preferences.pinCodeLength(), 8);
    EXPECT_EQ(preferences.computerDisplayName(), "Ann's PC");
    EXPECT_EQ(proxy, std::nullopt);
    preferences.setUseProxy(true);
    preferences.setManualAddressProxy("proxy.example");
    preferences.setManualPortProxy("8080");
    useProperties();
    EXPECT_EQ(proxy, "proxy.example:8080");
}

TEST_F(PreferencesGuideCode, WritesTheLineThatTheGuideShows) {
    const auto log = make<XCGLogger>("guide");
    testing::internal::CaptureStdout();
    assignAndClear(log);
    UserDefaultsManager::shared().setPinCodeLength(9);
    const std::string written = testing::internal::GetCapturedStdout();
    log->remove(XCGLogger::Constants::baseConsoleDestinationIdentifier);
    // The time and the line of the source vary.
    const std::regex varying("^[-0-9]+ [:.0-9]+|cpp:[0-9]+");
    std::string shown;
    for (const std::string& line : linesOfBlocks("")) {
        shown += line + "\n";
    }
    const std::string first = written.substr(0, written.find('\n') + 1);
    EXPECT_EQ(std::regex_replace(first, varying, "#"), std::regex_replace(shown, varying, "#"));
    EXPECT_EQ(std::count(written.begin(), written.end(), '\n'), 2) << "no line after the logger is taken away";
}

}  // namespace
}  // namespace velora::test
