#include <chrono>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <random>
#include <string>

#include <Velora_UserDefaults/Platform/Date.h>

namespace velora::test {
namespace {

Date dateOfSecond(std::int64_t nanoseconds) {
    return Date(std::chrono::nanoseconds(nanoseconds));
}

TEST(CurrentDate, LiesBetweenTwoReadingsOfTheSystemClock) {
    const auto before = std::chrono::system_clock::now();
    const Date now = currentDate();
    const auto after = std::chrono::system_clock::now();
    EXPECT_LE(before, now);
    EXPECT_LE(now, after);
}

TEST(SecondsSince1970, HasTheFractionOfTheSecond) {
    EXPECT_EQ(secondsSince1970(dateOfSecond(0)), 0.0);
    EXPECT_EQ(secondsSince1970(dateOfSecond(1'700'000'000'500'000'000)), 1700000000.5);
    EXPECT_EQ(secondsSince1970(dateOfSecond(1'700'000'000'123'456'000)), 1700000000.123456);
    EXPECT_EQ(secondsSince1970(dateOfSecond(1)), 1e-9);
}

TEST(SecondsSince1970, IsNegativeBefore1970) {
    EXPECT_EQ(secondsSince1970(dateOfSecond(-500'000'000)), -0.5);
    EXPECT_EQ(secondsSince1970(dateOfSecond(-1'250'000'000)), -1.25);
}

TEST(SecondsSince1970, ReachesToBothEnds) {
    EXPECT_EQ(secondsSince1970(Date::max()), 9223372036.854775807);
    EXPECT_EQ(secondsSince1970(Date::min()), -9223372036.854775808);
}

TEST(DateFromSecondsSince1970, IsNearestToTheNanosecond) {
    EXPECT_EQ(dateFromSecondsSince1970(0), dateOfSecond(0));
    EXPECT_EQ(dateFromSecondsSince1970(1.5), dateOfSecond(1'500'000'000));
    EXPECT_EQ(dateFromSecondsSince1970(-0.25), dateOfSecond(-250'000'000));
    EXPECT_EQ(dateFromSecondsSince1970(1e-9), dateOfSecond(1));
    EXPECT_EQ(dateFromSecondsSince1970(1.6e-9), dateOfSecond(2));
    EXPECT_EQ(dateFromSecondsSince1970(0.9999999999), dateOfSecond(1'000'000'000));
}

TEST(DateFromSecondsSince1970, GivesBackTheSecondsItWasMadeFrom) {
    std::mt19937_64 random(11);
    std::uniform_real_distribution<double> seconds(1e9, 4e9);
    for (int i = 0; i < 10000; ++i) {
        const double value = seconds(random);
        ASSERT_EQ(secondsSince1970(dateFromSecondsSince1970(value)), value);
        ASSERT_EQ(secondsSince1970(dateFromSecondsSince1970(-value)), -value);
    }
}

TEST(DateFromSecondsSince1970, StopsAtTheFirstAndLastDate) {
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(dateFromSecondsSince1970(infinity), Date::max());
    EXPECT_EQ(dateFromSecondsSince1970(1e300), Date::max());
    EXPECT_EQ(dateFromSecondsSince1970(9223372037.0), Date::max());
    EXPECT_EQ(dateFromSecondsSince1970(-infinity), Date::min());
    EXPECT_EQ(dateFromSecondsSince1970(-9223372037.0), Date::min());
    EXPECT_EQ(dateFromSecondsSince1970(9223372035.5), dateOfSecond(9'223'372'035'500'000'000));
    EXPECT_EQ(dateFromSecondsSince1970(-9223372035.5), dateOfSecond(-9'223'372'035'500'000'000));
}

TEST(DateFromSecondsSince1970, TakesNoNumberAs1970) {
    EXPECT_EQ(dateFromSecondsSince1970(std::numeric_limits<double>::quiet_NaN()), dateOfSecond(0));
}

TEST(ShortestRoundTripText, AlwaysHasAPointAndAFraction) {
    EXPECT_EQ(shortestRoundTripText(1700000000), "1700000000.0");
    EXPECT_EQ(shortestRoundTripText(1700000000.123456), "1700000000.123456");
    EXPECT_EQ(shortestRoundTripText(0), "0.0");
    EXPECT_EQ(shortestRoundTripText(-0.0), "-0.0");
    EXPECT_EQ(shortestRoundTripText(-0.5), "-0.5");
    EXPECT_EQ(shortestRoundTripText(0.1), "0.1");
}

TEST(ShortestRoundTripText, NeverHasAnExponent) {
    EXPECT_EQ(shortestRoundTripText(1e20), "100000000000000000000.0");
    EXPECT_EQ(shortestRoundTripText(1e-7), "0.0000001");
    const std::string longest = shortestRoundTripText(-2.2250738585072014e-308);
    EXPECT_EQ(longest.substr(0, 5), "-0.00");
    EXPECT_EQ(longest.substr(longest.size() - 17), "22250738585072014");
    EXPECT_EQ(shortestRoundTripText(std::numeric_limits<double>::max()).size(), 311U);
}

TEST(ShortestRoundTripText, NamesWhatHasNoDigits) {
    const double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(shortestRoundTripText(infinity), "inf");
    EXPECT_EQ(shortestRoundTripText(-infinity), "-inf");
    EXPECT_EQ(shortestRoundTripText(std::numeric_limits<double>::quiet_NaN()), "nan");
    EXPECT_EQ(shortestRoundTripText(-std::numeric_limits<double>::quiet_NaN()), "nan");
}

TEST(ShortestRoundTripText, ReadsBackAsTheSameNumber) {
    std::mt19937_64 random(13);
    for (int i = 0; i < 20000; ++i) {
        const std::uint64_t bits = random();
        double number = 0;
        std::memcpy(&number, &bits, sizeof number);
        if (number - number == 0) {
            ASSERT_EQ(std::strtod(shortestRoundTripText(number).c_str(), nullptr), number);
        }
    }
}

}  // namespace
}  // namespace velora::test
