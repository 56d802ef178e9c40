#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

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
    EXPECT_FALSE(excludes(*filter, Dev("ann")));
    EXPECT_FALSE(excludes(*filter, Dev("bob") | Dev("ann")));
    EXPECT_FALSE(excludes(*filter, Dev::names("ann", "bob")));
    EXPECT_FALSE(excludes(*filter, {{"tamberlo.xcglogger.devs", std::set<std::string>{"ann", "bob"}}}));
    EXPECT_TRUE(excludes(*filter, Dev("bob")));
    EXPECT_TRUE(excludes(*filter, Tag("ann")));
    EXPECT_TRUE(excludes(*filter, {}));
}

TEST(DevFilter, DropsTheNamesOfABlockList) {
    const auto filter = make<DevFilter>(ExcludeFrom{"noisy", "sensitive"});
    EXPECT_TRUE(excludes(*filter, Dev("noisy")));
    EXPECT_TRUE(excludes(*filter, Dev("calm") | Tag("ann") | Dev("sensitive")));
    EXPECT_FALSE(excludes(*filter, Dev("calm")));
    EXPECT_FALSE(excludes(*filter, Tag("noisy")));
    EXPECT_FALSE(excludes(*filter, {}));
}

TEST(DevFilter, NeverMatchesANumberOrADictionary) {
    for (const std::any& value : {std::any(1), std::any(UserInfo{{"1", "1"}})}) {
        EXPECT_FALSE(excludes(*make<DevFilter>(ExcludeFrom{"1"}), {{"tamberlo.xcglogger.devs", value}}));
        EXPECT_TRUE(excludes(*make<DevFilter>(IncludeFrom{"1"}), {{"tamberlo.xcglogger.devs", value}}));
    }
}

TEST(DevFilter, KeepsOrDropsInternalLinesByTheKindOfItsList) {
    const UserInfo internal = internalUserInfo() | Dev("ann");
    EXPECT_FALSE(excludes(*make<DevFilter>(ExcludeFrom{"ann"}), internal));
    EXPECT_TRUE(excludes(*make<DevFilter>(IncludeFrom{"ann"}), internal));
}

TEST(DevFilter, JudgesInternalLinesByTheirNamesIfTold) {
    const auto filter = make<DevFilter>(IncludeFrom{"ann"});
    filter->setApplyFilterToInternalMessages(true);
    EXPECT_FALSE(excludes(*filter, internalUserInfo() | Dev("ann")));
    EXPECT_TRUE(excludes(*filter, internalUserInfo()));
}

TEST(DevFilter, MatchesAnotherKeyIfGivenOne) {
    const auto filter = make<DevFilter>(ExcludeFrom{"ann"});
    filter->setUserInfoKey("other");
    EXPECT_TRUE(excludes(*filter, {{"other", std::string("ann")}}));
    EXPECT_FALSE(excludes(*filter, Dev("ann")));
}

TEST(DevFilter, DescribesItselfByItsOwnName) {
    EXPECT_EQ(make<DevFilter>(ExcludeFrom{"sensitive", "noisy"})->debugDescription(),
              "DevFilter: Excluding matches for: noisy, sensitive");
    EXPECT_EQ(make<DevFilter>(IncludeFrom{})->debugDescription(), "DevFilter: Including only matches for: ");
    EXPECT_EQ(make<DevFilter>(IncludeFrom{"1", "2", "3", "4", "5"})->debugDescription(),
              "DevFilter: Including only matches for: 1, 2, 3, 4, 5");
    EXPECT_EQ(make<DevFilter>(IncludeFrom{"1", "2", "3", "4", "5", "6"})->debugDescription(),
              "DevFilter: Including only matches for: \n\t- 1\n\t- 2\n\t- 3\n\t- 4\n\t- 5\n\t- 6");
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

class OwnKey : public DevFilter {
public:
    explicit OwnKey(Making key) : DevFilter(key, IncludeFrom{"a"}) { setUserInfoKey("own"); }
};

TEST(DevFilter, LeavesTheKeyThatASubclassIsMadeWith) {
    EXPECT_EQ(make<OwnKey>()->userInfoKey(), "own");
}

}  // namespace
}  // namespace velora::test
