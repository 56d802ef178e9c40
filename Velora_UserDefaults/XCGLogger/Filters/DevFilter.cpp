#include <string>

#include <Velora_UserDefaults/XCGLogger/Constants.h>
#include <Velora_UserDefaults/XCGLogger/Filters/DevFilter.h>

namespace velora {

DevFilter::~DevFilter() = default;

void DevFilter::finishMaking() {
    UserInfoFilter::finishMaking();
    if (userInfoKey().empty()) {
        setUserInfoKey(std::string(Constants::userInfoKeyDevs));
    }
}

}  // namespace velora
