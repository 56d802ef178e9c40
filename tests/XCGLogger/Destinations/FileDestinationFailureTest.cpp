// What a file destination does when its file cannot be made, opened or written, or is gone.

#include <chrono>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
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

TEST_F(FileDestinationTest, TellsTheOthersWhyAFileCannotBeMade) {
    ASSERT_EQ(::chmod(folder_.path().c_str(), 0555), 0);
    const std::string path = folder_ / "app.log";
    EXPECT_EQ(resultOfForkedChild([&] {
                  if (::getuid() == 0 && ::setuid(65'534) != 0) {
                      return 2;
                  }
                  log_.add(make<FileDestination>(nullptr, path, "file"));
                  return otherLines() ==
                                 std::vector<std::string>{"> Attempt to open log file for writing failed: The file “" +
                                                          path + "” couldn’t be opened for writing: Permission denied"}
                             ? 0
                             : 1;
              }),
              0);
    ::chmod(folder_.path().c_str(), 0755);
}

TEST_F(FileDestinationTest, TellsTheOthersThatAFolderIsMissing) {
    const std::string path = folder_ / "missing/app.log";
    const auto file = make<FileDestination>(nullptr, path, "file");
    log_.add(file);
    EXPECT_FALSE(file->isOpen());
    EXPECT_THAT(otherLines(), ElementsAre("> Attempt to open log file for writing failed: The file “" + path +
                                          "” couldn’t be opened for writing: No such file or directory"));
    EXPECT_EQ(logger_.recording->records().at(0).level, Level::error);
    log_.error("lost");
    EXPECT_FALSE(std::filesystem::exists(folder_ / "missing"));
    std::filesystem::create_directory(folder_ / "missing");
    file->setOwner(logger_.log);
    EXPECT_TRUE(file->isOpen());
}

TEST_F(FileDestinationTest, TellsTheOthersThatItsTargetIsAFolder) {
    const auto file = make<FileDestination>(nullptr, folder_.path(), "file");
    log_.add(file);
    EXPECT_FALSE(file->isOpen());
    EXPECT_THAT(otherLines(),
                ElementsAre("> Attempt to open log file for writing failed: The file “" + folder_.path().string() +
                            "” couldn’t be opened for writing: Is a directory"));
    log_.remove(file);
    logger_.recording->clear();
    log_.add(make<FileDestination>(nullptr, folder_.path(), "file", /*shouldAppend=*/true));
    EXPECT_THAT(otherLines(),
                ElementsAre("> Attempt to open log file for appending failed: The file “" + folder_.path().string() +
                            "” couldn’t be opened for writing: Is a directory"));
}

TEST_F(FileDestinationTest, DoesNotReportItsOwnFailureToItself) {
    // At this level an announcement would come through, had the file been opened.
    const auto same = logger_.addRecording<>("file");
    const auto file = make<FileDestination>(logger_.log, folder_ / "missing/app.log", "file");
    EXPECT_THAT(same->lines(), ElementsAre()) << "the source is told by its identifier";
    EXPECT_EQ(otherLines().size(), 1U);
    file->setOwner(nullptr);
}

TEST_F(FileDestinationTest, TellsTheOthersThatAFileIsReadOnly) {
    writeFile(path_, "old\n");
    ASSERT_EQ(::chmod(path_.c_str(), 0444), 0);
    ASSERT_EQ(::chmod(folder_.path().c_str(), 0755), 0);
    const uid_t user = ::geteuid();
    if (user == 0) {
        ASSERT_EQ(::seteuid(65'534), 0) << "root may write to every file";
    }
    const auto file = addFile(/*shouldAppend=*/true);
    EXPECT_FALSE(file->isOpen());
    log_.info("lost here");
    EXPECT_THAT(otherLines(), ElementsAre("> Attempt to open log file for appending failed: The file “" + path_ +
                                              "” couldn’t be opened for writing: Permission denied",
                                          "> lost here"));
    EXPECT_EQ(bytes(), "old\n");
    ASSERT_EQ(::seteuid(user), 0);
}

TEST_F(FileDestinationTest, ReportsAFullDeviceForEachLineAndTriesTheNext) {
    const auto file = make<FileDestination>(nullptr, "/dev/full", "file");
    hideColumns(*file);
    const std::string report =
        "Objective-C Exception occurred: The file “/dev/full” couldn’t be written: No space left on device\n";
    testing::internal::CaptureStdout();
    log_.add(file);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), report + report + report) << "the header and the announcement";
    EXPECT_TRUE(file->isOpen());
    testing::internal::CaptureStdout();
    log_.info("one");
    log_.info("two");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), report + report);
    EXPECT_THAT(otherLines(), ElementsAre("> XCGLogger writing log to: file:///dev/full", "> one", "> two"));
    testing::internal::CaptureStdout();
    file->flush();
    log_.remove(file);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(FileDestinationTest, WritesBehindTheEndOfAFileThatWasCutShort) {
    addFile();
    log_.info("one");
    std::filesystem::resize_file(path_, 0);
    log_.info("two");
    EXPECT_EQ(bytes(), "> two\n");
}

constexpr auto longerThanTheNextLook = std::chrono::milliseconds(1'100);

TEST_F(FileDestinationTest, MakesARemovedFileAnew) {
    addFile();
    log_.info("one");
    std::filesystem::remove(path_);
    std::this_thread::sleep_for(longerThanTheNextLook);
    log_.info("two");
    EXPECT_EQ(bytes(), beginning() + "> two\n");
    EXPECT_EQ(permissionsOf(path_) & 0137U, 0U);
}

TEST_F(FileDestinationTest, GoesOnInTheFileThatTookItsPlace) {
    addFile();
    log_.info("one");
    std::filesystem::rename(path_, archive_);
    writeFile(path_, "another's\n");
    std::this_thread::sleep_for(longerThanTheNextLook);
    log_.info("two");
    EXPECT_EQ(readFile(archive_), beginning() + "> one\n");
    EXPECT_EQ(bytes(), "another's\n" + beginning("appending") + "> two\n");
}

TEST_F(FileDestinationTest, KeepsARemovedFileWhoseFolderIsGoneUntilItIsBack) {
    const std::string inner = folder_ / "inner";
    std::filesystem::create_directory(inner);
    const auto file = make<FileDestination>(nullptr, inner + "/app.log", "file");
    hideColumns(*file);
    log_.add(file);
    std::filesystem::rename(inner, folder_ / "moved");
    std::this_thread::sleep_for(longerThanTheNextLook);
    log_.info("one");
    EXPECT_TRUE(readFile(folder_ / "moved/app.log").ends_with("> one\n"));
    std::filesystem::create_directory(inner);
    std::this_thread::sleep_for(longerThanTheNextLook);
    log_.info("two");
    EXPECT_TRUE(readFile(inner + "/app.log").ends_with("> two\n"));
}

TEST_F(FileDestinationTest, BearsAnExceptionOfAFormatterAndKeepsTheLine) {
    const auto file = addFile();
    file->setFormatters({{formatter(
        [](LogDetails& /*logDetails*/, std::string& /*message*/) { throw std::runtime_error("formatter broke"); })}});
    testing::internal::CaptureStdout();
    log_.info("kept");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Objective-C Exception occurred: formatter broke\n");
    EXPECT_EQ(bytes(), beginning() + "> kept\n");
}

}  // namespace
}  // namespace velora::test
