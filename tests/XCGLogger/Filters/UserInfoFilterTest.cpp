#include <any>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/Filters/UserInfoFilter.h>
#include <Velora_UserDefaults/XCGLogger/InternalUserInfo.h>

namespace velora::test {
namespace {

using ::testing::ElementsAre;

static_assert(!std::is_constructible_v<UserInfoFilter, IncludeFrom>);
static_assert(!std::is_constructible_v<UserInfoFilter, ExcludeFrom>);
static_assert(!std::is_constructible_v<UserInfoFilter, Making, std::vector<std::string>>);

bool isExcluded(FilterProtocol& filter, UserInfo userInfo) {
    LogDetails details;
    details.message = "the message";
    details.userInfo = std::move(userInfo);
    const std::size_t entries = details.userInfo.size();
    std::string line = "the line";
    const bool answer = filter.shouldExclude(details, line);
    EXPECT_EQ(line, "the line");
    EXPECT_EQ(details.message, "the message");
    EXPECT_EQ(details.userInfo.size(), entries);
    return answer;
}

bool excludesStep(FilterProtocol& filter, std::any value) {
    return isExcluded(filter, {{"step", std::move(value)}});
}

template <typename List>
std::shared_ptr<UserInfoFilter> stepFilter(List items) {
    auto filter = make<UserInfoFilter>(std::move(items));
    filter->setUserInfoKey("step");
    return filter;
}

TEST(UserInfoFilter, StartsWithAnEmptyKeyAndWithoutInternalLines) {
    const auto included = make<UserInfoFilter>(IncludeFrom{"a"});
    const auto excluded = make<UserInfoFilter>(ExcludeFrom{"a"});
    EXPECT_TRUE(included->inverse());
    EXPECT_FALSE(excluded->inverse());
    EXPECT_EQ(included->userInfoKey(), "");
    EXPECT_FALSE(included->applyFilterToInternalMessages());
    EXPECT_TRUE(isExcluded(*excluded, {{"", std::string("a")}}));
}

TEST(UserInfoFilter, DropsTheItemsOfABlockList) {
    const auto filter = stepFilter(ExcludeFrom{"pay", "ship"});
    EXPECT_TRUE(excludesStep(*filter, std::string("pay")));
    EXPECT_FALSE(excludesStep(*filter, std::string("browse")));
}

TEST(UserInfoFilter, KeepsOnlyTheItemsOfAnAllowList) {
    const auto filter = stepFilter(IncludeFrom{"pay", "ship"});
    EXPECT_FALSE(excludesStep(*filter, std::string("ship")));
    EXPECT_TRUE(excludesStep(*filter, std::string("browse")));
}

TEST(UserInfoFilter, KeepsOrDropsALineWithoutAValueUnderTheKey) {
    const UserInfo other{{"other", std::string("pay")}};
    EXPECT_FALSE(isExcluded(*stepFilter(ExcludeFrom{"pay"}), {}));
    EXPECT_FALSE(isExcluded(*stepFilter(ExcludeFrom{"pay"}), other));
    EXPECT_TRUE(isExcluded(*stepFilter(IncludeFrom{"pay"}), {}));
    EXPECT_TRUE(isExcluded(*stepFilter(IncludeFrom{"pay"}), other));
}

TEST(UserInfoFilter, FindsAnItemInAListInASetAndAlone) {
    const auto filter = stepFilter(IncludeFrom{"b"});
    EXPECT_FALSE(excludesStep(*filter, std::vector<std::string>{"a", "b"}));
    EXPECT_FALSE(excludesStep(*filter, std::set<std::string>{"a", "b"}));
    EXPECT_FALSE(excludesStep(*filter, std::string("b")));
    EXPECT_TRUE(excludesStep(*filter, std::vector<std::string>{"a", "c"}));
    EXPECT_TRUE(excludesStep(*filter, std::set<std::string>{"a", "c"}));
    EXPECT_TRUE(excludesStep(*filter, std::string("a")));
}

TEST(UserInfoFilter, FindsNothingInANumberOrADictionary) {
    for (const std::any& value : {std::any(7), std::any(UserInfo{{"7", "7"}})}) {
        EXPECT_FALSE(excludesStep(*stepFilter(ExcludeFrom{"7"}), value));
        EXPECT_TRUE(excludesStep(*stepFilter(IncludeFrom{"7"}), value));
    }
}

TEST(UserInfoFilter, ComparesItemsByteByByte) {
    const auto filter = stepFilter(ExcludeFrom{"/x/Pay"});
    EXPECT_TRUE(excludesStep(*filter, std::string("/x/Pay")));
    for (const char* const other : {"Pay", "/x/pay", " /x/Pay", "/x/Pa", ""}) {
        EXPECT_FALSE(excludesStep(*filter, std::string(other))) << other;
    }
}

TEST(UserInfoFilter, KeepsInternalLinesByABlockListAndDropsThemByAnAllowListWhateverTheyCarry) {
    UserInfo paying = internalUserInfo();
    paying["step"] = std::string("pay");
    for (const UserInfo& userInfo : {internalUserInfo(), paying}) {
        EXPECT_FALSE(isExcluded(*stepFilter(ExcludeFrom{"pay"}), userInfo));
        EXPECT_TRUE(isExcluded(*stepFilter(IncludeFrom{"pay"}), userInfo));
    }
}

TEST(UserInfoFilter, JudgesInternalLinesLikeAnyOtherIfTold) {
    UserInfo userInfo = internalUserInfo();
    const auto excluding = stepFilter(ExcludeFrom{"pay"});
    const auto including = stepFilter(IncludeFrom{"pay"});
    excluding->setApplyFilterToInternalMessages(true);
    including->setApplyFilterToInternalMessages(true);
    EXPECT_FALSE(isExcluded(*excluding, userInfo));
    EXPECT_TRUE(isExcluded(*including, userInfo));
    userInfo["step"] = std::string("pay");
    EXPECT_TRUE(isExcluded(*excluding, userInfo));
    EXPECT_FALSE(isExcluded(*including, userInfo));
}

TEST(UserInfoFilter, TellsWhetherAnAddedItemIsNew) {
    const auto filter = make<UserInfoFilter>(ExcludeFrom{"a"});
    EXPECT_TRUE(filter->addItem("b"));
    EXPECT_FALSE(filter->addItem("b"));
    EXPECT_FALSE(filter->addItem("a"));
    filter->addItems({"c", "a"});
    filter->addItems(std::vector<std::string>{"d"});
    EXPECT_EQ(filter->debugDescription(), "UserInfoFilter: Excluding matches for: a, b, c, d");
}

TEST(UserInfoFilter, KeepsItsPropertiesWhenCleared) {
    const auto filter = stepFilter(IncludeFrom{"pay"});
    filter->setApplyFilterToInternalMessages(true);
    filter->clear();
    EXPECT_TRUE(excludesStep(*filter, std::string("pay")));
    EXPECT_EQ(filter->userInfoKey(), "step");
    EXPECT_EQ(filter->debugDescription(), "UserInfoFilter: (Filtering Internal) Including only matches for: ");
    filter->addItem("pay");
    EXPECT_FALSE(excludesStep(*filter, std::string("pay")));
}

TEST(UserInfoFilter, TurnsFromBlockToAllowListAndBack) {
    const auto filter = stepFilter(ExcludeFrom{"pay"});
    filter->setInverse(true);
    EXPECT_FALSE(excludesStep(*filter, std::string("pay")));
    EXPECT_TRUE(excludesStep(*filter, std::string("ship")));
    filter->setInverse(false);
    EXPECT_TRUE(excludesStep(*filter, std::string("pay")));
}

class RecordingFilter : public UserInfoFilter {
public:
    using UserInfoFilter::UserInfoFilter;
    bool addItem(std::string item) override {
        added.push_back(item);
        return UserInfoFilter::addItem(item + "!");
    }

