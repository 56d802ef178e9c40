#include <any>
#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <list>
#include <set>
#include <string>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>

namespace velora::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Texts = std::vector<std::string>;

const std::string tags{Constants::userInfoKeyTags};
const std::string devs{Constants::userInfoKeyDevs};

std::string text(const UserInfo& userInfo, const std::string& key) {
    return std::any_cast<std::string>(userInfo.at(key));
}

Texts list(const UserInfo& userInfo, const std::string& key) {
    return std::any_cast<Texts>(userInfo.at(key));
}

std::vector<std::any> mixedList(const UserInfo& userInfo, const std::string& key) {
    return std::any_cast<std::vector<std::any>>(userInfo.at(key));
}

static_assert(UserInfoTaggingProtocol<Tag>);
static_assert(UserInfoTaggingProtocol<Dev>);
static_assert(!UserInfoTaggingProtocol<UserInfo>);
static_assert(!UserInfoTaggingProtocol<UserInfoOf<std::string>>);
static_assert(UserInfoSource<Tag>);
static_assert(UserInfoSource<decltype(Tag("a") | Dev("b"))>);
static_assert(UserInfoSource<decltype(Tag::names("a"))>);
// A tag is made on purpose: no text turns into one by itself, and no tag into a developer.
static_assert(!std::is_convertible_v<std::string, Tag>);
static_assert(!std::is_constructible_v<Dev, Tag>);

TEST(UserInfoTagging, MapsTheKeyToTheName) {
    EXPECT_EQ(Tag("net").dictionary(), (UserInfoOf<std::string>{{tags, "net"}}));
    EXPECT_EQ(Dev("ann").dictionary(), (UserInfoOf<std::string>{{devs, "ann"}}));
    const UserInfo userInfo = Tag("net");
    EXPECT_EQ(userInfo.size(), 1U);
    EXPECT_EQ(text(userInfo, tags), "net");
}

TEST(UserInfoTagging, MakesANameFromAnyText) {
    const std::string string = "string";
    const std::string_view view = "view";
    const char* pointer = "pointer";
    std::array<char, 7> storage{"buffer"};
    char* buffer = storage.data();
    EXPECT_EQ(Tag("literal").name(), "literal");
    EXPECT_EQ(Tag("").name(), "");
    EXPECT_EQ(Tag(string).name(), "string");
    EXPECT_EQ(Tag(view).name(), "view");
    EXPECT_EQ(Tag(pointer).name(), "pointer");
    EXPECT_EQ(Tag(buffer).name(), "buffer");
    EXPECT_EQ(Tag::name("literal"), Tag("literal"));
    EXPECT_EQ(Tag::name(string), Tag("string"));
    EXPECT_EQ(Dev::name("ann"), Dev("ann"));
    EXPECT_FALSE(Tag("a") == Tag("b"));
}

TEST(UserInfoTagging, CopiesATextThatIsNoLiteral) {
    std::string string = "a name that does not fit into the text itself";
    char array[] = "array";
    const Tag ofString(string);
    const Tag ofArray(array);
    string.assign(string.size(), 'x');
    array[0] = 'x';
    EXPECT_EQ(ofString.name(), "a name that does not fit into the text itself");
    EXPECT_EQ(ofArray.name(), "array");
}

TEST(UserInfoTagging, ChangesAName) {
    Tag tag("before");
    const Tag copy = tag;
    tag.setName("after");
    EXPECT_EQ(tag.name(), "after");
    EXPECT_EQ(text(tag, tags), "after");
    EXPECT_EQ(tag.dictionary().at(tags), "after");
    EXPECT_EQ(copy.name(), "before");
    tag.setName("");
    EXPECT_EQ(tag.name(), "");
}

