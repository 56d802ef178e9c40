#include <algorithm>
#include <any>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <support/CountingFormatter.h>
#include <support/ForkedChild.h>
#include <support/TemporaryFolder.h>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "AutoRotatingFileDestinationTestSupport.h"
#include "DestinationTestSupport.h"

namespace velora::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

TEST_F(AutoRotatingFileDestinationTest, StoresTheLargestNumberForASizeOfZero) {
    const auto file = add("app.log", {.maxFileSize = 0});
    EXPECT_EQ(file->targetMaxFileSize(), std::numeric_limits<std::uint64_t>::max());
    file->setTargetMaxFileSize(7);
    EXPECT_EQ(file->targetMaxFileSize(), 7U);
    file->setTargetMaxFileSize(0);
    EXPECT_EQ(file->targetMaxFileSize(), std::numeric_limits<std::uint64_t>::max());
}

TEST_F(AutoRotatingFileDestinationTest, StoresZeroForAnIntervalBelowASecond) {
    const auto file = add("app.log", {.maxTimeInterval = 0.5});
    EXPECT_EQ(file->targetMaxTimeInterval(), 0);
    file->setTargetMaxTimeInterval(1);
    EXPECT_EQ(file->targetMaxTimeInterval(), 1);
    file->setTargetMaxTimeInterval(-3);
    EXPECT_EQ(file->targetMaxTimeInterval(), 0);
    file->setTargetMaxTimeInterval(std::numeric_limits<double>::quiet_NaN());
    EXPECT_EQ(file->targetMaxTimeInterval(), 0);
}

TEST_F(AutoRotatingFileDestinationTest, HasTheStandardLimitsUnlessTold) {
    const auto file = add("app.log", {});
    EXPECT_EQ(file->targetMaxFileSize(), 1'048'576U);
    EXPECT_EQ(file->targetMaxTimeInterval(), 600);
    EXPECT_EQ(file->targetMaxLogFiles(), 10);
    AutoRotatingFileDestination::setAutoRotatingFileDefaultMaxFileSize(5);
    AutoRotatingFileDestination::setAutoRotatingFileDefaultMaxTimeInterval(7);
    EXPECT_EQ(Options().maxFileSize, 5U);
    EXPECT_EQ(Options().maxTimeInterval, 7);
    AutoRotatingFileDestination::setAutoRotatingFileDefaultMaxFileSize(1'048'576);
    AutoRotatingFileDestination::setAutoRotatingFileDefaultMaxTimeInterval(600);
}

TEST_F(AutoRotatingFileDestinationTest, TakesEveryOptionInOrderToo) {
    const auto suffix = std::make_shared<CountingFormatter>();
    const FileAttributes attributes{{std::string(FileAttributeKey::posixPermissions), 0600}};
    const auto file = make<AutoRotatingFileDestination>(nullptr, FileTarget(folder / "app.log"), "rotating", true,
                                                        "-- on --", attributes, 20U, 30.5, suffix, std::uint8_t{4});
    EXPECT_EQ(file->identifier(), "rotating");
    EXPECT_TRUE(file->shouldAppend());
    EXPECT_EQ(file->appendMarker(), "-- on --");
    EXPECT_EQ(file->fileAttributes()->size(), 1U);
    EXPECT_EQ(file->targetMaxFileSize(), 20U);
    EXPECT_EQ(file->targetMaxTimeInterval(), 30.5);
    EXPECT_EQ(file->archiveSuffixDateFormatter(), suffix);
    EXPECT_EQ(file->targetMaxLogFiles(), 4);
    file->setAppendMarker(std::nullopt);
    EXPECT_EQ(file->appendMarker(), std::nullopt);
}

TEST_F(AutoRotatingFileDestinationTest, RotatesAfterTheLineThatReachesTheSizeAndNotBefore) {
    const auto file = add("app.log", unlimited());
    file->rotateFile();
    file->purgeArchivedLogFiles();
    ASSERT_EQ(file->currentLogFileSize(), 0U);
    file->setTargetMaxFileSize(10);
    file->write("123456789");
    EXPECT_THAT(file->archivedFileURLs(), IsEmpty());
    file->write("x");
    ASSERT_THAT(file->archivedFileURLs(), SizeIs(1));
    EXPECT_TRUE(readFile(file->archivedFileURLs()[0].path()).ends_with("123456789\nx\n"));
    EXPECT_EQ(file->currentLogFileSize(), 0U);
}

