#include <any>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "XCGLogger/Destinations/FileDestinationTestSupport.h"

namespace velora::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

// --- Opening ---

TEST_F(FileDestinationTest, HasNoQueueAtFirstAndTheDefaultsOfEveryDestination) {
    const auto file = make<FileDestination>(nullptr, path_, "it");
    EXPECT_EQ(file->logQueue(), nullptr);
    EXPECT_FALSE(file->shouldAppend());
    EXPECT_EQ(file->appendMarker(), "-- ** ** ** --");
    EXPECT_EQ(file->fileAttributes(), std::nullopt);
    EXPECT_EQ(file->writeToFileURL(), URL::fileURL(path_));
    EXPECT_EQ(file->debugDescription(),
              "FileDestination: it - Level: Debug showLogIdentifier: false showFunctionName: true showThreadName: "
              "false showLevel: true showFileName: true showLineNumber: true showDate: true");
}

TEST_F(FileDestinationTest, TouchesNothingWithoutAnOwner) {
    const auto file = makeFile();
    EXPECT_FALSE(file->isOpen());
    file->write("lost");
    file->flush();
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(FileDestinationTest, EmptiesAnExistingFileAndBeginsWithTheHeader) {
    writeFile(path_, "old\n");
    const auto file = addFile();
    EXPECT_TRUE(file->isOpen());
    EXPECT_TRUE(file->haveLoggedAppDetails());
    EXPECT_EQ(bytes(), beginning());
    log_.info("hello");
    EXPECT_EQ(bytes(), beginning() + "> hello\n");
    EXPECT_THAT(otherLines(), ElementsAre("> XCGLogger writing log to: file://" + path_, "> hello"));
}

TEST_F(FileDestinationTest, KeepsTheBytesOfAFileItAppendsToAndMarksTheSeam) {
    writeFile(path_, "old\n");
    addFile(/*shouldAppend=*/true);
    log_.info("hello");
    EXPECT_EQ(bytes(), "old\n-- ** ** ** --\n" + beginning("appending") + "> hello\n");
    EXPECT_THAT(otherLines(), ElementsAre("> XCGLogger appending log to: file://" + path_, "> hello"));
}

TEST_F(FileDestinationTest, CreatesTheFileThatItShallAppendTo) {
    addFile(/*shouldAppend=*/true);
    EXPECT_EQ(bytes(), beginning());
}

TEST_F(FileDestinationTest, MarksTheSeamInAnEmptyFileToo) {
    writeFile(path_, "");
    addFile(/*shouldAppend=*/true, "=== seam ===");
    EXPECT_EQ(bytes(), "=== seam ===\n" + beginning("appending"));
}

TEST_F(FileDestinationTest, WritesNoMarkerIfThereIsNone) {
    writeFile(path_, "old\n");
    addFile(/*shouldAppend=*/true, std::nullopt);
    EXPECT_EQ(bytes(), "old\n" + beginning("appending"));
}

TEST_F(FileDestinationTest, WritesNoMarkerThatIsNoText) {
    writeFile(path_, "old\n");
    addFile(/*shouldAppend=*/true, "\xff\xfe");
    EXPECT_EQ(bytes(), "old\n" + beginning("appending"));
}

TEST_F(FileDestinationTest, WritesAnEmptyMarkerAsAnEmptyLine) {
    writeFile(path_, "old\n");
    addFile(/*shouldAppend=*/true, "");
    EXPECT_EQ(bytes(), "old\n\n" + beginning("appending"));
}

TEST_F(FileDestinationTest, GivesTheMarkerNoColumns) {
    writeFile(path_, "old\n");
    const auto file = makeFile(/*shouldAppend=*/true);
    file->setShowLevel(true);
    file->setShowLogIdentifier(true);
    log_.add(file);
    const std::vector<std::string> lines = splitLines(bytes());
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[1], "-- ** ** ** --");
    EXPECT_EQ(lines[4], "[Info] [app] > XCGLogger appending log to: file://" + path_);
}

