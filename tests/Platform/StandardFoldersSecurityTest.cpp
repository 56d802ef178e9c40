// Which folders a program takes from its environment that runs with more rights than whoever started it.

#include <array>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/Platform/FileManager.h>
#include <Velora_UserDefaults/Platform/URL.h>

#include "support/OtherUser.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

constexpr int hasNoOtherRights = 90;

/// Runs in a copy of this program that has the rights of `someUser` whoever starts it.
TEST(StandardFoldersSecurity, DISABLED_LooksAtItsFolders) {
    const auto isHostile = [](const std::string& path) { return path.find("hostile") != std::string::npos; };
    int faults = 0;
    faults |= isHostile(FileManager::temporaryFolder()) ? 1 : 0;
    faults |= isHostile(FileManager::homeFolder()) ? 2 : 0;
    for (const URL& folder : FileManager::applicationSupportFolders()) {
        faults |= isHostile(folder.path()) ? 4 : 0;
    }
    for (const URL& folder : FileManager::downloadsFolders()) {
        faults |= isHostile(folder.path()) ? 8 : 0;
    }
    faults |= isHostile(DefaultsStore::standardPath()) ? 16 : 0;
    DefaultsStore store("");
    store.setString("folder", "~/below");
    const std::optional<URL> expanded = store.url("folder");
    faults |= !expanded || isHostile(expanded->path()) ? 32 : 0;
    // Not the usual end: leaks cannot be looked for in a program with such rights.
    ::_exit(::getauxval(AT_SECURE) == 0 ? hasNoOtherRights : faults);
}

/// The exit status of the program at `path` with hostile folders in its environment.
int statusWithHostileFolders(const std::string& path, const std::string& hostile) {
    const int result = resultOfForkedChild([&] {
        for (const char* name : {"TMPDIR", "HOME", "XDG_DATA_HOME", "XDG_CONFIG_HOME"}) {
            ::setenv(name, hostile.c_str(), 1);
        }
        ::setenv("VELORA_DEFAULTS_FILE", (hostile + "/store.json").c_str(), 1);
        ::execl(path.c_str(), "test", "--gtest_filter=*LooksAtItsFolders", "--gtest_also_run_disabled_tests",
                "--gtest_brief=1", static_cast<char*>(nullptr));
        return 91;
    });
    return result;
}

TEST(StandardFoldersSecurity, AreNotThoseOfWhoeverStartedAProgramWithMoreRights) {
    if (!canBecomeOtherUsers()) {
        GTEST_SKIP() << "only the superuser can give a program the rights of another user";
    }
    const SharedFolder shared;
    struct statvfs fileSystem {};
    ASSERT_EQ(::statvfs(shared.path().c_str(), &fileSystem), 0);
    if ((fileSystem.f_flag & ST_NOSUID) != 0) {
        GTEST_SKIP() << "programs on this file system never get the rights of others";
    }
    const std::string hostile = shared / "hostile";
    std::filesystem::create_directory(hostile);
    const std::string program = shared / "program";
    std::filesystem::copy_file("/proc/self/exe", program);
    ASSERT_EQ(::chmod(program.c_str(), 0755), 0);
    EXPECT_EQ(statusWithHostileFolders(program, hostile), hasNoOtherRights);
    ASSERT_EQ(::chown(program.c_str(), someUser, someUser), 0);
    ASSERT_EQ(::chmod(program.c_str(), 04755), 0);
    const int status = statusWithHostileFolders(program, hostile);
    if (status == hasNoOtherRights) {
        GTEST_SKIP() << "no process gets the rights of others here";
    }
    EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace velora::test
