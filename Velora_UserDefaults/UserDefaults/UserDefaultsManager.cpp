#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/Platform/FatalError.h>
#include <Velora_UserDefaults/Platform/FileManager.h>
#include <Velora_UserDefaults/UserDefaults/PreferenceTable.h>
#include <Velora_UserDefaults/UserDefaults/UserDefaultsManager.h>

namespace velora {

namespace {

std::string_view keyOf(Preference preference) {
    return preferenceTable()[static_cast<std::size_t>(preference)].key;
}

std::optional<std::string> storedText(Preference preference) {
    return DefaultsStore::standard().string(keyOf(preference));
}

}  // namespace

constinit SharedLogger logger;

UserDefaultsManager& UserDefaultsManager::shared() {
    static UserDefaultsManager& instance = *new UserDefaultsManager;
    return instance;
}

std::optional<std::string> UserDefaultsManager::lastMigrateVersion() const {
    return storedText(Preference::lastMigrateVersion);
}

void UserDefaultsManager::setLastMigrateVersion(std::optional<std::string_view> version) {
    DefaultsStore::standard().setString(keyOf(Preference::lastMigrateVersion), version);
}

std::optional<std::string> UserDefaultsManager::customVLEnpoint() const {
    return storedText(Preference::customVLEnpoint);
}

std::optional<std::string> UserDefaultsManager::customUpdateServerEndpoint() const {
    return storedText(Preference::customUpdateServerEndpoint);
}

std::optional<std::string> UserDefaultsManager::customSupportServerEndpoint() const {
    return storedText(Preference::customSupportServerEndpoint);
}

std::optional<std::string> UserDefaultsManager::customLEndpoint() const {
    return storedText(Preference::customLEndpoint);
}

std::optional<std::string> UserDefaultsManager::customHostEndpoint() const {
    return storedText(Preference::customHostEndpoint);
}

std::optional<URL> UserDefaultsManager::coreLoggerPath() const {
    return DefaultsStore::standard().url(keyOf(Preference::coreLoggerPath));
}

std::optional<URL> UserDefaultsManager::saveChatDefaultLocationUrl() const {
    const std::vector<URL> folders = FileManager::applicationSupportFolders();
    if (folders.empty()) {
        fatalError("There is no folder for application data: neither XDG_DATA_HOME nor a home folder is known");
    }
    return folders.front().appendingPathComponent("Quillon Velora", true).appendingPathComponent("Chats", true);
}

}  // namespace velora
