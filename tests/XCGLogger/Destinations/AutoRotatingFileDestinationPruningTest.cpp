// Which archives a destination takes for its own, and which of them it deletes.

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <support/TemporaryFolder.h>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>

#include "AutoRotatingFileDestinationTestSupport.h"

namespace velora::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

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

}  // namespace
}  // namespace velora::test
