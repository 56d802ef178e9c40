#include "DefaultsDescription.h"

#include <array>
#include <cstddef>
#include <fmt/format.h>

namespace velora {

namespace {

constexpr std::array<std::string_view, 2> accessCases = {"viewOnly", "fullControl"};
constexpr std::array<std::string_view, 2> modeCases = {"controlRemoteComputer", "allowRemoteComputer"};
constexpr std::array<std::string_view, 2> microphoneCases = {"mute", "unmute"};
constexpr std::array<std::string_view, 2> scaleCases = {"windowed", "fullScreen"};
constexpr std::array<std::string_view, 2> screenControlCases = {"notPinned", "alwaysOnTop"};
constexpr std::array<std::string_view, 3> shortcutCases = {"onRemoteComputer", "onThisComputer",
                                                           "onWhenUsingFullScreen"};
constexpr std::array<std::string_view, 4> loggingCases = {"noLoggin", "lowLevel", "highLevel", "allLevel"};

constexpr std::array<std::string_view, preferenceCount> purposes = {
    "the identifier of this computer at the server",
    "whom the user connected to last",
    "how the remote screen is shown",
    "the version of the application whose update is not offered again",
    "whether the controls of a session stay above other windows",
    "the name by which others see this computer, in place of the system's",
    "which side of a connection this computer usually is",
    "whether a session begins with the microphone on",
    "where command shortcuts take effect",
    "whether the user is warned before a session is disconnected",
    "what a connecting user may do at first",
    "whether others may connect to this computer",
    "whether the user is asked before somebody connects",
    "whether the application quits when a session ends",
    "how much the application logs",
    "the folder for saved chats; without one Quillon Velora/Chats in the folder for application data",
    "whether connections have to be encrypted",
    "how many digits a PIN code has",
    "whether others may connect while nobody is at this computer",
    "the folder for received files",
    "whether connections go through a proxy",
    "whether the proxy is found automatically",
    "the address of the proxy",
    "the port of the proxy, as text",
    "the VL endpoint, in place of the application's own",
    "the server for updates, in place of the application's own",
    "the server for support, in place of the application's own",
    "the L endpoint, in place of the application's own",
    "the server for hosts, in place of the application's own",
    "kept for the application: whether the permission controls are shown",
    "kept for the application: whether recording the screen was asked for",
    "kept for the application: whether recording the screen was asked for by the service",
    "kept for the application: whether accessibility was asked for",
    "the folder of the core engine's log",
    "the version up to which settings were migrated",
};

}  // namespace

std::span<const std::string_view> casesOf(const PreferenceEntry& preference) {
    switch (preference.preference) {
        case Preference::defaultAccessLevel:
            return accessCases;
        case Preference::defaultConnectionMode:
            return modeCases;
        case Preference::defaultMicrophoneSettings:
            return microphoneCases;
        case Preference::scaleImageMode:
            return scaleCases;
        case Preference::serverScreenControlMode:
            return screenControlCases;
        case Preference::commandCombinations:
            return shortcutCases;
        case Preference::loggingLevel:
            return loggingCases;
        default:
            return {};
    }
}

std::string_view wordsOf(const PreferenceEntry& preference, std::size_t raw) {
    const std::string_view words = preference.words[raw];
    return words == casesOf(preference)[raw] ? std::string_view() : words;
}

std::string_view purposeOf(const PreferenceEntry& preference) {
    return purposes.at(static_cast<std::size_t>(preference.preference));
}

std::string shownCase(const PreferenceEntry& preference, std::size_t raw) {
    const std::string_view words = wordsOf(preference, raw);
    const std::string shown = fmt::format("{} {}", raw, casesOf(preference)[raw]);
    return words.empty() ? shown : fmt::format("{} ({})", shown, words);
}

std::string shownCases(const PreferenceEntry& preference) {
    const std::size_t count = casesOf(preference).size();
    std::string list;
    for (std::size_t raw = 0; raw < count; ++raw) {
        list += (raw == 0 ? "" : raw + 1 == count ? " or " : ", ") + shownCase(preference, raw);
    }
    return list;
}

}  // namespace velora
