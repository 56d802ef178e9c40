#pragma once

#include <string>

/// The keys that every store of preferences holds while it is measured.
namespace velora::bench {

/// The integer that is read and written.
inline constexpr const char* pinCodeKey = "Preferences_Security_PinCodeLength";

/// The truth value that is read.
inline constexpr const char* flagKey = "Preferences_Flag";

/// How many keys an application stores, those included.
inline constexpr int usualKeys = 35;

inline std::string fillerKey(int index) {
    return "Preferences_Filler_Key" + std::to_string(index);
}
inline std::string fillerValue(int index) {
    return "value " + std::to_string(index);
}

}  // namespace velora::bench
