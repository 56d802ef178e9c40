#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <Velora_UserDefaults/Platform/Export.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/BaseQueuedDestination.h>

namespace velora {

/// Writes nothing, but compares each line with the lines that are expected: how a program tests that given
/// log calls produce given lines.
///
///     auto expected = velora::make<velora::TestDestination>(nullptr, "test");
///     log->add(expected);
///     expected->setShowDate(false);
///     expected->addExpectedLogMessage("[Info] [Session.cpp:42] open > opened");
///     session.open();
///     EXPECT_EQ(expected->remainingNumberOfExpectedLogMessages(), 0);
///     EXPECT_EQ(expected->numberOfUnexpectedLogMessages(), 0);
///
/// A line is compared as composed, with all columns that are switched on, and after the formatters. Texts
/// are equal if they are canonically equivalent Unicode. A line that a filter rejects counts neither way.
///
/// Any thread may log, add expectations and read them at any time. With a queue the comparison runs on it,
/// while the logging thread waits.
class VELORA_EXPORT TestDestination : public BaseQueuedDestination {
public:
    /// Made by `make<TestDestination>(nullptr, identifier)`, with nothing expected.
    TestDestination(Making key, std::shared_ptr<XCGLogger> owner, std::string identifier);
    ~TestDestination() override;

    /// The lines that are still expected, and those that came without being expected; in order.
    std::vector<std::string> expectedLogMessages() const;
    std::vector<std::string> unexpectedLogMessages() const;
    /// How many they are.
    std::int64_t remainingNumberOfExpectedLogMessages() const;
    std::int64_t numberOfUnexpectedLogMessages() const;

    /// Expects a line once more.
    virtual void addExpectedLogMessage(std::string message);

    /// Forgets all lines of both kinds, and that the start-up header was written.
    virtual void reset();

    /// Compares the line: takes the first equal expectation away, or counts the line as unexpected.
    void output(LogDetails& logDetails, std::string& message) override;

private:
    struct Lists;

    void sync(const std::function<void()>& closure);

    std::unique_ptr<Lists> lists_;
};

}  // namespace velora
