// What becomes of lines when logrotate(8) rotates the file of a program that logs.

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "reliability/FaultyCalls.h"
#include "reliability/LoggedLines.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

using testing::IsEmpty;

constexpr const char* program = "/usr/sbin/logrotate";

/// A mode whose own rotations do not come in between.
Mode withoutOwnRotations(Mode mode) {
    mode.maxFileSize = mode.maxFileSize == 0 ? 0 : 1'000'000'000;
    return mode;
}

class Logrotate : public testing::TestWithParam<Mode> {
protected:
    void SetUp() override {
        if (::access(program, X_OK) != 0) {
            GTEST_SKIP() << "there is no " << program;
        }
        file_.open();
    }

    /// Has logrotate rotate the file now in a way ("create" or "copytruncate"); returns whether it succeeded.
    bool rotate(const std::string& way) const {
        const std::string configuration = folder_ / "logrotate.conf";
        writeFile(configuration, path_ + " {\n    rotate 100\n    nocompress\n    " + way + "\n}\n");
        ::chmod(configuration.c_str(), 0600);
        const std::string state = folder_ / "state";
        const pid_t child = ::fork();
        if (child == 0) {
            ::execl(program, program, "--force", "--state", state.c_str(), configuration.c_str(), nullptr);
            ::_exit(127);
        }
        int status = -1;
        ::waitpid(child, &status, 0);
        return status == 0;
    }
    /// What logrotate has archived, the oldest first, and the file itself.
    std::vector<std::string> files() const {
        std::vector<std::string> paths{path_};
        for (int number = 1; std::filesystem::exists(path_ + "." + std::to_string(number)); ++number) {
            paths.push_back(path_ + "." + std::to_string(number));
        }
        std::ranges::reverse(paths);
        return paths;
    }

    TemporaryFolder folder_;
    const std::string path_ = folder_ / "app.log";
    LoggedFile file_{withoutOwnRotations(GetParam()), path_};
};

INSTANTIATE_TEST_SUITE_P(InEachMode, Logrotate, testing::ValuesIn(allModes), nameOf);

TEST_P(Logrotate, ThatCopiesAndTruncatesLeavesNoHoleAndLosesNoLineOfAQuietProgram) {
    file_.logAndSettle(0, 50);
    ASSERT_TRUE(rotate("copytruncate"));
    file_.logAndSettle(50, 100);
    ASSERT_TRUE(rotate("copytruncate"));
    FaultyCalls::passTime(untilTheNextLook);
    file_.logAndSettle(100, 150);
    EXPECT_EQ(linesOf(readFile(path_ + ".2")).numbers, numbersFrom(0, 50));
    EXPECT_EQ(linesOf(readFile(path_ + ".1")).numbers, numbersFrom(50, 100));
    EXPECT_EQ(linesOf(readFile(path_)).numbers, numbersFrom(100, 150));
    for (const std::string& path : files()) {
        EXPECT_THAT(linesOf(readFile(path)).torn, IsEmpty()) << path;
    }
}

TEST_P(Logrotate, ThatCreatesIsFollowedWithinASecond) {
    file_.logAndSettle(0, 50);
    FaultyCalls::passTime(untilTheNextLook);
    file_.logAndSettle(50, 60);
    ASSERT_TRUE(rotate("create"));
    FaultyCalls::passTime(untilTheNextLook);
    file_.logAndSettle(60, 100);
    EXPECT_EQ(linesOf(readFile(path_ + ".1")).numbers, numbersFrom(0, 60));
    EXPECT_EQ(linesOf(readFile(path_)).numbers, numbersFrom(60, 100));
    for (const std::string& path : files()) {
        EXPECT_THAT(linesOf(readFile(path)).torn, IsEmpty()) << path;
    }
}

/// Logs numbered lines as fast as possible while it lives.
class Logging {
public:
    explicit Logging(LoggedFile& file)
        : thread_([this, &file] {
              while (!shallEnd_) {
                  file.log(next_, next_ + 10);
                  next_ += 10;
              }
          }) {}
    Logging(const Logging&) = delete;
    Logging& operator=(const Logging&) = delete;
    ~Logging() { end(); }
    /// How many lines were logged.
    int end() {
        shallEnd_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
        return next_;
    }
    void waitForMore() const {
        for (const int now = next_; next_ < now + 100;) {
            std::this_thread::yield();
        }
    }

private:
    std::atomic<bool> shallEnd_ = false;
    std::atomic<int> next_ = 0;
    std::thread thread_;
};

TEST_P(Logrotate, ThatCreatesCostsABusyProgramNoLine) {
    Logging logging(file_);
    for (int round = 0; round < 10; ++round) {
        logging.waitForMore();
        ASSERT_TRUE(rotate("create"));
        FaultyCalls::passTime(untilTheNextLook);
        logging.waitForMore();
        // By now the file is followed, unless a queue is behind.
        file_.settle();
    }
    const int logged = logging.end();
    file_.settle();
    FoundLines found;
    for (const std::string& path : files()) {
        found.append(linesOf(readFile(path)));
    }
    EXPECT_THAT(found.torn, IsEmpty());
    EXPECT_EQ(found.numbers.size(), static_cast<std::size_t>(logged));
    EXPECT_EQ(found.numbers, numbersFrom(0, logged));
}

TEST_P(Logrotate, ThatCopiesAndTruncatesTearsNoLineOfTheFile) {
    constexpr std::size_t rounds = 10;
    Logging logging(file_);
    for (std::size_t round = 0; round < rounds; ++round) {
        logging.waitForMore();
        ASSERT_TRUE(rotate("copytruncate"));
    }
    const int logged = logging.end();
    file_.settle();
    std::vector<int> numbers;
    for (const std::string& path : files()) {
        const std::string text = readFile(path);
        FoundLines found = linesOf(text);
        // A copy may end inside a line; logrotate loses what is written between its copying and its truncating.
        if (path != path_ && !text.ends_with('\n') && !found.torn.empty()) {
            found.torn.pop_back();
        }
        EXPECT_THAT(found.torn, IsEmpty()) << path;
        numbers.insert(numbers.end(), found.numbers.begin(), found.numbers.end());
    }
    EXPECT_TRUE(std::ranges::is_sorted(numbers));
    EXPECT_EQ(std::ranges::adjacent_find(numbers), numbers.end()) << "a line stands twice";
    EXPECT_EQ(numbers.back(), logged - 1);
    RecordProperty("linesLogged", logged);
    RecordProperty("linesLostBetweenCopyAndTruncation", logged - static_cast<int>(numbers.size()));
}

}  // namespace
}  // namespace velora::test
