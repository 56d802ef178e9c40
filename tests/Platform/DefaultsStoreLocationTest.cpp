#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

#include "DefaultsStoreTestSupport.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

class DefaultsStoreLocation : public ::testing::Test {
protected:
    DefaultsStoreLocation() {
        ::unsetenv("VELORA_DEFAULTS_FILE");
        ::unsetenv("XDG_CONFIG_HOME");
        ::setenv("HOME", folder.path().c_str(), 1);
    }
    TemporaryFolder folder;
};

TEST_F(DefaultsStoreLocation, IsInTheConfigFolderOfTheHome) {
    EXPECT_EQ(DefaultsStore::standardPath(), folder / ".config/Quillon Velora/UserDefaults.json");
}

TEST_F(DefaultsStoreLocation, FollowsTheConfigHome) {
    ::setenv("XDG_CONFIG_HOME", "/some/where", 1);
    EXPECT_EQ(DefaultsStore::standardPath(), "/some/where/Quillon Velora/UserDefaults.json");
    ::setenv("XDG_CONFIG_HOME", "relative", 1);
    EXPECT_EQ(DefaultsStore::standardPath(), folder / ".config/Quillon Velora/UserDefaults.json");
    ::setenv("XDG_CONFIG_HOME", "", 1);
    EXPECT_EQ(DefaultsStore::standardPath(), folder / ".config/Quillon Velora/UserDefaults.json");
}

TEST_F(DefaultsStoreLocation, IsWhereTheVariableSays) {
    ::setenv("XDG_CONFIG_HOME", "/some/where", 1);
    ::setenv("VELORA_DEFAULTS_FILE", "/else/where.json", 1);
    EXPECT_EQ(DefaultsStore::standardPath(), "/else/where.json");
}

TEST_F(DefaultsStoreLocation, AsksThePasswordDatabaseWithoutAHomeVariable) {
    ::unsetenv("HOME");
    EXPECT_THAT(DefaultsStore::standardPath(), ::testing::EndsWith("/.config/Quillon Velora/UserDefaults.json"));
}

TEST_F(DefaultsStoreLocation, IsNowhereIfTheHomeIsMissing) {
    ::setenv("HOME", (folder / "missing").c_str(), 1);
    EXPECT_EQ(DefaultsStore::standardPath(), "");
    EXPECT_FALSE(std::filesystem::exists(folder / "missing"));
}

TEST_F(DefaultsStoreLocation, WorksInMemoryWithoutAHomeAndSaysSo) {
    ::setenv("HOME", (folder / "missing").c_str(), 1);
    const auto useStandardStore = [] {
        DefaultsStore& store = DefaultsStore::standard();
        const bool works = store.setInteger("key", 5) && store.integer("key") == 5 && store.path().empty();
        ::_exit(works && &store == &DefaultsStore::standard() ? 0 : 1);
    };
    EXPECT_EXIT(useStandardStore(), ::testing::ExitedWithCode(0), "^Preferences: there is no home folder[^\n]*\n$");
}

TEST_F(DefaultsStoreLocation, MakesItsFolders) {
    EXPECT_EQ(inChildProcess([] { return DefaultsStore::standard().setInteger("key", 5) ? 0 : 1; }), 0);
    EXPECT_EQ(readFile(folder / ".config/Quillon Velora/UserDefaults.json"), "{\n    \"key\": 5\n}\n");
}

}  // namespace
}  // namespace velora::test
