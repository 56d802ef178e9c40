#include <gtest/gtest.h>
#include <string>

#include <Velora_UserDefaults/Platform/DefaultsStoreDocument.h>

namespace velora::test {
namespace {

std::optional<DefaultsStoreDocument> parse(std::string_view text) {
    std::string fault;
    return DefaultsStoreDocument::parse(text, fault);
}

std::string nested(std::size_t depth) {
    return R"({"a": )" + std::string(depth, '[') + std::string(depth, ']') + "}";
}

TEST(DefaultsStoreDocument, AcceptsWellFormedJSONObjectsOnly) {
    const std::string good[] = {"{}",
                                " \t\r\n{ } \n",
                                R"({"a":1})",
                                R"({"":""})",
                                R"({"a":[{},[],{"b":[1,2,{"c":null}]}],"d":-1.5e-3})",
                                R"({"a":"\"\\\/\b\f\n\r\t\u00Ff"})",
                                "{\"a\":\"\xC3\xA9\"}",
                                R"({"a":0,"b":-0,"c":0.0,"d":1E+9})"};
    for (const std::string& text : good) {
        EXPECT_TRUE(parse(text)) << text;
    }
    const std::string bad[] = {"",
                               " ",
                               "{",
                               "}",
                               "[]",
                               "1",
                               "null",
                               "\"a\"",
                               "{}{}",
                               "{} x",
                               "{,}",
                               R"({"a"})",
                               R"({"a":})",
                               R"({"a":1,})",
                               R"({"a":1 "b":2})",
                               R"({a:1})",
                               R"({'a':1})",
                               R"({"a":01})",
                               R"({"a":+1})",
                               R"({"a":1.})",
                               R"({"a":.5})",
                               R"({"a":1e})",
                               R"({"a":-})",
                               R"({"a":tru})",
                               R"({"a":truer})",
                               R"({"a":NaN})",
                               R"({"a":"b)",
                               R"({"a":"\x"})",
                               R"({"a":"\u00g0"})",
                               R"({"a":"\u00)",
                               "{\"a\":\"\n\"}",
                               R"({"a":[1,]})",
                               R"({"a":[1})",
                               R"({"a":[}])",
                               R"({"a":{"b"}})",
                               R"({"a":{"b":1,}})",
                               R"({"a":{,}})",
                               R"({"a":[,]})",
                               "{\"a\":\"\xFF\"}",
                               "{\"a\":\"\xC3\"}",
                               "{\"a\":\"\xED\xA0\x80\"}",
                               std::string("{\"a\":1\0}", 8),
                               std::string("{\"a\":\"\0\"}", 9),
                               R"({"a":"b\)"};
    for (const std::string& text : bad) {
        EXPECT_FALSE(parse(text)) << text;
    }
}

TEST(DefaultsStoreDocument, LimitsNesting) {
    EXPECT_TRUE(parse(nested(DefaultsStoreDocument::maximumDepth)));
    EXPECT_FALSE(parse(nested(DefaultsStoreDocument::maximumDepth + 1)));
    EXPECT_FALSE(parse(nested(5'000'000)));
}

TEST(DefaultsStoreDocument, TellsWhereTheTextIsWrong) {
    std::string fault;
    EXPECT_FALSE(DefaultsStoreDocument::parse(R"({"a": 1, "b": x})", fault));
    EXPECT_EQ(fault, "no well-formed JSON object at byte 14 of 16");
}

TEST(DefaultsStoreDocument, RejectsEveryTruncation) {
    const std::string text = R"({"a": "Gr\u00fc\"e", "b": [1, {"c": -1.5e3}], "d": true})";
    for (std::size_t length = 0; length < text.size(); ++length) {
        EXPECT_FALSE(parse(text.substr(0, length))) << length;
    }
    EXPECT_TRUE(parse(text));
}

TEST(DefaultsStoreDocument, KeepsPlacesWhenItChangesMembers) {
    auto document = *parse(R"({"a": 1, "b": 2, "c": 3})");
    EXPECT_TRUE(document.set("b", "\"x\""));
    EXPECT_FALSE(document.set("b", "\"x\""));
    EXPECT_TRUE(document.set("d\"", "4"));
    EXPECT_TRUE(document.remove("a"));
    EXPECT_FALSE(document.remove("a"));
    EXPECT_EQ(document.text(), "{\n    \"b\": \"x\",\n    \"c\": 3,\n    \"d\\\"\": 4\n}\n");
}

TEST(DefaultsStoreDocument, TakesTheLastOfDuplicateKeys) {
    auto document = *parse(R"({"a": 1, "b": 2, "a": 3, "c": 4, "a": 5})");
    EXPECT_EQ(document.text(), "{\n    \"b\": 2,\n    \"c\": 4,\n    \"a\": 5\n}\n");
    EXPECT_FALSE(document.set("a", "5"));
    EXPECT_TRUE(document.set("a", "6"));
    EXPECT_EQ(document.text(), "{\n    \"b\": 2,\n    \"c\": 4,\n    \"a\": 6\n}\n");
}

TEST(DefaultsStoreDocument, SetsAllMembersAsIfOneByOne) {
    const std::string_view stored = R"({"a": 1, "b": 2, "a": 3, "c": 4, "\ud800": 0, "c": 5, "b": 6})";
    const std::string_view texts[] = {R"({})",
                                      R"({"a": 3, "b": 6, "c": 5})",
                                      R"({"a": 7})",
                                      R"({"b": 6, "c": 7, "d": 8})",
                                      R"({"d": 1, "d": 2, "\u0061": 7, "d\"": [1, 2]})",
                                      R"({"a": 8, "a": 9, "b": 9, "c": 9, "d": 9, "e": 9})"};
    for (const std::string_view text : texts) {
        auto atOnce = *parse(stored);
        auto oneByOne = *parse(stored);
        bool changed = false;
        const auto other = *parse(text);
        for (const auto& member : other.members()) {
            changed = (member.key && oneByOne.set(*member.key, member.json)) || changed;
        }
        EXPECT_EQ(atOnce.setAll(other), changed) << text;
        EXPECT_EQ(atOnce.text(), oneByOne.text()) << text;
    }
}

TEST(DefaultsStoreDocument, SetsAllMembersWhoseKeysAreNoText) {
    auto document = *parse(R"({"\ud800": 1, "\udfff": 2, "a": 3})");
    EXPECT_TRUE(document.setAll(*parse(R"({"\udfff": 4, "\udffe": 5})")));
    EXPECT_EQ(document.text(), "{\n    \"\\ud800\": 1,\n    \"\\udfff\": 4,\n    \"a\": 3,\n    \"\\udffe\": 5\n}\n");
}

TEST(DefaultsStoreDocument, SetsVeryManyMembersAtOnce) {
    std::string text = "{";
    for (int number = 0; number < 100'000; ++number) {
        text += (number == 0 ? "\"key " : ",\"key ") + std::to_string(number) + "\":" + std::to_string(number);
    }
    auto document = *parse(R"({"key 99999": 0, "other": 1})");
    EXPECT_TRUE(document.setAll(*parse(text + "}")));
    EXPECT_FALSE(document.setAll(*parse(text + "}")));
    ASSERT_EQ(document.members().size(), 100'001U);
    EXPECT_EQ(document.members()[0].json, "99999");
    EXPECT_EQ(document.members()[2].key, "key 0");
    EXPECT_EQ(document.members().back().json, "99998");
}

}  // namespace
}  // namespace velora::test