TEST(UserInfoTagging, ListsNamesInTheOrderOfTheArguments) {
    EXPECT_EQ(Tag::names("b", "a", "b"), (UserInfoOf<Texts>{{tags, {"b", "a", "b"}}}));
    EXPECT_EQ(Dev::names("ann", std::string("bob")), (UserInfoOf<Texts>{{devs, {"ann", "bob"}}}));
    EXPECT_EQ(Tag::names({"a", "b"}), (UserInfoOf<Texts>{{tags, {"a", "b"}}}));
    EXPECT_EQ(Tag::names({"a", "b", "c"}), (UserInfoOf<Texts>{{tags, {"a", "b", "c"}}}));
    EXPECT_EQ(Tag::names(Texts{"a", "b"}), (UserInfoOf<Texts>{{tags, {"a", "b"}}}));
    EXPECT_EQ(Tag::names("alone"), (UserInfoOf<Texts>{{tags, {"alone"}}}));
}

TEST(UserInfoTagging, ListsNoNamesAsAnEmptyList) {
    const UserInfo userInfo = Tag::names();
    EXPECT_EQ(userInfo.size(), 1U);
    EXPECT_THAT(list(userInfo, tags), IsEmpty());
}

TEST(UserInfoTagging, AppendsEachFurtherTagToAList) {
    const UserInfo two = Tag("a") | Tag("b");
    EXPECT_EQ(two.size(), 1U);
    EXPECT_THAT(list(two, tags), ElementsAre("a", "b"));
    const UserInfo three = Tag("a") | Tag("b") | Tag("c");
    EXPECT_THAT(list(three, tags), ElementsAre("a", "b", "c"));
    const UserInfo four = Tag("a") | Tag("b") | Tag("c") | Tag("d");
    EXPECT_THAT(list(four, tags), ElementsAre("a", "b", "c", "d"));
}

TEST(UserInfoTagging, TakesTheDictionaryOfATagAsTheBaseOnEitherSide) {
    const UserInfo dictionary{{tags, std::string("d")}, {"other", 1}};
    const UserInfo tagFirst = Tag("t") | dictionary;
    const UserInfo tagLast = dictionary | Tag("t");
    EXPECT_THAT(list(tagFirst, tags), ElementsAre("t", "d"));
    EXPECT_THAT(list(tagLast, tags), ElementsAre("t", "d"));
    EXPECT_EQ(std::any_cast<int>(tagLast.at("other")), 1);
    EXPECT_EQ(tagLast.size(), 2U);
}

TEST(UserInfoTagging, TakesTheLastTagAsTheBaseOfWhatTwoOthersGave) {
    const UserInfo userInfo = Tag("a") | Dev("ann") | Tag("b");
    EXPECT_THAT(list(userInfo, tags), ElementsAre("b", "a"));
    EXPECT_EQ(text(userInfo, devs), "ann");
    const UserInfo grouped = Tag("c") | (Tag("a") | Tag("b"));
    EXPECT_THAT(list(grouped, tags), ElementsAre("a", "b", "c"));
    const UserInfo twoGroups = (Tag("a") | Tag("b")) | (Tag("c") | Tag("d"));
    EXPECT_THAT(list(twoGroups, tags), ElementsAre("a", "b", "c", "d"));
}

TEST(UserInfoTagging, TakesTheLeftOfTwoDictionariesAsTheBase) {
    const UserInfo left{{"k", std::string("l")}, {"left", true}};
    const UserInfo right{{"k", std::string("r")}, {"right", 2.5}};
    const UserInfo merged = left | right;
    EXPECT_EQ(merged.size(), 3U);
    EXPECT_THAT(list(merged, "k"), ElementsAre("l", "r"));
    EXPECT_TRUE(std::any_cast<bool>(merged.at("left")));
    EXPECT_EQ(std::any_cast<double>(merged.at("right")), 2.5);
    EXPECT_EQ(text(left, "k"), "l");
}

