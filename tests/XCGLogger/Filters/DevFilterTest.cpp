#include <gtest/gtest.h>
#include <string>

#include <Velora_UserDefaults/XCGLogger/Filters/DevFilter.h>
#include <Velora_UserDefaults/XCGLogger/InternalUserInfo.h>
#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>

namespace velora::test {
namespace {

static_assert(!std::is_constructible_v<DevFilter, IncludeFrom>);
static_assert(!std::is_constructible_v<DevFilter, ExcludeFrom>);

bool excludes(FilterProtocol& filter, const UserInfo& userInfo) {
    LogDetails details;
    details.userInfo = userInfo;
    std::string line = "the line";
    return filter.shouldExclude(details, line);
}

TEST(DevFilter, LooksUnderItsKey) {
    EXPECT_EQ(make<DevFilter>(IncludeFrom{"ann"})->userInfoKey(), "tamberlo.xcglogger.devs");
    EXPECT_EQ(make<DevFilter>(ExcludeFrom{"ann"})->userInfoKey(), "tamberlo.xcglogger.devs");
}

TEST(DevFilter, KeepsOnlyTheNamesOfAnAllowList) {
    const auto filter = make<DevFilter>(IncludeFrom{"ann"});
    EXPECT_FALSE(excludes(*filter, Dev("bob") | Dev("ann")));
    EXPECT_FALSE(excludes(*filter, Dev::names("ann", "bob")));
    EXPECT_TRUE(excludes(*filter, Dev("bob")));
    EXPECT_TRUE(excludes(*filter, Tag("ann")));
    EXPECT_TRUE(excludes(*filter, {}));
}

TEST(DevFilter, KeepsOrDropsInternalLinesByTheKindOfItsList) {
    const UserInfo internal = internalUserInfo() | Dev("ann");
    EXPECT_FALSE(excludes(*make<DevFilter>(ExcludeFrom{"ann"}), internal));
    EXPECT_TRUE(excludes(*make<DevFilter>(IncludeFrom{"ann"}), internal));
}

class Subclass : public DevFilter {
public:
    using DevFilter::DevFilter;
    bool addItem(std::string item) override { return DevFilter::addItem(item + userInfoKey()); }
    void setUserInfoKey(std::string userInfoKey) override { DevFilter::setUserInfoKey(userInfoKey + "!"); }
};

TEST(DevFilter, AddsTheItemsByAnOverrideBeforeItSetsTheKeyByAnother) {
    const auto filter = make<Subclass>(ExcludeFrom{"a"});
    EXPECT_EQ(filter->debugDescription(), "Subclass: Excluding matches for: a");
    EXPECT_EQ(filter->userInfoKey(), "tamberlo.xcglogger.devs!");
}

class CustomKey : public DevFilter {
public:
    explicit CustomKey(Making key) : DevFilter(key, IncludeFrom{"a"}) { setUserInfoKey("custom"); }
};

TEST(DevFilter, LeavesTheKeyThatASubclassIsMadeWith) {
    EXPECT_EQ(make<CustomKey>()->userInfoKey(), "custom");
}

}  // namespace
}  // namespace velora::test
