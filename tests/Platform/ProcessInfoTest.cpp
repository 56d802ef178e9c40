#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/ProcessInfo.h>

#include "support/ForkedChild.h"
#include "support/TemporaryFolder.h"

namespace velora {
namespace {

constexpr const char* outputVariable = "VELORA_TEST_WRITE_NAME_TO";

/// Makes this program, when it is started with a path in that variable, write its process name there instead of running
/// tests.
const bool runsTests = [] {
    const char* path = ::getenv(outputVariable);
    if (path != nullptr) {
        test::writeFile(path, processName());
        ::_exit(0);
    }
    return true;
}();

std::string executableName() {
    return std::filesystem::read_symlink("/proc/self/exe").filename();
}

/// The process name of this program when it is started as `program` under the name `name`.
std::string processNameWhenStartedAs(const std::string& program, const char* name) {
    const test::TemporaryFolder folder;
    const std::string output = folder / "name";
    test::resultOfForkedChild([&] {
        ::setenv(outputVariable, output.c_str(), 1);
        ::execl(program.c_str(), name, static_cast<char*>(nullptr));
        return 1;
    });
    return test::readFile(output);
}

TEST(ProcessName, IsTheProgramsWithoutItsFolders) {
    ASSERT_TRUE(runsTests);
    EXPECT_EQ(processName(), executableName());
    EXPECT_EQ(processNameWhenStartedAs("/proc/self/exe", "/some where/else/a long name for a program"),
              "a long name for a program");
    EXPECT_EQ(processNameWhenStartedAs("/proc/self/exe", "plain"), "plain");
}

TEST(ProcessName, IsTheLinksForAProgramThatIsStartedByALink) {
    const test::TemporaryFolder folder;
    std::filesystem::create_symlink(std::filesystem::read_symlink("/proc/self/exe"), folder / "alias");
    EXPECT_EQ(processNameWhenStartedAs(folder / "alias", (folder / "alias").c_str()), "alias");
}

TEST(ProcessName, IsTheExecutableFilesIfTheProgramWasStartedWithoutAName) {
    EXPECT_EQ(processNameWhenStartedAs("/proc/self/exe", ""), executableName());
}

TEST(ProcessName, IsKnownInAChild) {
    EXPECT_EQ(test::resultOfForkedChild([] { return processName() == executableName() ? 0 : 1; }), 0);
}

TEST(ProcessIdentifier, IsTheProcesssOwnAlsoInAChild) {
    EXPECT_EQ(processIdentifier(), ::getpid());
    const pid_t parent = processIdentifier();
    EXPECT_EQ(
        test::resultOfForkedChild([parent] {
            return processIdentifier() == ::getpid() && ::getppid() == parent && processIdentifier() != parent ? 0 : 1;
        }),
        0);
}

}  // namespace
}  // namespace velora
