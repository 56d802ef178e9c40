#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <support/RecordingDestination.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/UserDefaults/UserDefaultsManager.h>

#include "PreferencesTestSupport.h"

namespace velora::test {
namespace {

using testing::ElementsAre;
using Manager = UserDefaultsManager;

/// One change of a property, and what is to come of it.
struct Change {
    std::string name;
    std::string property;
    std::string key;
    std::function<void(Manager&)> make;
    std::function<bool(const Manager&)> isMade;
    std::optional<std::string> json;  ///< nothing: the key is removed
    std::optional<std::string> line;  ///< nothing: not announced
};

std::ostream& operator<<(std::ostream& stream, const Change& change) {
    return stream << change.property;
}

/// A change to `value` through a pair of a getter and a setter.
template <typename Get, typename Set, typename Value>
Change change(const std::string& property, const std::string& variant, const std::string& key, Get get, Set set,
              Value value, const std::optional<std::string>& json, const std::optional<std::string>& line) {
    return {.name = property + variant,
            .property = property,
            .key = key,
            .make = [set, value](Manager& manager) { (manager.*set)(value); },
            .isMade = [get, value](const Manager& manager) { return (manager.*get)() == value; },
            .json = json,
            .line = line};
}

#define CHANGE(property, Property, variant, key, value, json, line) \
    change(#property, variant, key, &Manager::property, &Manager::set##Property, value, json, line)

URL url(const char* text) {
    return URL::parse(text).value();
}

const std::optional<std::string> none;
const std::optional<URL> noURL;

// clang-format off
std::vector<Change> changes() {
    return {
        CHANGE(lastConnectionId, LastConnectionId, "Set", "Last_Connection_Id", "123 456", R"("123 456")", "Save new Last Connection ID: 123 456"),
        CHANGE(lastConnectionId, LastConnectionId, "Removed", "Last_Connection_Id", none, none, "Save new Last Connection ID: none"),
        CHANGE(lastConnectionId, LastConnectionId, "Empty", "Last_Connection_Id", "", R"("")", "Save new Last Connection ID: "),
        CHANGE(serverId, ServerId, "Set", "Server_ID_String", "srv-1", R"("srv-1")", "Save new Server ID: srv-1"),
        CHANGE(serverId, ServerId, "Removed", "Server_ID_String", none, none, "Save new Server ID: none"),
        CHANGE(scaleImageMode, ScaleImageMode, "Windowed", "Scaling_Image_Mode", ScaleImageMode::windowed, "0", none),
        CHANGE(scaleImageMode, ScaleImageMode, "FullScreen", "Scaling_Image_Mode", ScaleImageMode::fullScreen, "1", none),
        CHANGE(ignoreUpdateVersion, IgnoreUpdateVersion, "Set", "Ignoring_UpdateVersion", "2.0", R"("2.0")", "Save ignoring last update version: 2.0"),
        CHANGE(ignoreUpdateVersion, IgnoreUpdateVersion, "Removed", "Ignoring_UpdateVersion", none, none, "Save ignoring last update version: none"),
        CHANGE(serverScreenControlMode, ServerScreenControlMode, "NotPinned", "Server_ScreenControlMode", ServerScreenControlMode::notPinned, "0", "Save new server screen control mode: notPinned"),
        CHANGE(serverScreenControlMode, ServerScreenControlMode, "AlwaysOnTop", "Server_ScreenControlMode", ServerScreenControlMode::alwaysOnTop, "1", "Save new server screen control mode: alwaysOnTop"),
        CHANGE(computerDisplayName, ComputerDisplayName, "Set", "Preferences_General_ComputerDisplayName", "Änn's \"PC\"\n2", R"("Änn's \"PC\"\n2")", "General Preferences. New computer name: Änn's \"PC\"\n2"),
        CHANGE(computerDisplayName, ComputerDisplayName, "Removed", "Preferences_General_ComputerDisplayName", none, none, "General Preferences. New computer name: default"),
        CHANGE(computerDisplayName, ComputerDisplayName, "Empty", "Preferences_General_ComputerDisplayName", "", R"("")", "General Preferences. New computer name: "),
        CHANGE(computerDisplayName, ComputerDisplayName, "WithBraces", "Preferences_General_ComputerDisplayName", "{} %s", R"("{} %s")", "General Preferences. New computer name: {} %s"),
        CHANGE(defaultConnectionMode, DefaultConnectionMode, "Control", "Preferences_General_DefaultConnectionMode", DefaultConnectionMode::controlRemoteComputer, "0", "General Preferences. New default connection mode: Control remote computer"),
        CHANGE(defaultConnectionMode, DefaultConnectionMode, "Allow", "Preferences_General_DefaultConnectionMode", DefaultConnectionMode::allowRemoteComputer, "1", "General Preferences. New default connection mode: Allowed remote computer"),
        CHANGE(defaultMicrophoneSettings, DefaultMicrophoneSettings, "Mute", "Preferences_General_DefaultMicrohponeSettings", DefaultMicrophoneSettings::mute, "0", "General Preferences. New default michrophone settings: Mute"),
        CHANGE(defaultMicrophoneSettings, DefaultMicrophoneSettings, "Unmute", "Preferences_General_DefaultMicrohponeSettings", DefaultMicrophoneSettings::unmute, "1", "General Preferences. New default michrophone settings: Unmute"),
        CHANGE(commandCombinations, CommandCombinations, "Remote", "Preferences_General_CommandCombinations", CommandShortcuts::onRemoteComputer, "0", "General Preferences. New command combination: On the remote compute"),
        CHANGE(commandCombinations, CommandCombinations, "This", "Preferences_General_CommandCombinations", CommandShortcuts::onThisComputer, "1", "General Preferences. New command combination: On this computer"),
        CHANGE(commandCombinations, CommandCombinations, "FullScreen", "Preferences_General_CommandCombinations", CommandShortcuts::onWhenUsingFullScreen, "2", "General Preferences. New command combination: Only when using in full screen"),
        CHANGE(enableDisconnectWarnings, EnableDisconnectWarnings, "On", "Preferences_General_EnableDisconnectionWarnings", true, "true", "General Preferences. New enable disconnect warnings: true"),
        CHANGE(enableDisconnectWarnings, EnableDisconnectWarnings, "Off", "Preferences_General_EnableDisconnectionWarnings", false, "false", "General Preferences. New enable disconnect warnings: false"),
        CHANGE(defaultAccessLevel, DefaultAccessLevel, "ViewOnly", "Preferences_Connection_DefaultAccessLevel", DefaultAccessLevel::viewOnly, "0", "Connection Preferences. New default access level: View-only"),
        CHANGE(defaultAccessLevel, DefaultAccessLevel, "FullControl", "Preferences_Connection_DefaultAccessLevel", DefaultAccessLevel::fullControl, "1", "Connection Preferences. New default access level: Full control"),
        CHANGE(incomingConnectionIsAllow, IncomingConnectionIsAllow, "On", "Preferences_Connection_IncomingConnectionAllow", true, "true", "Connection Preferences. New incoming connection: true"),
        CHANGE(incomingConnectionIsAllow, IncomingConnectionIsAllow, "Off", "Preferences_Connection_IncomingConnectionAllow", false, "false", "Connection Preferences. New incoming connection: false"),
        CHANGE(promptIncomingConnection, PromptIncomingConnection, "On", "Preferences_Connection_PromtIncomingConnection", true, "true", "Connection Preferences. New prompt incomming connection: true"),
        CHANGE(promptIncomingConnection, PromptIncomingConnection, "Off", "Preferences_Connection_PromtIncomingConnection", false, "false", "Connection Preferences. New prompt incomming connection: false"),
        CHANGE(quitAfterSession, QuitAfterSession, "On", "Preferences_Connection_QuitAfterSession", true, "true", "Connection Preferences. New quit after session: true"),
        CHANGE(quitAfterSession, QuitAfterSession, "Off", "Preferences_Connection_QuitAfterSession", false, "false", "Connection Preferences. New quit after session: false"),
        CHANGE(loggingLevel, LoggingLevel, "None", "Preferences_Logging_LoggingLevel", LogginLevel::noLoggin, "0", "Logging Preferences. New logging level: No logging"),
        CHANGE(loggingLevel, LoggingLevel, "Low", "Preferences_Logging_LoggingLevel", LogginLevel::lowLevel, "1", "Logging Preferences. New logging level: Low level"),
        CHANGE(loggingLevel, LoggingLevel, "High", "Preferences_Logging_LoggingLevel", LogginLevel::highLevel, "2", "Logging Preferences. New logging level: High level"),
        CHANGE(loggingLevel, LoggingLevel, "All", "Preferences_Logging_LoggingLevel", LogginLevel::allLevel, "3", "Logging Preferences. New logging level: All events"),
        CHANGE(saveChatsLocationUrl, SaveChatsLocationUrl, "Set", "Preferences_Logging_SaveChatLocation", url("file:///home/ann/my%20chats/%C3%A4/"), R"({"url": "file:///home/ann/my%20chats/%C3%A4/"})", "Logging Preferences. New save chat location: /home/ann/my chats/ä"),
        CHANGE(saveChatsLocationUrl, SaveChatsLocationUrl, "Removed", "Preferences_Logging_SaveChatLocation", noURL, none, "Logging Preferences. New save chat location: "),
        CHANGE(encrytptionRequired, EncrytptionRequired, "On", "Preferences_Security_EncryptionRequired", true, "true", "Security Preferences. New encryption required: true"),
        CHANGE(encrytptionRequired, EncrytptionRequired, "Off", "Preferences_Security_EncryptionRequired", false, "false", "Security Preferences. New encryption required: false"),
        CHANGE(pinCodeLength, PinCodeLength, "Eight", "Preferences_Security_PinCodeLength", 8, "8", "Security Preferences. New pin code length: 8"),
        CHANGE(pinCodeLength, PinCodeLength, "Zero", "Preferences_Security_PinCodeLength", 0, "0", "Security Preferences. New pin code length: 0"),
        CHANGE(pinCodeLength, PinCodeLength, "Negative", "Preferences_Security_PinCodeLength", -5, "-5", "Security Preferences. New pin code length: -5"),
        CHANGE(pinCodeLength, PinCodeLength, "Least", "Preferences_Security_PinCodeLength", std::numeric_limits<std::int64_t>::min(), "-9223372036854775808", "Security Preferences. New pin code length: -9223372036854775808"),
        CHANGE(pinCodeLength, PinCodeLength, "Greatest", "Preferences_Security_PinCodeLength", std::numeric_limits<std::int64_t>::max(), "9223372036854775807", "Security Preferences. New pin code length: 9223372036854775807"),
        CHANGE(allowUnattendedAccess, AllowUnattendedAccess, "On", "Preferences_Sucurity_AllowUnuttendedAccess", true, "true", "Security Preferences. New allow unattended access: true"),
        CHANGE(allowUnattendedAccess, AllowUnattendedAccess, "Off", "Preferences_Sucurity_AllowUnuttendedAccess", false, "false", "Security Preferences. New allow unattended access: false"),
        CHANGE(downloadLocation, DownloadLocation, "File", "Preferences_Transfer_DownloadLocation", url("file:///d%C3%A9p%C3%B4t/a%20b"), R"({"url": "file:///d%C3%A9p%C3%B4t/a%20b"})", "Transfer Preferences. New download location: /dépôt/a b"),
        CHANGE(downloadLocation, DownloadLocation, "Remote", "Preferences_Transfer_DownloadLocation", url("https://files.example/in%20box?x=1"), R"({"url": "https://files.example/in%20box?x=1"})", "Transfer Preferences. New download location: /in box"),
        CHANGE(useProxy, UseProxy, "On", "Preferences_Proxy_UseProxy", true, "true", "Proxy Preferences. New use proxy: true"),
        CHANGE(useProxy, UseProxy, "Off", "Preferences_Proxy_UseProxy", false, "false", "Proxy Preferences. New use proxy: false"),
        CHANGE(autodetectProxy, AutodetectProxy, "On", "Preferences_Proxy_Autodetect", true, "true", "Proxy Preferences. New autodetect proxy: true"),
        CHANGE(autodetectProxy, AutodetectProxy, "Off", "Preferences_Proxy_Autodetect", false, "false", "Proxy Preferences. New autodetect proxy: false"),
        CHANGE(manualAddressProxy, ManualAddressProxy, "Set", "Preferences_Proxy_ManualAddress", "proxy.example", R"("proxy.example")", "Proxy Preferences. New manually address: 'proxy.example'"),
        CHANGE(manualAddressProxy, ManualAddressProxy, "Quoted", "Preferences_Proxy_ManualAddress", "it's", R"("it's")", "Proxy Preferences. New manually address: 'it's'"),
        CHANGE(manualAddressProxy, ManualAddressProxy, "Removed", "Preferences_Proxy_ManualAddress", none, none, "Proxy Preferences. New manually address: ''"),
        CHANGE(manualPortProxy, ManualPortProxy, "Set", "Preferences_Proxy_ManualPort", "8080", R"("8080")", "Proxy Preferences. New address port: 8080"),
        CHANGE(manualPortProxy, ManualPortProxy, "NoNumber", "Preferences_Proxy_ManualPort", " any port ", R"(" any port ")", "Proxy Preferences. New address port:  any port "),
        CHANGE(manualPortProxy, ManualPortProxy, "Removed", "Preferences_Proxy_ManualPort", none, none, "Proxy Preferences. New address port: "),
        CHANGE(lastMigrateVersion, LastMigrateVersion, "Set", "LastMigrateSettings", "5", R"("5")", none),
        CHANGE(lastMigrateVersion, LastMigrateVersion, "Removed", "LastMigrateSettings", none, none, none),
    };
}
// clang-format on

#undef CHANGE

std::string lastComponent(std::string_view path) {
    return std::string(path.substr(path.rfind('/') + 1));
}

class PreferenceChange : public PreferencesTest, public testing::WithParamInterface<Change> {
protected:
    void change() const { GetParam().make(preferences); }
};

INSTANTIATE_TEST_SUITE_P(Of, PreferenceChange, testing::ValuesIn(changes()),
                         [](const auto& info) { return info.param.name; });

TEST_P(PreferenceChange, IsStoredUnderItsKeyWithoutALogger) {
    storeFromOutside(GetParam().key, R"("before")");
    storeFromOutside("another key", "1.234567890123456789012345678901234567890e-7");
    change();
    EXPECT_EQ(stored(GetParam().key), GetParam().json);
    EXPECT_EQ(store().allValues().size(), GetParam().json ? 2U : 1U);
    EXPECT_EQ(stored("another key"), "1.234567890123456789012345678901234567890e-7");
}

TEST_P(PreferenceChange, IsReadBack) {
    change();
    if (GetParam().json) {
        EXPECT_TRUE(GetParam().isMade(preferences));
    }
    EXPECT_EQ(DefaultsStore(storeFile()).contains(GetParam().key), GetParam().json.has_value());
}

TEST_P(PreferenceChange, IsAnnouncedEachTime) {
    const RecordedLogger recorded;
    logger = recorded.log;
    for (int round = 0; round < 2; ++round) {
        recorded.recording->clear();
        change();
        const std::vector<LogDetails> records = recorded.recording->records();
        ASSERT_EQ(records.size(), GetParam().line ? 1U : 0U);
        if (GetParam().line) {
            EXPECT_EQ(records[0].message, *GetParam().line);
            EXPECT_EQ(records[0].level, Level::info);
            EXPECT_EQ(records[0].functionName.view(), GetParam().property);
            EXPECT_EQ(lastComponent(records[0].fileName), "UserDefaultsManager+Preferences.cpp");
            EXPECT_TRUE(records[0].userInfo.empty());
        }
    }
    EXPECT_EQ(stored(GetParam().key), GetParam().json);
}

class StoreReadingDestination : public RecordingDestination {
public:
    using RecordingDestination::RecordingDestination;
    void output(LogDetails& /*logDetails*/, std::string& /*message*/) override {
        contents.push_back(DefaultsStore::standard().exportText());
    }
    std::vector<std::string> contents;
};

TEST_P(PreferenceChange, IsAnnouncedBeforeItIsStored) {
    storeFromOutside(GetParam().key, R"("before")");
    const std::string before = store().exportText();
    const RecordedLogger recorded;
    const auto reading = recorded.addRecording<StoreReadingDestination>("reading");
    logger = recorded.log;
    change();
    EXPECT_NE(store().exportText(), before);
    if (GetParam().line) {
        EXPECT_THAT(reading->contents, ElementsAre(before));
    }
}

TEST_P(PreferenceChange, IsNotAnnouncedAboveItsLevel) {
    const RecordedLogger recorded;
    recorded.recording->setOutputLevel(Level::notice);
    logger = recorded.log;
    change();
    EXPECT_TRUE(recorded.recording->lines().empty());
    EXPECT_EQ(stored(GetParam().key), GetParam().json);
}

class Preferences : public PreferencesTest {};

TEST_F(Preferences, HaveAChangeLineForEachOf23Properties) {
    std::set<std::string> announced;
    for (const Change& change : changes()) {
        if (change.line) {
            announced.insert(change.property);
        }
    }
    EXPECT_EQ(announced.size(), 23U);
}

/// The line of the library's source that changes `property`, from 1 on.
std::int64_t lineOfChange(const std::string& property) {
    const auto library = std::filesystem::path(__FILE__).parent_path() / "../../Velora_UserDefaults";
    std::ifstream source(library / "UserDefaults/UserDefaultsManager+Preferences.cpp");
    std::string line;
    std::int64_t number = 0;
    while (std::getline(source, line)) {
        ++number;
        if (line.find("change(Preference::" + property + ",") != std::string::npos) {
            return number;
        }
    }
    return 0;
}

TEST_F(Preferences, NameTheLineOfTheirOwnSetter) {
    const RecordedLogger recorded;
    logger = recorded.log;
    std::set<std::string> properties;
    for (const Change& change : changes()) {
        if (change.line && properties.insert(change.property).second) {
            change.make(preferences);
            const std::int64_t line = lineOfChange(change.property);
            EXPECT_GT(line, 0) << change.property;
            EXPECT_EQ(recorded.recording->records().back().lineNumber, line) << change.property;
        }
    }
    EXPECT_EQ(properties.size(), 23U);
}

TEST_F(Preferences, ReadTheirDefaultsFromAnEmptyStore) {
    EXPECT_EQ(preferences.lastConnectionId(), std::nullopt);
    EXPECT_EQ(preferences.serverId(), std::nullopt);
    EXPECT_EQ(preferences.scaleImageMode(), ScaleImageMode::windowed);
    EXPECT_EQ(preferences.ignoreUpdateVersion(), std::nullopt);
    EXPECT_EQ(preferences.serverScreenControlMode(), ServerScreenControlMode::notPinned);
    EXPECT_EQ(preferences.computerDisplayName(), std::nullopt);
    EXPECT_EQ(preferences.defaultConnectionMode(), DefaultConnectionMode::controlRemoteComputer);
    EXPECT_EQ(preferences.defaultMicrophoneSettings(), DefaultMicrophoneSettings::mute);
    EXPECT_EQ(preferences.commandCombinations(), CommandShortcuts::onRemoteComputer);
    EXPECT_TRUE(preferences.enableDisconnectWarnings());
    EXPECT_EQ(preferences.defaultAccessLevel(), DefaultAccessLevel::viewOnly);
    EXPECT_TRUE(preferences.incomingConnectionIsAllow());
    EXPECT_FALSE(preferences.promptIncomingConnection());
    EXPECT_FALSE(preferences.quitAfterSession());
    EXPECT_EQ(preferences.loggingLevel(), LogginLevel::lowLevel);
    EXPECT_EQ(preferences.saveChatsLocationUrl(), std::nullopt);
    EXPECT_FALSE(preferences.encrytptionRequired());
    EXPECT_EQ(preferences.pinCodeLength(), 6);
    EXPECT_FALSE(preferences.allowUnattendedAccess());
    EXPECT_FALSE(preferences.useProxy());
    EXPECT_FALSE(preferences.autodetectProxy());
    EXPECT_EQ(preferences.manualAddressProxy(), std::nullopt);
    EXPECT_EQ(preferences.manualPortProxy(), std::nullopt);
    EXPECT_TRUE(store().allValues().empty()) << "a registered default is not stored";
}

TEST_F(Preferences, ReadTheFirstOfTwoChoicesForAnyIntegerButOne) {
    for (const char* raw : {"2", "7", "-1", "-9223372036854775808", "4294967297", R"("2")", "null", "[1]", "false"}) {
        storeFromOutside("Preferences_Connection_DefaultAccessLevel", raw);
        storeFromOutside("Scaling_Image_Mode", raw);
        storeFromOutside("Server_ScreenControlMode", raw);
        storeFromOutside("Preferences_General_DefaultConnectionMode", raw);
        storeFromOutside("Preferences_General_DefaultMicrohponeSettings", raw);
        EXPECT_EQ(preferences.defaultAccessLevel(), DefaultAccessLevel::viewOnly) << raw;
        EXPECT_EQ(preferences.scaleImageMode(), ScaleImageMode::windowed) << raw;
        EXPECT_EQ(preferences.serverScreenControlMode(), ServerScreenControlMode::notPinned) << raw;
        EXPECT_EQ(preferences.defaultConnectionMode(), DefaultConnectionMode::controlRemoteComputer) << raw;
        EXPECT_EQ(preferences.defaultMicrophoneSettings(), DefaultMicrophoneSettings::mute) << raw;
    }
    storeFromOutside("Preferences_Connection_DefaultAccessLevel", R"("1")");
    EXPECT_EQ(preferences.defaultAccessLevel(), DefaultAccessLevel::fullControl) << "text converts";
}

TEST_F(Preferences, ReadCommandsOnTheRemoteComputerForAnIntegerAboveTwoOrBelowZero) {
    for (const char* raw : {"5", "3", "-1", "4294967297", "9223372036854775807"}) {
        storeFromOutside("Preferences_General_CommandCombinations", raw);
        EXPECT_EQ(preferences.commandCombinations(), CommandShortcuts::onRemoteComputer) << raw;
    }
}

TEST_F(Preferences, StopTheProcessOnALoggingLevelOutOfRange) {
    for (const char* raw : {"4", "-1", "9223372036854775807", "-9223372036854775808"}) {
        storeFromOutside("Preferences_Logging_LoggingLevel", raw);
        EXPECT_DEATH(preferences.loggingLevel(), std::string("logging level ") + raw + " is none of 0 to 3");
    }
}

TEST_F(Preferences, PreferWhatIsStoredToADefault) {
    EXPECT_TRUE(preferences.enableDisconnectWarnings());
    EXPECT_EQ(preferences.pinCodeLength(), 6);
    storeFromOutside("Preferences_General_EnableDisconnectionWarnings", "false");
    storeFromOutside("Preferences_Security_PinCodeLength", "0");
    EXPECT_FALSE(preferences.enableDisconnectWarnings());
    EXPECT_EQ(preferences.pinCodeLength(), 0);
    store().remove("Preferences_Security_PinCodeLength");
    EXPECT_EQ(preferences.pinCodeLength(), 6);
}

TEST_F(Preferences, RegisterTheirDefaultsOnEachRead) {
    store().registerDefaults({{"Preferences_General_EnableDisconnectionWarnings", false},
                              {"Preferences_Connection_IncomingConnectionAllow", false},
                              {"Preferences_Logging_LoggingLevel", 3},
                              {"Preferences_Security_PinCodeLength", 4}});
    EXPECT_TRUE(preferences.enableDisconnectWarnings());
    EXPECT_TRUE(preferences.incomingConnectionIsAllow());
    EXPECT_EQ(preferences.loggingLevel(), LogginLevel::lowLevel);
    EXPECT_EQ(preferences.pinCodeLength(), 6);
    EXPECT_TRUE(store().boolean("Preferences_General_EnableDisconnectionWarnings"));
    EXPECT_TRUE(store().boolean("Preferences_Connection_IncomingConnectionAllow"));
    EXPECT_EQ(store().integer("Preferences_Logging_LoggingLevel"), 1);
    EXPECT_EQ(store().integer("Preferences_Security_PinCodeLength"), 6);
}

TEST_F(Preferences, RegisterNoOtherDefaults) {
    // What was registered elsewhere shows through a property that registers nothing itself.
    store().registerDefaults({{"Preferences_Proxy_UseProxy", true}, {"Preferences_Connection_DefaultAccessLevel", 1}});
    EXPECT_TRUE(preferences.useProxy());
    EXPECT_EQ(preferences.defaultAccessLevel(), DefaultAccessLevel::fullControl);
    store().registerDefaults({{"Preferences_Proxy_UseProxy", false}, {"Preferences_Connection_DefaultAccessLevel", 0}});
}

TEST_F(Preferences, DownloadToTheFolderOfTheUsersConfiguration) {
    const TemporaryFolder folder;
    const ChangedEnvironment config("XDG_CONFIG_HOME", folder.path().string());
    const ChangedEnvironment home("HOME", "/home/ann");
    writeFile(folder / "user-dirs.dirs", "# folders\nXDG_DOWNLOAD_DIR=\"$HOME/My \\\"in\\\" box\"\n");
    EXPECT_EQ(preferences.downloadLocation().path(), "/home/ann/My \"in\" box");
    EXPECT_TRUE(preferences.downloadLocation().hasDirectoryPath());
    writeFile(folder / "user-dirs.dirs", "XDG_DOWNLOAD_DIR=\"/srv/in\"\n");
    EXPECT_EQ(preferences.downloadLocation().path(), "/srv/in");
    storeFromOutside("Preferences_Transfer_DownloadLocation", R"({"url": "file:///stored"})");
    EXPECT_EQ(preferences.downloadLocation().absoluteString(), "file:///stored");
}

TEST_F(Preferences, DownloadToTheHomeFolderWithoutAConfiguration) {
    const TemporaryFolder folder;
    const ChangedEnvironment config("XDG_CONFIG_HOME", folder / "missing");
    const ChangedEnvironment home("HOME", folder.path().string());
    EXPECT_EQ(preferences.downloadLocation().absoluteString(), "file://" + folder.path().string() + "/Downloads/");
    EXPECT_TRUE(std::filesystem::is_empty(folder.path())) << "nothing is made";
}

TEST_F(Preferences, StopTheProcessWithoutADownloadFolder) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root, to become a user without a home folder";
    }
    const ChangedEnvironment config("XDG_CONFIG_HOME", std::nullopt);
    const ChangedEnvironment home("HOME", std::nullopt);
    EXPECT_DEATH(
        {
            if (::setresuid(54321, 54321, 54321) == 0) {
                preferences.downloadLocation();
            }
        },
        "There is no download folder");
}

TEST_F(Preferences, ReadATextUnderAURLKeyAsAPath) {
    const ChangedEnvironment home("HOME", "/home/ann");
    storeFromOutside("Preferences_Logging_SaveChatLocation", R"("~/my chats")");
    ASSERT_TRUE(preferences.saveChatsLocationUrl());
    EXPECT_EQ(preferences.saveChatsLocationUrl()->path(), "/home/ann/my chats");
    storeFromOutside("Preferences_Logging_SaveChatLocation", "7");
    EXPECT_EQ(preferences.saveChatsLocationUrl(), std::nullopt);
}

TEST_F(Preferences, GoToTheLoggerOfTheMoment) {
    const RecordedLogger first("first");
    const RecordedLogger second("second");
    logger = first.log;
    EXPECT_EQ(logger.load(), first.log);
    preferences.setUseProxy(true);
    logger = second.log;
    preferences.setUseProxy(false);
    logger = nullptr;
    EXPECT_EQ(logger.load(), nullptr);
    preferences.setUseProxy(true);
    EXPECT_THAT(first.recording->lines(), ElementsAre("> Proxy Preferences. New use proxy: true"));
    EXPECT_THAT(second.recording->lines(), ElementsAre("> Proxy Preferences. New use proxy: false"));
    EXPECT_TRUE(preferences.useProxy());
}

TEST_F(Preferences, LeaveUnknownKeysAsTheyAre) {
    const std::string unknown = R"([1.10, 123456789012345678901234567890, {"a" :null}])";
    storeFromOutside("Somebody's", unknown);
    for (const Change& change : changes()) {
        change.make(preferences);
    }
    EXPECT_EQ(stored("Somebody's"), unknown);
}

TEST_F(Preferences, StayAsTheyAreWhereTheStoreCannotBeWritten) {
    preferences.setPinCodeLength(7);
    std::vector<std::string> reports;
    store().setReportHandler([&reports](const std::string& line) { reports.push_back(line); });
    // A folder in the place of the file cannot be replaced, not even by root.
    std::filesystem::rename(storeFile(), storeFile() + ".kept");
    std::filesystem::create_directories(storeFile() + "/full");
    preferences.setPinCodeLength(9);
    EXPECT_FALSE(reports.empty());
    std::filesystem::remove_all(storeFile());
    std::filesystem::rename(storeFile() + ".kept", storeFile());
    EXPECT_EQ(DefaultsStore(storeFile()).integer("Preferences_Security_PinCodeLength"), 7);
    store().setReportHandler({});
}

}  // namespace
}  // namespace velora::test
