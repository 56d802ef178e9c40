#include <cstddef>
#include <string>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/Platform/FatalError.h>
#include <Velora_UserDefaults/Platform/FileManager.h>
#include <Velora_UserDefaults/UserDefaults/PreferenceTable.h>
#include <Velora_UserDefaults/UserDefaults/UserDefaultsManager.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora {

namespace {

const PreferenceEntry& entryOf(Preference preference) {
    return preferenceTable()[static_cast<std::size_t>(preference)];
}

// Reading: registers the default where there is one, then asks the store.

std::optional<std::string> text(Preference preference) {
    return DefaultsStore::standard().string(preferenceKey(preference));
}

bool flag(Preference preference) {
    DefaultsStore& store = DefaultsStore::standard();
    const auto& registered = entryOf(preference).registered;
    const DefaultsStore::Key& key = preferenceKey(preference);
    return registered ? store.boolean(key, *registered != 0) : store.boolean(key);
}

std::int64_t integer(Preference preference) {
    DefaultsStore& store = DefaultsStore::standard();
    const auto& registered = entryOf(preference).registered;
    const DefaultsStore::Key& key = preferenceKey(preference);
    return registered ? store.integer(key, *registered) : store.integer(key);
}

std::optional<URL> url(Preference preference) {
    return DefaultsStore::standard().url(preferenceKey(preference));
}

/// The stored choice, or the first one if another integer is stored.
template <typename Choice>
Choice choice(Preference preference) {
    return fromRawValue<Choice>(integer(preference)).value_or(Choice{});
}

// Writing: announces the new value, then stores it.

std::string shown(const PreferenceEntry& entry, std::optional<std::string_view> value) {
    return std::string(value.value_or(entry.absent));
}

std::string shown(const PreferenceEntry& /*entry*/, bool value) {
    return value ? "true" : "false";
}

std::string shown(const PreferenceEntry& entry, std::int64_t value) {
    const auto index = static_cast<std::size_t>(value);
    if (entry.kind == PreferenceKind::choice && index < entry.words.size()) {
        return std::string(entry.words[index]);
    }
    return std::to_string(value);
}

std::string shown(const PreferenceEntry& /*entry*/, const std::optional<URL>& value) {
    return value ? value->path() : std::string();
}

void store(std::string_view key, std::optional<std::string_view> value) {
    DefaultsStore::standard().setString(key, value);
}

void store(std::string_view key, bool value) {
    DefaultsStore::standard().setBool(key, value);
}

void store(std::string_view key, std::int64_t value) {
    DefaultsStore::standard().setInteger(key, value);
}

void store(std::string_view key, const std::optional<URL>& value) {
    DefaultsStore::standard().setURL(key, value);
}

/// `line` is the line of the setter that calls this.
template <typename Value>
void change(Preference preference, const Value& value, std::int64_t line = __builtin_LINE()) {
    const PreferenceEntry& entry = entryOf(preference);
    if (!entry.line.empty()) {
        if (const std::shared_ptr<XCGLogger> current = logger.load()) {
            current->info(SourceLocation(entry.property, __FILE__, line),
                          [&] { return std::string(entry.line).append(shown(entry, value)).append(entry.lineEnd); });
        }
    }
    store(entry.key, value);
}

}  // namespace

std::optional<std::string> UserDefaultsManager::lastConnectionId() const {
    return text(Preference::lastConnectionId);
}

void UserDefaultsManager::setLastConnectionId(OptionalText identifier) {
    change(Preference::lastConnectionId, identifier);
}

std::optional<std::string> UserDefaultsManager::serverId() const {
    return text(Preference::serverId);
}

void UserDefaultsManager::setServerId(OptionalText identifier) {
    change(Preference::serverId, identifier);
}

ScaleImageMode UserDefaultsManager::scaleImageMode() const {
    return choice<ScaleImageMode>(Preference::scaleImageMode);
}

void UserDefaultsManager::setScaleImageMode(ScaleImageMode mode) {
    change(Preference::scaleImageMode, rawValue(mode));
}

std::optional<std::string> UserDefaultsManager::ignoreUpdateVersion() const {
    return text(Preference::ignoreUpdateVersion);
}

void UserDefaultsManager::setIgnoreUpdateVersion(OptionalText version) {
    change(Preference::ignoreUpdateVersion, version);
}

ServerScreenControlMode UserDefaultsManager::serverScreenControlMode() const {
    return choice<ServerScreenControlMode>(Preference::serverScreenControlMode);
}

void UserDefaultsManager::setServerScreenControlMode(ServerScreenControlMode mode) {
    change(Preference::serverScreenControlMode, rawValue(mode));
}

std::optional<std::string> UserDefaultsManager::computerDisplayName() const {
    return text(Preference::computerDisplayName);
}

void UserDefaultsManager::setComputerDisplayName(OptionalText name) {
    change(Preference::computerDisplayName, name);
}

DefaultConnectionMode UserDefaultsManager::defaultConnectionMode() const {
    return choice<DefaultConnectionMode>(Preference::defaultConnectionMode);
}

void UserDefaultsManager::setDefaultConnectionMode(DefaultConnectionMode mode) {
    change(Preference::defaultConnectionMode, rawValue(mode));
}