TEST_F(FileDestinationTest, AnnouncesTheFilesURLPercentEncoded) {
    const auto file = make<FileDestination>(nullptr, folder_ / "größe 1%.log", "file");
    hideColumns(*file);
    log_.add(file);
    EXPECT_EQ(readFile(folder_ / "größe 1%.log"), header() + "> XCGLogger writing log to: file://" +
                                                      folder_.path().string() + "/gr%C3%B6%C3%9Fe%201%25.log\n");
}

TEST_F(FileDestinationTest, AnnouncesItselfToAFileMadeWithAnOwnerButNotRegistered) {
    const auto file = make<FileDestination>(logger_.log, path_, "unregistered");
    EXPECT_TRUE(file->isOpen());
    const std::vector<std::string> lines = splitLines(bytes());
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines[2], HasSubstr(" [Info] > XCGLogger writing log to: file://" + path_));
    EXPECT_THAT(otherLines(), ElementsAre("> XCGLogger writing log to: file://" + path_));
    file->setOwner(nullptr);
}

TEST_F(FileDestinationTest, AnnouncesReopeningOnceToARegisteredFile) {
    const auto file = addFile();
    file->setOwner(logger_.log);
    EXPECT_EQ(bytes(), "> XCGLogger writing log to: file://" + path_ + "\n") << "emptied anew, the header given before";
}

TEST_F(FileDestinationTest, LeavesTheHeaderOutAboveInfoButAnnouncesItself) {
    const auto file = makeFile();
    file->setOutputLevel(Level::warning);
    log_.add(file);
    EXPECT_EQ(bytes(), "> XCGLogger writing log to: file://" + path_ + "\n");
    EXPECT_FALSE(file->haveLoggedAppDetails());
}

TEST_F(FileDestinationTest, OpensWithAnOwnerAndClosesWithoutOne) {
    const auto file = addFile();
    EXPECT_TRUE(file->isOpen());
    log_.remove(file);
    EXPECT_FALSE(file->isOpen());
    EXPECT_EQ(file->owner(), nullptr);
    file->write("lost");
    log_.info("lost");
    EXPECT_EQ(bytes(), beginning());
    log_.add(file);
    EXPECT_TRUE(file->isOpen());
}

TEST_F(FileDestinationTest, ClosesItsFileWhenItGoes) {
    const auto openFiles = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                             std::filesystem::directory_iterator());
    };
    auto file = addFile();
    const auto before = openFiles();
    file->setOwner(nullptr);
    EXPECT_EQ(openFiles(), before - 1);
    file->setOwner(logger_.log);
    EXPECT_EQ(openFiles(), before);
    {
        auto unregistered = make<FileDestination>(logger_.log, folder_ / "other", "other");
        EXPECT_EQ(openFiles(), before + 1);
        unregistered.reset();
        EXPECT_EQ(openFiles(), before);
    }
}

TEST_F(FileDestinationTest, MovesBetweenLoggersWithItsFile) {
    const auto file = addFile(/*shouldAppend=*/true);
    const RecordedLogger<> other("other");
    other.log->add(file);
    log_.info("lost");
    other.log->info("kept");
    EXPECT_EQ(file->owner(), other.log);
    EXPECT_EQ(bytes(), beginning() + "-- ** ** ** --\n> XCGLogger appending log to: file://" + path_ + "\n> kept\n");
}

// --- Targets ---

TEST_F(FileDestinationTest, TakesItsTargetInEveryForm) {
    const std::vector<FileTarget> targets{path_.c_str(),
                                          std::string_view(path_),
                                          path_,
                                          std::filesystem::path(path_),
                                          URL::fileURL(path_),
                                          std::any(path_),
                                          std::any(URL::fileURL(path_)),
                                          std::any(std::filesystem::path(path_))};
    for (const FileTarget& target : targets) {
        std::filesystem::remove(path_);
        const auto file = make<FileDestination>(nullptr, target, "file");
        hideColumns(*file);
        log_.add(file);
        EXPECT_EQ(bytes(), beginning());
        log_.remove(file);
    }
}

