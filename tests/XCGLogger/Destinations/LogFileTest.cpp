#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <unistd.h>

#include <Velora_UserDefaults/XCGLogger/Destinations/LogFile.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/ForkedChild.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

class LogFileTest : public testing::Test {
protected:
    LogFileTest() {
        writeFile(path_, "");
        open(path_);
    }

    void open(const std::string& path) {
        FileResult<FileHandle> handle = FileHandle::openForWriting(path);
        ASSERT_TRUE(handle) << handle.error().description;
        file_ = std::make_unique<LogFile>(*std::move(handle));
    }
    void write(std::string_view text) const {
        WriteFailures failures;
        file_->write(text, failures);
    }
    std::string bytes() const { return readFile(path_); }

    TemporaryFolder folder_;
    std::string path_ = folder_ / "log";
    std::unique_ptr<LogFile> file_;
};

/// Keeps this process from making files longer than `size` bytes, as a disk does that is full, while it lives.
class FullDisk {
public:
    explicit FullDisk(rlim_t size) : handlerBefore_(::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{.rlim_cur = size, .rlim_max = before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
    ~FullDisk() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        ::signal(SIGXFSZ, handlerBefore_);
    }

private:
    rlimit before_{};
    sighandler_t handlerBefore_;
};

TEST_F(LogFileTest, ReportsAWriteThatFailsAndTriesTheNextLines) {
    open("/dev/full");
    testing::internal::CaptureStdout();
    write("one\ntwo\n");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Objective-C Exception occurred: The file “/dev/full” couldn’t be written: No space left on device\n"
              "Objective-C Exception occurred: The file “/dev/full” couldn’t be written: No space left on device\n");
}

TEST_F(LogFileTest, BeginsANewLineAfterOneThatAFullDiskCutOff) {
    const std::string filler(5'000, 'x');
    write(filler + "\n");
    testing::internal::CaptureStdout();
    {
        const FullDisk full(5'001 + 4 + 6);
        write("one\na line that is cut off\nlost\n");
    }
    const std::string report =
        "Objective-C Exception occurred: The file “" + path_ + "” couldn’t be written: File too large\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), report + report);
    write("two\nthree\n");
    write("four\n");
    EXPECT_EQ(bytes(), filler + "\none\na line\ntwo\nthree\nfour\n");
}

TEST_F(LogFileTest, LosesOnlyTheLinesThatDoNotFitOnAFullDisk) {
    const std::string filler(5'000, 'x');
    write(filler + "\n");
    testing::internal::CaptureStdout();
    {
        const FullDisk full(5'001 + 4);
        write("one\ntwo\n");
    }
    EXPECT_EQ(splitLines(testing::internal::GetCapturedStdout()).size(), 1U);
    write("three\n");
    EXPECT_EQ(bytes(), filler + "\none\nthree\n");
}

TEST_F(LogFileTest, ReportsALineBeyondTheProcessesLimitWithoutBeingEnded) {
    write("first\n");
    testing::internal::CaptureStdout();
    EXPECT_EQ(resultOfForkedChild([this] {
                  ::signal(SIGXFSZ, SIG_DFL);
                  rlimit before{};
                  ::getrlimit(RLIMIT_FSIZE, &before);
                  WriteFailures failures;  // which standard output, a file here, gets without a limit
                  const rlimit limit{.rlim_cur = 20, .rlim_max = before.rlim_max};
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  file_->readLimit();
                  for (const char* const line : {"second\n", "third, which is cut off\n", "fourth\n"}) {
                      file_->write(line, failures);
                  }
                  ::setrlimit(RLIMIT_FSIZE, &before);
                  return 0;
              }),
              0);
    const std::string report =
        "Objective-C Exception occurred: The file “" + path_ + "” couldn’t be written: File too large\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), report + report);
    EXPECT_EQ(bytes(), "first\nsecond\nthird, ");
}

TEST_F(LogFileTest, AppendsToAFileThatWasCutShort) {
    write("one\n");
    std::filesystem::resize_file(path_, 0);
    write("two\n");
    EXPECT_EQ(bytes(), "two\n");
}

TEST_F(LogFileTest, BeginsALineInAFileThatEndsInsideOne) {
    writeFile(path_, "cut o");
    file_->beginLine();
    write("one\n");
    EXPECT_EQ(bytes(), "cut o\none\n");
    file_->beginLine();
    write("two\n");
    EXPECT_EQ(bytes(), "cut o\none\ntwo\n");
}

TEST_F(LogFileTest, TellsWhetherItsPathStillNamesIt) {
    EXPECT_TRUE(file_->isStillAt(path_));
    std::filesystem::rename(path_, folder_ / "other");
    EXPECT_FALSE(file_->isStillAt(path_));
    EXPECT_TRUE(file_->isStillAt(folder_ / "other"));
    writeFile(path_, "");
    EXPECT_FALSE(file_->isStillAt(path_));
}

}  // namespace
}  // namespace velora::test
