#include <any>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "XCGLogger/Destinations/FileDestinationTestSupport.h"

namespace velora::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class FileRotationTest : public FileDestinationTest {
protected:
    /// Rotates to `to`; the success that both the closure (called once) and the result tell.
    std::optional<bool> rotate(FileDestination& file, const FileTarget& to) {
        std::vector<bool> answers;
        const bool success = file.rotateFile(to, [&](bool answer) { answers.push_back(answer); });
        return answers == std::vector<bool>{success} ? std::optional(success) : std::nullopt;
    }
};

TEST_F(FileRotationTest, MovesTheFileAndGoesOnInANewOne) {
    const auto file = addFile();
    log_.info("one");
    logger_.recording->clear();
    EXPECT_EQ(rotate(*file, archive_), true);
    EXPECT_EQ(readFile(archive_), beginning() + "> one\n");
    EXPECT_EQ(bytes(), beginning());
    EXPECT_THAT(otherLines(), ElementsAre("> Rotated file " + path_ + " to " + archive_,
                                          "> XCGLogger writing log to: file://" + path_));
    EXPECT_EQ(logger_.recording->records().at(0).level, Level::info);
    log_.info("two");
    EXPECT_EQ(bytes(), beginning() + "> two\n");
    EXPECT_EQ(readFile(archive_), beginning() + "> one\n");
}

TEST_F(FileRotationTest, WritesNoMarkerIntoTheNewFile) {
    writeFile(path_, "old\n");
    const auto file = addFile(/*shouldAppend=*/true);
    EXPECT_EQ(rotate(*file, archive_), true);
    EXPECT_EQ(readFile(archive_), "old\n-- ** ** ** --\n" + beginning("appending"));
    EXPECT_EQ(bytes(), beginning());
}

TEST_F(FileRotationTest, MarksTheArchiveWithItsIdentifierAndTheTime) {
    const auto file = make<FileDestination>(nullptr, path_, "größe");
    log_.add(file);
    const double before = secondsSince1970(currentDate());
    ASSERT_EQ(rotate(*file, archive_), true);
    const double after = secondsSince1970(currentDate());
    EXPECT_EQ(attributeOf(archive_, "user.tamberlo.xcglogger.archived.by"), "größe");
    const std::string time = attributeOf(archive_, "user.tamberlo.xcglogger.archived.at");
    EXPECT_THAT(time, testing::MatchesRegex("[0-9]+\\.[0-9]+"));
    EXPECT_LE(before, std::stod(time));
    EXPECT_GE(after, std::stod(time));
    EXPECT_EQ(shortestRoundTripText(std::stod(time)), time);
    EXPECT_EQ(attributeOf(path_, "user.tamberlo.xcglogger.archived.by"), "absent");
}

TEST_F(FileRotationTest, TakesTheArchiveInEveryForm) {
    const auto file = addFile();
    const auto name = [this](int i) { return folder_ / ("archive " + std::to_string(i)); };
    const std::vector<FileTarget> targets{name(0), URL::fileURL(name(1)), std::filesystem::path(name(2)),
                                          std::any(name(3))};
    for (const FileTarget& target : targets) {
        EXPECT_EQ(rotate(*file, target), true);
    }
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(readFile(name(i)), beginning());
    }
}

TEST_F(FileRotationTest, RefusesWhatIsNoFile) {
    const auto file = addFile();
    log_.info("one");
    logger_.recording->clear();
    EXPECT_EQ(rotate(*file, URL::parse("https://example.com/archive.log").value()), false);
    EXPECT_EQ(rotate(*file, std::any(42)), false);
    EXPECT_TRUE(file->isOpen());
    log_.info("two");
    EXPECT_EQ(bytes(), beginning() + "> one\n> two\n");
    EXPECT_THAT(otherLines(), ElementsAre("> two"));
}

