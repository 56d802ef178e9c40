// Where archives go, and what they are called.

#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <support/TemporaryFolder.h>
#include <vector>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>

#include "AutoRotatingFileDestinationTestSupport.h"

namespace velora::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;

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

TEST_F(AutoRotatingFileDestinationTest, MakesTheArchiveFolderAndArchivesThere) {
    const auto file = add("app.log", unlimited());
    file->setArchiveFolderURL(URL::fileURL(folder / "deep/er", true));
    EXPECT_TRUE(fs::is_directory(folder / "deep/er"));
    file->rotateFile();
    EXPECT_THAT(filesIn(folder / "deep/er"), ElementsAre("app_1.log"));
    file->setArchiveFolderURL(std::nullopt);
    EXPECT_FALSE(file->archiveFolderURL());
}

}  // namespace
}  // namespace velora::test
