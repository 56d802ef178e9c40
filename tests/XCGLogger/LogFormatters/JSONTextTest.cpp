#include <any>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <Velora_UserDefaults/Platform/URL.h>
#include <Velora_UserDefaults/XCGLogger/Level.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/JSONText.h>
#include <Velora_UserDefaults/XCGLogger/SourceLocation.h>

namespace velora::test {
namespace {

std::string text(std::string_view value) {
    std::string json;
    appendJSONText(json, value);
    return json;
}

std::string value(const std::any& value) {
    std::string json;
    appendJSONValue(json, value);
    return json;
}

std::string date(Date date) {
    std::string json;
    appendJSONDate(json, date);
    return json;
}

TEST(JSONText, CopiesPlainText) {
    EXPECT_EQ(text(""), R"("")");
    EXPECT_EQ(text("no route to host, ~!"), R"("no route to host, ~!")");
    EXPECT_EQ(text("München, 日本, 😀"), R"("München, 日本, 😀")");
    EXPECT_EQ(text("5 €, “quoted”, a b"), R"("5 €, “quoted”, a b")");
}

TEST(JSONText, EscapesWhatJSONDemands) {
    EXPECT_EQ(text("say \"hi\""), R"("say \"hi\"")");
    EXPECT_EQ(text("C:\\logs"), R"("C:\\logs")");
    EXPECT_EQ(text("a\nb\r\tc\b\f"), R"("a\nb\r\tc\b\f")");
    EXPECT_EQ(text(std::string_view("\0\x01\x1f", 3)), R"("\u0000\u0001\u001f")");
}

TEST(JSONText, EscapesWhateverSomeReaderTakesForTheEndOfALine) {
    EXPECT_EQ(text("a\x7f"), R"("a\u007f")");
    EXPECT_EQ(text("a\xc2\x85z"), R"("a\u0085z")");
    EXPECT_EQ(text("a\xe2\x80\xa8z"), R"("a\u2028z")");
    EXPECT_EQ(text("a\xe2\x80\xa9"), R"("a\u2029")");
    EXPECT_EQ(text("\xc2\xa0"), "\"\xc2\xa0\"") << "a space, no control character";
}

TEST(JSONText, ReplacesWhatIsNoUTF8) {
    EXPECT_EQ(text("caf\xe9"), "\"caf\xef\xbf\xbd\"");
    EXPECT_EQ(text("\xc3"), "\"\xef\xbf\xbd\"");
    EXPECT_EQ(text("\xed\xa0\x80 end"), "\"\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd end\"");
    EXPECT_EQ(text("\xff\n"), "\"\xef\xbf\xbd\\n\"");
}

TEST(JSONText, CanBeReadBackWhateverTheBytes) {
    for (int first = 0; first < 256; ++first) {
        for (int second = 0; second < 256; ++second) {
            const std::string bytes{static_cast<char>(first), static_cast<char>(second)};
            const std::string json = text(bytes);
            ASSERT_TRUE(nlohmann::json::accept(json)) << first << " " << second;
            ASSERT_EQ(json.find('\n'), std::string::npos);
            if (first < 0x80 && second < 0x80) {
                ASSERT_EQ(nlohmann::json::parse(json).get<std::string>(), bytes);
            }
        }
    }
}

TEST(JSONText, WritesDatesInUTCWithMicroseconds) {
    using namespace std::chrono_literals;
    EXPECT_EQ(date(Date()), R"("1970-01-01T00:00:00.000000Z")");
    EXPECT_EQ(date(Date(1'700'000'000'123'456'789ns)), R"("2023-11-14T22:13:20.123456Z")");
    EXPECT_EQ(date(Date(951'782'400s)), R"("2000-02-29T00:00:00.000000Z")");
    EXPECT_EQ(date(Date(-1ns)), R"("1969-12-31T23:59:59.999999Z")");
    EXPECT_EQ(date(Date::max()), R"("2262-04-11T23:47:16.854775Z")");
    EXPECT_EQ(date(Date::min()), R"("1677-09-21T00:12:43.145224Z")");
}

TEST(JSONText, KeepsTheTypeOfEachScalar) {
    EXPECT_EQ(value(true), "true");
    EXPECT_EQ(value(false), "false");
    EXPECT_EQ(value(-7), "-7");
    EXPECT_EQ(value(7U), "7");
    EXPECT_EQ(value(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(value(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
    EXPECT_EQ(value(static_cast<short>(-3)), "-3");
    EXPECT_EQ(value(static_cast<std::uint8_t>(200)), "200");
    EXPECT_EQ(value('x'), R"("x")");
    EXPECT_EQ(value(std::string("a\"b")), R"("a\"b")");
    EXPECT_EQ(value(std::string_view("view")), R"("view")");
    EXPECT_EQ(value("literal"), R"("literal")");
}

TEST(JSONText, WritesRealNumbersSoThatTheyReadBackAndStayReal) {
    EXPECT_EQ(value(0.1), "0.1");
    EXPECT_EQ(value(2.5F), "2.5");
    EXPECT_EQ(value(3.0), "3.0");
    EXPECT_EQ(value(-0.0), "-0.0");
    EXPECT_EQ(value(1e300), "1e+300");
    EXPECT_EQ(value(1.5L), "1.5");
}

TEST(JSONText, HasNoNumberThatIsNone) {
    EXPECT_EQ(value(std::numeric_limits<double>::quiet_NaN()), "null");
    EXPECT_EQ(value(std::numeric_limits<double>::infinity()), "null");
    EXPECT_EQ(value(-std::numeric_limits<float>::infinity()), "null");
    EXPECT_EQ(value(std::vector<double>{1, std::numeric_limits<double>::quiet_NaN()}), "[1.0,null]");
}

TEST(JSONText, WritesNullForNothing) {
    EXPECT_EQ(value(std::any()), "null");
    EXPECT_EQ(value(nullptr), "null");
    EXPECT_EQ(value(static_cast<const char*>(nullptr)), "null");
}

TEST(JSONText, WritesListsAndSetsAsLists) {
    EXPECT_EQ(value(std::vector<std::string>{"a", "b\n"}), R"(["a","b\n"])");
    EXPECT_EQ(value(std::vector<int>{}), "[]");
    EXPECT_EQ(value(std::vector<bool>{true, false}), "[true,false]");
    EXPECT_EQ(value(std::set<std::string>{"b", "a"}), R"(["a","b"])");
    EXPECT_EQ(value(std::set<std::string, std::less<>>{"b", "a"}), R"(["a","b"])");
    EXPECT_EQ(value(std::unordered_set<int>{4}), "[4]");
    EXPECT_EQ(value(std::vector<std::any>{1, std::string("two"), std::vector<std::any>{true, std::any()}}),
              R"([1,"two",[true,null]])");
}

TEST(JSONText, WritesNestedUserInfoAndMapsAsObjects) {
    EXPECT_EQ(value(UserInfo{{"b", 1}, {"a", UserInfo{{"deep", std::string("x")}}}}), R"({"a":{"deep":"x"},"b":1})");
    EXPECT_EQ(value(std::map<std::string, std::string>{{"k\"", "v"}}), R"({"k\"":"v"})");
    EXPECT_EQ(value(std::map<std::string, std::any>{{"k", 1.5}}), R"({"k":1.5})");
    EXPECT_EQ(value(std::unordered_map<std::string, bool>{{"k", true}}), R"({"k":true})");
}

TEST(JSONText, LeavesOutWhatIsNestedTooDeep) {
    std::any nested = std::string("innermost");
    for (int depth = 0; depth < 200; ++depth) {
        std::vector<std::any> list;
        list.push_back(std::move(nested));
        nested = std::move(list);
        if (depth == 60) {
            EXPECT_NE(value(nested).find("innermost"), std::string::npos);
        }
    }
    EXPECT_TRUE(nlohmann::json::accept(value(nested)));
    EXPECT_NE(value(nested).find("[null]"), std::string::npos);
}

struct Session {};

TEST(JSONText, WritesTheTypesOfTheLibraryAsText) {
    EXPECT_EQ(value(Date()), R"("1970-01-01T00:00:00.000000Z")");
    EXPECT_EQ(value(std::chrono::system_clock::time_point()), R"("1970-01-01T00:00:00.000000Z")");
    EXPECT_EQ(value(Level::warning), R"("Warning")");
    EXPECT_EQ(value(URL::fileURL("/a b")), R"("file:///a%20b")");
    EXPECT_EQ(value(std::filesystem::path("/a b")), R"("/a b")");
    EXPECT_EQ(value(SourceText("open")), R"("open")");
}

TEST(JSONText, NamesTheTypeOfAnythingElse) {
    EXPECT_EQ(value(Session()), R"("<Session>")");
}

}  // namespace
}  // namespace velora::test