TEST_F(FileRotationTest, RefusesAnArchiveThatExists) {
    const auto file = addFile();
    writeFile(archive_, "precious");
    log_.info("one");
    struct stat before {};
    ASSERT_EQ(::stat(path_.c_str(), &before), 0);
    EXPECT_EQ(rotate(*file, archive_), false);
    EXPECT_EQ(rotate(*file, folder_.path()), false) << "a folder";
    EXPECT_EQ(rotate(*file, path_), false) << "itself";
    struct stat after {};
    ASSERT_EQ(::stat(path_.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(readFile(archive_), "precious");
    EXPECT_TRUE(file->isOpen());
    EXPECT_TRUE(file->haveLoggedAppDetails());
    log_.info("two");
    EXPECT_EQ(bytes(), beginning() + "> one\n> two\n");
}

TEST_F(FileRotationTest, OpensTheFileAgainAndTellsTheOthersIfItCannotBeMoved) {
    const auto file = addFile(/*shouldAppend=*/true);
    log_.info("one");
    logger_.recording->clear();
    const std::string missing = folder_ / "missing/archive.log";
    EXPECT_EQ(rotate(*file, missing), false);
    log_.info("two");
    EXPECT_EQ(bytes(), beginning() + "> one\n-- ** ** ** --\n" + beginning("appending") + "> two\n");
    ASSERT_EQ(otherLines().size(), 3U);
    EXPECT_EQ(otherLines()[0], "> XCGLogger appending log to: file://" + path_);
    const FileResult<void> moved = FileManager::move(path_, missing);
    ASSERT_FALSE(moved);
    EXPECT_EQ(otherLines()[1],
              "> Unable to rotate file " + path_ + " to " + missing + ": " + moved.error().description);
    EXPECT_EQ(logger_.recording->records().at(1).level, Level::error);
    EXPECT_EQ(otherLines()[2], "> two");
}

TEST_F(FileRotationTest, RotatesAFileWhoseArchiveCannotBeMarkedAndTellsTheOthers) {
    // More than the value of an extended attribute can hold anywhere.
    const std::string identifier(70'000, 'i');
    const auto file = make<FileDestination>(nullptr, path_, identifier);
    hideColumns(*file);
    log_.add(file);
    logger_.recording->clear();
    EXPECT_EQ(rotate(*file, archive_), true);
    EXPECT_EQ(readFile(archive_), beginning());
    EXPECT_EQ(bytes(), beginning());
    ASSERT_EQ(otherLines().size(), 3U);
    EXPECT_TRUE(otherLines()[0].starts_with("> Unable to set extended file attributes on file " + archive_ + ": "))
        << otherLines()[0];
    EXPECT_THAT(otherLines()[0], HasSubstr("“" + archive_ + "”"));
    EXPECT_EQ(logger_.recording->records().at(0).level, Level::error);
    EXPECT_EQ(otherLines()[1], "> Rotated file " + path_ + " to " + archive_);
    EXPECT_EQ(attributeOf(archive_, "user.tamberlo.xcglogger.archived.by"), "absent");
    EXPECT_EQ(attributeOf(archive_, "user.tamberlo.xcglogger.archived.at"), "absent")
        << "not tried after the first one failed";
}

TEST_F(FileRotationTest, RotatesAFileWithoutAnOwnerSilently) {
    writeFile(path_, "old\n");
    const auto file = makeFile();
    EXPECT_EQ(rotate(*file, archive_), true);
    EXPECT_EQ(readFile(archive_), "old\n");
    EXPECT_FALSE(std::filesystem::exists(path_));
    EXPECT_EQ(rotate(*file, folder_ / "another"), false) << "there is no file to move";
    EXPECT_THAT(otherLines(), ElementsAre());
}

TEST_F(FileRotationTest, NeedsNoClosure) {
    const auto file = addFile();
    EXPECT_TRUE(file->rotateFile(archive_));
    EXPECT_FALSE(file->rotateFile(archive_));
}

TEST_F(FileRotationTest, LetsTheClosureLogAndRotate) {
    const auto file = addFile();
    file->rotateFile(archive_, [&](bool /*success*/) {
        log_.info("rotated");
        file->rotateFile(folder_ / "second");
    });
    EXPECT_EQ(readFile(folder_ / "second"), beginning() + "> rotated\n");
    EXPECT_EQ(bytes(), beginning());
}

TEST_F(FileRotationTest, ReportsAnExceptionOfTheClosureAndGoesOn) {
    const auto file = addFile();
    testing::internal::CaptureStdout();
    EXPECT_TRUE(file->rotateFile(archive_, [](bool /*success*/) { throw std::runtime_error("closure broke"); }));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Objective-C Exception occurred: closure broke\n");
    log_.info("after");
    EXPECT_EQ(bytes(), beginning() + "> after\n");
}

TEST_F(FileRotationTest, StartsNoRotationInTheMiddleOfAnother) {
    const auto file = addFile();
    std::optional<bool> inner = true;
    logger_.recording->setFilters({{filter([&](LogDetails& logDetails, std::string& /*message*/) {
        if (logDetails.message.starts_with("Rotated file")) {
            inner = rotate(*file, folder_ / "inner");
        }
        return false;
    })}});
    EXPECT_EQ(rotate(*file, archive_), true);
    EXPECT_EQ(inner, false);
    EXPECT_FALSE(std::filesystem::exists(folder_ / "inner"));
    EXPECT_EQ(bytes(), beginning());
}

TEST_F(FileRotationTest, ArchivesTheLinesThatWereOnTheQueue) {
    const auto file = addFile();
    const auto queue = DispatchQueue::make("file");
    file->setLogQueue(queue);
    std::atomic<bool> isRotating = false;
    file->setFilters({{filter([&](LogDetails& /*logDetails*/, std::string& /*message*/) {
        while (!isRotating) {
            std::this_thread::yield();
        }
        return false;
    })}});
    log_.info("one");
    log_.info("two");
    isRotating = true;
    EXPECT_EQ(rotate(*file, archive_), true);
    log_.info("three");
    queue->drain();
    EXPECT_EQ(readFile(archive_), beginning() + "> one\n> two\n");
    EXPECT_EQ(bytes(), "> Rotated file " + path_ + " to " + archive_ + "\n" + beginning() + "> three\n");
}

TEST_F(FileRotationTest, RotatesFromWorkOfItsOwnQueue) {
    const auto file = addFile();
    const auto queue = DispatchQueue::make("file");
    file->setLogQueue(queue);
    log_.info("one");
    queue->sync([&] { EXPECT_EQ(rotate(*file, archive_), true); });
    log_.info("two");
    queue->drain();
    EXPECT_EQ(readFile(archive_), beginning() + "> one\n");
    EXPECT_THAT(bytes(), HasSubstr("> two\n"));
}

TEST_F(FileDestinationTest, WritesTheLinesOnItsQueueBeforeItIsRemoved) {
    const auto file = addFile();
    file->setLogQueue(DispatchQueue::make("file"));
    std::atomic<bool> isLeaving = false;
    file->setFilters({{filter([&](LogDetails& /*logDetails*/, std::string& /*message*/) {
        while (!isLeaving) {
            std::this_thread::yield();
        }
        return false;
    })}});
    std::string expected = beginning();
    for (int i = 0; i < 100; ++i) {
        log_.info("{}", i);
        expected += "> " + std::to_string(i) + "\n";
    }
    isLeaving = true;
    log_.remove(file);
    EXPECT_EQ(bytes(), expected);
}

TEST_F(FileDestinationTest, WritesTheLinesOnItsQueueToTheFileTheyWereLoggedFor) {
    const auto file = addFile();
    file->setLogQueue(DispatchQueue::make("file"));
    std::atomic<bool> isChanging = false;
    file->setFilters({{filter([&](LogDetails& /*logDetails*/, std::string& /*message*/) {
        while (!isChanging) {
            std::this_thread::yield();
        }
        return false;
    })}});
    log_.info("one");
    isChanging = true;
    file->setWriteToFileURL(folder_ / "other.log");
    log_.info("two");
    file->logQueue()->drain();
    EXPECT_EQ(bytes(), beginning() + "> one\n");
    EXPECT_TRUE(readFile(folder_ / "other.log").ends_with("> two\n"));
}

}  // namespace
}  // namespace velora::test
