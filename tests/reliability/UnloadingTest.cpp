// What becomes of lines and threads when a program unloads (dlclose(3)) a plugin that logs, and with it the library.
// This program itself has nothing of the library.

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include "support/OwnProcess.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

constexpr int lines = 2'000;
constexpr int rounds = 5;

std::vector<std::string> numberedLines(const std::string& path) {
    std::vector<std::string> found;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        if (const std::size_t at = line.find("line "); at != std::string::npos && !line.ends_with(".log")) {
            found.push_back(line.substr(at));
        }
    }
    return found;
}

/// Loads the plugin, has it log and unloads it.
void useAndUnload() {
    void* const plugin = ::dlopen(VELORA_TEST_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(plugin, nullptr) << ::dlerror();
    const auto logLines = reinterpret_cast<void (*)(const char*, int)>(::dlsym(plugin, "logLines"));
    ASSERT_NE(logLines, nullptr) << ::dlerror();
    logLines(std::getenv("VELORA_TEST_LOG"), lines);
    EXPECT_EQ(::dlclose(plugin), 0) << ::dlerror();
}

TEST(AProcess, DISABLED_ThatUnloadsAPlugin) {
    ::alarm(120);
    useAndUnload();
}

TEST(AProcess, DISABLED_ThatLoadsAndUnloadsAPluginAgainAndAgain) {
    ::alarm(120);
    for (int round = 0; round < rounds; ++round) {
        // The system keeps a library as long as a thread has objects of it: so on threads that end.
        std::thread(useAndUnload).join();
    }
}

TEST(Unloading, LosesNoLine) {
    const TemporaryFolder folder;
    EXPECT_EQ(statusOfProcess("AProcess.DISABLED_ThatUnloadsAPlugin", folder / "app.log"), 0);
    const std::vector<std::string> found = numberedLines(folder / "app.log");
    ASSERT_EQ(found.size(), static_cast<std::size_t>(lines));
    for (int number = 0; number < lines; ++number) {
        EXPECT_EQ(found[static_cast<std::size_t>(number)], "line " + std::to_string(number));
    }
}

TEST(Unloading, MayBeFollowedByLoadingAgain) {
    const TemporaryFolder folder;
    EXPECT_EQ(statusOfProcess("AProcess.DISABLED_ThatLoadsAndUnloadsAPluginAgainAndAgain", folder / "app.log"), 0);
    const std::vector<std::string> found = numberedLines(folder / "app.log");
    EXPECT_EQ(found.size(), static_cast<std::size_t>(rounds * lines));
    for (const char* const line : {"line 0", "line 1999"}) {
        EXPECT_EQ(std::ranges::count(found, line), rounds);
    }
}

}  // namespace
}  // namespace velora::test