TEST_F(FileDestinationTest, TakesTextAsAPathAlsoIfItLooksLikeAURL) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder_.path());
    std::filesystem::create_directories("file:/x");
    const auto file = make<FileDestination>(nullptr, "file:///x/app.log", "file");
    log_.add(file);
    std::filesystem::current_path(before);
    EXPECT_TRUE(file->isOpen());
    EXPECT_TRUE(std::filesystem::exists(folder_ / "file:/x/app.log"));
}

TEST_F(FileDestinationTest, NeverWritesToWhatIsNoFile) {
    for (const FileTarget& target :
         {FileTarget(URL::parse("https://example.com/app.log").value()), FileTarget(std::any(42)),
          FileTarget(std::any()), FileTarget(std::any(URL::parse("http://example.com").value())), FileTarget(URL())}) {
        const auto file = make<FileDestination>(nullptr, target, "file");
        EXPECT_EQ(file->writeToFileURL(), std::nullopt);
        log_.add(file);
        EXPECT_FALSE(file->isOpen());
        log_.error("lost");
        std::vector<bool> answers;
        EXPECT_FALSE(file->rotateFile(archive_, [&](bool success) { answers.push_back(success); }));
        EXPECT_THAT(answers, ElementsAre(false));
        log_.remove(file);
    }
    EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
    EXPECT_THAT(otherLines(), testing::Each("> lost"));
}

TEST_F(FileDestinationTest, GoesOnInAnotherFileWhenItIsGivenOne) {
    const auto file = addFile();
    log_.info("one");
    file->setWriteToFileURL(folder_ / "other.log");
    log_.info("two");
    EXPECT_EQ(file->writeToFileURL(), URL::fileURL(folder_ / "other.log"));
    EXPECT_EQ(bytes(), beginning() + "> one\n");
    EXPECT_EQ(readFile(folder_ / "other.log"),
              "> XCGLogger writing log to: file://" + (folder_ / "other.log") + "\n> two\n");
}

TEST_F(FileDestinationTest, ClosesItsFileWhenItIsGivenNone) {
    const auto file = addFile();
    file->setWriteToFileURL(std::nullopt);
    EXPECT_FALSE(file->isOpen());
    EXPECT_EQ(file->writeToFileURL(), std::nullopt);
    log_.info("lost");
    EXPECT_EQ(bytes(), beginning());
    file->setWriteToFileURL(path_);
    EXPECT_TRUE(file->isOpen());
    file->setWriteToFileURL(std::any(42));
    EXPECT_FALSE(file->isOpen());
}

