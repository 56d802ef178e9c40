#include <algorithm>
#include <any>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <support/CountingFormatter.h>
#include <support/ForkedChild.h>
#include <support/RecordingDestination.h>
#include <support/TemporaryFolder.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/XCGLogger/Constants.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "DestinationTestSupport.h"

namespace velora::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr const char* identifierAttribute = "user.tamberlo.xcglogger.archived.by";
constexpr const char* timestampAttribute = "user.tamberlo.xcglogger.archived.at";

std::string attributeOf(const fs::path& path, const char* name) {
    std::string value(1'000, '\0');
    const ssize_t size = ::getxattr(path.c_str(), name, value.data(), value.size());
    return size < 0 ? "(none)" : value.substr(0, static_cast<std::size_t>(size));
}

void setAttribute(const fs::path& path, const char* name, std::string_view value) {
    ASSERT_EQ(::setxattr(path.c_str(), name, value.data(), value.size(), 0), 0);
}

/// A file that looks as if an earlier run had archived it.
void makeArchive(const fs::path& path, std::string_view identifier, std::string_view timestamp) {
    writeFile(path, "old\n");
    setAttribute(path, identifierAttribute, identifier);
    setAttribute(path, timestampAttribute, timestamp);
}

std::vector<std::string> names(const std::vector<URL>& urls) {
    std::vector<std::string> result;
    std::ranges::transform(urls, std::back_inserter(result), [](const URL& url) { return url.lastPathComponent(); });
    return result;
}

std::vector<std::string> filesIn(const fs::path& folder) {
    std::vector<std::string> result;
    for (const auto& entry : fs::directory_iterator(folder)) {
        result.push_back(entry.path().filename());
    }
    std::ranges::sort(result);
    return result;
}

using Options = AutoRotatingFileDestination::Options;

class AutoRotatingFileDestinationTest : public testing::Test {
protected:
    void SetUp() override {
        writeFile(folder / "probe", "");
        if (::setxattr((folder / "probe").c_str(), "user.probe", "", 0, 0) != 0) {
            GTEST_SKIP() << "the temporary folder's file system has no extended attributes";
        }
        fs::remove(folder / "probe");
        log->add(other);
    }
    void TearDown() override {
        for (const auto& destination : std::vector(log->destinations())) {
            log->remove(destination);
        }
    }

    std::shared_ptr<AutoRotatingFileDestination> add(const std::string& name, Options options) {
        if (!options.archiveSuffixDateFormatter) {
            options.archiveSuffixDateFormatter = std::make_shared<CountingFormatter>();
        }
        auto made = make<AutoRotatingFileDestination>(nullptr, folder / name, "rotating", options);
        log->add(made);
        return made;
    }
    static Options unlimited() { return {.maxFileSize = 0, .maxTimeInterval = 0}; }
    std::string otherText() const {
        std::string text;
        for (const std::string& line : other->lines()) {
            text += line + "\n";
        }
        return text;
    }

    TemporaryFolder folder;
    std::shared_ptr<XCGLogger> log = make<XCGLogger>("log", false);
    std::shared_ptr<RecordingDestination> other = make<RecordingDestination>(nullptr, "other");
};

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

struct NameCase {
    std::string file, base, extension;
    bool archivesBesideIt;
};

TEST_F(AutoRotatingFileDestinationTest, FindsBaseNameExtensionAndArchiveFolder) {
    fs::create_directories(folder.path() / "app.log.d" / "app.log");
    const std::vector<NameCase> cases = {
        {"app.log", "app", "log", true},
        {"app", "app", "", false},
        {"a.b.log", "a.b", "log", true},
        {".log", ".log", "", false},
        {"my app.log", "my app", "log", true},
        {"Z\u00fcrich.txt", "Z\u00fcrich", "txt", true},
        {"app.log.d/app.log/app.log", "app", "log", true},
        {"log.log", "log", "log", true},
    };
    ::setenv("TMPDIR", folder.path().c_str(), 1);
    for (const NameCase& expected : cases) {
        const auto file = make<AutoRotatingFileDestination>(nullptr, folder / expected.file, "x", unlimited());
        EXPECT_EQ(file->baseFileName(), expected.base) << expected.file;
        EXPECT_EQ(file->fileExtension(), expected.extension) << expected.file;
        const std::string archives =
            expected.archivesBesideIt ? fs::path(folder / expected.file).parent_path().string() : folder / "log";
        ASSERT_TRUE(file->archiveFolderURL()) << expected.file;
        EXPECT_EQ(file->archiveFolderURL()->path(), archives) << expected.file;
    }
    EXPECT_TRUE(fs::is_directory(folder / "log"));
    ::unsetenv("TMPDIR");
}

TEST_F(AutoRotatingFileDestinationTest, ArchivesAFileWithoutAnExtensionInTheDefaultFolder) {
    ::setenv("TMPDIR", folder.path().c_str(), 1);
    const auto file = add("app", unlimited());
    log->info("text");
    file->rotateFile();
    EXPECT_THAT(filesIn(folder / "log"), ElementsAre("app_1"));
    EXPECT_THAT(readFile(folder / "log/app_1"), HasSubstr("> text\n"));
    EXPECT_THAT(names(file->archivedFileURLs()), ElementsAre("app_1"));
    ::unsetenv("TMPDIR");
}

TEST_F(AutoRotatingFileDestinationTest, UsesTheDefaultFolderWhenTheArchiveFolderIsTakenAway) {
    ::setenv("TMPDIR", folder.path().c_str(), 1);
    const auto file = add("app.log", unlimited());
    file->setArchiveFolderURL(std::nullopt);
    file->rotateFile();
    EXPECT_THAT(filesIn(folder / "log"), ElementsAre("app_1.log"));
    EXPECT_THAT(names(file->archivedFileURLs()), ElementsAre("app_1.log"));
    ::unsetenv("TMPDIR");
}

TEST_F(AutoRotatingFileDestinationTest, MakesTheDefaultFolderWheneverItIsAskedForIfThatIsPossible) {
    ::setenv("TMPDIR", folder.path().c_str(), 1);
    const std::string expected = folder / "log";
    EXPECT_EQ(AutoRotatingFileDestination::defaultLogFolderURL().path(), expected);
    EXPECT_TRUE(fs::is_directory(expected));
    fs::remove(expected);
    EXPECT_EQ(AutoRotatingFileDestination::defaultLogFolderURL().path(), expected);
    EXPECT_TRUE(fs::is_directory(expected));
    fs::remove(expected);
    writeFile(expected, "in the way");
    EXPECT_EQ(AutoRotatingFileDestination::defaultLogFolderURL().path(), expected);
    EXPECT_EQ(readFile(expected), "in the way");
    ::unsetenv("TMPDIR");
}

TEST_F(AutoRotatingFileDestinationTest, LeavesTheDefaultFolderAloneWhenItHasAnother) {
    ::setenv("TMPDIR", folder.path().c_str(), 1);
    const auto file = add("app.log", unlimited());
    file->rotateFile();
    EXPECT_THAT(filesIn(folder.path()), ElementsAre("app.log", "app_1.log"));
    ::unsetenv("TMPDIR");
}

TEST_F(AutoRotatingFileDestinationTest, NamesArchivesByTheLocalTimeOfTheRotation) {
    const auto file = make<AutoRotatingFileDestination>(nullptr, folder / "app.log", "rotating", unlimited());
    log->add(file);
    const Date before = currentDate();
    file->rotateFile();
    const DateFormatter formatter("_yyyy-MM-dd_HHmmss");
    const std::string name = names(file->archivedFileURLs()).at(0);
    EXPECT_TRUE(name == "app" + formatter.string(before) + ".log" ||
                name == "app" + formatter.string(currentDate()) + ".log")
        << name;
}

TEST_F(AutoRotatingFileDestinationTest, UsesTheSuffixFormatterAndReturnsToTheStandardOne) {
    const auto file = make<AutoRotatingFileDestination>(
        nullptr, folder / "app.log", "rotating",
        Options{.maxFileSize = 0,
                .maxTimeInterval = 0,
                .archiveSuffixDateFormatter = std::make_shared<DateFormatter>("'-archive'")});
    log->add(file);
    file->rotateFile();
    EXPECT_THAT(names(file->archivedFileURLs()), ElementsAre("app-archive.log"));
    EXPECT_EQ(file->archiveSuffixDateFormatter()->pattern(), "'-archive'");
    file->setArchiveSuffixDateFormatter(nullptr);
    EXPECT_EQ(file->archiveSuffixDateFormatter()->pattern(), "_yyyy-MM-dd_HHmmss");
}

TEST_F(AutoRotatingFileDestinationTest, LeavesTheFileAsItIsWhenTheArchiveNameIsTaken) {
    const auto file = make<AutoRotatingFileDestination>(
        nullptr, folder / "app.log", "rotating",
        Options{.maxFileSize = 0,
                .maxTimeInterval = 0,
                .archiveSuffixDateFormatter = std::make_shared<DateFormatter>("'-same'")});
    log->add(file);
    file->rotateFile();
    log->info("second");
    std::vector<bool> results;
    file->setAutoRotationCompletion([&](bool success) { results.push_back(success); });
    file->rotateFile();
    EXPECT_THAT(results, ElementsAre(false));
    EXPECT_THAT(names(file->archivedFileURLs()), ElementsAre("app-same.log"));
    EXPECT_THAT(readFile(folder / "app.log"), HasSubstr("second\n"));
    EXPECT_EQ(file->currentLogFileSize(), 0U);
    log->info("third");
    EXPECT_THAT(readFile(folder / "app.log"), HasSubstr("third\n"));
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

TEST_F(AutoRotatingFileDestinationTest, PrunesNothingWhileItIsMadeUnlessItRotates) {
    writeFile(folder / "app.log", "short\n");
    for (int index = 0; index < 4; ++index) {
        makeArchive(folder / ("app_" + std::to_string(index) + "old.log"), "rotating", std::to_string(index) + ".0");
    }
    const auto file = add("app.log", {.maxFileSize = 0, .maxTimeInterval = 0, .targetMaxLogFiles = 2});
    EXPECT_THAT(file->archivedFileURLs(), SizeIs(4));
    file->setTargetMaxLogFiles(3);
    EXPECT_THAT(names(file->archivedFileURLs()), ElementsAre("app_3old.log", "app_2old.log", "app_1old.log"));
}

TEST_F(AutoRotatingFileDestinationTest, DeletesTheTwoSmallestOfTwelveArchivesByTheTextOfTheirTimes) {
    const auto file = add("app.log", unlimited());
    // As text "9.0" is the largest, as a number the smallest.
    for (const std::string time :
         {"9.0", "100.0", "101.0", "102.0", "103.0", "104.0", "105.0", "106.0", "107.0", "108.0", "109.0", "110.0"}) {
        makeArchive(folder / ("old" + time + ".log"), "rotating", time);
    }
    file->cleanUpLogFiles();
    EXPECT_THAT(names(file->archivedFileURLs()),
                ElementsAre("old9.0.log", "old110.0.log", "old109.0.log", "old108.0.log", "old107.0.log",
                            "old106.0.log", "old105.0.log", "old104.0.log", "old103.0.log", "old102.0.log"));
    EXPECT_FALSE(fs::exists(folder / "old100.0.log"));
    EXPECT_FALSE(fs::exists(folder / "old101.0.log"));
}

TEST_F(AutoRotatingFileDestinationTest, TouchesNoFileThatIsNotItsOwn) {
    const auto file = add("app.log", unlimited());
    writeFile(folder / "app_2020-01-01_000000.log", "foreign\n");
    makeArchive(folder / "app_other.log", "another", "1.0");
    makeArchive(folder / ".app_hidden.log", "rotating", "1.0");
    makeArchive(folder / "app_badtime.log", "rotating", "\xff\xfe");
    writeFile(folder / "app_notime.log", "x\n");
    setAttribute(folder / "app_notime.log", identifierAttribute, "rotating");
    makeArchive(folder / "own.log", "rotating", "1.0");
    EXPECT_THAT(names(file->archivedFileURLs()), ElementsAre("own.log"));
    file->setTargetMaxLogFiles(0);
    file->purgeArchivedLogFiles();
    EXPECT_THAT(filesIn(folder.path()), ElementsAre(".app_hidden.log", "app.log", "app_2020-01-01_000000.log",
                                                    "app_badtime.log", "app_notime.log", "app_other.log"));
}

TEST_F(AutoRotatingFileDestinationTest, SharesArchivesWithADestinationOfTheSameIdentifier) {
    const auto first = add("first.log", unlimited());
    const auto second = make<AutoRotatingFileDestination>(nullptr, folder / "second.log", "rotating", unlimited());
    makeArchive(folder / "of-the-second.log", "rotating", "5.0");
    EXPECT_THAT(names(first->archivedFileURLs()), ElementsAre("of-the-second.log"));
    first->setTargetMaxLogFiles(0);
    EXPECT_THAT(second->archivedFileURLs(), IsEmpty());
}

TEST_F(AutoRotatingFileDestinationTest, MatchesWithAnEmptyIdentifierOnlyArchivesMarkedWithAnEmptyOne) {
    const auto file = make<AutoRotatingFileDestination>(nullptr, folder / "app.log", "", unlimited());
    makeArchive(folder / "empty.log", "", "1.0");
    makeArchive(folder / "named.log", "rotating", "1.0");
    writeFile(folder / "unmarked.log", "x\n");
    EXPECT_THAT(names(file->archivedFileURLs()), ElementsAre("empty.log"));
}

TEST_F(AutoRotatingFileDestinationTest, KeepsNoArchiveWithATargetOfZero) {
    const auto file = add("app.log", {.maxFileSize = 0, .maxTimeInterval = 0, .targetMaxLogFiles = 0});
    file->rotateFile();
    EXPECT_THAT(filesIn(folder.path()), ElementsAre("app.log"));
}

TEST_F(AutoRotatingFileDestinationTest, GivesNoArchivesForAFolderThatCannotBeListed) {
    const auto file = add("app.log", unlimited());
    file->setArchiveFolderURL(URL::fileURL("/dev/null/nowhere"));
    EXPECT_THAT(file->archivedFileURLs(), IsEmpty());
}

TEST_F(AutoRotatingFileDestinationTest, GivesNoArchivesForAnIdentifierThatIsNoText) {
    const auto file = make<AutoRotatingFileDestination>(nullptr, folder / "app.log", "\xff", unlimited());
    makeArchive(folder / "marked.log", "\xff", "1.0");
    EXPECT_THAT(file->archivedFileURLs(), IsEmpty());
}

/// Finds an archive that is gone between two that are there.
class MissingArchiveDestination : public AutoRotatingFileDestination {
public:
    using AutoRotatingFileDestination::AutoRotatingFileDestination;
    std::vector<URL> archivedFileURLs() const override {
        const std::string folder = archiveFolderURL()->path();
        return {URL::fileURL(folder + "/1.log"), URL::fileURL(folder + "/2.log"), URL::fileURL(folder + "/3.log")};
    }
};

TEST_F(AutoRotatingFileDestinationTest, ReportsAnArchiveThatCannotBeDeletedAndDeletesTheOthers) {
    const auto file = make<MissingArchiveDestination>(nullptr, folder / "app.log", "rotating", unlimited());
    log->add(file);
    const std::string expected = "Unable to delete old archived log file " + (folder / "2.log") + ": The file “" +
                                 (folder / "2.log") + "” couldn’t be removed: No such file or directory";
    const auto expectReport = [&](const auto& deleteArchives) {
        writeFile(folder / "1.log", "x");
        writeFile(folder / "3.log", "x");
        other->clear();
        deleteArchives();
        EXPECT_THAT(filesIn(folder.path()), ElementsAre("app.log"));
        ASSERT_THAT(other->records(), SizeIs(1));
        EXPECT_EQ(other->records()[0].message, expected);
        EXPECT_EQ(other->records()[0].level, Level::error);
    };
    expectReport([&] { file->setTargetMaxLogFiles(0); });
    expectReport([&] { file->cleanUpLogFiles(); });
    file->setTargetMaxLogFiles(10);
    expectReport([&] { file->purgeArchivedLogFiles(); });
}

TEST_F(AutoRotatingFileDestinationTest, MakesTheArchiveFolderAndArchivesThere) {
    const auto file = add("app.log", unlimited());
    file->setArchiveFolderURL(URL::fileURL(folder / "deep/er", true));
    EXPECT_TRUE(fs::is_directory(folder / "deep/er"));
    file->rotateFile();
    EXPECT_THAT(filesIn(folder / "deep/er"), ElementsAre("app_1.log"));
    file->setArchiveFolderURL(std::nullopt);
    EXPECT_FALSE(file->archiveFolderURL());
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
