#include <any>
#include <gtest/gtest.h>
#include <string>
#include <support/CountingAllocations.h>

#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>

namespace velora::test {
namespace {

TEST(UserInfoTaggingAllocation, AllocatesNothingUntilUserInfoIsNeeded) {
    UserInfo storage;
    const std::size_t before = allocationCounts.all;
    const auto expression =
        Tag("a literal that is too long to fit into a text") | Dev("ann") | Tag("another one, longer still");
    const UserInfoReference reference(expression);
    EXPECT_EQ(allocationCounts.all, before);
    const UserInfo& userInfo = reference.resolve(storage);
    EXPECT_GT(allocationCounts.all, before);
    EXPECT_EQ(std::any_cast<std::string>(userInfo.at(std::string(Constants::userInfoKeyDevs))), "ann");
}

}  // namespace
}  // namespace velora::test
