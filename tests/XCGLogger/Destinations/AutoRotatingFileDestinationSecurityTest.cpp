// What another user can make rotation do to files that are not his, and where archives can come to lie.

#include <algorithm>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/XCGLogger/Constants.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>

#include "support/CountingFormatter.h"
#include "support/OtherUser.h"
#include "support/RecordingDestination.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using Options = AutoRotatingFileDestination::Options;

constexpr const char* needsRoot = "only the superuser can act as another user";

std::vector<std::string> filesIn(const std::string& folder) {
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

/// Makes a file look like an archive of the identifier that the tests use.
bool mark(const std::string& path) {
    const std::string identifier = "rotating";
    return ::setxattr(path.c_str(), "user.tamberlo.xcglogger.archived.by", identifier.data(), identifier.size(), 0) ==
               0 &&
           ::setxattr(path.c_str(), "user.tamberlo.xcglogger.archived.at", "1.5", 3, 0) == 0;
}

/// A logger with a file that rotates only when told to.
class Rotating {
public:
    explicit Rotating(const std::string& path, std::shared_ptr<const DateFormatter> suffix = nullptr) {
        Options options{.maxFileSize = 0, .maxTimeInterval = 0};
        options.archiveSuffixDateFormatter = suffix ? std::move(suffix) : std::make_shared<CountingFormatter>();
        file = make<AutoRotatingFileDestination>(nullptr, path, "rotating", std::move(options));
        hideColumns(*file);
        logger.log->add(file);
        logger.recording->clear();
    }

    const RecordedLogger<> logger;
    std::shared_ptr<AutoRotatingFileDestination> file;
};

/// Rotates the file `app` of `home` with `shared` for temporary files and returns the line that tells of it.
std::string lineOfRotation(const std::string& home, const SharedFolder& shared) {
    ::setenv("TMPDIR", shared.path().c_str(), 1);
    const Rotating rotating(home + "/app");
    rotating.logger.log->info("private");
    rotating.logger.recording->clear();
    rotating.file->rotateFile();
    const auto lines = rotating.logger.recording->lines();
    return lines.empty() ? "" : lines.front();
}

/// 1 if the rotation was announced as one that succeeded, else 0.
auto rotation(const std::string& home, const SharedFolder& shared) {
    return [&home, &shared] { return lineOfRotation(home, shared).starts_with("> Rotated file ") ? 1 : 0; };
}

TEST(AutoRotatingFileDestinationSecurity, LeavesADefaultFolderThatAnotherUserMadeToHim) {
    if (!canBecomeOtherUsers()) {
        GTEST_SKIP() << needsRoot;
    }
    const SharedFolder shared;
    const std::string home = shared.folderOf(someUser);
    ASSERT_EQ(resultAsUser(anotherUser,
                           [&] {
                               ::umask(0);
                               return ::mkdir((shared / "log").c_str(), 0777);
                           }),
              0);
    EXPECT_EQ(resultAsUser(someUser, rotation(home, shared)), 1);
    EXPECT_THAT(filesIn(shared / "log"), IsEmpty());
    const std::string own = shared / ("log-" + std::to_string(someUser));
    EXPECT_THAT(filesIn(own), ElementsAre("app_1"));
    struct stat status {};
    ASSERT_EQ(::stat(own.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07027U, 0U);
    EXPECT_EQ(status.st_uid, someUser);
}

TEST(AutoRotatingFileDestinationSecurity, FollowsNoLinkAtItsDefaultFolder) {
    if (!canBecomeOtherUsers()) {
        GTEST_SKIP() << needsRoot;
    }
    const SharedFolder shared;
    const std::string home = shared.folderOf(someUser);
    const std::string trap = shared.folderOf(anotherUser, 0777);
    ASSERT_EQ(resultAsUser(anotherUser, [&] { return ::symlink(trap.c_str(), (shared / "log").c_str()); }), 0);
    EXPECT_EQ(resultAsUser(someUser, rotation(home, shared)), 1);
    EXPECT_EQ(resultOfForkedChild(rotation(home, shared)), 1) << "as the superuser";
    EXPECT_THAT(filesIn(trap), IsEmpty());
}

TEST(AutoRotatingFileDestinationSecurity, KeepsItsFileIfEveryDefaultFolderIsATrap) {
    if (!canBecomeOtherUsers()) {
        GTEST_SKIP() << needsRoot;
    }
    const SharedFolder shared;
    const std::string home = shared.folderOf(someUser);
    const std::string own = shared / ("log-" + std::to_string(someUser));
    ASSERT_EQ(resultAsUser(anotherUser,
                           [&] {
                               ::umask(0);
                               return ::mkdir((shared / "log").c_str(), 0777) + ::mkdir(own.c_str(), 0777);
                           }),
              0);
    EXPECT_EQ(resultAsUser(someUser,
                           [&] {
                               ::setenv("TMPDIR", shared.path().c_str(), 1);
                               const Rotating rotating(home + "/app");
                               std::optional<bool> success;
                               rotating.file->setAutoRotationCompletion([&](bool value) { success = value; });
                               rotating.file->rotateFile();
                               rotating.logger.log->info("after it");
                               const auto lines = rotating.logger.recording->lines();
                               const std::string line = "> Unable to rotate file " + home + "/app to " +
                                                        (shared / "log/app_1") + ": The folder “" + (shared / "log") +
                                                        "” is no place for archives: Operation not permitted";
                               return success == false && !lines.empty() && lines.front() == line ? 0 : 1;
                           }),
              0);
    EXPECT_THAT(readFile(home + "/app"), HasSubstr("> after it\n"));
    EXPECT_THAT(filesIn(shared / "log"), IsEmpty());
    EXPECT_THAT(filesIn(own), IsEmpty());
}

TEST(AutoRotatingFileDestinationSecurity, NoticesThatItsDefaultFolderWasExchangedForAnotherUsers) {
    if (!canBecomeOtherUsers()) {
        GTEST_SKIP() << needsRoot;
    }
    const SharedFolder shared;
    const std::string trap = shared.folderOf(anotherUser, 0777);
    ::setenv("TMPDIR", shared.path().c_str(), 1);
    const Rotating rotating(shared.folderOf(someUser) + "/app");
    ASSERT_EQ(rotating.file->archiveFolderURL()->path(), shared / "log");
    // As when files that nobody used for long are cleaned away.
    fs::remove(shared / "log");
    ASSERT_EQ(resultAsUser(anotherUser, [&] { return ::symlink(trap.c_str(), (shared / "log").c_str()); }), 0);
    writeFile(trap + "/app_0", "of another user");
    ASSERT_TRUE(mark(trap + "/app_0"));
    rotating.file->rotateFile();
    EXPECT_THAT(rotating.file->archivedFileURLs(), IsEmpty());
    rotating.file->purgeArchivedLogFiles();
    EXPECT_THAT(filesIn(trap), ElementsAre("app_0"));
    ::unsetenv("TMPDIR");
}

TEST(AutoRotatingFileDestinationSecurity, MakesFoldersForTheUserAndTheGroupAndChangesNone) {
    const TemporaryFolder folder;
    const auto modeOf = [&](const std::string& name) {
        struct stat status {};
        return ::stat((folder / name).c_str(), &status) == 0 ? status.st_mode & 07777U : 0U;
    };
    fs::create_directory(folder / "existing");
    ASSERT_EQ(::chmod((folder / "existing").c_str(), 0777), 0);
    const mode_t before = ::umask(0);
    const Rotating rotating(folder / "app.log");
    rotating.file->setArchiveFolderURL(URL::fileURL(folder / "new/below", true));
    rotating.file->rotateFile();
    ::umask(077);
    rotating.file->setArchiveFolderURL(URL::fileURL(folder / "narrow", true));
    rotating.file->setArchiveFolderURL(URL::fileURL(folder / "existing", true));
    rotating.file->rotateFile();
    ::umask(before);
    EXPECT_EQ(modeOf("new"), 0750U);
    EXPECT_EQ(modeOf("new/below"), 0750U);
    EXPECT_EQ(modeOf("new/below/app_1.log"), 0640U);
    EXPECT_EQ(modeOf("narrow"), 0700U);
    EXPECT_EQ(modeOf("existing"), 0777U);
    EXPECT_EQ(modeOf("existing/app_2.log"), 0640U);
    EXPECT_EQ(modeOf("app.log"), 0600U);
}

TEST(AutoRotatingFileDestinationSecurity, ReplacesNothingThatLiesAtTheNameOfAnArchive) {
    const std::vector<std::function<void(const std::string&, const std::string&)>> traps{
        [](const std::string& victim, const std::string& path) { fs::create_symlink(victim, path); },
        [](const std::string& victim, const std::string& path) { fs::create_symlink(victim + "-missing", path); },
        [](const std::string& victim, const std::string& path) { fs::create_hard_link(victim, path); },
        [](const std::string&, const std::string& path) { ASSERT_EQ(::mkfifo(path.c_str(), 0666), 0); },
        [](const std::string&, const std::string& path) { fs::create_directory(path); },
        [](const std::string&, const std::string& path) { fs::create_symlink("/dev/null", path); },
    };
    for (std::size_t trap = 0; trap < traps.size(); ++trap) {
        const TemporaryFolder folder;
        fs::create_directory(folder / "outside");
        writeFile(folder / "outside/victim", "precious data");
        struct stat before {};
        traps[trap](folder / "outside/victim", folder / "app_1.log");
        ASSERT_EQ(::lstat((folder / "app_1.log").c_str(), &before), 0);
        const Rotating rotating(folder / "app.log");
        rotating.logger.log->info("kept");
        rotating.file->rotateFile();
        struct stat after {};
        ASSERT_EQ(::lstat((folder / "app_1.log").c_str(), &after), 0) << trap;
        EXPECT_EQ(before.st_ino, after.st_ino) << trap;
        EXPECT_EQ(before.st_mode, after.st_mode) << trap;
        EXPECT_EQ(readFile(folder / "outside/victim"), "precious data") << trap;
        EXPECT_THAT(filesIn(folder / "outside"), ElementsAre("victim")) << trap;
        EXPECT_THAT(readFile(folder / "app.log"), HasSubstr("> kept\n")) << trap;
        EXPECT_EQ(::getxattr((folder / "outside/victim").c_str(), "user.tamberlo.xcglogger.archived.by", nullptr, 0),
                  -1);
    }
}

TEST(AutoRotatingFileDestinationSecurity, DeletesALinkAmongItsArchivesAndNotWhatItLeadsTo) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "outside");
    writeFile(folder / "outside/victim", "precious data");
    ASSERT_TRUE(mark(folder / "outside/victim"));
    ASSERT_TRUE(mark(folder / "outside"));
    fs::create_symlink("outside/victim", folder / "app_0.log");
    fs::create_symlink("outside", folder / "app_00.log");
    const Rotating rotating(folder / "app.log");
    EXPECT_EQ(rotating.file->archivedFileURLs().size(), 3U);
    fs::rename(folder / "outside", folder / ".outside");
    fs::create_symlink(".outside", folder / "outside");
    rotating.file->purgeArchivedLogFiles();
    EXPECT_EQ(readFile(folder / ".outside/victim"), "precious data");
}

