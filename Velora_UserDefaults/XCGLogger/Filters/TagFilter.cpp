#include <string>

#include <Velora_UserDefaults/XCGLogger/Constants.h>
#include <Velora_UserDefaults/XCGLogger/Filters/TagFilter.h>

namespace velora {

TagFilter::~TagFilter() = default;

void TagFilter::finishMaking() {
    UserInfoFilter::finishMaking();
    if (userInfoKey().empty()) {
        setUserInfoKey(std::string(Constants::userInfoKeyTags));
    }
}

}  // namespace velora