    std::vector<std::string> added;
};

TEST(UserInfoFilter, AddsItemsByAnOverride) {
    const auto filter = make<RecordingFilter>(IncludeFrom{"b", "a"});
    filter->addItems({"d", "c"});
    EXPECT_THAT(filter->added, ElementsAre("b", "a", "d", "c"));
    EXPECT_EQ(filter->debugDescription(), "RecordingFilter: Including only matches for: a!, b!, c!, d!");
}

class OverridingFilter : public UserInfoFilter {
public:
    using UserInfoFilter::UserInfoFilter;
    const std::string& userInfoKey() const override { return key; }
    bool applyFilterToInternalMessages() const override { return true; }
    bool inverse() const override { return true; }

    std::string key = "overridden";
};

TEST(UserInfoFilter, ReadsItsPropertiesThroughOverrides) {
    const auto filter = make<OverridingFilter>(ExcludeFrom{"a"});
    EXPECT_FALSE(isExcluded(*filter, {{"overridden", std::string("a")}}));
    EXPECT_TRUE(isExcluded(*filter, {{"overridden", std::string("b")}}));
    UserInfo internal = internalUserInfo();
    internal["overridden"] = std::string("a");
    EXPECT_FALSE(isExcluded(*filter, internal));
    EXPECT_EQ(filter->debugDescription(), "OverridingFilter: (Filtering Internal) Including only matches for: a");
}

}  // namespace
}  // namespace velora::test