TEST(AutoRotatingFileDestinationSecurity, KeepsArchivesInTheirFolderWhateverTheSuffix) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "logs");
    fs::create_directory(folder / "logs/app_2024");
    for (const char* pattern : {"'/../../escaped'", "'_2024/../../escaped2'", "'_2024/escaped3'", "'/..'"}) {
        const Rotating rotating(folder / "logs/app.log", std::make_shared<DateFormatter>(pattern));
        rotating.file->rotateFile();
        EXPECT_THAT(rotating.logger.recording->lines().front(), HasSubstr("Rotated file")) << pattern;
    }
    EXPECT_THAT(filesIn(folder.path().string()), ElementsAre("logs"));
    EXPECT_THAT(filesIn(folder / "logs/app_2024"), IsEmpty());
    EXPECT_THAT(filesIn(folder / "logs"), ElementsAre("app-..-..-escaped.log", "app-...log", "app.log", "app_2024",
                                                      "app_2024-..-..-escaped2.log", "app_2024-escaped3.log"));
}

TEST(AutoRotatingFileDestinationSecurity, TakesNoPathFromAnIdentifier) {
    const TemporaryFolder folder;
    fs::create_directory(folder / "logs");
    for (const char* identifier : {"../escaped", "/escaped", "..", "a/b"}) {
        const RecordedLogger<> logger{identifier};
        const auto file = make<AutoRotatingFileDestination>(
            nullptr, folder / "logs/app.log", identifier,
            Options{.archiveSuffixDateFormatter = std::make_shared<CountingFormatter>()});
        logger.log->add(file);
        file->rotateFile();
        EXPECT_EQ(file->archivedFileURLs().size(), 1U) << identifier;
        file->purgeArchivedLogFiles();
        EXPECT_THAT(filesIn(folder / "logs"), ElementsAre("app.log")) << identifier;
    }
    EXPECT_THAT(filesIn(folder.path().string()), ElementsAre("logs"));
}

}  // namespace
}  // namespace velora::test
