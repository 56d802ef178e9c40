// What a rotating file does when the system's clock jumps.

#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <reliability/FaultyCalls.h>
#include <string>
#include <support/CountingFormatter.h>
#include <support/TemporaryFolder.h>
#include <vector>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {
namespace {

constexpr std::int64_t hour = 3'600;

class AutoRotatingFileDestinationClock : public testing::Test {
public:
    AutoRotatingFileDestinationClock(const AutoRotatingFileDestinationClock&) = delete;
    AutoRotatingFileDestinationClock& operator=(const AutoRotatingFileDestinationClock&) = delete;

protected:
    AutoRotatingFileDestinationClock() { log->add(file); }
    ~AutoRotatingFileDestinationClock() override {
        log->remove(file);
        FaultyCalls::setPassedTime(0);
    }

    std::size_t archiveCount() const { return file->archivedFileURLs().size(); }
    std::string everything() const {
        std::string text = readFile(folder / "app.log");
        for (const URL& archive : file->archivedFileURLs()) {
            text += readFile(archive.path());
        }
        return text;
    }

    TemporaryFolder folder;
    std::shared_ptr<XCGLogger> log = make<XCGLogger>("log", false);
    std::shared_ptr<AutoRotatingFileDestination> file = make<AutoRotatingFileDestination>(
        nullptr, folder / "app.log", "rotating",
        AutoRotatingFileDestination::Options{.maxFileSize = 0,
                                             .maxTimeInterval = 600,
                                             .archiveSuffixDateFormatter = std::make_shared<CountingFormatter>(),
                                             .targetMaxLogFiles = 255});
};

TEST_F(AutoRotatingFileDestinationClock, UsesTheClockOfThisProgram) {
    const Date before = currentDate();
    FaultyCalls::setPassedTime(hour);
    EXPECT_GE(currentDate() - before, std::chrono::seconds(hour));
}

TEST_F(AutoRotatingFileDestinationClock, RotatesOnceForAJumpForward) {
    log->info("before");
    ASSERT_EQ(archiveCount(), 0U);
    FaultyCalls::setPassedTime(5 * hour);
    for (int line = 0; line < 20; ++line) {
        log->info("line {}", line);
    }
    EXPECT_EQ(archiveCount(), 1U);
}

TEST_F(AutoRotatingFileDestinationClock, DoesNotRotateForAJumpBack) {
    FaultyCalls::setPassedTime(-5 * hour);
    for (int line = 0; line < 20; ++line) {
        log->info("line {}", line);
    }
    EXPECT_EQ(archiveCount(), 0U);
}

TEST_F(AutoRotatingFileDestinationClock, RotatesAtMostOnceAJumpAndLosesNoLine) {
    constexpr int jumps = 40;
    for (int jump = 0; jump < jumps; ++jump) {
        FaultyCalls::setPassedTime((jump % 2 == 0 ? 7 : -9) * hour);
        log->info("line {} end", jump);
    }
    EXPECT_LE(archiveCount(), static_cast<std::size_t>(jumps));
    const std::string text = everything();
    for (int jump = 0; jump < jumps; ++jump) {
        EXPECT_NE(text.find("> line " + std::to_string(jump) + " end\n"), std::string::npos) << jump;
    }
}

TEST_F(AutoRotatingFileDestinationClock, TriesAFailedRotationAgainOnlyAfterAnotherPeriod) {
    int failures = 0;
    file->setAutoRotationCompletion([&](bool success) { failures += success ? 0 : 1; });
    file->setArchiveFolderURL(URL::fileURL("/dev/null/nowhere", true));
    for (int period = 1; period <= 3; ++period) {
        FaultyCalls::setPassedTime(period * hour);
        for (int line = 0; line < 5; ++line) {
            log->info("line {}", line);
        }
        EXPECT_EQ(failures, period);
    }
}

TEST_F(AutoRotatingFileDestinationClock, CountsTheAgeOfAnExistingFileFromItsCreation) {
    writeFile(folder / "old.log", "old line\n");
    // Real time passes in the test, but no 200 seconds.
    const auto makeOne = [&] {
        return make<AutoRotatingFileDestination>(nullptr, folder / "old.log", "old",
                                                 AutoRotatingFileDestination::Options{.maxTimeInterval = 600});
    };
    FaultyCalls::setPassedTime(400);
    const auto young = makeOne();
    EXPECT_EQ(readFile(folder / "old.log"), "old line\n") << "not old enough to be archived while it is made";
    FaultyCalls::setPassedTime(700);
    EXPECT_TRUE(young->shouldRotate());
    EXPECT_EQ(makeOne()->archivedFileURLs().size(), 1U) << "archived while it is made";
    EXPECT_NE(readFile(folder / "old.log"), "old line\n");
}

}  // namespace
}  // namespace velora::test
