#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/UserDefaults/UserDefaultsManager.h>

#include "PreferencesTestSupport.h"

namespace velora::test {
namespace {

// There is no way to another instance.
static_assert(!std::is_default_constructible_v<UserDefaultsManager>);
static_assert(!std::is_copy_constructible_v<UserDefaultsManager>);
static_assert(!std::is_move_constructible_v<UserDefaultsManager>);
static_assert(!std::is_copy_assignable_v<UserDefaultsManager>);
static_assert(!std::is_move_assignable_v<UserDefaultsManager>);
static_assert(!std::is_destructible_v<UserDefaultsManager>);
// Nothing is kept in the object.
static_assert(sizeof(UserDefaultsManager) == sizeof(void*));
static_assert(std::is_same_v<decltype(UserDefaultsManager::shared()), UserDefaultsManager&>);

// What only the application's servers and its engine decide on has no setter.
#define HAS_SETTER(Property)           \
    []<typename Manager>(Manager*) {   \
        return requires(Manager & m) { \
            &Manager::set##Property;   \
        };                             \
    }(static_cast<UserDefaultsManager*>(nullptr))
static_assert(HAS_SETTER(LastMigrateVersion) && HAS_SETTER(ServerId));
static_assert(!HAS_SETTER(CustomVLEnpoint) && !HAS_SETTER(CustomUpdateServerEndpoint) &&
              !HAS_SETTER(CustomSupportServerEndpoint) && !HAS_SETTER(CustomLEndpoint) &&
              !HAS_SETTER(CustomHostEndpoint) && !HAS_SETTER(CoreLoggerPath) &&
              !HAS_SETTER(SaveChatDefaultLocationUrl));
#undef HAS_SETTER

/// Whether a call of `member` is dispatched: then its pointer holds an odd number (Itanium C++ ABI, 2.3).
template <typename Member>
bool isVirtual(Member member) {
    std::array<std::uintptr_t, sizeof member / sizeof(std::uintptr_t)> words{};
    std::memcpy(words.data(), &member, sizeof member);
    return words[0] % 2 == 1;
}

class UserDefaultsManagerCore : public PreferencesTest {};

TEST(UserDefaultsManager, IsOneForAllThreads) {
    std::vector<UserDefaultsManager*> seen(8);
    {
        std::vector<std::jthread> threads;
        threads.reserve(seen.size());
        for (UserDefaultsManager*& place : seen) {
            threads.emplace_back([&place] { place = &UserDefaultsManager::shared(); });
        }
    }
    EXPECT_EQ(std::set(seen.begin(), seen.end()), std::set{&UserDefaultsManager::shared()});
}

TEST(UserDefaultsManager, LetsOnlyTheMigratedVersionBeOverridden) {
    using Manager = UserDefaultsManager;
    EXPECT_TRUE(isVirtual(&Manager::lastMigrateVersion));
    EXPECT_TRUE(isVirtual(&Manager::setLastMigrateVersion));
    EXPECT_FALSE(isVirtual(&Manager::customHostEndpoint));
    EXPECT_FALSE(isVirtual(&Manager::saveChatDefaultLocationUrl));
    EXPECT_FALSE(isVirtual(&Manager::pinCodeLength));
    EXPECT_FALSE(isVirtual(&Manager::setPinCodeLength));
}

TEST_F(UserDefaultsManagerCore, ReadsNothingFromAnEmptyStore) {
    EXPECT_EQ(preferences.lastMigrateVersion(), std::nullopt);
    EXPECT_EQ(preferences.customVLEnpoint(), std::nullopt);
    EXPECT_EQ(preferences.customUpdateServerEndpoint(), std::nullopt);
    EXPECT_EQ(preferences.customSupportServerEndpoint(), std::nullopt);
    EXPECT_EQ(preferences.customLEndpoint(), std::nullopt);
    EXPECT_EQ(preferences.customHostEndpoint(), std::nullopt);
    EXPECT_EQ(preferences.coreLoggerPath(), std::nullopt);
    EXPECT_TRUE(store().allValues().empty());
}

TEST_F(UserDefaultsManagerCore, ReadsEachEndpointUnderItsOwnKeyAsItIs) {
    storeFromOutside("VLEnpoint", R"(" https://vl.example ")");
    storeFromOutside("updateServer", R"("no url at all")");
    storeFromOutside("supportEndpoint", R"("")");
    storeFromOutside("lEndpoint", R"("line\nbreak")");
    storeFromOutside("CustomHostEndpoint", R"("höst")");
    EXPECT_EQ(preferences.customVLEnpoint(), " https://vl.example ");
    EXPECT_EQ(preferences.customUpdateServerEndpoint(), "no url at all");
    EXPECT_EQ(preferences.customSupportServerEndpoint(), "");
    EXPECT_EQ(preferences.customLEndpoint(), "line\nbreak");
    EXPECT_EQ(preferences.customHostEndpoint(), "höst");
}

TEST_F(UserDefaultsManagerCore, ReadsTheCoreLogFolderAsURL) {
    storeFromOutside("CoreLoggerPath", R"({"url": "file:///var/log/core%20engine/"})");
    ASSERT_TRUE(preferences.coreLoggerPath());
    EXPECT_EQ(preferences.coreLoggerPath()->absoluteString(), "file:///var/log/core%20engine/");
    storeFromOutside("CoreLoggerPath", R"("/var/log/core engine")");
    ASSERT_TRUE(preferences.coreLoggerPath());
    EXPECT_EQ(preferences.coreLoggerPath()->path(), "/var/log/core engine");
}

TEST_F(UserDefaultsManagerCore, KeepsTheMigratedVersion) {
    preferences.setLastMigrateVersion("4.2");
    EXPECT_EQ(stored("LastMigrateSettings"), R"("4.2")");
    EXPECT_EQ(preferences.lastMigrateVersion(), "4.2");
    preferences.setLastMigrateVersion("");
    EXPECT_EQ(preferences.lastMigrateVersion(), "");
    preferences.setLastMigrateVersion(std::nullopt);
    EXPECT_EQ(preferences.lastMigrateVersion(), std::nullopt);
    EXPECT_FALSE(store().contains("LastMigrateSettings"));
}

TEST_F(UserDefaultsManagerCore, TakesANullPointerForAbsentText) {
    const char* const none = nullptr;
    preferences.setManualAddressProxy("proxy.example");
    preferences.setManualAddressProxy(nullptr);
    EXPECT_EQ(preferences.manualAddressProxy(), std::nullopt);
    preferences.setManualPortProxy("8080");
    preferences.setManualPortProxy(none);
    EXPECT_EQ(preferences.manualPortProxy(), std::nullopt);
    preferences.setLastMigrateVersion("4.2");
    preferences.setLastMigrateVersion(none);
    EXPECT_EQ(preferences.lastMigrateVersion(), std::nullopt);
    EXPECT_TRUE(store().allValues().empty());
}

TEST_F(UserDefaultsManagerCore, ReadsWhatTheStoreHoldsAtThatTime) {
    storeFromOutside("LastMigrateSettings", R"("1")");
    EXPECT_EQ(preferences.lastMigrateVersion(), "1");
    storeFromOutside("LastMigrateSettings", R"("2")");
    EXPECT_EQ(preferences.lastMigrateVersion(), "2");
    DefaultsStore(storeFile()).remove("LastMigrateSettings");
    EXPECT_EQ(preferences.lastMigrateVersion(), std::nullopt);
}

TEST_F(UserDefaultsManagerCore, SavesChatsInTheFolderForApplicationData) {
    const ChangedEnvironment data("XDG_DATA_HOME", "/Users/u/Library/Application Support");
    const auto folder = preferences.saveChatDefaultLocationUrl();
    ASSERT_TRUE(folder);
    EXPECT_EQ(folder->absoluteString(), "file:///Users/u/Library/Application%20Support/Quillon%20Velora/Chats/");
    EXPECT_TRUE(folder->hasDirectoryPath());
}

TEST_F(UserDefaultsManagerCore, SavesChatsInTheHomeFolderWithoutAnotherOne) {
    const TemporaryFolder home;
    const ChangedEnvironment data("XDG_DATA_HOME", std::nullopt);
    const ChangedEnvironment changedHome("HOME", home.path().string());
    ASSERT_TRUE(preferences.saveChatDefaultLocationUrl());
    EXPECT_EQ(preferences.saveChatDefaultLocationUrl()->path(), home / ".local/share/Quillon Velora/Chats");
    EXPECT_TRUE(std::filesystem::is_empty(home.path())) << "nothing is made";
}

TEST_F(UserDefaultsManagerCore, IgnoresARelativeFolderForApplicationData) {
    const ChangedEnvironment data("XDG_DATA_HOME", "relative");
    const ChangedEnvironment home("HOME", "/home/ann");
    EXPECT_EQ(preferences.saveChatDefaultLocationUrl()->path(), "/home/ann/.local/share/Quillon Velora/Chats");
}

TEST_F(UserDefaultsManagerCore, StopsWhereThereIsNoFolderForApplicationData) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root, to become a user without a home folder";
    }
    const ChangedEnvironment data("XDG_DATA_HOME", std::nullopt);
    const ChangedEnvironment home("HOME", std::nullopt);
    EXPECT_DEATH(
        {
            if (::setresuid(54321, 54321, 54321) == 0) {
                preferences.saveChatDefaultLocationUrl();
            }
        },
        "There is no folder for application data");
}

}  // namespace
}  // namespace velora::test
