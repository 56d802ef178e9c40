#include <gtest/gtest.h>

#include <Velora_UserDefaults/XCGLogger/Filters/FilterItemSet.h>

namespace velora::test {
namespace {

FilterItemSet setOf(std::initializer_list<const char*> items) {
    FilterItemSet set;
    for (const char* item : items) {
        set.insert(item);
    }
    return set;
}

TEST(FilterItemSet, TellsWhetherAnItemIsNew) {
    FilterItemSet set;
    EXPECT_TRUE(set.insert("a"));
    EXPECT_FALSE(set.insert("a"));
    EXPECT_EQ(set.description(false), "Excluding matches for: a");
    set.clear();
    EXPECT_FALSE(set.contains("a"));
    EXPECT_TRUE(set.insert("a"));
}

TEST(FilterItemSet, ComparesByteByByte) {
    const FilterItemSet set = setOf({"Widget", "\xc3\xa9"});
    EXPECT_TRUE(set.contains("Widget"));
    EXPECT_FALSE(set.contains("widget"));
    EXPECT_FALSE(set.contains("Widget "));
    EXPECT_FALSE(set.contains("Widge"));
    EXPECT_FALSE(set.contains(""));
    EXPECT_TRUE(set.contains("\xc3\xa9"));
    EXPECT_FALSE(set.contains("e\xcc\x81"));
}

TEST(FilterItemSet, SortsInTheOrderOfTheCodePoints) {
    EXPECT_EQ(setOf({"\xc3\xa9", "b", "B", "a10", "a9"}).description(true),
              "Including only matches for: B, a10, a9, b, \xc3\xa9");
}

TEST(FilterItemSet, DescribesUpToFiveItemsOnOneLine) {
    EXPECT_EQ(setOf({}).description(true), "Including only matches for: ");
    EXPECT_EQ(setOf({}).description(false), "Excluding matches for: ");
    EXPECT_EQ(setOf({"only"}).description(false), "Excluding matches for: only");
    EXPECT_EQ(setOf({"e", "d", "c", "b", "a"}).description(false), "Excluding matches for: a, b, c, d, e");
}

TEST(FilterItemSet, DescribesSixItemsOnALineEach) {
    EXPECT_EQ(setOf({"f", "e", "d", "c", "b", "a"}).description(true),
              "Including only matches for: \n\t- a\n\t- b\n\t- c\n\t- d\n\t- e\n\t- f");
}

}  // namespace
}  // namespace velora::test
