#pragma once

#include <cstdint>

#include <Velora_UserDefaults/Platform/RawValue.h>

/// The closed sets of choices among the preferences. The integer behind a case is what the store holds:
/// `rawValue(value)` and `fromRawValue<Type>(n)` convert. Names are kept as user data and hosts know them.
namespace velora {

/// How much the host logs.
enum class LogginLevel : std::int64_t { noLoggin, lowLevel, highLevel, allLevel };
template <>
inline constexpr LogginLevel lastCase<LogginLevel> = LogginLevel::allLevel;

/// Whether a session begins with the microphone on.
enum class DefaultMicrophoneSettings : std::int64_t { mute, unmute };
template <>
inline constexpr DefaultMicrophoneSettings lastCase<DefaultMicrophoneSettings> = DefaultMicrophoneSettings::unmute;

/// What a connecting user may do at first.
enum class DefaultAccessLevel : std::int64_t { viewOnly, fullControl };
template <>
inline constexpr DefaultAccessLevel lastCase<DefaultAccessLevel> = DefaultAccessLevel::fullControl;

/// Which side of a connection this computer usually is.
enum class DefaultConnectionMode : std::int64_t { controlRemoteComputer, allowRemoteComputer };
template <>
inline constexpr DefaultConnectionMode lastCase<DefaultConnectionMode> = DefaultConnectionMode::allowRemoteComputer;

/// Whether the controls of a session stay above other windows.
enum class ServerScreenControlMode : std::int64_t { notPinned, alwaysOnTop };
template <>
inline constexpr ServerScreenControlMode lastCase<ServerScreenControlMode> = ServerScreenControlMode::alwaysOnTop;

/// Where command shortcuts take effect.
enum class CommandShortcuts : std::int64_t { onRemoteComputer, onThisComputer, onWhenUsingFullScreen };
template <>
inline constexpr CommandShortcuts lastCase<CommandShortcuts> = CommandShortcuts::onWhenUsingFullScreen;

/// How the remote screen is shown.
enum class ScaleImageMode : std::int64_t { windowed, fullScreen };
template <>
inline constexpr ScaleImageMode lastCase<ScaleImageMode> = ScaleImageMode::fullScreen;

}  // namespace velora