TEST(UserInfoTagging, MergesDictionariesOfOneType) {
    const UserInfoOf<int> left{{"k", 1}, {"left", 2}};
    const UserInfoOf<int> right{{"k", 3}};
    const UserInfo merged = left | right;
    const std::vector<std::any> numbers = mixedList(merged, "k");
    ASSERT_EQ(numbers.size(), 2U);
    EXPECT_EQ(std::any_cast<int>(numbers[0]), 1);
    EXPECT_EQ(std::any_cast<int>(numbers[1]), 3);
    EXPECT_EQ(std::any_cast<int>(merged.at("left")), 2);
    EXPECT_THAT(list(Tag("a").dictionary() | Tag("b").dictionary(), tags), ElementsAre("a", "b"));
    EXPECT_THAT(list(Tag::names("a", "b") | Tag::names("c"), tags), ElementsAre("a", "b", "c"));
}

TEST(UserInfoTagging, LeavesTheOtherSideAsItIsWhenOneIsEmpty) {
    const UserInfo full{{"k", std::string("v")}, {"n", 1}};
    const UserInfo empty;
    for (const UserInfo& merged : {full | empty, empty | full}) {
        EXPECT_EQ(merged.size(), 2U);
        EXPECT_EQ(text(merged, "k"), "v");
        EXPECT_EQ(std::any_cast<int>(merged.at("n")), 1);
    }
    EXPECT_THAT(empty | empty, IsEmpty());
    EXPECT_EQ(text(Tag("a") | empty, tags), "a");
    EXPECT_EQ(text(empty | Tag("a"), tags), "a");
}

UserInfo merged(std::any existing, std::any added) {
    return UserInfo{{"k", std::move(existing)}} | UserInfo{{"k", std::move(added)}};
}

TEST(UserInfoTagging, AppendsTheAddedListToTheExistingOne) {
    EXPECT_THAT(list(merged(Texts{"a", "b"}, Texts{"c", "a"}), "k"), ElementsAre("a", "b", "c", "a"));
    EXPECT_THAT(list(merged(Texts{}, Texts{}), "k"), IsEmpty());
}

TEST(UserInfoTagging, AppendsAnAddedValueToTheExistingList) {
    EXPECT_THAT(list(merged(Texts{"a", "b"}, std::string("c")), "k"), ElementsAre("a", "b", "c"));
    EXPECT_THAT(list(merged(Texts{}, std::string("c")), "k"), ElementsAre("c"));
}

TEST(UserInfoTagging, PutsAnExistingValueBehindTheAddedList) {
    EXPECT_THAT(list(merged(std::string("c"), Texts{"a", "b"}), "k"), ElementsAre("a", "b", "c"));
    EXPECT_THAT(list(Tag("c") | Tag::names("a", "b"), tags), ElementsAre("a", "b", "c"));
    EXPECT_THAT(list(Tag::names("a", "b") | Tag("c"), tags), ElementsAre("a", "b", "c"));
}

TEST(UserInfoTagging, KeepsTheBaseWhenEitherIsASet) {
    const std::set<std::string> set{"s"};
    EXPECT_EQ(text(merged(std::string("a"), set), "k"), "a");
    EXPECT_THAT(list(merged(Texts{"a"}, set), "k"), ElementsAre("a"));
    EXPECT_EQ(std::any_cast<std::set<std::string>>(merged(set, std::string("a")).at("k")), set);
    EXPECT_EQ(std::any_cast<std::set<std::string>>(merged(set, Texts{"a"}).at("k")), set);
    EXPECT_EQ(std::any_cast<std::set<std::string>>(merged(set, std::set<std::string>{"t"}).at("k")), set);
    EXPECT_EQ(text(Tag("a") | UserInfo{{tags, set}}, tags), "a");
    EXPECT_EQ(text(UserInfo{{tags, set}} | Tag("a"), tags), "a");
}

TEST(UserInfoTagging, ListsValuesOfAnyKindTogether) {
    const std::vector<std::any> values = mixedList(merged(std::string("a"), 7), "k");
    ASSERT_EQ(values.size(), 2U);
    EXPECT_EQ(std::any_cast<std::string>(values[0]), "a");
    EXPECT_EQ(std::any_cast<int>(values[1]), 7);
    const std::vector<std::any> numbers = mixedList(merged(std::vector<int>{1, 2}, 3), "k");
    ASSERT_EQ(numbers.size(), 3U);
    EXPECT_EQ(std::any_cast<int>(numbers[2]), 3);
    EXPECT_EQ(mixedList(merged(true, std::vector<bool>{false, true}), "k").size(), 3U);
    EXPECT_EQ(mixedList(merged(std::vector<std::any>{1, std::string("a")}, Texts{"b"}), "k").size(), 3U);
}

