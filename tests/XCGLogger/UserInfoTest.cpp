#include <gtest/gtest.h>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/XCGLogger/UserInfo.h>

namespace velora::test {
namespace {

struct Converted {
    int* conversions;
    operator UserInfo() const {
        ++*conversions;
        return {{"converted", 1}};
    }
};

static_assert(UserInfoSource<UserInfo> && UserInfoSource<Converted>);
static_assert(!UserInfoSource<std::string> && !UserInfoSource<const char*> && !UserInfoSource<int>);

TEST(UserInfo, IsLookedUpByATextThatIsNotCopied) {
    const UserInfo info{{"key", 1}};
    const std::string_view key = "key";
    EXPECT_NE(info.find(key), info.end());
    EXPECT_EQ(info.find(std::string_view("Key")), info.end());
}

TEST(UserInfoReference, LeadsToTheVeryUserInfoThatItWasMadeOf) {
    const UserInfo info{{"key", 1}};
    UserInfo storage;
    EXPECT_EQ(&UserInfoReference(info).resolve(storage), &info);
    EXPECT_TRUE(storage.empty());
}

TEST(UserInfoReference, ConvertsOnlyWhenItIsResolved) {
    int conversions = 0;
    const Converted source{&conversions};
    const UserInfoReference reference(source);
    EXPECT_EQ(conversions, 0);
    UserInfo storage;
    const UserInfo& resolved = reference.resolve(storage);
    EXPECT_EQ(conversions, 1);
    EXPECT_EQ(&resolved, &storage);
    EXPECT_EQ(resolved.count("converted"), 1U);
}

TEST(UserInfoReference, OfNothingIsEmpty) {
    UserInfo storage;
    EXPECT_TRUE(UserInfoReference().resolve(storage).empty());
}

}  // namespace
}  // namespace velora::test