DefaultMicrophoneSettings UserDefaultsManager::defaultMicrophoneSettings() const {
    return choice<DefaultMicrophoneSettings>(Preference::defaultMicrophoneSettings);
}

void UserDefaultsManager::setDefaultMicrophoneSettings(DefaultMicrophoneSettings settings) {
    change(Preference::defaultMicrophoneSettings, rawValue(settings));
}

CommandShortcuts UserDefaultsManager::commandCombinations() const {
    return choice<CommandShortcuts>(Preference::commandCombinations);
}

void UserDefaultsManager::setCommandCombinations(CommandShortcuts shortcuts) {
    change(Preference::commandCombinations, rawValue(shortcuts));
}

bool UserDefaultsManager::enableDisconnectWarnings() const {
    return flag(Preference::enableDisconnectWarnings);
}

void UserDefaultsManager::setEnableDisconnectWarnings(bool isOn) {
    change(Preference::enableDisconnectWarnings, isOn);
}

DefaultAccessLevel UserDefaultsManager::defaultAccessLevel() const {
    return choice<DefaultAccessLevel>(Preference::defaultAccessLevel);
}

void UserDefaultsManager::setDefaultAccessLevel(DefaultAccessLevel level) {
    change(Preference::defaultAccessLevel, rawValue(level));
}

bool UserDefaultsManager::incomingConnectionIsAllow() const {
    return flag(Preference::incomingConnectionIsAllow);
}

void UserDefaultsManager::setIncomingConnectionIsAllow(bool isAllowed) {
    change(Preference::incomingConnectionIsAllow, isAllowed);
}

bool UserDefaultsManager::promptIncomingConnection() const {
    return flag(Preference::promptIncomingConnection);
}

void UserDefaultsManager::setPromptIncomingConnection(bool isOn) {
    change(Preference::promptIncomingConnection, isOn);
}

bool UserDefaultsManager::quitAfterSession() const {
    return flag(Preference::quitAfterSession);
}

void UserDefaultsManager::setQuitAfterSession(bool isOn) {
    change(Preference::quitAfterSession, isOn);
}

LogginLevel UserDefaultsManager::loggingLevel() const {
    const std::int64_t stored = integer(Preference::loggingLevel);
    const std::optional<LogginLevel> level = fromRawValue<LogginLevel>(stored);
    if (!level) {
        fatalError("The stored logging level " + std::to_string(stored) + " is none of 0 to 3");
    }
    return *level;
}

void UserDefaultsManager::setLoggingLevel(LogginLevel level) {
    change(Preference::loggingLevel, rawValue(level));
}

std::optional<URL> UserDefaultsManager::saveChatsLocationUrl() const {
    return url(Preference::saveChatsLocationUrl);
}

void UserDefaultsManager::setSaveChatsLocationUrl(const std::optional<URL>& url) {
    change(Preference::saveChatsLocationUrl, url);
}

bool UserDefaultsManager::encrytptionRequired() const {
    return flag(Preference::encrytptionRequired);
}

void UserDefaultsManager::setEncrytptionRequired(bool isRequired) {
    change(Preference::encrytptionRequired, isRequired);
}

std::int64_t UserDefaultsManager::pinCodeLength() const {
    return integer(Preference::pinCodeLength);
}

void UserDefaultsManager::setPinCodeLength(std::int64_t length) {
    change(Preference::pinCodeLength, length);
}

bool UserDefaultsManager::allowUnattendedAccess() const {
    return flag(Preference::allowUnattendedAccess);
}

void UserDefaultsManager::setAllowUnattendedAccess(bool isAllowed) {
    change(Preference::allowUnattendedAccess, isAllowed);
}

URL UserDefaultsManager::downloadLocation() const {
    if (const std::optional<URL> stored = url(Preference::downloadLocation)) {
        return *stored;
    }
    const std::vector<URL> folders = FileManager::downloadsFolders();
    if (folders.empty()) {
        fatalError("There is no download folder: the user has no home folder");
    }
    return folders.front();
}

void UserDefaultsManager::setDownloadLocation(const URL& url) {
    change(Preference::downloadLocation, std::optional(url));
}

bool UserDefaultsManager::useProxy() const {
    return flag(Preference::useProxy);
}

void UserDefaultsManager::setUseProxy(bool isOn) {
    change(Preference::useProxy, isOn);
}

bool UserDefaultsManager::autodetectProxy() const {
    return flag(Preference::autodetectProxy);
}

void UserDefaultsManager::setAutodetectProxy(bool isOn) {
    change(Preference::autodetectProxy, isOn);
}

std::optional<std::string> UserDefaultsManager::manualAddressProxy() const {
    return text(Preference::manualAddressProxy);
}

void UserDefaultsManager::setManualAddressProxy(OptionalText address) {
    change(Preference::manualAddressProxy, address);
}

std::optional<std::string> UserDefaultsManager::manualPortProxy() const {
    return text(Preference::manualPortProxy);
}

void UserDefaultsManager::setManualPortProxy(OptionalText port) {
    change(Preference::manualPortProxy, port);
}

}  // namespace velora