TEST(UserInfoTagging, TakesADictionaryOrAListOfAnotherKindAsASingleValue) {
    EXPECT_EQ(mixedList(merged(std::list<int>{1, 2}, UserInfo{{"a", 1}}), "k").size(), 2U);
    EXPECT_EQ(mixedList(merged(std::any(), std::any()), "k").size(), 2U);
}

TEST(UserInfoTagging, ListsTextOfAnyKindAsText) {
    const char* pointer = "b";
    EXPECT_THAT(list(merged(std::string("a"), pointer), "k"), ElementsAre("a", "b"));
    EXPECT_THAT(list(merged(std::string_view("a"), std::vector{"b", "c"}), "k"), ElementsAre("b", "c", "a"));
    EXPECT_THAT(list(merged(std::vector<std::any>{std::string("a")}, pointer), "k"), ElementsAre("a", "b"));
    EXPECT_THAT(list(Tag("a") | UserInfo{{tags, "b"}}, tags), ElementsAre("a", "b"));
}

TEST(UserInfoTagging, TakesANullPointerForNoText) {
    const char* none = nullptr;
    EXPECT_EQ(mixedList(merged(std::string("a"), none), "k").size(), 2U);
}

TEST(UserInfoTagging, StoresAnAddedValueAsItIs) {
    const UserInfo merged = UserInfo{} | UserInfo{{"k", std::vector<int>{1}}, {"p", "pointer"}};
    EXPECT_EQ(std::any_cast<std::vector<int>>(merged.at("k")), std::vector<int>{1});
    EXPECT_STREQ(std::any_cast<const char*>(merged.at("p")), "pointer");
}

TEST(UserInfoTagging, KeepsWhatAnExpressionWasMadeOf) {
    auto expression = [] {
        Tag tag(std::string("a name that does not fit into the text itself"));
        auto made = tag | Dev(std::string("another name that does not fit either"));
        tag.setName("changed");
        return made;
    }();
    const UserInfo userInfo = expression;
    EXPECT_EQ(text(userInfo, tags), "a name that does not fit into the text itself");
    EXPECT_EQ(text(userInfo, devs), "another name that does not fit either");
    const UserInfo longer = expression | Tag("b");
    EXPECT_THAT(list(longer, tags), ElementsAre("b", "a name that does not fit into the text itself"));
}

TEST(UserInfoTagging, GoesWithADictionaryOnEitherSideOfAnExpression) {
    const UserInfo dictionary{{tags, std::string("d")}};
    EXPECT_THAT(list((Tag("a") | Tag("b")) | dictionary, tags), ElementsAre("a", "b", "d"));
    EXPECT_THAT(list(dictionary | (Tag("a") | Tag("b")), tags), ElementsAre("a", "b", "d"));
    EXPECT_THAT(list(dictionary | (Tag("a") | Dev("b")), tags), ElementsAre("d", "a"));
}

struct Module {
    std::string_view name() const { return text; }
    void setName(std::string name) { text = std::move(name); }
    UserInfoOf<std::string> dictionary() const { return {{"module", text}}; }

    std::string text;
};
static_assert(UserInfoTaggingProtocol<Module>);

TEST(UserInfoTagging, CombinesWithTheHostsOwnKind) {
    const UserInfo userInfo = Tag("a") | Module{"audio"} | Module{"video"};
    EXPECT_EQ(text(userInfo, tags), "a");
    EXPECT_THAT(list(userInfo, "module"), ElementsAre("video", "audio"));
    EXPECT_THAT(list(Module{"audio"} | UserInfo{{"module", "x"}}, "module"), ElementsAre("audio", "x"));
}

}  // namespace
}  // namespace velora::test
