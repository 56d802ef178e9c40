#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/Filters/TagFilter.h>
#include <Velora_UserDefaults/XCGLogger/InternalUserInfo.h>
#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>

namespace velora::test {
namespace {

static_assert(!std::is_constructible_v<TagFilter, IncludeFrom>);
static_assert(!std::is_constructible_v<TagFilter, ExcludeFrom>);

bool excludes(FilterProtocol& filter, const UserInfo& userInfo) {
    LogDetails details;
    details.userInfo = userInfo;
    std::string line = "the line";
    return filter.shouldExclude(details, line);
}

TEST(TagFilter, LooksUnderItsKey) {
    EXPECT_EQ(make<TagFilter>(IncludeFrom{"ann"})->userInfoKey(), "tamberlo.xcglogger.tags");
    EXPECT_EQ(make<TagFilter>(ExcludeFrom{"ann"})->userInfoKey(), "tamberlo.xcglogger.tags");
}

TEST(TagFilter, KeepsOnlyTheNamesOfAnAllowList) {
    const auto filter = make<TagFilter>(IncludeFrom{"ann"});
    EXPECT_FALSE(excludes(*filter, Tag("ann")));
    EXPECT_FALSE(excludes(*filter, Tag("bob") | Tag("ann")));
    EXPECT_FALSE(excludes(*filter, Tag::names("ann", "bob")));
    EXPECT_FALSE(excludes(*filter, {{"tamberlo.xcglogger.tags", std::set<std::string>{"ann", "bob"}}}));
    EXPECT_TRUE(excludes(*filter, Tag("bob")));
    EXPECT_TRUE(excludes(*filter, Dev("ann")));
    EXPECT_TRUE(excludes(*filter, {}));
}

TEST(TagFilter, DropsTheNamesOfABlockList) {
    const auto filter = make<TagFilter>(ExcludeFrom{"noisy", "sensitive"});
    EXPECT_TRUE(excludes(*filter, Tag("noisy")));
    EXPECT_TRUE(excludes(*filter, Tag("calm") | Dev("ann") | Tag("sensitive")));
    EXPECT_FALSE(excludes(*filter, Tag("calm")));
    EXPECT_FALSE(excludes(*filter, Dev("noisy")));
    EXPECT_FALSE(excludes(*filter, {}));
}

TEST(TagFilter, NeverMatchesANumberOrADictionary) {
    for (const std::any& value : {std::any(1), std::any(UserInfo{{"1", "1"}})}) {
        EXPECT_FALSE(excludes(*make<TagFilter>(ExcludeFrom{"1"}), {{"tamberlo.xcglogger.tags", value}}));
        EXPECT_TRUE(excludes(*make<TagFilter>(IncludeFrom{"1"}), {{"tamberlo.xcglogger.tags", value}}));
    }
}

TEST(TagFilter, KeepsOrDropsInternalLinesByTheKindOfItsList) {
    const UserInfo internal = internalUserInfo() | Tag("ann");
    EXPECT_FALSE(excludes(*make<TagFilter>(ExcludeFrom{"ann"}), internal));
    EXPECT_TRUE(excludes(*make<TagFilter>(IncludeFrom{"ann"}), internal));
}

TEST(TagFilter, JudgesInternalLinesByTheirNamesIfTold) {
    const auto filter = make<TagFilter>(IncludeFrom{"ann"});
    filter->setApplyFilterToInternalMessages(true);
    EXPECT_FALSE(excludes(*filter, internalUserInfo() | Tag("ann")));
    EXPECT_TRUE(excludes(*filter, internalUserInfo()));
}

TEST(TagFilter, MatchesAnotherKeyIfGivenOne) {
    const auto filter = make<TagFilter>(ExcludeFrom{"ann"});
    filter->setUserInfoKey("other");
    EXPECT_TRUE(excludes(*filter, {{"other", std::string("ann")}}));
    EXPECT_FALSE(excludes(*filter, Tag("ann")));
}

TEST(TagFilter, DescribesItselfByItsOwnName) {
    EXPECT_EQ(make<TagFilter>(ExcludeFrom{"sensitive", "noisy"})->debugDescription(),
              "TagFilter: Excluding matches for: noisy, sensitive");
    EXPECT_EQ(make<TagFilter>(IncludeFrom{})->debugDescription(), "TagFilter: Including only matches for: ");
    EXPECT_EQ(make<TagFilter>(IncludeFrom{"1", "2", "3", "4", "5"})->debugDescription(),
              "TagFilter: Including only matches for: 1, 2, 3, 4, 5");
    EXPECT_EQ(make<TagFilter>(IncludeFrom{"1", "2", "3", "4", "5", "6"})->debugDescription(),
              "TagFilter: Including only matches for: \n\t- 1\n\t- 2\n\t- 3\n\t- 4\n\t- 5\n\t- 6");
}

class Subclass : public TagFilter {
public:
    using TagFilter::TagFilter;
    bool addItem(std::string item) override { return TagFilter::addItem(item + userInfoKey()); }
    void setUserInfoKey(std::string userInfoKey) override { TagFilter::setUserInfoKey(userInfoKey + "!"); }
};

TEST(TagFilter, AddsTheItemsByAnOverrideBeforeItSetsTheKeyByAnother) {
    const auto filter = make<Subclass>(ExcludeFrom{"a"});
    EXPECT_EQ(filter->debugDescription(), "Subclass: Excluding matches for: a");
    EXPECT_EQ(filter->userInfoKey(), "tamberlo.xcglogger.tags!");
}

class OwnKey : public TagFilter {
public:
    explicit OwnKey(Making key) : TagFilter(key, IncludeFrom{"a"}) { setUserInfoKey("own"); }
};

TEST(TagFilter, LeavesTheKeyThatASubclassIsMadeWith) {
    EXPECT_EQ(make<OwnKey>()->userInfoKey(), "own");
}

}  // namespace
}  // namespace velora::test
