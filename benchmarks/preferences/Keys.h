#pragma once

#include <string>

/// The keys that every store of preferences holds while it is measured.
namespace velora::bench {

/// The integer that is read and written.
inline constexpr const char* pinCodeKey = "Preferences_Security_PinCodeLength";

/// How many keys an application stores, that one included.
inline constexpr int usualKeys = 35;

inline std::string fillerKey(int index) {
    return "Preferences_Filler_Key" + std::to_string(index);
}
inline std::string fillerValue(int index) {
    return "value " + std::to_string(index);
}

}  // namespace velora::bench
