#include <Velora_UserDefaults/Platform/Lazy.h>
#include <Velora_UserDefaults/XCGLogger/Constants.h>
#include <Velora_UserDefaults/XCGLogger/InternalUserInfo.h>

namespace velora {

const UserInfo& internalUserInfo() {
    // Never destroyed: a static destructor may still log.
    static constinit Lazy<const UserInfo> shared;
    return shared.get([] { return new UserInfo{{std::string(Constants::userInfoKeyInternal), true}}; });
}

bool isInternal(const UserInfo& userInfo) {
    const auto mark = userInfo.find(Constants::userInfoKeyInternal);
    if (mark == userInfo.end()) {
        return false;
    }
    const bool* value = std::any_cast<bool>(&mark->second);
    return value != nullptr && *value;
}

}  // namespace velora
