// What becomes of lines when the process has used up its file descriptors for a time.

#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "reliability/FaultyCalls.h"
#include "reliability/LoggedLines.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;

/// Uses up all descriptors that the process may have as long as it lives.
class NoDescriptors {
public:
    NoDescriptors() {
        ::getrlimit(RLIMIT_NOFILE, &before_);
        rlimit few = before_;
        few.rlim_cur = 64;
        ::setrlimit(RLIMIT_NOFILE, &few);
        useUp();
    }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;
    ~NoDescriptors() {
        for (const int descriptor : taken_) {
            ::close(descriptor);
        }
        ::setrlimit(RLIMIT_NOFILE, &before_);
    }
    /// Takes those, too, that were let go since.
    void useUp() {
        for (int descriptor = ::dup(STDERR_FILENO); descriptor >= 0; descriptor = ::dup(STDERR_FILENO)) {
            taken_.push_back(descriptor);
        }
    }

private:
    rlimit before_{};
    std::vector<int> taken_;
};

/// A destination that takes every free descriptor when it hears of a rotation, as another thread may.
class TakingDescriptors : public BaseDestination {
public:
    using BaseDestination::BaseDestination;
    void output(LogDetails& logDetails, std::string& /*message*/) override {
        if (shortage != nullptr && logDetails.message.starts_with("Rotated file ")) {
            shortage->useUp();
        }
    }

    NoDescriptors* shortage = nullptr;
};

class NoDescriptorsTest : public testing::TestWithParam<Mode> {
protected:
    void SetUp() override {
#if defined(__SANITIZE_ADDRESS__)
        // It comes with the one for undefined behaviour.
        GTEST_SKIP() << "this sanitizer looks at objects through a pipe, for which there are no descriptors";
#endif
    }

    TemporaryFolder folder_;
    const std::string path_ = folder_ / "app.log";
    LoggedFile file_{GetParam(), path_};
};

INSTANTIATE_TEST_SUITE_P(InEachMode, NoDescriptorsTest, testing::ValuesIn(allModes), nameOf);

TEST_P(NoDescriptorsTest, OpeningIsReportedAndDoneWhenThereAreSomeAgain) {
    file_.keepPending();
    {
        const NoDescriptors shortage;
        file_.open();
        EXPECT_THAT(file_.errors(), ElementsAre("Attempt to open log file for writing failed: The file “" + path_ +
                                                "” couldn’t be opened for writing: Too many open files"));
        file_.logAndSettle(0, 5);
    }
    FaultyCalls::passTime(untilTheNextLook);
    file_.logAndSettle(5, 10);
    EXPECT_EQ(file_.found().numbers, numbersFrom(5, 10));
    EXPECT_THAT(file_.found().internal, Not(IsEmpty()));
    EXPECT_THAT(file_.found().torn, IsEmpty());
}

TEST_P(NoDescriptorsTest, WritingAndRotatingNeedNoneBeyondThatOfTheFile) {
    file_.open();
    const std::string printed = printedBy([&] {
        const NoDescriptors shortage;
        file_.logAndSettle(0, 200);
    });
    EXPECT_EQ(printed, "");
    EXPECT_THAT(file_.errors(), IsEmpty());
    EXPECT_EQ(file_.archives().empty(), GetParam().maxFileSize == 0);
    EXPECT_EQ(file_.found().numbers, numbersFrom(0, 200));
    EXPECT_THAT(file_.found().torn, IsEmpty());
}

TEST_P(NoDescriptorsTest, ARotationThatReportsToOneWhoTakesTheLastIsOverByThen) {
    const auto taking = make<TakingDescriptors>(nullptr, "taking");
    file_.logger().add(taking);
    file_.open();
    file_.logAndSettle(0, 5);
    {
        NoDescriptors shortage;
        taking->shortage = &shortage;
        EXPECT_TRUE(file_.file().rotateFile(folder_ / "archive"));
        taking->shortage = nullptr;
        EXPECT_THAT(file_.errors(), IsEmpty());
        file_.logAndSettle(5, 10);
    }
    FaultyCalls::passTime(untilTheNextLook);
    file_.logAndSettle(10, 15);
    EXPECT_EQ(linesOf(readFile(folder_ / "archive")).numbers, numbersFrom(0, 5));
    EXPECT_EQ(file_.found().numbers, numbersFrom(5, 15));
}

TEST_P(NoDescriptorsTest, AReplacedFileIsWrittenOnUntilThereAreSomeAgain) {
    file_.open();
    file_.logAndSettle(0, 5);
    std::filesystem::rename(path_, folder_ / "moved");
    {
        const NoDescriptors shortage;
        FaultyCalls::passTime(untilTheNextLook);
        file_.logAndSettle(5, 10);
    }
    FaultyCalls::passTime(untilTheNextLook);
    file_.logAndSettle(10, 15);
    EXPECT_EQ(linesOf(readFile(folder_ / "moved")).numbers, numbersFrom(0, 10));
    EXPECT_EQ(file_.found().numbers, numbersFrom(10, 15));
}

/// While the new file is opened with the descriptor of the old one, lines of other threads wait in the buffer.
TEST(NoDescriptors, RotatingLosesNoLineThatAnotherThreadLogsMeanwhile) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "this sanitizer looks at objects through a pipe, for which there are no descriptors";
#endif
    const TemporaryFolder folder;
    const auto log = make<XCGLogger>("app", false);
    const auto file = make<FileDestination>(nullptr, folder / "app.log", "file", true);
    file->setWriteBufferCapacity(1'048'576);
    log->add(file);
    constexpr int rotations = 50;
    std::atomic<bool> isDone = false;
    int logged = 0;
    {
        const NoDescriptors shortage;
        std::thread writer([&] {
            while (!isDone) {
                log->info("line {}.", logged++);
            }
        });
        for (int rotation = 0; rotation < rotations; ++rotation) {
            EXPECT_TRUE(file->rotateFile(folder / std::to_string(rotation)));
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        isDone = true;
        writer.join();
    }
    log->remove(file);
    int found = 0;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        const std::string text = readFile(entry.path());
        for (std::size_t at = text.find("> line "); at != std::string::npos; at = text.find("> line ", at + 1)) {
            ++found;
        }
    }
    EXPECT_EQ(found, logged);
}

}  // namespace
}  // namespace velora::test
