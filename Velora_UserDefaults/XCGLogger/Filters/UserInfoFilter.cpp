#include <string_view>
#include <utility>

#include <Velora_UserDefaults/Platform/TypeName.h>
#include <Velora_UserDefaults/XCGLogger/Filters/UserInfoFilter.h>
#include <Velora_UserDefaults/XCGLogger/InternalUserInfo.h>
#include <Velora_UserDefaults/XCGLogger/UserInfoValue.h>

namespace velora {

UserInfoFilter::UserInfoFilter(Making key, FilterItems items, bool inverse)
    : MadeInTwoSteps(key), inverse_(inverse), itemsOfMaking_(std::move(items)) {}

UserInfoFilter::UserInfoFilter(Making key, IncludeFrom items)
    : UserInfoFilter(key, FilterItems(std::move(items)), true) {}

UserInfoFilter::UserInfoFilter(Making key, ExcludeFrom items)
    : UserInfoFilter(key, FilterItems(std::move(items)), false) {}

UserInfoFilter::~UserInfoFilter() = default;

void UserInfoFilter::finishMaking() {
    MadeInTwoSteps::finishMaking();
    addItems(std::exchange(itemsOfMaking_, {}));
}

const std::string& UserInfoFilter::userInfoKey() const {
    return userInfoKey_;
}

void UserInfoFilter::setUserInfoKey(std::string userInfoKey) {
    userInfoKey_ = std::move(userInfoKey);
}

bool UserInfoFilter::applyFilterToInternalMessages() const {
    return applyFilterToInternalMessages_;
}

void UserInfoFilter::setApplyFilterToInternalMessages(bool applyFilterToInternalMessages) {
    applyFilterToInternalMessages_ = applyFilterToInternalMessages;
}

bool UserInfoFilter::inverse() const {
    return inverse_;
}

void UserInfoFilter::setInverse(bool inverse) {
    inverse_ = inverse;
}

bool UserInfoFilter::addItem(std::string item) {
    return itemsToMatch_.insert(std::move(item));
}

void UserInfoFilter::addItems(const FilterItems& items) {
    for (const std::string& item : items) {
        addItem(item);
    }
}

void UserInfoFilter::clear() {
    itemsToMatch_.clear();
}

bool UserInfoFilter::matches(const UserInfo& userInfo) const {
    const auto entry = userInfo.find(userInfoKey());
    return entry != userInfo.end() &&
           hasText(entry->second, [this](std::string_view text) { return itemsToMatch_.contains(text); });
}

bool UserInfoFilter::shouldExclude(LogDetails& logDetails, std::string& /*message*/) {
    if (!applyFilterToInternalMessages() && isInternal(logDetails.userInfo)) {
        return inverse();
    }
    return matches(logDetails.userInfo) != inverse();
}

std::string UserInfoFilter::debugDescription() const {
    return dynamicTypeName(*this) + ": " + (applyFilterToInternalMessages() ? "(Filtering Internal) " : "") +
           itemsToMatch_.description(inverse());
}

}  // namespace velora
