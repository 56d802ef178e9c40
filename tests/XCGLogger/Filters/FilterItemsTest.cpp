#include <array>
#include <deque>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>
#include <string_view>

#include <Velora_UserDefaults/XCGLogger/Filters/FilterItems.h>

namespace velora::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Which kind of list it is must be said, and one kind never turns into the other.
static_assert(!std::is_constructible_v<IncludeFrom, ExcludeFrom>);
static_assert(!std::is_constructible_v<ExcludeFrom, IncludeFrom>);
static_assert(!std::is_constructible_v<ExcludeFrom, FilterItems>);
// A text is one item, in braces, not a range of characters.
static_assert(!std::is_constructible_v<FilterItems, std::string_view>);
static_assert(!std::is_constructible_v<FilterItems, std::vector<int>>);

std::vector<std::string> listed(const FilterItems& items) {
    return {items.begin(), items.end()};
}

TEST(FilterItems, KeepTheOrderAndTheDuplicatesOfAListInBraces) {
    EXPECT_THAT(listed({"b", "a", "b"}), ElementsAre("b", "a", "b"));
    EXPECT_THAT(listed({}), IsEmpty());
    EXPECT_THAT(listed({std::string("one")}), ElementsAre("one"));
}

TEST(FilterItems, CopyAnyRangeOfText) {
    const std::vector<std::string> texts{"b", "a"};
    const std::deque<std::string_view> views{"d", "c"};
    const std::array<const char*, 2> pointers{"f", "e"};
    EXPECT_THAT(listed(texts), ElementsAre("b", "a"));
    EXPECT_THAT(listed(views), ElementsAre("d", "c"));
    EXPECT_THAT(listed(pointers), ElementsAre("f", "e"));
    EXPECT_THAT(listed(IncludeFrom(views)), ElementsAre("d", "c"));
    EXPECT_THAT(listed(ExcludeFrom(views)), ElementsAre("d", "c"));
    EXPECT_THAT(texts, ElementsAre("b", "a"));
}

struct WordsOfAStream {
    auto begin() const { return std::istream_iterator<std::string>(stream); }
    static auto end() { return std::istream_iterator<std::string>(); }

    std::istream& stream;
};

TEST(FilterItems, CopyARangeThatCanBeReadOnceOnly) {
    std::istringstream stream("c a b");
    EXPECT_THAT(listed(WordsOfAStream{stream}), ElementsAre("c", "a", "b"));
}

TEST(FilterItems, AreCopiedAndMovedAsAWhole) {
    FilterItems items{"a", "b"};
    const FilterItems copy(items);
    EXPECT_THAT(listed(copy), ElementsAre("a", "b"));
    items = FilterItems{"c"};
    EXPECT_THAT(listed(items), ElementsAre("c"));
    const FilterItems moved(std::move(items));
    EXPECT_THAT(listed(moved), ElementsAre("c"));
    const ExcludeFrom excluded{"x"};
    EXPECT_THAT(listed(excluded), ElementsAre("x"));
}

}  // namespace
}  // namespace velora::test
