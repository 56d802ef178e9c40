#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <type_traits>
#include <unordered_set>

#include <Velora_UserDefaults/UserDefaults/PreferenceTypes.h>

namespace velora::test {
namespace {

template <typename Type>
constexpr bool isSigned64 = std::is_same_v<std::underlying_type_t<Type>, std::int64_t>;

static_assert(isSigned64<LogginLevel> && isSigned64<DefaultMicrophoneSettings> && isSigned64<DefaultAccessLevel> &&
              isSigned64<DefaultConnectionMode> && isSigned64<ServerScreenControlMode> &&
              isSigned64<CommandShortcuts> && isSigned64<ScaleImageMode>);

/// Whether `type` has exactly the cases 0 to `last`.
template <typename Type>
void expectCases(std::int64_t last) {
    for (std::int64_t raw = 0; raw <= last; ++raw) {
        ASSERT_TRUE(fromRawValue<Type>(raw));
        EXPECT_EQ(rawValue(*fromRawValue<Type>(raw)), raw);
    }
    for (const std::int64_t raw :
         {last + 1, last + 5, std::int64_t{-1}, std::int64_t{1} << 32, std::numeric_limits<std::int64_t>::min(),
          std::numeric_limits<std::int64_t>::max()}) {
        EXPECT_EQ(fromRawValue<Type>(raw), std::nullopt) << raw;
    }
}

TEST(PreferenceTypes, HaveTheRawValuesThatTheStoreHolds) {
    EXPECT_EQ(rawValue(LogginLevel::noLoggin), 0);
    EXPECT_EQ(rawValue(LogginLevel::lowLevel), 1);
    EXPECT_EQ(rawValue(LogginLevel::highLevel), 2);
    EXPECT_EQ(rawValue(LogginLevel::allLevel), 3);
    EXPECT_EQ(rawValue(DefaultMicrophoneSettings::mute), 0);
    EXPECT_EQ(rawValue(DefaultMicrophoneSettings::unmute), 1);
    EXPECT_EQ(rawValue(DefaultAccessLevel::viewOnly), 0);
    EXPECT_EQ(rawValue(DefaultAccessLevel::fullControl), 1);
    EXPECT_EQ(rawValue(DefaultConnectionMode::controlRemoteComputer), 0);
    EXPECT_EQ(rawValue(DefaultConnectionMode::allowRemoteComputer), 1);
    EXPECT_EQ(rawValue(ServerScreenControlMode::notPinned), 0);
    EXPECT_EQ(rawValue(ServerScreenControlMode::alwaysOnTop), 1);
    EXPECT_EQ(rawValue(CommandShortcuts::onRemoteComputer), 0);
    EXPECT_EQ(rawValue(CommandShortcuts::onThisComputer), 1);
    EXPECT_EQ(rawValue(CommandShortcuts::onWhenUsingFullScreen), 2);
    EXPECT_EQ(rawValue(ScaleImageMode::windowed), 0);
    EXPECT_EQ(rawValue(ScaleImageMode::fullScreen), 1);
}

TEST(PreferenceTypes, AreMadeFromTheirRawValuesAndNoOthers) {
    expectCases<LogginLevel>(3);
    expectCases<DefaultMicrophoneSettings>(1);
    expectCases<DefaultAccessLevel>(1);
    expectCases<DefaultConnectionMode>(1);
    expectCases<ServerScreenControlMode>(1);
    expectCases<CommandShortcuts>(2);
    expectCases<ScaleImageMode>(1);
}

TEST(PreferenceTypes, AreEqualAndHashedByTheirCase) {
    EXPECT_EQ(fromRawValue<LogginLevel>(3), LogginLevel::allLevel);
    EXPECT_NE(DefaultAccessLevel::viewOnly, DefaultAccessLevel::fullControl);
    const std::unordered_set<CommandShortcuts> set = {
        CommandShortcuts::onThisComputer, CommandShortcuts::onThisComputer, CommandShortcuts::onRemoteComputer};
    EXPECT_EQ(set.size(), 2U);
    EXPECT_TRUE(set.contains(CommandShortcuts::onRemoteComputer));
    EXPECT_FALSE(set.contains(CommandShortcuts::onWhenUsingFullScreen));
}

}  // namespace
}  // namespace velora::test