TEST_F(FileDestinationTest, OpensAnotherFileOnlyWithAnOwner) {
    const auto file = makeFile();
    file->setWriteToFileURL(folder_ / "other.log");
    EXPECT_FALSE(file->isOpen());
    EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
    log_.add(file);
    EXPECT_TRUE(std::filesystem::exists(folder_ / "other.log"));
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(FileDestinationTest, FollowsALinkToTheFile) {
    writeFile(folder_ / "target", "old\n");
    std::filesystem::create_symlink(folder_ / "target", path_);
    addFile(/*shouldAppend=*/true, std::nullopt);
    EXPECT_EQ(readFile(folder_ / "target"), "old\n" + beginning("appending"));
    EXPECT_TRUE(std::filesystem::is_symlink(path_));
}

// --- Attributes ---

TEST_F(FileDestinationTest, MakesFilesForTheUserAndTheGroupLessTheUmask) {
    const mode_t before = ::umask(022);
    log_.remove(addFile());
    EXPECT_EQ(permissionsOf(path_), 0640U);
    std::filesystem::remove(path_);
    ::umask(077);
    log_.remove(addFile());
    EXPECT_EQ(permissionsOf(path_), 0600U);
    ::umask(before);
}

TEST_F(FileDestinationTest, GivesItsAttributesToTheFilesItMakes) {
    const FileAttributes attributes{{FileAttributeKey::posixPermissions, 0604}, {"no such attribute", 1}};
    const auto file = make<FileDestination>(nullptr, path_, "file", false, std::nullopt, attributes);
    ASSERT_TRUE(file->fileAttributes());
    log_.add(file);
    EXPECT_EQ(permissionsOf(path_), 0604U);
    file->setFileAttributes(FileAttributes{{FileAttributeKey::posixPermissions, 0600}});
    ASSERT_TRUE(file->rotateFile(archive_));
    EXPECT_EQ(permissionsOf(archive_), 0604U);
    EXPECT_EQ(permissionsOf(path_), 0600U);
}

TEST_F(FileDestinationTest, LeavesTheAttributesOfAFileItAppendsTo) {
    writeFile(path_, "old\n");
    ASSERT_EQ(::chmod(path_.c_str(), 0600), 0);
    log_.add(make<FileDestination>(nullptr, path_, "file", true, std::nullopt,
                                   FileAttributes{{FileAttributeKey::posixPermissions, 0644}}));
    EXPECT_EQ(permissionsOf(path_), 0600U);
}

// --- Writing ---

TEST_F(FileDestinationTest, HasWrittenALineWhenTheCallReturns) {
    addFile();
    std::string expected = beginning();
    for (int i = 0; i < 100; ++i) {
        log_.info("{}", i);
        expected += "> " + std::to_string(i) + "\n";
        ASSERT_EQ(bytes(), expected);
    }
}

TEST_F(FileDestinationTest, EndsEachLineWithExactlyOneLineFeed) {
    addFile();
    for (const char* const message : {"a", "b\n", "c\n\n", "d\ne", ""}) {
        log_.info(message);
    }
    EXPECT_EQ(bytes(), beginning() + "> a\n> b\n> c\n> d\ne\n> \n");
}

TEST_F(FileDestinationTest, DropsALineThatIsNoTextAndWritesTheNext) {
    addFile();
    for (const char* const bad : {"\xff", "cut off \xc3", "overlong \xc0\xaf", "surrogate \xed\xa0\x80"}) {
        testing::internal::CaptureStdout();
        log_.info(bad);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    }
    log_.info("grüße 日本語 👩‍👩‍👧");
    EXPECT_EQ(bytes(), beginning() + "> grüße 日本語 👩‍👩‍👧\n");
}

TEST_F(FileDestinationTest, WritesANulByte) {
    addFile();
    log_.info(std::string("a\0b", 3));
    EXPECT_EQ(bytes(), beginning() + std::string("> a\0b\n", 6));
}

TEST_F(FileDestinationTest, WritesAMessageOfTenMegabytes) {
    const auto file = addFile();
    std::string message;
    message.resize(10'000'000, 'x');
    log_.info(message);
    const auto queue = DispatchQueue::make("file");
    file->setLogQueue(queue);
    log_.info(message);
    log_.info("after");
    queue->drain();
    EXPECT_TRUE(bytes() == beginning() + "> " + message + "\n> " + message + "\n> after\n");
}

TEST_F(FileDestinationTest, WritesLineNumbersAtBothEndsOfTheirRange) {
    addFile()->setShowLineNumber(true);
    log_.info("first", SourceLocation("f", "f.cpp", std::numeric_limits<std::int64_t>::min()));
    log_.info("last", SourceLocation("f", "f.cpp", std::numeric_limits<std::int64_t>::max()));
    EXPECT_EQ(bytes(), beginning() + "[-9223372036854775808] > first\n[9223372036854775807] > last\n");
}

TEST_F(FileDestinationTest, WorksWithAnEmptyIdentifier) {
    const auto file = make<FileDestination>(nullptr, path_, "");
    hideColumns(*file);
    ASSERT_TRUE(log_.add(file));
    EXPECT_EQ(log_.destination(""), file);
    log_.info("hello");
    EXPECT_EQ(bytes(), beginning() + "> hello\n");
    EXPECT_TRUE(file->rotateFile(archive_));
    EXPECT_EQ(attributeOf(archive_, "user.tamberlo.xcglogger.archived.by"), "");
}

TEST_F(FileDestinationTest, FiltersAndFormatsItsLines) {
    const auto file = addFile();
    file->setFilters(
        {{filter([](LogDetails& logDetails, std::string& /*message*/) { return logDetails.message == "secret"; })}});
    file->setFormatters({{appending(" formatted")}});
    log_.info("secret");
    log_.info("open");
    EXPECT_EQ(bytes(), beginning() + "> open formatted\n");
}

TEST(FileDestinationDeathTest, CannotBeMadeWithoutAFile) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    EXPECT_DEATH(make<FileDestination>(nullptr, std::string("file")),
                 "unimplemented initializer 'init\\(owner:identifier:\\)' for class 'XCGLogger\\.FileDestination'");
#pragma GCC diagnostic pop
}

