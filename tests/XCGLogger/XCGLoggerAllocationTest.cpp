// How often a log call asks for memory. The program counts its own requests.

#include <cstdlib>
#include <gtest/gtest.h>
#include <memory>
#include <new>
#include <string>
#include <support/RecordingDestination.h>

#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace {

thread_local std::size_t allocations = 0;
constexpr std::size_t hugeSize = 1'000'000;
thread_local std::size_t hugeAllocations = 0;

void* counted(std::size_t size) {
    ++allocations;
    hugeAllocations += size >= hugeSize ? 1 : 0;
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

template <typename Work>
std::size_t allocationsOf(Work work) {
    const std::size_t before = allocations;
    work();
    return allocations - before;
}

class DiscardingDestination : public BaseDestination {
public:
    using BaseDestination::BaseDestination;
    void output(LogDetails& /*logDetails*/, std::string& message) override { bytes += message.size(); }
    std::size_t bytes = 0;
};

class LogCallAllocations : public testing::Test {
protected:
    LogCallAllocations() { log_->add(destination_); }
    ~LogCallAllocations() override { removeDestinations(*log_); }

    void addAnother() const { log_->add(make<DiscardingDestination>(nullptr, "another")); }

    std::shared_ptr<XCGLogger> log_ = make<XCGLogger>("name", false);
    std::shared_ptr<DiscardingDestination> destination_ = make<DiscardingDestination>(nullptr, "discarding");
};

TEST_F(LogCallAllocations, AreCounted) {
    EXPECT_EQ(allocationsOf([] { const auto number = std::make_unique<int>(7); }), 1U);
}

TEST_F(LogCallAllocations, AreNoneWhenNothingAcceptsTheCall) {
    destination_->setOutputLevel(Level::error);
    addAnother();
    log_->destination("another")->setOutputLevel(Level::none);
    const std::string text(100, 'x');
    EXPECT_EQ(allocationsOf([&] {
                  log_->info("a text that is too long to be held without memory of its own");
                  log_->info("text {} and number {}", text, 42);
                  log_->info(Tag("a tag with a long name, longer than most"), "text {}", text);
                  log_->info(Tag("net") | Dev("ann"), [&] { return text + text; });
                  log_->info([&] { return text + text; });
                  log_->info();
                  log_->logln("text", Level::info);
              }),
              0U);
}

TEST_F(LogCallAllocations, AreNoneForAPlainLineOnceTheThreadHasItsBuffers) {
    addAnother();
    const std::string text(200, 'x');
    const auto logLines = [&] {
        log_->info("a text that is too long to be held without memory of its own");
        log_->info(text);
        log_->info("text {} and number {}", text, 42);
        log_->info([&] { return std::string_view(text); });
    };
    logLines();
    // A new second has its date text made anew, once.
    EXPECT_LE(allocationsOf([&] { logLines(); }), 1U);
    EXPECT_GT(destination_->bytes, 8 * text.size() / 2);
}

TEST_F(LogCallAllocations, DoNotKeepTheMemoryOfAnUnusuallyLongText) {
    addAnother();
    const std::string huge(hugeSize, 'x');
    log_->info(huge);
    const std::size_t before = hugeAllocations;
    log_->info(huge);
    EXPECT_EQ(hugeAllocations - before, 4U) << "the record, its copy and two lines, all given back the first time";
}

}  // namespace
}  // namespace velora::test
