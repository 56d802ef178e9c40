#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/Platform/Export.h>

namespace velora {

/// The keys of the store that the library knows, in their fixed order. Internal.
enum class Preference : std::uint8_t {
    serverId,
    lastConnectionId,
    scaleImageMode,
    ignoreUpdateVersion,
    serverScreenControlMode,
    computerDisplayName,
    defaultConnectionMode,
    defaultMicrophoneSettings,
    commandCombinations,
    enableDisconnectWarnings,
    defaultAccessLevel,
    incomingConnectionIsAllow,
    promptIncomingConnection,
    quitAfterSession,
    loggingLevel,
    saveChatsLocationUrl,
    encrytptionRequired,
    pinCodeLength,
    allowUnattendedAccess,
    downloadLocation,
    useProxy,
    autodetectProxy,
    manualAddressProxy,
    manualPortProxy,
    customVLEnpoint,
    customUpdateServerEndpoint,
    customSupportServerEndpoint,
    customLEndpoint,
    customHostEndpoint,
    permissionControlsIsShow,
    permissionControlsScreenRecordIsRequested,
    permissionControlsServiceScreenRecordIsRequested,
    permissionControlsAccessabilityIsRequested,
    coreLoggerPath,
    lastMigrateVersion
};

/// What a preference's values are.
enum class PreferenceKind : std::uint8_t { text, url, boolean, integer, choice };

/// One row of the table of preferences. Internal.
struct PreferenceEntry {
    Preference preference;
    /// The key in the store, under which users' data lies: misspellings stay.
    std::string_view key;
    /// The property's name; empty for a key that no property reads.
    std::string_view property;
    PreferenceKind kind;
    /// The log line of a change: `line`, the value, `lineEnd`. Empty: a change writes none.
    std::string_view line = {};
    std::string_view lineEnd = {};
    /// Stands for the value in the line when it is absent.
    std::string_view absent = {};
    /// The words for a choice's values, from raw value 0 on.
    std::span<const std::string_view> words = {};
    /// The default registered before each read: the integer, or 1 for true.
    std::optional<std::int64_t> registered = std::nullopt;
};

constexpr std::size_t preferenceCount = 35;

/// Every preference, in the order of their keys. Internal.
VELORA_EXPORT const std::array<PreferenceEntry, preferenceCount>& preferenceTable();

/// The key of a preference, for reading it often. Internal; thread-safe.
const DefaultsStore::Key& preferenceKey(Preference preference);

}  // namespace velora
