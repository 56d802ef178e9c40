#include <gtest/gtest.h>
#include <limits>
#include <source_location>
#include <sstream>
#include <string>

#include <Velora_UserDefaults/XCGLogger/SourceLocation.h>

namespace velora::test {
namespace {

SourceLocation placeOfCall(SourceLocation place = SourceLocation::current()) {
    return place;
}

TEST(SourceLocation, IsThatOfTheCallAsADefaultArgument) {
    constexpr int line = __LINE__ + 1;
    const SourceLocation place = placeOfCall();
    EXPECT_EQ(place.functionName, "TestBody");
    EXPECT_EQ(place.fileName, __FILE__);
    EXPECT_EQ(place.lineNumber, line);
    EXPECT_TRUE(place.isStatic);
}

#if defined(__cpp_lib_source_location)
TEST(SourceLocation, TakesTheStandardsOwn) {
    const std::source_location standard = std::source_location::current();
    const SourceLocation place = standard;
    EXPECT_EQ(place.functionName, standard.function_name());
    EXPECT_EQ(place.fileName, __FILE__);
    EXPECT_EQ(place.lineNumber, static_cast<std::int64_t>(standard.line()));
    EXPECT_TRUE(place.isStatic);
}
#endif

TEST(SourceLocation, ToldByTheCallerIsNotTakenForStatic) {
    constexpr auto farthest = std::numeric_limits<std::int64_t>::max();
    const SourceLocation place("function", "file", farthest);
    EXPECT_EQ(place.functionName, "function");
    EXPECT_EQ(place.fileName, "file");
    EXPECT_EQ(place.lineNumber, farthest);
    EXPECT_FALSE(place.isStatic);
}

TEST(SourceLocation, IsEmptyByDefault) {
    const SourceLocation place;
    EXPECT_EQ(place.functionName, "");
    EXPECT_EQ(place.fileName, "");
    EXPECT_EQ(place.lineNumber, 0);
}

TEST(SourceText, CopiesWhatItIsGiven) {
    std::string text = "a text that is too long for the short form";
    const SourceText copied{std::string_view(text)};
    text.assign(text.size(), 'x');
    EXPECT_EQ(copied, "a text that is too long for the short form");
}

TEST(SourceText, RefersToAStaticText) {
    static constexpr std::string_view text = "static";
    const SourceText referring = SourceText::referringTo(text);
    EXPECT_EQ(referring.view().data(), text.data());
    EXPECT_EQ(referring.string(), "static");
}

TEST(SourceText, TakesOverStaticAndOtherTextsInTurn) {
    static constexpr std::string_view literal = "static";
    std::string passing = "passing";
    SourceText text;
    text.assign(passing, false);
    passing = "changed";
    EXPECT_EQ(text, "passing");
    text.assign(literal, true);
    EXPECT_EQ(text, "static");
    EXPECT_EQ(text.view().data(), literal.data());
    text.assign("", false);
    EXPECT_EQ(text, "");
    text.assign("", true);
    EXPECT_EQ(text, "");
}

TEST(SourceText, ComparesByText) {
    EXPECT_EQ(SourceText("same"), SourceText::referringTo("same"));
    EXPECT_NE(SourceText("one"), SourceText("other"));
    EXPECT_EQ(SourceText(), "");
    EXPECT_EQ(SourceText(std::string("text")), std::string_view("text"));
}

TEST(SourceText, IsWrittenToAStream) {
    std::ostringstream stream;
    stream << SourceText("text") << SourceText::referringTo("+more");
    EXPECT_EQ(stream.str(), "text+more");
}

}  // namespace
}  // namespace velora::test
