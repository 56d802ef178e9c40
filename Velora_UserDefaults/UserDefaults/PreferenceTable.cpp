#include <vector>

#include <Velora_UserDefaults/Platform/Lazy.h>
#include <Velora_UserDefaults/UserDefaults/PreferenceTable.h>

namespace velora {

namespace {

constexpr std::array<std::string_view, 2> scaleWords = {"windowed", "fullScreen"};
constexpr std::array<std::string_view, 2> screenControlWords = {"notPinned", "alwaysOnTop"};
constexpr std::array<std::string_view, 2> connectionModeWords = {"Control remote computer", "Allowed remote computer"};
constexpr std::array<std::string_view, 2> microphoneWords = {"Mute", "Unmute"};
constexpr std::array<std::string_view, 3> shortcutWords = {"On the remote compute", "On this computer",
                                                           "Only when using in full screen"};
constexpr std::array<std::string_view, 2> accessWords = {"View-only", "Full control"};
constexpr std::array<std::string_view, 4> loggingWords = {"No logging", "Low level", "High level", "All events"};

using enum Preference;
using enum PreferenceKind;

// The texts are the product's own: keys and lines are kept to the letter, misspellings included.
// clang-format off
constexpr std::array<PreferenceEntry, preferenceCount> table = {{
    {.preference = serverId, .key = "Server_ID_String", .property = "serverId", .kind = text,
     .line = "Save new Server ID: ", .absent = "none"},
    {.preference = lastConnectionId, .key = "Last_Connection_Id", .property = "lastConnectionId", .kind = text,
     .line = "Save new Last Connection ID: ", .absent = "none"},
    {.preference = scaleImageMode, .key = "Scaling_Image_Mode", .property = "scaleImageMode", .kind = choice,
     .words = scaleWords},
    {.preference = ignoreUpdateVersion, .key = "Ignoring_UpdateVersion", .property = "ignoreUpdateVersion", .kind = text,
     .line = "Save ignoring last update version: ", .absent = "none"},
    {.preference = serverScreenControlMode, .key = "Server_ScreenControlMode", .property = "serverScreenControlMode", .kind = choice,
     .line = "Save new server screen control mode: ", .words = screenControlWords},
    {.preference = computerDisplayName, .key = "Preferences_General_ComputerDisplayName", .property = "computerDisplayName", .kind = text,
     .line = "General Preferences. New computer name: ", .absent = "default"},
    {.preference = defaultConnectionMode, .key = "Preferences_General_DefaultConnectionMode", .property = "defaultConnectionMode", .kind = choice,
     .line = "General Preferences. New default connection mode: ", .words = connectionModeWords},
    {.preference = defaultMicrophoneSettings, .key = "Preferences_General_DefaultMicrohponeSettings", .property = "defaultMicrophoneSettings", .kind = choice,
     .line = "General Preferences. New default michrophone settings: ", .words = microphoneWords},
    {.preference = commandCombinations, .key = "Preferences_General_CommandCombinations", .property = "commandCombinations", .kind = choice,
     .line = "General Preferences. New command combination: ", .words = shortcutWords},
    {.preference = enableDisconnectWarnings, .key = "Preferences_General_EnableDisconnectionWarnings", .property = "enableDisconnectWarnings", .kind = boolean,
     .line = "General Preferences. New enable disconnect warnings: ", .registered = 1},
    {.preference = defaultAccessLevel, .key = "Preferences_Connection_DefaultAccessLevel", .property = "defaultAccessLevel", .kind = choice,
     .line = "Connection Preferences. New default access level: ", .words = accessWords},
    {.preference = incomingConnectionIsAllow, .key = "Preferences_Connection_IncomingConnectionAllow", .property = "incomingConnectionIsAllow", .kind = boolean,
     .line = "Connection Preferences. New incoming connection: ", .registered = 1},
    {.preference = promptIncomingConnection, .key = "Preferences_Connection_PromtIncomingConnection", .property = "promptIncomingConnection", .kind = boolean,
     .line = "Connection Preferences. New prompt incomming connection: "},
    {.preference = quitAfterSession, .key = "Preferences_Connection_QuitAfterSession", .property = "quitAfterSession", .kind = boolean,
     .line = "Connection Preferences. New quit after session: "},
    {.preference = loggingLevel, .key = "Preferences_Logging_LoggingLevel", .property = "loggingLevel", .kind = choice,
     .line = "Logging Preferences. New logging level: ", .words = loggingWords, .registered = 1},
    {.preference = saveChatsLocationUrl, .key = "Preferences_Logging_SaveChatLocation", .property = "saveChatsLocationUrl", .kind = url,
     .line = "Logging Preferences. New save chat location: "},
    {.preference = encrytptionRequired, .key = "Preferences_Security_EncryptionRequired", .property = "encrytptionRequired", .kind = boolean,
     .line = "Security Preferences. New encryption required: "},
    {.preference = pinCodeLength, .key = "Preferences_Security_PinCodeLength", .property = "pinCodeLength", .kind = integer,
     .line = "Security Preferences. New pin code length: ", .registered = 6},
    {.preference = allowUnattendedAccess, .key = "Preferences_Sucurity_AllowUnuttendedAccess", .property = "allowUnattendedAccess", .kind = boolean,
     .line = "Security Preferences. New allow unattended access: "},
    {.preference = downloadLocation, .key = "Preferences_Transfer_DownloadLocation", .property = "downloadLocation", .kind = url,
     .line = "Transfer Preferences. New download location: "},
    {.preference = useProxy, .key = "Preferences_Proxy_UseProxy", .property = "useProxy", .kind = boolean,
     .line = "Proxy Preferences. New use proxy: "},
    {.preference = autodetectProxy, .key = "Preferences_Proxy_Autodetect", .property = "autodetectProxy", .kind = boolean,
     .line = "Proxy Preferences. New autodetect proxy: "},
    {.preference = manualAddressProxy, .key = "Preferences_Proxy_ManualAddress", .property = "manualAddressProxy", .kind = text,
     .line = "Proxy Preferences. New manually address: '", .lineEnd = "'"},
    {.preference = manualPortProxy, .key = "Preferences_Proxy_ManualPort", .property = "manualPortProxy", .kind = text,
     .line = "Proxy Preferences. New address port: "},
    {.preference = customVLEnpoint, .key = "VLEnpoint", .property = "customVLEnpoint", .kind = text},
    {.preference = customUpdateServerEndpoint, .key = "updateServer", .property = "customUpdateServerEndpoint", .kind = text},
    {.preference = customSupportServerEndpoint, .key = "supportEndpoint", .property = "customSupportServerEndpoint", .kind = text},
    {.preference = customLEndpoint, .key = "lEndpoint", .property = "customLEndpoint", .kind = text},
    {.preference = customHostEndpoint, .key = "CustomHostEndpoint", .property = "customHostEndpoint", .kind = text},
    {.preference = permissionControlsIsShow, .key = "PermissionControlsIsShow", .property = "", .kind = boolean},
    {.preference = permissionControlsScreenRecordIsRequested, .key = "PermissionControlsScreenRecordIsRequested", .property = "", .kind = boolean},
    {.preference = permissionControlsServiceScreenRecordIsRequested, .key = "PermissionControlsServiceScreenRecordIsRequested", .property = "", .kind = boolean},
    {.preference = permissionControlsAccessabilityIsRequested, .key = "PermissionControlsAccessabilityIsRequested", .property = "", .kind = boolean},
    {.preference = coreLoggerPath, .key = "CoreLoggerPath", .property = "coreLoggerPath", .kind = url},
    {.preference = lastMigrateVersion, .key = "LastMigrateSettings", .property = "lastMigrateVersion", .kind = text},
}};
// clang-format on

static_assert(
    [] {
        for (std::size_t row = 0; row < table.size(); ++row) {
            if (table[row].preference != static_cast<Preference>(row)) {
                return false;
            }
        }
        return true;
    }(),
    "the rows stand in the order of the keys");

}  // namespace

const std::array<PreferenceEntry, preferenceCount>& preferenceTable() {
    return table;
}

const DefaultsStore::Key& preferenceKey(Preference preference) {
    static constinit Lazy<const std::vector<DefaultsStore::Key>> shared;
    const std::vector<DefaultsStore::Key>& keys = shared.get([] {
        auto* made = new std::vector<DefaultsStore::Key>;
        made->reserve(table.size());
        for (const PreferenceEntry& entry : table) {
            made->push_back(DefaultsStore::Key::slot(entry.key));
        }
        return made;
    });
    return keys[static_cast<std::size_t>(preference)];
}

}  // namespace velora
