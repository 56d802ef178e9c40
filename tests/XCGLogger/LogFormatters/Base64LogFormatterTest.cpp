#include <gtest/gtest.h>
#include <string>
#include <utility>

#include <Velora_UserDefaults/XCGLogger/LogFormatters/Base64LogFormatter.h>

#include "XCGLogger/LogFormatters/FormatterTestSupport.h"

namespace velora::test {
namespace {

static_assert(!std::is_default_constructible_v<Base64LogFormatter>);

std::string formatted(std::string line) {
    return test::formatted(*make<Base64LogFormatter>(), Level::info, std::move(line));
}

TEST(Base64LogFormatter, EncodesTheTestVectorsOfItsStandard) {
    EXPECT_EQ(formatted(""), "");
    EXPECT_EQ(formatted("f"), "Zg==");
    EXPECT_EQ(formatted("fo"), "Zm8=");
    EXPECT_EQ(formatted("foo"), "Zm9v");
    EXPECT_EQ(formatted("foob"), "Zm9vYg==");
    EXPECT_EQ(formatted("fooba"), "Zm9vYmE=");
    EXPECT_EQ(formatted("foobar"), "Zm9vYmFy");
    EXPECT_EQ(formatted("hi"), "aGk=");
}

TEST(Base64LogFormatter, UsesTheStandardAlphabetToItsEnd) {
    EXPECT_EQ(formatted("~~~???"), "fn5+Pz8/");
    EXPECT_EQ(formatted("\x01\x02\x7f"), "AQJ/");
}

TEST(Base64LogFormatter, EncodesEveryByteOfUTF8) {
    EXPECT_EQ(formatted("\xf3\xbf\xbf\xbf"), "87+/vw==");
    EXPECT_EQ(formatted(std::string(4, '\0')), "AAAAAA==");
    EXPECT_EQ(formatted("a\r\nb"), "YQ0KYg==");
}

TEST(Base64LogFormatter, BreaksNoLines) {
    std::string expected;
    for (int group = 0; group < 1000; ++group) {
        expected += "YWFh";
    }
    EXPECT_EQ(formatted(std::string(3000, 'a')), expected);
}

TEST(Base64LogFormatter, LeavesAMessageThatIsNoUTF8AsItIs) {
    EXPECT_EQ(formatted("caf\xe9"), "caf\xe9");
}

TEST(Base64LogFormatter, DescribesItselfByTheNameOfItsClass) {
    expectDescribesItselfByItsClass<Base64LogFormatter>("Base64LogFormatter");
}

}  // namespace
}  // namespace velora::test
