// How often a log call asks for memory. The program counts its own requests.

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <support/CountingAllocations.h>
#include <support/RecordingDestination.h>

#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {
namespace {

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
    EXPECT_EQ(allocationsOf([] { const auto number = std::make_unique<int>(7); }).all, 1U);
}

TEST_F(LogCallAllocations, AreNoneWhenNothingAcceptsTheCall) {
    destination_->setOutputLevel(Level::error);
    addAnother();
    log_->destination("another")->setOutputLevel(Level::none);
    const std::string text(100, 'x');
    EXPECT_EQ(allocationsOf([&] {
                  log_->info("a text that is too long to be held without memory from the heap");
                  log_->info("text {} and number {}", text, 42);
                  log_->info(Tag("a tag with a long name, longer than most"), "text {}", text);
                  log_->info(Tag("net") | Dev("ann"), [&] { return text + text; });
                  log_->info([&] { return text + text; });
                  log_->info();
                  log_->logln("text", Level::info);
              }).all,
              0U);
}

TEST_F(LogCallAllocations, AreNoneForAPlainLineOnceTheThreadHasItsBuffers) {
    addAnother();
    const std::string text(200, 'x');
    const auto logLines = [&] {
        log_->info("a text that is too long to be held without memory from the heap");
        log_->info(text);
        log_->info("text {} and number {}", text, 42);
        log_->info([&] { return std::string_view(text); });
    };
    logLines();
    // A new second has its date text made anew, once.
    EXPECT_LE(allocationsOf(logLines).all, 1U);
    EXPECT_GT(destination_->bytes, 8 * text.size() / 2);
}

TEST_F(LogCallAllocations, DoNotKeepTheMemoryOfAnUnusuallyLongText) {
    addAnother();
    const std::string huge(hugeSize, 'x');
    log_->info(huge);
    EXPECT_EQ(allocationsOf([&] { log_->info(huge); }).huge, 6U)
        << "the record, its copy, two lines and what they are composed in, all given back the first time";
}

}  // namespace
}  // namespace velora::test
