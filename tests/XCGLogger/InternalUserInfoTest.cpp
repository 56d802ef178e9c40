#include <any>
#include <gtest/gtest.h>
#include <string>

#include <Velora_UserDefaults/XCGLogger/Constants.h>
#include <Velora_UserDefaults/XCGLogger/InternalUserInfo.h>

namespace velora::test {
namespace {

TEST(InternalUserInfo, IsOneEntryThatSaysTrue) {
    const UserInfo& info = internalUserInfo();
    ASSERT_EQ(info.size(), 1U);
    EXPECT_EQ(info.begin()->first, "tamberlo.xcglogger.internal");
    ASSERT_NE(std::any_cast<bool>(&info.begin()->second), nullptr);
    EXPECT_TRUE(std::any_cast<bool>(info.begin()->second));
    EXPECT_EQ(&info, &internalUserInfo()) << "it is built once";
}

TEST(InternalUserInfo, IsRecognisedByTheBooleanTrueAlone) {
    const std::string key(Constants::userInfoKeyInternal);
    EXPECT_TRUE(isInternal(internalUserInfo()));
    EXPECT_TRUE(isInternal(UserInfo{{"more", 1}, {key, true}}));
    EXPECT_FALSE(isInternal(UserInfo()));
    EXPECT_FALSE(isInternal(UserInfo{{key, false}}));
    EXPECT_FALSE(isInternal(UserInfo{{key, 1}}));
    EXPECT_FALSE(isInternal(UserInfo{{key, std::string("true")}}));
    EXPECT_FALSE(isInternal(UserInfo{{"internal", true}}));
}

}  // namespace
}  // namespace velora::test