// --- Flushing ---

TEST_F(FileDestinationTest, CallsTheClosureOfAFlushAtOnceWithoutAQueue) {
    const auto file = addFile();
    int calls = 0;
    file->flush([&] { ++calls; });
    EXPECT_EQ(calls, 1);
    file->flush();
    log_.remove(file);
    file->flush([&] { ++calls; });
    EXPECT_EQ(calls, 2) << "also without an open file";
}

TEST_F(FileDestinationTest, CallsTheClosureOfAFlushOnTheQueueAfterEverythingBefore) {
    const auto file = addFile();
    const auto queue = DispatchQueue::make("file");
    file->setLogQueue(queue);
    std::vector<std::string> found;
    {
        const Gate gate(*queue);
        log_.info("one");
        log_.info("two");
        file->flush([&] {
            EXPECT_TRUE(queue->isCurrent());
            found.push_back(bytes());
        });
        log_.info("three");
        EXPECT_TRUE(found.empty());
    }
    queue->drain();
    ASSERT_EQ(found.size(), 1U);
    EXPECT_TRUE(found[0].starts_with(beginning() + "> one\n> two\n")) << found[0];
    EXPECT_EQ(bytes(), beginning() + "> one\n> two\n> three\n");
}

TEST_F(FileDestinationTest, LetsTheClosureOfAFlushLog) {
    const auto file = addFile();
    file->flush([&] { log_.info("flushed"); });
    EXPECT_EQ(bytes(), beginning() + "> flushed\n");
}

TEST_F(FileDestinationTest, ReportsAnExceptionOfAFlushsClosure) {
    const auto file = addFile();
    testing::internal::CaptureStdout();
    file->flush([] { throw std::runtime_error("closure broke"); });
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Objective-C Exception occurred: closure broke\n");
}

// --- Overrides ---

TEST_F(FileDestinationTest, AsksOverridesForWhatItDoes) {
    class Overriding : public FileDestination {
    public:
        using FileDestination::FileDestination;
        bool shouldAppend() const override { return true; }
        const std::optional<std::string>& appendMarker() const override {
            static const std::optional<std::string> marker = "overridden marker";
            return marker;
        }
        void write(std::string_view message) override { FileDestination::write("! " + std::string(message)); }
        bool rotateFile(const FileTarget& to, const std::function<void(bool success)>& closure) override {
            owner()->info("rotating");
            return FileDestination::rotateFile(to, closure);
        }
    };
    writeFile(path_, "old\n");
    const auto file = make<Overriding>(nullptr, path_, "file");
    hideColumns(*file);
    file->setOutputLevel(Level::warning);
    log_.add(file);
    log_.warning("hello");
    EXPECT_EQ(bytes(), "old\noverridden marker\n! > XCGLogger appending log to: file://" + path_ + "\n! > hello\n");
    EXPECT_TRUE(static_cast<FileDestination&>(*file).rotateFile(archive_));
    EXPECT_THAT(otherLines(), testing::Contains("> rotating"));
}

TEST_F(FileDestinationTest, ReachesOverridesAlreadyWhenItIsMadeWithAnOwner) {
    class Overriding : public FileDestination {
    public:
        using FileDestination::FileDestination;
        void write(std::string_view message) override {
            FileDestination::write(message);
            ++writes;
        }
        int writes = 0;
    };
    const auto file = make<Overriding>(logger_.log, path_, "file");
    EXPECT_EQ(file->writes, 3) << "the header's two lines and the announcement";
    file->setOwner(nullptr);
}

}  // namespace
}  // namespace velora::test
