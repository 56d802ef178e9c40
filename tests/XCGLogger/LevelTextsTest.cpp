#include <gtest/gtest.h>

#include <Velora_UserDefaults/XCGLogger/LevelTexts.h>

namespace velora::test {
namespace {

TEST(LevelTexts, StartEmpty) {
    const LevelTexts texts;
    EXPECT_TRUE(texts.empty());
    for (const Level level : Levels::allCases) {
        EXPECT_EQ(texts.find(level), nullptr);
    }
}

TEST(LevelTexts, FindTheTextOfALevelAndOfNoOther) {
    const LevelTexts texts{{Level::error, "FEHLER"}, {Level::none, "nichts"}};
    ASSERT_NE(texts.find(Level::error), nullptr);
    EXPECT_EQ(*texts.find(Level::error), "FEHLER");
    ASSERT_NE(texts.find(Level::none), nullptr);
    EXPECT_EQ(*texts.find(Level::none), "nichts");
    EXPECT_EQ(texts.find(Level::severe), nullptr);
    EXPECT_FALSE(texts.empty());
}

TEST(LevelTexts, TellAnEmptyTextFromNone) {
    LevelTexts texts;
    texts.set(Level::info, "");
    ASSERT_NE(texts.find(Level::info), nullptr);
    EXPECT_EQ(*texts.find(Level::info), "");
    EXPECT_FALSE(texts.empty());
    EXPECT_NE(texts, LevelTexts());
}

TEST(LevelTexts, KeepTheLastOfTwoTextsForALevel) {
    LevelTexts texts{{Level::info, "first"}, {Level::info, "second"}};
    EXPECT_EQ(*texts.find(Level::info), "second");
    texts.set(Level::info, "third");
    EXPECT_EQ(*texts.find(Level::info), "third");
}

TEST(LevelTexts, AreChangedInPlace) {
    LevelTexts texts{{Level::info, "info"}};
    texts[Level::info] += "rmation";
    texts[Level::alert] += "new";
    EXPECT_EQ(texts, (LevelTexts{{Level::info, "information"}, {Level::alert, "new"}}));
}

TEST(LevelTexts, ForgetOneEntryOrAll) {
    LevelTexts texts{{Level::info, "a"}, {Level::alert, "b"}};
    texts.remove(Level::info);
    texts.remove(Level::debug);
    EXPECT_EQ(texts, (LevelTexts{{Level::alert, "b"}}));
    texts.clear();
    EXPECT_TRUE(texts.empty());
    EXPECT_EQ(texts, LevelTexts());
}

}  // namespace
}  // namespace velora::test
