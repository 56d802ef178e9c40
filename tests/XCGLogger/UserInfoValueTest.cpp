#include <gtest/gtest.h>
#include <map>

#include <Velora_UserDefaults/XCGLogger/UserInfoValue.h>

namespace velora::test {
namespace {

bool has(const std::any& value, std::string_view wanted) {
    return hasText(value, [&](std::string_view text) { return text == wanted; });
}

TEST(UserInfoValue, ReadsASingleText) {
    const char* none = nullptr;
    EXPECT_EQ(textIn(std::string("a")), "a");
    EXPECT_EQ(textIn(std::string_view("a")), "a");
    EXPECT_EQ(textIn("a"), "a");
    EXPECT_EQ(textIn(std::string()), "");
    EXPECT_EQ(textIn(none), std::nullopt);
    EXPECT_EQ(textIn(1), std::nullopt);
    EXPECT_EQ(textIn(std::any()), std::nullopt);
    EXPECT_EQ(textIn(std::vector<std::string>{"a"}), std::nullopt);
}

TEST(UserInfoValue, KnowsASetFromAListAndFromASingleValue) {
    EXPECT_TRUE(isSet(std::set<std::string>{}));
    EXPECT_TRUE(isSet(std::unordered_set<int>{}));
    EXPECT_TRUE(isSet(std::set<const char*>{}));
    EXPECT_TRUE(isSet(std::set<double, std::less<>>{}));
    EXPECT_FALSE(isSet(std::vector<std::string>{}));
    EXPECT_FALSE(isSet(std::string("a")));
    EXPECT_FALSE(isSet(std::map<std::string, std::string>{}));
    EXPECT_FALSE(isSet(std::any()));
}

TEST(UserInfoValue, CopiesTheElementsOfAListOnly) {
    EXPECT_EQ(elementsOfList(std::vector<int>{1, 2})->size(), 2U);
    EXPECT_EQ(elementsOfList(std::vector<std::any>{1, 2, 3})->size(), 3U);
    EXPECT_EQ(elementsOfList(std::vector<std::string>{})->size(), 0U);
    EXPECT_FALSE(elementsOfList(std::set<std::string>{}).has_value());
    EXPECT_FALSE(elementsOfList(std::string("a")).has_value());
    EXPECT_FALSE(elementsOfList(std::any()).has_value());
    const auto texts = elementsOfList(std::vector<std::string_view>{"a"});
    EXPECT_EQ(std::any_cast<std::string>(texts->front()), "a");
}

TEST(UserInfoValue, SearchesTheTextsOfEachShape) {
    for (const std::any& value :
         {std::any(std::set<std::string>{"a", "b"}), std::any(std::set<std::string, std::less<>>{"a", "b"}),
          std::any(std::unordered_set<std::string>{"a", "b"}), std::any(std::vector<std::string>{"a", "b"}),
          std::any(std::vector<std::string_view>{"a", "b"}), std::any(std::vector<const char*>{"a", "b"}),
          std::any(std::vector<std::any>{std::string("a"), "b"})}) {
        EXPECT_TRUE(has(value, "a"));
        EXPECT_TRUE(has(value, "b"));
        EXPECT_FALSE(has(value, "c"));
        EXPECT_FALSE(has(value, "A"));
    }
    EXPECT_TRUE(has(std::string("b"), "b"));
    EXPECT_FALSE(has(std::string("b"), "a"));
}

TEST(UserInfoValue, FindsNoTextInOtherValues) {
    EXPECT_FALSE(has(7, "7"));
    EXPECT_FALSE(has(std::vector<int>{7}, "7"));
    EXPECT_FALSE(has(std::map<std::string, std::string>{{"a", "a"}}, "a"));
    EXPECT_FALSE(has(std::any(), ""));
    EXPECT_FALSE(has(std::vector<std::any>{}, ""));
    EXPECT_FALSE(has(std::vector<std::string>{}, ""));
    EXPECT_FALSE(has(std::set<std::string>{}, ""));
}

TEST(UserInfoValue, FindsNoTextInAListThatHoldsSomethingElseToo) {
    EXPECT_FALSE(has(std::vector<std::any>{std::string("a"), 1}, "a"));
    EXPECT_FALSE(has(std::vector<std::any>{1, std::string("a")}, "a"));
}

}  // namespace
}  // namespace velora::test
