#include <gtest/gtest.h>
#include <string>

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
    EXPECT_FALSE(excludes(*filter, Tag("bob") | Tag("ann")));
    EXPECT_FALSE(excludes(*filter, Tag::names("ann", "bob")));
    EXPECT_TRUE(excludes(*filter, Tag("bob")));
    EXPECT_TRUE(excludes(*filter, Dev("ann")));
    EXPECT_TRUE(excludes(*filter, {}));
}

TEST(TagFilter, KeepsOrDropsInternalLinesByTheKindOfItsList) {
    const UserInfo internal = internalUserInfo() | Tag("ann");
    EXPECT_FALSE(excludes(*make<TagFilter>(ExcludeFrom{"ann"}), internal));
    EXPECT_TRUE(excludes(*make<TagFilter>(IncludeFrom{"ann"}), internal));
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

class CustomKey : public TagFilter {
public:
    explicit CustomKey(Making key) : TagFilter(key, IncludeFrom{"a"}) { setUserInfoKey("custom"); }
};

TEST(TagFilter, LeavesTheKeyThatASubclassIsMadeWith) {
    EXPECT_EQ(make<CustomKey>()->userInfoKey(), "custom");
}

}  // namespace
}  // namespace velora::test
