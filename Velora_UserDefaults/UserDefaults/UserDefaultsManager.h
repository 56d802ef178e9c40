#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/Platform/OptionalText.h>
#include <Velora_UserDefaults/Platform/URL.h>
#include <Velora_UserDefaults/UserDefaults/PreferenceTypes.h>
#include <Velora_UserDefaults/UserDefaults/SharedLogger.h>

namespace velora {

/// The logger that changes of preferences are announced through: none until the host assigns one.
///
///     velora::logger = log;
///
/// May be replaced or cleared at any time from any thread; each change reads it once.
extern VELORA_EXPORT SharedLogger logger;

/// The application's persistent settings as typed properties over the user's defaults store.
///
///     auto& preferences = velora::UserDefaultsManager::shared();
///     preferences.setPinCodeLength(8);
///     if (preferences.useProxy()) { … }
///
/// Nothing is kept in memory: a read returns what the store holds at that moment, whichever process wrote it,
/// and a write is durable when it returns. A property whose key is absent reads as its default. Setting
/// one announces the new value, even if it is the old one, as a line at level `info` through `logger` (but
/// for `scaleImageMode` and `lastMigrateVersion`), and then stores it. Nothing is validated.
///
/// Any thread may use it at any time. Each access stands by itself: of two threads that read, change and
/// write one property at once, one may lose. Nothing fails from the caller's view; a store that cannot be
/// written keeps its old value and says so (see DefaultsStore). Damage that leaves no sane value stops the
/// process: a stored logging level outside 0…3, a user without a home folder where one is needed.
class VELORA_EXPORT UserDefaultsManager {
public:
    UserDefaultsManager(const UserDefaultsManager&) = delete;
    UserDefaultsManager& operator=(const UserDefaultsManager&) = delete;

    /// The one instance, made on first use; lives as long as the process.
    static UserDefaultsManager& shared();

    /// The version up to which settings were migrated; interpreted by the host. Absent removes it.
    virtual std::optional<std::string> lastMigrateVersion() const;
    virtual void setLastMigrateVersion(OptionalText version);

    /// Overrides of the application's server endpoints, and the folder of the core engine's log: as stored,
    /// read-only here, not interpreted.
    std::optional<std::string> customVLEnpoint() const;
    std::optional<std::string> customUpdateServerEndpoint() const;
    std::optional<std::string> customSupportServerEndpoint() const;
    std::optional<std::string> customLEndpoint() const;
    std::optional<std::string> customHostEndpoint() const;
    std::optional<URL> coreLoggerPath() const;

    /// Where chats are saved unless the user chose a folder: `Quillon Velora/Chats` in the user's folder for
    /// application data. Neither made nor looked for. Without such a folder the process stops.
    std::optional<URL> saveChatDefaultLocationUrl() const;

    // The user's preferences. Absent text or URLs remove the stored value; a null pointer is absent text.

    /// Whom the user connected to last, and the identifier of this host; absent if none is stored.
    std::optional<std::string> lastConnectionId() const;
    void setLastConnectionId(OptionalText identifier);
    std::optional<std::string> serverId() const;
    void setServerId(OptionalText identifier);
    /// `windowed` unless `fullScreen` is stored. Changes are not announced.
    ScaleImageMode scaleImageMode() const;
    void setScaleImageMode(ScaleImageMode mode);
    std::optional<std::string> ignoreUpdateVersion() const;
    void setIgnoreUpdateVersion(OptionalText version);
    /// `notPinned` unless `alwaysOnTop` is stored.
    ServerScreenControlMode serverScreenControlMode() const;
    void setServerScreenControlMode(ServerScreenControlMode mode);
    std::optional<std::string> computerDisplayName() const;
    void setComputerDisplayName(OptionalText name);
    /// `controlRemoteComputer` unless `allowRemoteComputer` is stored.
    DefaultConnectionMode defaultConnectionMode() const;
    void setDefaultConnectionMode(DefaultConnectionMode mode);
    /// `mute` unless `unmute` is stored.
    DefaultMicrophoneSettings defaultMicrophoneSettings() const;
    void setDefaultMicrophoneSettings(DefaultMicrophoneSettings settings);
    /// `onRemoteComputer` unless another choice is stored.
    CommandShortcuts commandCombinations() const;
    void setCommandCombinations(CommandShortcuts shortcuts);
    /// True by default.
    bool enableDisconnectWarnings() const;
    void setEnableDisconnectWarnings(bool isOn);
    /// `viewOnly` unless `fullControl` is stored.
    DefaultAccessLevel defaultAccessLevel() const;
    void setDefaultAccessLevel(DefaultAccessLevel level);
    /// True by default.
    bool incomingConnectionIsAllow() const;
    void setIncomingConnectionIsAllow(bool isAllowed);
    bool promptIncomingConnection() const;
    void setPromptIncomingConnection(bool isOn);
    bool quitAfterSession() const;
    void setQuitAfterSession(bool isOn);
    /// `lowLevel` by default. A stored integer outside 0…3 stops the process.
    LogginLevel loggingLevel() const;
    void setLoggingLevel(LogginLevel level);
    std::optional<URL> saveChatsLocationUrl() const;
    void setSaveChatsLocationUrl(const std::optional<URL>& url);
    bool encrytptionRequired() const;
    void setEncrytptionRequired(bool isRequired);
    /// 6 by default. Any integer is stored as given.
    std::int64_t pinCodeLength() const;
    void setPinCodeLength(std::int64_t length);
    bool allowUnattendedAccess() const;
    void setAllowUnattendedAccess(bool isAllowed);
    /// The user's download folder unless another one is stored. Without either the process stops.
    URL downloadLocation() const;
    void setDownloadLocation(const URL& url);
    bool useProxy() const;
    void setUseProxy(bool isOn);
    bool autodetectProxy() const;
    void setAutodetectProxy(bool isOn);
    std::optional<std::string> manualAddressProxy() const;
    void setManualAddressProxy(OptionalText address);
    std::optional<std::string> manualPortProxy() const;
    void setManualPortProxy(OptionalText port);

private:
    UserDefaultsManager() = default;
    virtual ~UserDefaultsManager() = default;
};

}  // namespace velora
