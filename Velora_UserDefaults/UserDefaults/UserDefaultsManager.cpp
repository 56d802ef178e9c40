#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/Platform/FatalError.h>
#include <Velora_UserDefaults/Platform/FileManager.h>
#include <Velora_UserDefaults/UserDefaults/PreferenceTable.h>
#include <Velora_UserDefaults/UserDefaults/UserDefaultsManager.h>

namespace velora {

namespace {

std::optional<std::string> storedText(Preference preference) {
    return DefaultsStore::standard().string(preferenceKey(preference));
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

void UserDefaultsManager::setLastMigrateVersion(OptionalText version) {
    DefaultsStore::standard().setString(preferenceKey(Preference::lastMigrateVersion).text(), version);
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
    return DefaultsStore::standard().url(preferenceKey(Preference::coreLoggerPath));
}

std::optional<URL> UserDefaultsManager::saveChatDefaultLocationUrl() const {
    const std::vector<URL> folders = FileManager::applicationSupportFolders();
    if (folders.empty()) {
        fatalError("There is no folder for application data: neither XDG_DATA_HOME nor a home folder is known");
    }
    return folders.front().appendingPathComponent("Quillon Velora", true).appendingPathComponent("Chats", true);
}

}  // namespace velora
