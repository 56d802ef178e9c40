#include <clocale>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <string>

#include <Velora_UserDefaults/Platform/DefaultsStoreValue.h>

namespace velora::test {
namespace {

using Type = DefaultsStore::Type;
constexpr std::int64_t largest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t smallest = std::numeric_limits<std::int64_t>::min();

struct Conversion {
    std::string json;
    Type type;
    std::optional<std::string> string;
    std::int64_t integer;
    bool boolean;
};

TEST(DefaultsStoreValue, ConvertsEveryTypeToEveryOther) {
    const Conversion conversions[] = {
        {"true", Type::boolean, "1", 1, true},
        {"false", Type::boolean, "0", 0, false},
        {"0", Type::integer, "0", 0, false},
        {"-0", Type::integer, "0", 0, false},
        {"-7", Type::integer, "-7", -7, true},
        {"9223372036854775807", Type::integer, "9223372036854775807", largest, true},
        {"-9223372036854775808", Type::integer, "-9223372036854775808", smallest, true},
        {"9223372036854775808", Type::integer, "9223372036854775808", largest, true},
        {"-12345678901234567890123", Type::integer, "-12345678901234567890123", smallest, true},
        {"2.9", Type::real, "2.9", 2, true},
        {"-2.9", Type::real, "-2.9", -2, true},
        {"0.10", Type::real, "0.1", 0, true},
        {"0.0", Type::real, "0", 0, false},
        {"1e3", Type::real, "1000", 1000, true},
        {"1e400", Type::real, "1e400", largest, true},
        {"-1e400", Type::real, "-1e400", smallest, true},
        {"1e19", Type::real, "1e+19", largest, true},
        {"-9223372036854775808.0", Type::real, "-9.223372036854776e+18", smallest, true},
        {R"("")", Type::string, "", 0, false},
        {R"("42")", Type::string, "42", 42, true},
        {R"("  -42 px")", Type::string, "  -42 px", -42, true},
        {R"("+7")", Type::string, "+7", 7, true},
        {R"("px 42")", Type::string, "px 42", 0, false},
        {R"("1.9")", Type::string, "1.9", 1, true},
        {R"("99999999999999999999")", Type::string, "99999999999999999999", largest, true},
        {R"("-99999999999999999999")", Type::string, "-99999999999999999999", smallest, true},
        {R"("0x1F")", Type::string, "0x1F", 0, false},
        {R"("YES")", Type::string, "YES", 0, true},
        {R"("yes")", Type::string, "yes", 0, true},
        {R"("true")", Type::string, "true", 0, true},
        {R"("T")", Type::string, "T", 0, true},
        {R"("007")", Type::string, "007", 7, true},
        {R"(" -01")", Type::string, " -01", -1, true},
        {R"("NO")", Type::string, "NO", 0, false},
        {R"("on")", Type::string, "on", 0, false},
        {R"("false")", Type::string, "false", 0, false},
        {R"("000")", Type::string, "000", 0, false},
        {R"("\u00e9\n")", Type::string, "é\n", 0, false},
        {R"({"url": "file:///a"})", Type::url, std::nullopt, 0, false},
        {R"({"url": "file:///a", "b": 1})", Type::other, std::nullopt, 0, false},
        {R"({"url": 1})", Type::other, std::nullopt, 0, false},
        {R"({"other": "file:///a"})", Type::other, std::nullopt, 0, false},
        {R"({})", Type::other, std::nullopt, 0, false},
        {R"([1])", Type::other, std::nullopt, 0, false},
        {R"(null)", Type::other, std::nullopt, 0, false},
        {R"("half \ud800")", Type::other, std::nullopt, 0, false},
    };
    for (const Conversion& expected : conversions) {
        const DefaultsStoreValue value = DefaultsStoreValue::fromJSON(expected.json);
        EXPECT_EQ(value.type, expected.type) << expected.json;
        EXPECT_EQ(value.asString(), expected.string) << expected.json;
        EXPECT_EQ(value.integer, expected.integer) << expected.json;
        EXPECT_EQ(value.boolean, expected.boolean) << expected.json;
    }
}

TEST(DefaultsStoreValue, ConvertsEveryTypeToARealNumber) {
    const std::pair<const char*, double> conversions[] = {
        {"true", 1},          {"false", 0},
        {"-7", -7},           {"9223372036854775808", 9223372036854775808.0},
        {"2.5", 2.5},         {"1e3", 1000},
        {R"("2.5 px")", 2.5}, {R"(" -1e2")", -100},
        {R"("px")", 0},       {R"("0x1F")", 0},
        {R"("inf")", 0},      {R"("nan")", 0},
        {R"("+7")", 7},       {R"("")", 0},
        {"[1.5]", 0},         {R"({"url": "file:///1"})", 0},
        {R"("1.5.5")", 1.5},  {R"("1e999")", std::numeric_limits<double>::infinity()}};
    for (const auto& [json, real] : conversions) {
        EXPECT_EQ(DefaultsStoreValue::fromJSON(json).real, real) << json;
    }
}

TEST(DefaultsStoreValue, ReadsAURLFromItsObjectOnly) {
    EXPECT_EQ(DefaultsStoreValue::fromJSON(R"({ "url" : "https://a/b" })").asURL(), URL::parse("https://a/b"));
    EXPECT_EQ(DefaultsStoreValue::fromJSON(R"({"url": "no url"})").asURL(), std::nullopt);
    EXPECT_EQ(DefaultsStoreValue::fromJSON("1").asURL(), std::nullopt);
    EXPECT_EQ(DefaultsStoreValue::fromJSON("true").asURL(), std::nullopt);
    EXPECT_EQ(DefaultsStoreValue::fromJSON("[]").asURL(), std::nullopt);
}

TEST(DefaultsStoreValue, TakesTextAsAPathWhenReadAsURL) {
    ::setenv("HOME", "/home/ann", 1);
    const auto url = [](std::string text) { return DefaultsStoreValue::fromString(std::move(text)).asURL(); };
    EXPECT_EQ(url("/tmp/a b"), URL::fileURL("/tmp/a b"));
    EXPECT_EQ(url("~"), URL::fileURL("/home/ann"));
    EXPECT_EQ(url("~/my chats/"), URL::fileURL("/home/ann/my chats/"));
    EXPECT_EQ(url("~root/x"), URL::fileURL("/root/x"));
    EXPECT_EQ(url("/a/~/b"), URL::fileURL("/a/~/b"));
    EXPECT_EQ(url("a"), URL::fileURL((std::filesystem::current_path() / "a").string()));
    EXPECT_EQ(url("~no-such-user/x"), URL::fileURL((std::filesystem::current_path() / "~no-such-user/x").string()));
    EXPECT_EQ(url(""), std::nullopt);
}

TEST(DefaultsStoreValue, ReadsNumbersTheSameInEveryLocale) {
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr) {
        std::setlocale(LC_NUMERIC, "");
    }
    EXPECT_EQ(DefaultsStoreValue::fromJSON("2.5").asString(), "2.5");
}

TEST(DefaultsStoreValue, TakesRegisteredValues) {
    EXPECT_EQ(DefaultsStoreValue::fromRegistered(true), DefaultsStoreValue::fromJSON("true"));
    EXPECT_EQ(DefaultsStoreValue::fromRegistered(6), DefaultsStoreValue::fromJSON("6"));
    EXPECT_EQ(DefaultsStoreValue::fromRegistered("6"), DefaultsStoreValue::fromString("6"));
}

}  // namespace
}  // namespace velora::test
