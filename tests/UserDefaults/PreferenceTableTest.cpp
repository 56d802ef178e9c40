#include <array>
#include <cstddef>
#include <gtest/gtest.h>
#include <set>
#include <string_view>

#include <Velora_UserDefaults/UserDefaults/PreferenceTable.h>

namespace velora::test {
namespace {

struct Expected {
    std::string_view key;
    std::string_view property;
    PreferenceKind kind;
};

using enum PreferenceKind;

constexpr std::array<Expected, 35> expected = {{
    {"Server_ID_String", "serverId", text},
    {"Last_Connection_Id", "lastConnectionId", text},
    {"Scaling_Image_Mode", "scaleImageMode", choice},
    {"Ignoring_UpdateVersion", "ignoreUpdateVersion", text},
    {"Server_ScreenControlMode", "serverScreenControlMode", choice},
    {"Preferences_General_ComputerDisplayName", "computerDisplayName", text},
    {"Preferences_General_DefaultConnectionMode", "defaultConnectionMode", choice},
    {"Preferences_General_DefaultMicrohponeSettings", "defaultMicrophoneSettings", choice},
    {"Preferences_General_CommandCombinations", "commandCombinations", choice},
    {"Preferences_General_EnableDisconnectionWarnings", "enableDisconnectWarnings", boolean},
    {"Preferences_Connection_DefaultAccessLevel", "defaultAccessLevel", choice},
    {"Preferences_Connection_IncomingConnectionAllow", "incomingConnectionIsAllow", boolean},
    {"Preferences_Connection_PromtIncomingConnection", "promptIncomingConnection", boolean},
    {"Preferences_Connection_QuitAfterSession", "quitAfterSession", boolean},
    {"Preferences_Logging_LoggingLevel", "loggingLevel", choice},
    {"Preferences_Logging_SaveChatLocation", "saveChatsLocationUrl", url},
    {"Preferences_Security_EncryptionRequired", "encrytptionRequired", boolean},
    {"Preferences_Security_PinCodeLength", "pinCodeLength", integer},
    {"Preferences_Sucurity_AllowUnuttendedAccess", "allowUnattendedAccess", boolean},
    {"Preferences_Transfer_DownloadLocation", "downloadLocation", url},
    {"Preferences_Proxy_UseProxy", "useProxy", boolean},
    {"Preferences_Proxy_Autodetect", "autodetectProxy", boolean},
    {"Preferences_Proxy_ManualAddress", "manualAddressProxy", text},
    {"Preferences_Proxy_ManualPort", "manualPortProxy", text},
    {"VLEnpoint", "customVLEnpoint", text},
    {"updateServer", "customUpdateServerEndpoint", text},
    {"supportEndpoint", "customSupportServerEndpoint", text},
    {"lEndpoint", "customLEndpoint", text},
    {"CustomHostEndpoint", "customHostEndpoint", text},
    {"PermissionControlsIsShow", "", boolean},
    {"PermissionControlsScreenRecordIsRequested", "", boolean},
    {"PermissionControlsServiceScreenRecordIsRequested", "", boolean},
    {"PermissionControlsAccessabilityIsRequested", "", boolean},
    {"CoreLoggerPath", "coreLoggerPath", url},
    {"LastMigrateSettings", "lastMigrateVersion", text},
}};

TEST(PreferenceTable, ListsTheKeysInTheirOrder) {
    ASSERT_EQ(preferenceTable().size(), expected.size());
    for (std::size_t row = 0; row < expected.size(); ++row) {
        EXPECT_EQ(preferenceTable()[row].key, expected[row].key) << row;
        EXPECT_EQ(preferenceTable()[row].property, expected[row].property) << row;
        EXPECT_EQ(preferenceTable()[row].kind, expected[row].kind) << row;
        EXPECT_EQ(static_cast<std::size_t>(preferenceTable()[row].preference), row);
    }
}

TEST(PreferenceTable, RegistersDefaultsForFourKeys) {
    for (const PreferenceEntry& entry : preferenceTable()) {
        if (entry.key == "Preferences_Security_PinCodeLength") {
            EXPECT_EQ(entry.registered, 6);
        } else if (entry.key == "Preferences_Logging_LoggingLevel" ||
                   entry.key == "Preferences_General_EnableDisconnectionWarnings" ||
                   entry.key == "Preferences_Connection_IncomingConnectionAllow") {
            EXPECT_EQ(entry.registered, 1) << entry.key;
        } else {
            EXPECT_FALSE(entry.registered) << entry.key;
        }
    }
}

TEST(PreferenceTable, HasNoTwoRowsForOneKeyOrOneLine) {
    std::set<std::string_view> keys;
    std::set<std::string_view> lines;
    std::size_t announced = 0;
    for (const PreferenceEntry& entry : preferenceTable()) {
        EXPECT_TRUE(keys.insert(entry.key).second) << entry.key;
        if (!entry.line.empty()) {
            EXPECT_TRUE(lines.insert(entry.line).second) << entry.line;
            ++announced;
        }
    }
    EXPECT_EQ(announced, 23U);
}

TEST(PreferenceTable, HasAWordForEveryChoice) {
    for (const PreferenceEntry& entry : preferenceTable()) {
        const std::size_t words = entry.key == "Preferences_Logging_LoggingLevel"          ? 4
                                  : entry.key == "Preferences_General_CommandCombinations" ? 3
                                  : entry.kind == PreferenceKind::choice                   ? 2
                                                                                           : 0;
        EXPECT_EQ(entry.words.size(), words) << entry.key;
    }
}

}  // namespace
}  // namespace velora::test
