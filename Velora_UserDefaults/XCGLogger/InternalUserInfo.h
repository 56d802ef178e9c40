#pragma once

#include <Velora_UserDefaults/XCGLogger/UserInfo.h>

namespace velora {

/// The user info of every line that the logging engine writes about itself: `userInfoKeyInternal`
/// mapped to `true`. Built once, on first use, and never destroyed.
const UserInfo& internalUserInfo();

/// Whether `userInfo` carries that mark: a boolean `true` under `userInfoKeyInternal`.
bool isInternal(const UserInfo& userInfo);

}  // namespace velora
