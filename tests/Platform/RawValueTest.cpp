#include <cstdint>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>

#include <Velora_UserDefaults/Platform/RawValue.h>

namespace velora {
namespace test {

enum class Fruit : std::uint8_t { apple, pear, plum };
enum class Single { only };
enum class Unlisted { first, second };

}  // namespace test

template <>
inline constexpr test::Fruit lastCase<test::Fruit> = test::Fruit::plum;
template <>
inline constexpr test::Single lastCase<test::Single> = test::Single::only;

namespace test {
namespace {

static_assert(RawRepresentable<Fruit>);
static_assert(!RawRepresentable<Unlisted>, "only an enumeration that names its last case takes part");
static_assert(!RawRepresentable<int>);

static_assert(rawValue(Fruit::apple) == 0 && rawValue(Fruit::plum) == 2);
static_assert(std::is_same_v<decltype(rawValue(Fruit::apple)), std::int64_t>);
static_assert(fromRawValue<Fruit>(1) == Fruit::pear);
static_assert(!fromRawValue<Fruit>(3));

TEST(RawValue, TurnsIntoTheCaseAndBack) {
    for (const Fruit fruit : allCases<Fruit>) {
        EXPECT_EQ(fromRawValue<Fruit>(rawValue(fruit)), fruit);
    }
}

TEST(RawValue, OfNoCaseGivesNothing) {
    for (const std::int64_t raw :
         {std::int64_t{-1}, std::int64_t{3}, std::int64_t{256}, std::int64_t{258}, std::int64_t{1} << 32,
          std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
        EXPECT_EQ(fromRawValue<Fruit>(raw), std::nullopt) << raw;
    }
}

TEST(RawValue, ListsAllCasesInOrder) {
    EXPECT_THAT(allCases<Fruit>, testing::ElementsAre(Fruit::apple, Fruit::pear, Fruit::plum));
    EXPECT_THAT(allCases<Single>, testing::ElementsAre(Single::only));
}

}  // namespace
}  // namespace test
}  // namespace velora
