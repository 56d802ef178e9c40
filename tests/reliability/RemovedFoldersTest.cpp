// What becomes of lines when the folder of the log or of its archives is removed while a program logs.

#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "reliability/FaultyCalls.h"
#include "reliability/LoggedLines.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

using testing::AllOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class RemovedFolders : public testing::TestWithParam<Mode> {
protected:
    RemovedFolders() { std::filesystem::create_directory(inner_); }

    TemporaryFolder folder_;
    const std::string inner_ = folder_ / "inner";
    LoggedFile file_{GetParam(), inner_ + "/app.log"};
};

INSTANTIATE_TEST_SUITE_P(InEachMode, RemovedFolders, testing::ValuesIn(allModes), nameOf);

TEST_P(RemovedFolders, OfTheLogIsGoneOnWithWhenItIsBack) {
    file_.open();
    file_.logAndSettle(0, 5);
    std::filesystem::remove_all(inner_);
    FaultyCalls::passTime(untilTheNextLook);
    EXPECT_EQ(printedBy([&] { file_.logAndSettle(5, 10); }), "");
    EXPECT_FALSE(std::filesystem::exists(inner_)) << "nobody's folder is made anew";
    std::filesystem::create_directory(inner_);
    FaultyCalls::passTime(untilTheNextLook);
    file_.logAndSettle(10, 15);
    EXPECT_EQ(file_.found().numbers, numbersFrom(10, 15));
    EXPECT_THAT(file_.found().torn, IsEmpty());
}

TEST_P(RemovedFolders, OfTheLogInTheMiddleOfARotationIsReportedAndGoneOnWithWhenItIsBack) {
    file_.open();
    file_.logAndSettle(0, 5);
    std::filesystem::remove_all(inner_);
    EXPECT_FALSE(file_.file().rotateFile(folder_ / "archive"));
    EXPECT_THAT(file_.errors(), ElementsAre(StartsWith("Attempt to open log file for writing failed: "),
                                            StartsWith("Unable to rotate file ")));
    file_.logAndSettle(5, 10);
    std::filesystem::create_directory(inner_);
    FaultyCalls::passTime(untilTheNextLook);
    file_.logAndSettle(10, 15);
    EXPECT_EQ(file_.found().numbers, numbersFrom(10, 15));
}

class RemovedArchives : public RemovedFolders {};

INSTANTIATE_TEST_SUITE_P(InEachRotatingMode, RemovedArchives, testing::ValuesIn(rotatingModes), nameOf);

TEST_P(RemovedArchives, AreReportedForEachRotationAndLoseNoLine) {
    auto* const rotating = dynamic_cast<AutoRotatingFileDestination*>(&file_.file());
    ASSERT_NE(rotating, nullptr);
    const std::string archives = folder_ / "archives";
    rotating->setArchiveFolderURL(URL::fileURL(archives, /*isDirectory=*/true));
    file_.open();
    file_.logAndSettle(0, 100);
    ASSERT_EQ(rotating->archivedFileURLs().size(), 1U);
    std::filesystem::remove_all(archives);
    file_.logAndSettle(100, 400);
    EXPECT_THAT(file_.errors(), AllOf(Not(IsEmpty()), Each(StartsWith("Unable to rotate file "))));
    EXPECT_FALSE(std::filesystem::exists(archives));
    std::filesystem::create_directory(archives);
    const std::size_t errors = file_.errors().size();
    file_.logAndSettle(400, 600);
    EXPECT_EQ(file_.errors().size(), errors);

    std::vector<int> kept;
    std::vector<URL> urls = rotating->archivedFileURLs();
    EXPECT_GE(urls.size(), 2U);
    std::ranges::reverse(urls);
    for (const URL& url : urls) {
        const FoundLines found = linesOf(readFile(url.path()));
        EXPECT_THAT(found.torn, IsEmpty());
        kept.insert(kept.end(), found.numbers.begin(), found.numbers.end());
    }
    const FoundLines live = file_.found();
    EXPECT_THAT(live.torn, IsEmpty());
    kept.insert(kept.end(), live.numbers.begin(), live.numbers.end());
    ASSERT_THAT(kept, Not(IsEmpty()));
    EXPECT_LE(kept.front(), 100) << "only the archive that was removed with the folder is gone";
    EXPECT_EQ(kept, numbersFrom(kept.front(), 600));
}

}  // namespace
}  // namespace velora::test