TEST_F(AutoRotatingFileDestinationTest, CountsTheCharactersThatAReaderSees) {
    const auto file = add("app.log", unlimited());
    file->rotateFile();
    file->write("e\u0301\U0001F469\u200D\U0001F680\u00df");
    EXPECT_EQ(file->currentLogFileSize(), 3U);
}

TEST_F(AutoRotatingFileDestinationTest, RotatesAFileThatIsTooOld) {
    const auto file = add("app.log", {.maxFileSize = 0, .maxTimeInterval = 1});
    log->info("young");
    EXPECT_THAT(file->archivedFileURLs(), IsEmpty());
    std::this_thread::sleep_for(std::chrono::milliseconds(1'100));
    EXPECT_TRUE(file->shouldRotate());
    log->info("old");
    ASSERT_THAT(file->archivedFileURLs(), SizeIs(1));
    EXPECT_FALSE(file->shouldRotate());
    EXPECT_THAT(readFile(file->archivedFileURLs()[0].path()), HasSubstr("old\n"));
}

TEST_F(AutoRotatingFileDestinationTest, NeverRotatesWithoutATarget) {
    const auto file = make<AutoRotatingFileDestination>(
        nullptr, FileTarget(std::any(42)), "rotating",
        Options{.shouldAppend = false, .maxFileSize = 1, .maxTimeInterval = 1, .targetMaxLogFiles = 3});
    log->add(file);
    log->info("text");
    EXPECT_FALSE(file->shouldRotate());
    EXPECT_GE(file->currentLogFileSize(), 1U);
    EXPECT_NEAR(file->currentLogStartTimeInterval(), secondsSince1970(currentDate()), 60);
    EXPECT_FALSE(file->archiveFolderURL());
    EXPECT_FALSE(file->shouldAppend());
    EXPECT_EQ(file->targetMaxFileSize(), 1U);
    EXPECT_EQ(file->targetMaxTimeInterval(), 1);
    EXPECT_EQ(file->targetMaxLogFiles(), 3);
    EXPECT_EQ(file->baseFileName(), "xcglogger");
    EXPECT_EQ(file->fileExtension(), "log");
}

TEST_F(AutoRotatingFileDestinationTest, MarksArchivesWithTheIdentifierAndTheTime) {
    const auto file = add("app.log", unlimited());
    const double before = secondsSince1970(currentDate());
    file->rotateFile();
    const std::string archive = file->archivedFileURLs().at(0).path();
    EXPECT_EQ(attributeOf(archive, identifierAttribute), "rotating");
    const std::string timestamp = attributeOf(archive, timestampAttribute);
    EXPECT_EQ(shortestRoundTripText(std::stod(timestamp)), timestamp);
    EXPECT_GE(std::stod(timestamp), before);
    EXPECT_LE(std::stod(timestamp), secondsSince1970(currentDate()));
}

TEST_F(AutoRotatingFileDestinationTest, ArchivesAnExistingFileAtOnceUnlessAppending) {
    writeFile(folder / "app.log", "old line\n");
    const auto file = make<AutoRotatingFileDestination>(
        nullptr, folder / "app.log", "rotating",
        Options{.shouldAppend = false, .archiveSuffixDateFormatter = std::make_shared<CountingFormatter>()});
    EXPECT_THAT(names(file->archivedFileURLs()), ElementsAre("app_1.log"));
    EXPECT_EQ(readFile(folder / "app_1.log"), "old line\n");
    log->add(file);
    EXPECT_THAT(readFile(folder / "app.log"), HasSubstr("XCGLogger writing log to: file://"));
    EXPECT_THAT(readFile(folder / "app.log"), testing::Not(HasSubstr("old line")));
}

TEST_F(AutoRotatingFileDestinationTest, OpensTheFileThatItArchivesAtOnceForAppendingWithoutTheMarker) {
    writeFile(folder / "app.log", "old line\n");
    const auto file = make<AutoRotatingFileDestination>(
        log, folder / "app.log", "rotating",
        Options{.shouldAppend = false, .archiveSuffixDateFormatter = std::make_shared<CountingFormatter>()});
    EXPECT_FALSE(file->shouldAppend());
    EXPECT_EQ(file->appendMarker(), std::nullopt);
    const std::string archive = readFile(folder / "app_1.log");
    EXPECT_TRUE(archive.starts_with("old line\n")) << archive;
    EXPECT_THAT(archive, HasSubstr("XCGLogger appending log to: file://"));
    EXPECT_THAT(archive, testing::Not(HasSubstr("-- ** ** ** --")));
    EXPECT_THAT(readFile(folder / "app.log"), HasSubstr("XCGLogger writing log to: file://"));
    file->setOwner(nullptr);
}

TEST_F(AutoRotatingFileDestinationTest, RotatesNoFileThatItIsJustOpeningBeforeItKnowsTheArchivesName) {
    ::setenv("TMPDIR", folder.path().c_str(), 1);
    const auto file =
        make<AutoRotatingFileDestination>(log, folder / "app.log", "rotating",
                                          Options{.maxFileSize = 1,
                                                  .maxTimeInterval = 0,
                                                  .archiveSuffixDateFormatter = std::make_shared<CountingFormatter>()});
    EXPECT_THAT(filesIn(folder.path()), ElementsAre("app.log", "app_1.log"));
    EXPECT_EQ(std::ranges::count(readFile(folder / "app_1.log"), '\n'), 3);
    file->setOwner(nullptr);
    ::unsetenv("TMPDIR");
}

TEST_F(AutoRotatingFileDestinationTest, GoesOnInAnExistingFileWithItsSizeAndAgeWhenAppending) {
    writeFile(folder / "app.log", "old line\n");
    const auto file = add("app.log", {.maxFileSize = 0, .maxTimeInterval = 0});
    EXPECT_TRUE(readFile(folder / "app.log").starts_with("old line\n-- ** ** ** --\n"));
    EXPECT_GE(file->currentLogFileSize(), 9U);
    EXPECT_THAT(file->archivedFileURLs(), IsEmpty());
    EXPECT_NEAR(file->currentLogStartTimeInterval(), secondsSince1970(currentDate()), 60);
}

TEST_F(AutoRotatingFileDestinationTest, ArchivesAnExistingFileThatIsTooLargeWhileItIsMade) {
    writeFile(folder / "app.log", std::string(2'000, 'x') + "\n");
    makeArchive(folder / "app_old.log", "rotating", "1.0");
    const auto file = add("app.log", {.maxFileSize = 1'500, .maxTimeInterval = 0, .targetMaxLogFiles = 1});
    EXPECT_THAT(names(file->archivedFileURLs()), ElementsAre("app_1.log"));
    EXPECT_FALSE(fs::exists(folder / "app_old.log"));
}

TEST_F(AutoRotatingFileDestinationTest, ReportsARotationIntoAMissingFolderAndGoesOn) {
    const auto file = add("app.log", unlimited());
    file->setArchiveFolderURL(URL::fileURL("/proc/nowhere", true));
    log->info("kept");
    file->rotateFile();
    EXPECT_THAT(otherText(),
                HasSubstr("Unable to rotate file " + (folder / "app.log") + " to /proc/nowhere/app_1.log: "));
    EXPECT_THAT(readFile(folder / "app.log"), HasSubstr("kept\n"));
    EXPECT_EQ(file->currentLogFileSize(), 0U);
    log->info("next");
    EXPECT_THAT(readFile(folder / "app.log"), HasSubstr("next\n"));
}

TEST_F(AutoRotatingFileDestinationTest, WarnsWhenTheLiveFilesAttributesCannotBeRead) {
    const auto file = make<AutoRotatingFileDestination>(log, folder / "missing/app.log", "rotating", unlimited());
    const auto records = other->records();
    const auto warning = std::ranges::find(records, Level::warning, &LogDetails::level);
    ASSERT_NE(warning, records.end());
    EXPECT_EQ(warning->message, "Unable to determine current file attributes of log file: The file “" +
                                    (folder / "missing/app.log") +
                                    "” couldn’t be asked for its attributes: No such file or directory");
    EXPECT_EQ(file->currentLogFileSize(), 0U);
    EXPECT_NEAR(file->currentLogStartTimeInterval(), secondsSince1970(currentDate()), 60);
    file->setOwner(nullptr);
}

TEST_F(AutoRotatingFileDestinationTest, CallsTheCompletionOnceForEachRotation) {
    const auto file = add("app.log", {.maxFileSize = 600, .maxTimeInterval = 0});
    int calls = 0;
    file->setAutoRotationCompletion([&](bool success) {
        EXPECT_TRUE(success);
        ++calls;
        log->info("a line from within the completion, which is long enough to matter: {}", std::string(700, 'x'));
    });
    for (int line = 0; line < 5; ++line) {
        log->info("{}", std::string(700, 'y'));
    }
    EXPECT_EQ(calls, 5);
    EXPECT_THAT(file->archivedFileURLs(), SizeIs(5));
}

TEST_F(AutoRotatingFileDestinationTest, AnnouncesARotationToTheOtherDestinationsAndStartsNoSecondOne) {
    const auto file = add("app.log", {.maxFileSize = 1, .maxTimeInterval = 0});
    other->clear();
    log->info("text");
    EXPECT_THAT(otherText(), HasSubstr("> Rotated file " + (folder / "app.log") + " to " + (folder / "app_")));
    const std::string live = readFile(folder / "app.log");
    EXPECT_EQ(std::ranges::count(live, '\n'), 3) << live;
    EXPECT_THAT(live, testing::Not(HasSubstr("Rotated")));
    EXPECT_THAT(live, HasSubstr("XCGLogger writing log to: "));
}

/// Has a completion from the beginning, which keeps what it is told.
class EarlyCompletionDestination : public AutoRotatingFileDestination {
public:
    EarlyCompletionDestination(Making key, const FileTarget& writeToFile, const Options& options)
        : AutoRotatingFileDestination(key, nullptr, writeToFile, "rotating", options) {
        AutoRotatingFileDestination::setAutoRotationCompletion([this](bool success) { results.push_back(success); });
    }
    std::vector<bool> results;
};

TEST_F(AutoRotatingFileDestinationTest, TellsTheCompletionOfASubclassOfTheRotationWhileItIsMade) {
    const Options options{.shouldAppend = false,
                          .archiveSuffixDateFormatter = std::make_shared<DateFormatter>("'-same'")};
    EXPECT_THAT(make<EarlyCompletionDestination>(folder / "app.log", options)->results, ElementsAre(false))
        << "there is no file yet";
    writeFile(folder / "app.log", "old\n");
    EXPECT_THAT(make<EarlyCompletionDestination>(folder / "app.log", options)->results, ElementsAre(true));
}

TEST_F(AutoRotatingFileDestinationTest, ArchivesTheLinesLoggedBeforeAlsoWithAQueue) {
    const auto file = add("app.log", unlimited());
    const auto queue = DispatchQueue::make("writing");
    file->setLogQueue(queue);
    {
        Gate gate(*queue);
        log->info("first");
        queue->async([&] { log->info("second"); });
    }
    file->rotateFile();
    queue->drain();
    EXPECT_THAT(readFile(folder / "app_1.log"), HasSubstr("> first\n"));
}

TEST_F(AutoRotatingFileDestinationTest, GoesOnRotatingAfterAnExceptionInARotation) {
    class Throwing : public DateFormatter {
    public:
        Throwing() : DateFormatter("yyyy") {}
        void append(Date /*date*/, std::string& /*out*/) const override { throw std::runtime_error("no suffix"); }
    };
    const auto file = add("app.log", unlimited());
    const auto formatter = file->archiveSuffixDateFormatter();
    file->setArchiveSuffixDateFormatter(std::make_shared<Throwing>());
    EXPECT_THROW(file->rotateFile(), std::runtime_error);
    file->setArchiveSuffixDateFormatter(formatter);
    file->rotateFile();
    EXPECT_THAT(file->archivedFileURLs(), SizeIs(1));
}

TEST_F(AutoRotatingFileDestinationTest, RotatesInAChildForkedWhileAnotherThreadRotates) {
    const auto file = add("app.log", unlimited());
    std::promise<void> isRotating;
    std::promise<void> mayGoOn;
    file->setAutoRotationCompletion([&](bool /*success*/) {
        isRotating.set_value();
        mayGoOn.get_future().wait();
    });
    std::thread rotating([&] { file->rotateFile(); });
    isRotating.get_future().wait();
    EXPECT_EQ(resultOfForkedChild([&] {
                  file->setAutoRotationCompletion(nullptr);
                  log->info("in the child");
                  file->rotateFile();
                  return readFile(folder / "app_2.log").ends_with("> in the child\n") ? 0 : 1;
              }),
              0);
    mayGoOn.set_value();
    rotating.join();
}

class OverridingDestination : public AutoRotatingFileDestination {
public:
    using AutoRotatingFileDestination::AutoRotatingFileDestination;
    using AutoRotatingFileDestination::rotateFile;
    bool shouldRotate() const override { return rotations < 2; }
    void rotateFile() override {
        ++rotations;
        AutoRotatingFileDestination::rotateFile();
    }
    void cleanUpLogFiles() override { ++cleanUps; }
    std::vector<URL> archivedFileURLs() const override {
        ++listings;
        return {};
    }
    int rotations = 0;
    int cleanUps = 0;
    mutable int listings = 0;
};

TEST_F(AutoRotatingFileDestinationTest, CallsWhatASubclassOverrides) {
    writeFile(folder / "app.log", "old\n");
    const auto file =
        make<OverridingDestination>(nullptr, folder / "app.log", "rotating",
                                    Options{.archiveSuffixDateFormatter = std::make_shared<CountingFormatter>()});
    EXPECT_EQ(file->rotations, 1);
    EXPECT_EQ(file->cleanUps, 1);
    file->write("text");
    EXPECT_EQ(file->rotations, 2);
    file->write("text");
    EXPECT_EQ(file->rotations, 2);
    file->setTargetMaxLogFiles(3);
    EXPECT_EQ(file->cleanUps, 3);
    file->purgeArchivedLogFiles();
    EXPECT_EQ(file->listings, 1);
}

TEST_F(AutoRotatingFileDestinationTest, DiesOfTheArgumentsOfAPlainFileDestination) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::optional<std::string> marker;
    const std::optional<FileAttributes> attributes;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    EXPECT_DEATH(make<AutoRotatingFileDestination>(nullptr, folder / "app.log", "id", true, marker, attributes),
                 "init\\(owner:writeToFile:identifier:shouldAppend:appendMarker:attributes:\\).*"
                 "XCGLogger.AutoRotatingFileDestination");
#pragma GCC diagnostic pop
}

TEST_F(AutoRotatingFileDestinationTest, DescribesItselfAsEveryDestinationDoes) {
    EXPECT_EQ(add("app.log", {})->debugDescription(),
              "AutoRotatingFileDestination: rotating - Level: Debug showLogIdentifier: false showFunctionName: true "
              "showThreadName: false showLevel: true showFileName: true showLineNumber: true showDate: true");
    EXPECT_EQ(make<OverridingDestination>(nullptr, folder / "own.log", "own", unlimited())->debugDescription(),
              "OverridingDestination: own - Level: Debug showLogIdentifier: false showFunctionName: true "
              "showThreadName: false showLevel: true showFileName: true showLineNumber: true showDate: true");
}

TEST_F(AutoRotatingFileDestinationTest, NamesAnArchiveThatCannotBeMarkedAndGoesOn) {
    // Too long for an attribute's value, so that marking fails on every file system.
    const auto file =
        make<AutoRotatingFileDestination>(nullptr, folder / "app.log", std::string(100'000, 'i'),
                                          Options{.archiveSuffixDateFormatter = std::make_shared<CountingFormatter>()});
    log->add(file);
    std::vector<bool> results;
    file->setAutoRotationCompletion([&](bool success) { results.push_back(success); });
    file->rotateFile();
    EXPECT_THAT(otherText(),
                HasSubstr("Unable to set extended file attributes on file " + (folder / "app_1.log") + ": "));
    EXPECT_THAT(results, ElementsAre(true));
    EXPECT_TRUE(fs::exists(folder / "app_1.log"));
    log->info("next");
    EXPECT_THAT(readFile(folder / "app.log"), HasSubstr("next\n"));
}

}  // namespace
}  // namespace velora::test
