// What a change of a preference builds. The program counts the large requests for memory.

#include <cstddef>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <support/RecordingDestination.h>

#include <Velora_UserDefaults/UserDefaults/UserDefaultsManager.h>

#include "PreferencesTestSupport.h"

namespace {

constexpr std::size_t large = 100'000;

thread_local std::size_t largeAllocations = 0;

void* counted(std::size_t size) {
    largeAllocations += size >= large ? 1 : 0;
    void* const memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

}  // namespace

void* operator new(std::size_t size) {
    return counted(size);
}
void* operator new[](std::size_t size) {
    return counted(size);
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete[](void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    std::free(memory);
}

namespace velora::test {
namespace {

class PreferenceLineText : public PreferencesTest {
protected:
    /// How many large pieces of memory it takes to store a long text which is stored already.
    std::size_t largeAllocationsOfAChange() {
        const std::string text(2 * large, 'x');
        preferences.setComputerDisplayName(text);
        const std::size_t before = largeAllocations;
        preferences.setComputerDisplayName(text);
        return largeAllocations - before;
    }
};

TEST_F(PreferenceLineText, IsNotBuiltUnlessADestinationAcceptsIt) {
    const std::size_t withoutLogger = largeAllocationsOfAChange();
    const RecordedLogger recorded;
    logger = recorded.log;
    EXPECT_GT(largeAllocationsOfAChange(), withoutLogger) << "an accepted line is built";
    recorded.recording->setOutputLevel(Level::notice);
    EXPECT_EQ(largeAllocationsOfAChange(), withoutLogger);
}

}  // namespace
}  // namespace velora::test
