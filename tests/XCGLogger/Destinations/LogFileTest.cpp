#include <chrono>
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/Destinations/LogFile.h>

#include "XCGLogger/Destinations/DestinationTestSupport.h"
#include "support/ForkedChild.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

using testing::ElementsAre;

class LogFileTest : public testing::Test {
protected:
    LogFileTest() {
        writeFile(path_, "");
        open(path_);
    }

    void open(const std::string& path) {
        FileResult<FileHandle> handle = FileHandle::openForWriting(path);
        ASSERT_TRUE(handle) << handle.error().description;
        file_.open(*std::move(handle));
    }
    std::string bytes() const { return readFile(path_); }

    TemporaryFolder folder_;
    std::string path_ = folder_ / "log";
    LogFile file_;
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

TEST_F(LogFileTest, WritesWhatIsPendingAndNothingBefore) {
    file_.append("one");
    file_.append("two");
    EXPECT_EQ(bytes(), "");
    EXPECT_EQ(file_.pendingBytes(), 8U);
    file_.writePending();
    EXPECT_EQ(bytes(), "one\ntwo\n");
    EXPECT_EQ(file_.pendingBytes(), 0U);
    file_.writePending();
    EXPECT_EQ(bytes(), "one\ntwo\n");
}

TEST_F(LogFileTest, EndsEachLineWithExactlyOneLineFeed) {
    for (const char* const line : {"a", "b\n", "c\n\n\n", "", "\n", "d\ne", "f\r\n", "\n\ng"}) {
        file_.append(line);
    }
    file_.writePending();
    EXPECT_EQ(bytes(), "a\nb\nc\n\n\nd\ne\nf\r\n\n\ng\n");
}

TEST_F(LogFileTest, WritesWhatIsPendingBeforeItCloses) {
    file_.append("one");
    file_.close();
    EXPECT_FALSE(file_.isOpen());
    EXPECT_EQ(bytes(), "one\n");
    file_.close();
}

TEST_F(LogFileTest, WritesWhatIsPendingToTheFileThatItWasMeantFor) {
    file_.append("one");
    writeFile(folder_ / "other", "");
    open(folder_ / "other");
    file_.append("two");
    file_.writePending();
    EXPECT_EQ(bytes(), "one\n");
    EXPECT_EQ(readFile(folder_ / "other"), "two\n");
}

TEST_F(LogFileTest, WritesWhatIsPendingWhenItSynchronizes) {
    file_.append("one");
    file_.synchronize();
    EXPECT_EQ(bytes(), "one\n");
    EXPECT_TRUE(file_.isOpen());
}

TEST_F(LogFileTest, ForgetsWhatIsPendingWithoutAFile) {
    file_.close();
    file_.append("lost");
    file_.writePending();
    file_.synchronize();
    EXPECT_EQ(file_.pendingBytes(), 0U);
    open(path_);
    file_.append("kept");
    file_.writePending();
    EXPECT_EQ(bytes(), "kept\n");
}

TEST_F(LogFileTest, ReportsAWriteThatFailsAndTriesTheNextLines) {
    open("/dev/full");
    file_.append("one");
    file_.append("two");
    testing::internal::CaptureStdout();
    file_.writePending();
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Objective-C Exception occurred: The file “/dev/full” couldn’t be written: No space left on device\n"
              "Objective-C Exception occurred: The file “/dev/full” couldn’t be written: No space left on device\n");
    EXPECT_EQ(file_.pendingBytes(), 0U);
}

TEST_F(LogFileTest, BeginsANewLineAfterOneThatAFullDiskCutOff) {
    const std::string filler(5'000, 'x');
    file_.append(filler);
    file_.writePending();
    file_.append("one");
    file_.append("a line that is cut off");
    file_.append("lost");
    testing::internal::CaptureStdout();
    {
        const FullDisk full(5'001 + 4 + 6);
        file_.writePending();
    }
    const std::string report =
        "Objective-C Exception occurred: The file “" + path_ + "” couldn’t be written: File too large\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), report + report);
    file_.append("two");
    file_.append("three");
    file_.writePending();
    file_.append("four");
    file_.writePending();
    EXPECT_EQ(bytes(), filler + "\none\na line\ntwo\nthree\nfour\n");
}

TEST_F(LogFileTest, LosesOnlyTheLinesThatDoNotFitOnAFullDisk) {
    const std::string filler(5'000, 'x');
    file_.append(filler);
    file_.writePending();
    file_.append("one");
    file_.append("two");
    testing::internal::CaptureStdout();
    {
        const FullDisk full(5'001 + 4);
        file_.writePending();
    }
    EXPECT_EQ(splitLines(testing::internal::GetCapturedStdout()).size(), 1U);
    file_.append("three");
    file_.writePending();
    EXPECT_EQ(bytes(), filler + "\none\nthree\n");
}

TEST_F(LogFileTest, AppendsToAFileThatWasCutShort) {
    file_.append("one");
    file_.writePending();
    std::filesystem::resize_file(path_, 0);
    file_.append("two");
    file_.writePending();
    EXPECT_EQ(bytes(), "two\n");
}

TEST_F(LogFileTest, TellsWhetherItsPathStillNamesIt) {
    EXPECT_TRUE(file_.isStillAt(path_));
    std::filesystem::rename(path_, folder_ / "other");
    EXPECT_FALSE(file_.isStillAt(path_));
    EXPECT_TRUE(file_.isStillAt(folder_ / "other"));
    writeFile(path_, "");
    EXPECT_FALSE(file_.isStillAt(path_));
}

TEST_F(LogFileTest, LooksAtMostOnceASecond) {
    EXPECT_FALSE(file_.isTimeToLook());
    std::this_thread::sleep_for(std::chrono::milliseconds(1'100));
    EXPECT_TRUE(file_.isTimeToLook());
    EXPECT_FALSE(file_.isTimeToLook());
}

TEST_F(LogFileTest, KeepsTheLinesLeftByOtherThreadsInTheirOrder) {
    EXPECT_FALSE(file_.hasLeft());
    std::thread([this] {
        file_.leave("one");
        file_.leave("two");
    }).join();
    EXPECT_TRUE(file_.hasLeft());
    EXPECT_THAT(file_.takeLeft(), ElementsAre("one", "two"));
    EXPECT_FALSE(file_.hasLeft());
    EXPECT_THAT(file_.takeLeft(), ElementsAre());
}

TEST_F(LogFileTest, LeavesToTheParentWhatWasPendingAtAFork) {
    file_.append("parent's");
    file_.leave("parent's, too");
    EXPECT_EQ(resultOfForkedChild([this] {
                  file_.writePending();
                  if (!file_.takeLeft().empty()) {
                      return 1;
                  }
                  file_.append("child's");
                  file_.leave("child's, too");
                  file_.writePending();
                  return file_.takeLeft().size() == 1 ? 0 : 2;
              }),
              0);
    EXPECT_EQ(bytes(), "child's\n");
    file_.writePending();
    EXPECT_EQ(bytes(), "child's\nparent's\n");
    EXPECT_THAT(file_.takeLeft(), ElementsAre("parent's, too"));
}

}  // namespace
}  // namespace velora::test
