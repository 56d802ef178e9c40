// Rotation on a real file system that refuses extended attributes: a ramfs, mounted where only this program sees it.

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <support/CountingFormatter.h>
#include <support/MountNamespace.h>
#include <support/RecordingDestination.h>
#include <support/TemporaryFolder.h>
#include <sys/mount.h>
#include <sys/xattr.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::EndsWith;
using testing::IsEmpty;

class UnmarkableArchive : public testing::Test {
protected:
    void SetUp() override {
        if (const auto reason = enterMountNamespace()) {
            GTEST_SKIP() << *reason;
        }
        fs::create_directory(unmarkable_);
        if (::mount("ramfs", unmarkable_.c_str(), "ramfs", 0, nullptr) != 0) {
            GTEST_SKIP() << failureOf("a ramfs cannot be mounted");
        }
        writeFile(unmarkable_ / "probe", "");
        ASSERT_NE(::setxattr((unmarkable_ / "probe").c_str(), "user.probe", "", 0, 0), 0)
            << "the file system takes attributes";
        fs::remove(unmarkable_ / "probe");
    }
    void TearDown() override {
        removeDestinations(*recorded_.log);
        ::umount(unmarkable_.c_str());
    }

    std::shared_ptr<AutoRotatingFileDestination> add(const fs::path& path) const {
        auto file = make<AutoRotatingFileDestination>(
            nullptr, path, "rotating",
            AutoRotatingFileDestination::Options{.maxFileSize = 0,
                                                 .maxTimeInterval = 0,
                                                 .archiveSuffixDateFormatter = std::make_shared<CountingFormatter>(),
                                                 .targetMaxLogFiles = 1});
        recorded_.log->add(file);
        recorded_.recording->clear();
        return file;
    }

    /// The messages of the internal lines at level `error` so far.
    std::vector<std::string> errors() const {
        std::vector<std::string> messages;
        for (const LogDetails& record : recorded_.recording->records()) {
            if (record.level == Level::error) {
                messages.push_back(record.message);
            }
        }
        return messages;
    }

    static std::string errorFor(const std::string& archive) {
        return "Unable to set extended file attributes on file " + archive + ": The file “" + archive +
               "” couldn’t be given the attribute “tamberlo.xcglogger.archived.by”: Operation not supported";
    }

    TemporaryFolder folder_;
    fs::path unmarkable_ = folder_.path() / "unmarkable";
    RecordedLogger<> recorded_;
};

TEST_F(UnmarkableArchive, IsNamedByOneErrorForEachRotationAndLoggingGoesOn) {
    const auto file = add(unmarkable_ / "app.log");
    std::vector<bool> results;
    file->setAutoRotationCompletion([&](bool success) { results.push_back(success); });
    recorded_.log->info("first");
    file->rotateFile();
    EXPECT_THAT(errors(), ElementsAre(errorFor(unmarkable_ / "app_1.log")));
    recorded_.log->info("second");
    file->rotateFile();
    EXPECT_THAT(errors(), ElementsAre(errorFor(unmarkable_ / "app_1.log"), errorFor(unmarkable_ / "app_2.log")));
    recorded_.log->info("third");
    EXPECT_THAT(results, ElementsAre(true, true));
    EXPECT_THAT(readFile(unmarkable_ / "app_1.log"), EndsWith("> first\n"));
    EXPECT_THAT(readFile(unmarkable_ / "app_2.log"), EndsWith("> second\n"));
    EXPECT_THAT(readFile(unmarkable_ / "app.log"), EndsWith("> third\n"));
    EXPECT_THAT(recorded_.recording->lines(), testing::Contains("> Rotated file " + (unmarkable_ / "app.log").string() +
                                                                " to " + (unmarkable_ / "app_1.log").string()));
}

TEST_F(UnmarkableArchive, IsNotTakenForAnArchiveOfThisDestinationAndSoNeverDeleted) {
    const auto file = add(unmarkable_ / "app.log");
    for (int rotation = 0; rotation < 3; ++rotation) {
        file->rotateFile();
    }
    EXPECT_THAT(file->archivedFileURLs(), IsEmpty());
    file->purgeArchivedLogFiles();
    for (const char* const name : {"app_1.log", "app_2.log", "app_3.log"}) {
        EXPECT_TRUE(fs::exists(unmarkable_ / name)) << name;
    }
}

TEST_F(UnmarkableArchive, IsNamedByTheErrorAlsoInAFolderOnAnotherFileSystem) {
    const auto file = add(folder_.path() / "app.log");
    file->setArchiveFolderURL(URL::fileURL(unmarkable_.string(), true));
    recorded_.log->info("first");
    file->rotateFile();
    EXPECT_THAT(errors(), ElementsAre(errorFor(unmarkable_ / "app_1.log")));
    EXPECT_THAT(readFile(unmarkable_ / "app_1.log"), EndsWith("> first\n"));
    recorded_.log->info("second");
    EXPECT_THAT(readFile(folder_ / "app.log"), EndsWith("> second\n"));
}

}  // namespace
}  // namespace velora::test
