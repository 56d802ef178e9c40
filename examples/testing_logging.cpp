// How a program tests what it logs. In a GoogleTest the two checks at the end are EXPECT_EQs.

#include <cstdlib>
#include <memory>

#include <Velora_UserDefaults/XCGLogger/Destinations/TestDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace {

/// What is being tested: it must warn about every retry and say once that it gave up.
void connectWithRetries(velora::XCGLogger& log, int retries) {
    for (int retry = 1; retry <= retries; ++retry) {
        log.warning("retry {}", retry);
    }
    log.error("gave up");
}

}  // namespace

int main() {
    const auto log = velora::make<velora::XCGLogger>("tested", /*includeDefaultDestinations=*/false);
    const auto lines = velora::make<velora::TestDestination>(nullptr, "lines");
    log->add(lines);
    // What a line number or the time is, is not what this is about.
    lines->setShowDate(false);
    lines->setShowFileName(false);
    lines->setShowLineNumber(false);

    lines->addExpectedLogMessage("[Warning] connectWithRetries > retry 1");
    lines->addExpectedLogMessage("[Warning] connectWithRetries > retry 2");
    lines->addExpectedLogMessage("[Error] connectWithRetries > gave up");
    connectWithRetries(*log, 2);

    const bool isAsExpected =
        lines->remainingNumberOfExpectedLogMessages() == 0 && lines->numberOfUnexpectedLogMessages() == 0;
    log->remove(lines);
    return isAsExpected ? EXIT_SUCCESS : EXIT_FAILURE;
}
