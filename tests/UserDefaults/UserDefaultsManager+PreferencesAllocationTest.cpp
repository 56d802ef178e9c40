// What a change of a preference builds and what a read costs. The program counts the requests for memory.

#include <algorithm>
#include <cstddef>
#include <gtest/gtest.h>
#include <string>
#include <support/CountingAllocations.h>
#include <support/RecordingDestination.h>

#include <Velora_UserDefaults/UserDefaults/UserDefaultsManager.h>

#include "PreferencesTestSupport.h"

namespace velora::test {
namespace {

class PreferenceLineText : public PreferencesTest {
protected:
    /// How many huge pieces of memory it takes to store a long text which is stored already.
    std::size_t hugeAllocationsOfAChange() {
        const std::string text(2 * hugeSize, 'x');
        preferences.setComputerDisplayName(text);
        return allocationsOf([&] { preferences.setComputerDisplayName(text); }).huge;
    }
};

TEST_F(PreferenceLineText, IsNotBuiltUnlessADestinationAcceptsIt) {
    const std::size_t withoutLogger = hugeAllocationsOfAChange();
    const RecordedLogger recorded;
    logger = recorded.log;
    EXPECT_GT(hugeAllocationsOfAChange(), withoutLogger) << "an accepted line is built";
    recorded.recording->setOutputLevel(Level::notice);
    EXPECT_EQ(hugeAllocationsOfAChange(), withoutLogger);
}

TEST_F(PreferencesTest, AreReadWithoutAskingForMemory) {
    preferences.setPinCodeLength(8);
    preferences.setManualPortProxy("8080");
    std::size_t fewest = std::size_t{1} << 20U;
    // The file was written just now: once in a while a read looks at it.
    for (int round = 0; round < 1000 && fewest > 0; ++round) {
        const AllocationCounts counts = allocationsOf([this] {
            preferences.pinCodeLength();
            preferences.enableDisconnectWarnings();
            preferences.incomingConnectionIsAllow();
            preferences.loggingLevel();
            preferences.defaultAccessLevel();
            preferences.manualPortProxy();
        });
        fewest = std::min(fewest, counts.all);
    }
    EXPECT_EQ(fewest, 0U) << "a default that is registered already is not registered again";
}

}  // namespace
}  // namespace velora::test
