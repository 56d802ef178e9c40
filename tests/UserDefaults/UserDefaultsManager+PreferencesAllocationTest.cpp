// What a change of a preference builds. The program counts the huge requests for memory.

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

}  // namespace
}  // namespace velora::test
