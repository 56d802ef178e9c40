#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/Text.h>

namespace velora::test {
namespace {

using std::string_view_literals::operator""sv;  // NOLINT(misc-unused-using-decls): it is used

TEST(LastPathComponent, IsTheTextAfterTheLastSlash) {
    EXPECT_EQ(lastPathComponent("/x/y"), "y");
    EXPECT_EQ(lastPathComponent("x/y.cpp"), "y.cpp");
    EXPECT_EQ(lastPathComponent("/y"), "y");
    EXPECT_EQ(lastPathComponent("y"), "y");
    EXPECT_EQ(lastPathComponent("/a//b"), "b");
    EXPECT_EQ(lastPathComponent("/x/.."), "..");
    EXPECT_EQ(lastPathComponent("/ä/ö ü"), "ö ü");
}

TEST(LastPathComponent, IgnoresSlashesAtTheEnd) {
    EXPECT_EQ(lastPathComponent("/x/y/"), "y");
    EXPECT_EQ(lastPathComponent("/x/y///"), "y");
    EXPECT_EQ(lastPathComponent("y/"), "y");
}

TEST(LastPathComponent, OfSlashesAloneIsOneSlash) {
    EXPECT_EQ(lastPathComponent("/"), "/");
    EXPECT_EQ(lastPathComponent("///"), "/");
}

TEST(LastPathComponent, OfNothingIsNothing) {
    EXPECT_EQ(lastPathComponent(""), "");
    EXPECT_EQ(lastPathComponent({}), "");
}

TEST(LastPathComponent, GoesPastNulBytes) {
    EXPECT_EQ(lastPathComponent("a\0/b\0c"sv), "b\0c"sv);
}

TEST(LastPathComponent, PointsIntoItsArgument) {
    const std::string path = "/x/y/";
    EXPECT_EQ(lastPathComponent(path).data(), path.data() + 3);
}

TEST(TextAfterLastSlash, IsWhatFollowsTheLastSlash) {
    EXPECT_EQ(textAfterLastSlash("/x/y"), "y");
    EXPECT_EQ(textAfterLastSlash("y"), "y");
    EXPECT_EQ(textAfterLastSlash("/x/y/"), "");
    EXPECT_EQ(textAfterLastSlash("/"), "");
    EXPECT_EQ(textAfterLastSlash(""), "");
    EXPECT_EQ(textAfterLastSlash({}), "");
}

TEST(PathExtension, IsTheTextAfterTheLastDotOfTheName) {
    EXPECT_EQ(pathExtension("a.log"), "log");
    EXPECT_EQ(pathExtension("/x/a.b.log"), "log");
    EXPECT_EQ(pathExtension("/x/a.log/"), "log");
    EXPECT_EQ(pathExtension("..log"), "log");
    EXPECT_EQ(pathExtension("a.b c"), "b c");
}

TEST(PathExtension, IsEmptyWithoutADot) {
    EXPECT_EQ(pathExtension("log"), "");
    EXPECT_EQ(pathExtension("/x.y/log"), "");
    EXPECT_EQ(pathExtension(""), "");
    EXPECT_EQ(pathExtension("/"), "");
}

TEST(PathExtension, IsEmptyWhenTheDotLeadsOrEndsTheName) {
    EXPECT_EQ(pathExtension(".log"), "");
    EXPECT_EQ(pathExtension("/x/.log"), "");
    EXPECT_EQ(pathExtension("a."), "");
    EXPECT_EQ(pathExtension("."), "");
    EXPECT_EQ(pathExtension(".."), "");
}

TEST(PathExtension, PointsIntoItsArgument) {
    const std::string path = "/x/y.log";
    EXPECT_EQ(pathExtension(path).data(), path.data() + 5);
}

TEST(UserPerceivedCharacterCount, OfASCIIIsItsBytes) {
    EXPECT_EQ(userPerceivedCharacterCount(""), 0U);
    EXPECT_EQ(userPerceivedCharacterCount({}), 0U);
    EXPECT_EQ(userPerceivedCharacterCount("a"), 1U);
    EXPECT_EQ(userPerceivedCharacterCount("a\0b\n\t"sv), 5U);
    EXPECT_EQ(userPerceivedCharacterCount(std::string(1000, 'x')), 1000U);
}

TEST(UserPerceivedCharacterCount, CountsALineEndOfTwoBytesOnce) {
    EXPECT_EQ(userPerceivedCharacterCount("\r\n"), 1U);
    EXPECT_EQ(userPerceivedCharacterCount("a\r\nb\r\n"), 4U);
    EXPECT_EQ(userPerceivedCharacterCount("\r\r\n\n"), 3U);
    EXPECT_EQ(userPerceivedCharacterCount("\n\r"), 2U);
    EXPECT_EQ(userPerceivedCharacterCount("ü\r\n"), 2U);
}

TEST(UserPerceivedCharacterCount, CountsWhatAReaderSees) {
    EXPECT_EQ(userPerceivedCharacterCount("é"), 1U);
    EXPECT_EQ(userPerceivedCharacterCount("e\u0301"), 1U);
    EXPECT_EQ(userPerceivedCharacterCount("Köln"), 4U);
    EXPECT_EQ(userPerceivedCharacterCount("日本語"), 3U);
    EXPECT_EQ(userPerceivedCharacterCount("\U0001F1E9\U0001F1EA\U0001F1EB\U0001F1F7"), 2U) << "two flags";
    EXPECT_EQ(userPerceivedCharacterCount("\U0001F468\u200D\U0001F469\u200D\U0001F467"), 1U) << "a family";
    EXPECT_EQ(userPerceivedCharacterCount("\U0001F44D\U0001F3FD"), 1U) << "a thumb with a skin tone";
    EXPECT_EQ(userPerceivedCharacterCount("\u1112\u1161\u11AB"), 1U) << "a Hangul syllable in three parts";
}

TEST(UserPerceivedCharacterCount, SeesABeyondASCIICharacterAtEveryPosition) {
    for (std::size_t size = 0; size < 40; ++size) {
        for (std::size_t at = 0; at <= size; ++at) {
            std::string text(size, 'x');
            text.insert(at, "e\u0301");
            EXPECT_EQ(userPerceivedCharacterCount(text), size + 1) << text;
        }
    }
}

TEST(UserPerceivedCharacterCount, CountsIllFormedSequencesAsReplacementCharacters) {
    EXPECT_EQ(userPerceivedCharacterCount("a\xFF"), 2U);
    EXPECT_EQ(userPerceivedCharacterCount("\xFF\xFE"), 2U);
    EXPECT_EQ(userPerceivedCharacterCount("\xE2\x82"), 1U) << "cut off inside one character";
    EXPECT_EQ(userPerceivedCharacterCount("\xFF\u0301"), 1U) << "a replacement character with an accent";
}

TEST(UserPerceivedCharacterCount, CountsOnManyThreadsAtOnce) {
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < 8; ++i) {
        threads.emplace_back([i] {
            std::string text(i, 'x');
            for (std::size_t round = 0; round < 100; ++round) {
                text += "e\u0301";
                EXPECT_EQ(userPerceivedCharacterCount(text), i + round + 1);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

struct CountsWhenDestroyed {
    CountsWhenDestroyed() = default;
    CountsWhenDestroyed(const CountsWhenDestroyed&) = delete;
    CountsWhenDestroyed& operator=(const CountsWhenDestroyed&) = delete;
    ~CountsWhenDestroyed() { std::fprintf(stderr, "count %zu\n", userPerceivedCharacterCount("Ko\u0308ln")); }
};

TEST(UserPerceivedCharacterCountDeathTest, WorksAfterTheThreadsOwnObjectsAreGone) {
    EXPECT_EXIT(
        {
            static const CountsWhenDestroyed late;
            std::fprintf(stderr, "first %zu ", userPerceivedCharacterCount("ä"));
            std::exit(0);
        },
        testing::ExitedWithCode(0), "^first 1 count 4\n$");
}

TEST(CanonicallyEqual, ComparesEqualBytes) {
    EXPECT_TRUE(canonicallyEqual("", ""));
    EXPECT_TRUE(canonicallyEqual("a\0b"sv, "a\0b"sv));
    EXPECT_FALSE(canonicallyEqual("a\0b"sv, "a\0c"sv));
    EXPECT_FALSE(canonicallyEqual("a", "A"));
    EXPECT_FALSE(canonicallyEqual("a", ""));
}

TEST(CanonicallyEqual, TakesComposedAndDecomposedTextAsEqual) {
    EXPECT_TRUE(canonicallyEqual("caf\u00E9", "cafe\u0301"));
    EXPECT_TRUE(canonicallyEqual("cafe\u0301", "caf\u00E9"));
    EXPECT_TRUE(canonicallyEqual("\uD55C", "\u1112\u1161\u11AB"));
    EXPECT_FALSE(canonicallyEqual("caf\u00E9", "cafe"));
    EXPECT_FALSE(canonicallyEqual("e\u0301", "e\u0300"));
}

TEST(CanonicallyEqual, IgnoresTheOrderOfMarksThatDoNotInteract) {
    EXPECT_TRUE(canonicallyEqual("q\u0307\u0323", "q\u0323\u0307"));
    EXPECT_FALSE(canonicallyEqual("q\u0307\u0301", "q\u0301\u0307"));
}

TEST(CanonicallyEqual, TakesSingletonsAsTheASCIITheyStandFor) {
    EXPECT_TRUE(canonicallyEqual("\u212A", "K")) << "the Kelvin sign";
    EXPECT_TRUE(canonicallyEqual(";", "\u037E")) << "the Greek question mark";
}

TEST(CanonicallyEqual, KeepsCompatibilityFormsApart) {
    EXPECT_FALSE(canonicallyEqual("\uFB01", "fi"));
    EXPECT_FALSE(canonicallyEqual("\u00B2", "2"));
}

TEST(CanonicallyEqual, ComparesBytesOfTextThatIsNotUTF8) {
    EXPECT_TRUE(canonicallyEqual("\xFF", "\xFF"));
    EXPECT_FALSE(canonicallyEqual("\xFF", "\xFE"));
    EXPECT_FALSE(canonicallyEqual("\xFF", "\uFFFD"));
    EXPECT_FALSE(canonicallyEqual("\u00E9\xFF", "e\u0301\xFF"));
    EXPECT_FALSE(canonicallyEqual("\xFF", "a"));
}

TEST(IsValidUTF8, AcceptsWellFormedText) {
    EXPECT_TRUE(isValidUTF8(""));
    EXPECT_TRUE(isValidUTF8({}));
    EXPECT_TRUE(isValidUTF8("plain\0text"sv));
    EXPECT_TRUE(isValidUTF8("\x7F\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000\U0010FFFF"));
    EXPECT_TRUE(isValidUTF8("Grüße aus 東京 \U0001F44D and on in ASCII for a while"));
}

/// A test below compares every sequence of up to three bytes; these are the four-byte ones, and those that are cut off.
TEST(IsValidUTF8, RejectsStrayCutOffAndOverlongSequencesAndWhatLiesBeyondUnicode) {
    for (const std::string_view text :
         {"\x80"sv, "\xC3"sv, "\xE2\x82"sv, "\xE2"sv, "\xF0\x9F\x91"sv, "\xF0\x9F"sv, "\xF0"sv, "\xF0\x28\x8C\xBC"sv,
          "\xF0\x90\x28\xBC"sv, "\xF0\x90\x8C\x28"sv, "\xF0\x80\x80\x80"sv, "\xF0\x8F\xBF\xBF"sv, "\xF4\x90\x80\x80"sv,
          "\xF5\x80\x80\x80"sv, "\xF8\x88\x80\x80\x80"sv}) {
        EXPECT_FALSE(isValidUTF8(text)) << testing::PrintToString(text);
    }
}

TEST(IsValidUTF8, FindsABadByteAtEveryPosition) {
    for (std::size_t size = 1; size < 70; ++size) {
        for (std::size_t at = 0; at < size; ++at) {
            std::string text(size, 'x');
            EXPECT_TRUE(isValidUTF8(text));
            text[at] = '\xFF';
            EXPECT_FALSE(isValidUTF8(text)) << "byte " << at << " of " << size;
        }
    }
}

TEST(IsValidUTF8, AcceptsACharacterAtEveryPosition) {
    for (const std::string_view character : {"\u00E9"sv, "\u20AC"sv, "\U0001F44D"sv}) {
        for (std::size_t at = 0; at < 40; ++at) {
            const std::string text = std::string(at, 'x').append(character).append(40 - at, 'y');
            EXPECT_TRUE(isValidUTF8(text)) << text;
            EXPECT_FALSE(isValidUTF8(std::string_view(text).substr(0, at + character.size() - 1)));
        }
    }
}

/// What RFC 3629 says, decoded the plain way.
bool decodes(std::string_view text) {
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i++]);
        const int more = lead < 0x80 ? 0 : (lead & 0xE0) == 0xC0 ? 1 : (lead & 0xF0) == 0xE0 ? 2 : 3;
        if ((lead & 0xC0) == 0x80 || lead > 0xF7) {
            return false;
        }
        unsigned long codePoint = more == 0 ? lead : lead & (0x3FU >> static_cast<unsigned>(more));
        for (int j = 0; j < more; ++j, ++i) {
            if (i >= text.size() || (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) {
                return false;
            }
            codePoint = codePoint << 6U | (static_cast<unsigned char>(text[i]) & 0x3FU);
        }
        constexpr unsigned long least[] = {0, 0x80, 0x800, 0x10000};
        if (codePoint < least[more] || codePoint > 0x10FFFF || (codePoint >= 0xD800 && codePoint <= 0xDFFF)) {
            return false;
        }
    }
    return true;
}

TEST(IsValidUTF8, AgreesWithAPlainDecoderOnEverySequenceOfThreeBytesAroundTheBounds) {
    for (const char lead : "\x41\x7F\x80\xBF\xC1\xC2\xDF\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF4\xF5\xFF"sv) {
        for (unsigned rest = 0; rest < 1U << 16U; ++rest) {
            const char bytes[] = {lead, static_cast<char>(rest >> 8U), static_cast<char>(rest)};
            const std::string_view text(bytes, sizeof bytes);
            if (isValidUTF8(text) != decodes(text)) {
                FAIL() << testing::PrintToString(text);
            }
        }
    }
}

TEST(IsValidUTF8, AgreesWithAPlainDecoderOnRandomMixtures) {
    std::mt19937 random(7);
    const std::vector<std::string_view> pieces{
        "a", "bcdefghijk", "\xC3\xA9", "\xE2\x82\xAC", "\xED\x9F\xBF", "\xF4\x8F\xBF\xBF", "\xF0\x9F\x91\x8D"};
    int valid = 0;
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        while (random() % 8 != 0) {
            text += pieces[random() % pieces.size()];
        }
        if (!text.empty() && random() % 2 == 0) {
            text[random() % text.size()] = static_cast<char>(random());
        }
        valid += decodes(text) ? 1 : 0;
        ASSERT_EQ(isValidUTF8(text), decodes(text)) << testing::PrintToString(text);
    }
    EXPECT_GT(valid, 5000);
    EXPECT_LT(valid, 19000);
}

}  // namespace
}  // namespace velora::test
