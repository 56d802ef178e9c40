#include <any>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <sstream>
#include <string>
#include <support/RecordingDestination.h>
#include <support/TemporaryFolder.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/ProcessInfo.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/ConsoleDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::MatchesRegex;

/// A logger with its default destinations, which are taken out when the object goes.
class DefaultLoggerOfATest {
public:
    explicit DefaultLoggerOfATest(bool includeDefaultDestinations = true)
        : log(make<XCGLogger>("the log", includeDefaultDestinations)) {}
    DefaultLoggerOfATest(const DefaultLoggerOfATest&) = delete;
    DefaultLoggerOfATest& operator=(const DefaultLoggerOfATest&) = delete;
    ~DefaultLoggerOfATest() { removeDestinations(*log); }

    std::shared_ptr<ConsoleDestination> console() const {
        return std::dynamic_pointer_cast<ConsoleDestination>(
            log->destination(Constants::baseConsoleDestinationIdentifier));
    }
    std::shared_ptr<FileDestination> file() const {
        return std::dynamic_pointer_cast<FileDestination>(log->destination(Constants::fileDestinationIdentifier));
    }

    std::shared_ptr<XCGLogger> log;
};

template <typename Work>
std::vector<std::string> linesPrintedBy(Work work) {
    testing::internal::CaptureStdout();
    work();
    std::istringstream stream(testing::internal::GetCapturedStdout());
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

XCGLogger::SetupOptions withoutColumns(Level level) {
    return {.level = level,
            .showLogIdentifier = false,
            .showFunctionName = false,
            .showThreadName = false,
            .showLevel = false,
            .showFileNames = false,
            .showLineNumbers = false,
            .showDate = false};
}

std::string processLine() {
    return "> " + processName() + " PID: " + std::to_string(processIdentifier());
}

TEST(DefaultDestinations, AreOneConsole) {
    const DefaultLoggerOfATest test;
    ASSERT_EQ(test.log->destinations().size(), 1U);
    ASSERT_NE(test.console(), nullptr);
    EXPECT_EQ(test.console()->owner(), test.log);
    EXPECT_EQ(test.console()->outputLevel(), Level::debug);
    EXPECT_EQ(test.console()->logQueue(), nullptr);
    EXPECT_FALSE(test.console()->haveLoggedAppDetails());
}

TEST(Setup, SetsTheLevelOfTheLoggerAndItsDestinations) {
    const DefaultLoggerOfATest test;
    const auto recording = make<RecordingDestination>(nullptr, "recording");
    test.log->add(recording);
    linesPrintedBy([&] { test.log->setup({.level = Level::severe}); });
    EXPECT_EQ(test.log->outputLevel(), Level::severe);
    EXPECT_EQ(test.console()->outputLevel(), Level::severe);
    EXPECT_EQ(recording->outputLevel(), Level::severe);
}

TEST(Setup, SetsTheColumnsOfTheConsoleOneByOne) {
    using Options = XCGLogger::SetupOptions;
    struct Column {
        bool Options::*option;
        bool (BaseDestination::*isShown)() const;
    };
    const std::vector<Column> columns = {{&Options::showLogIdentifier, &BaseDestination::showLogIdentifier},
                                         {&Options::showFunctionName, &BaseDestination::showFunctionName},
                                         {&Options::showThreadName, &BaseDestination::showThreadName},
                                         {&Options::showLevel, &BaseDestination::showLevel},
                                         {&Options::showFileNames, &BaseDestination::showFileName},
                                         {&Options::showLineNumbers, &BaseDestination::showLineNumber},
                                         {&Options::showDate, &BaseDestination::showDate}};
    const TemporaryFolder folder;
    for (const Column& shown : columns) {
        const DefaultLoggerOfATest test;
        const auto recording = make<RecordingDestination>(nullptr, "recording");
        test.log->add(recording);
        const std::string unchanged = recording->debugDescription();
        Options options = withoutColumns(Level::debug);
        options.*shown.option = true;
        options.writeToFile = folder / "a.log";
        linesPrintedBy([&] { test.log->setup(options); });
        ASSERT_NE(test.file(), nullptr);
        for (const Column& column : columns) {
            EXPECT_EQ((*test.console().*column.isShown)(), column.option == shown.option);
            EXPECT_EQ((*test.file().*column.isShown)(), column.option == shown.option);
        }
        EXPECT_EQ(recording->debugDescription(), unchanged) << "other destinations keep their columns";
    }
}

TEST(Setup, WritesTheHeaderOncePerDestination) {
    const DefaultLoggerOfATest test;
    EXPECT_THAT(linesPrintedBy([&] { test.log->setup(withoutColumns(Level::debug)); }),
                ElementsAre(processLine(), "> XCGLogger Version: 7.0.1 - Level: Debug"));
    EXPECT_THAT(linesPrintedBy([&] { test.log->setup(withoutColumns(Level::verbose)); }), IsEmpty());
    const auto later = make<RecordingDestination>(nullptr, "later");
    hideColumns(*later);
    test.log->add(later);
    EXPECT_THAT(linesPrintedBy([&] { test.log->setup(withoutColumns(Level::verbose)); }), IsEmpty());
    EXPECT_THAT(later->lines(), ElementsAre(processLine(), "> XCGLogger Version: 7.0.1 - Level: Verbose"));
}

TEST(Setup, WithoutAConsoleSetsTheLevelAlone) {
    const DefaultLoggerOfATest test(false);
    EXPECT_THAT(linesPrintedBy([&] { test.log->setup(withoutColumns(Level::warning)); }), IsEmpty());
    EXPECT_EQ(test.log->outputLevel(), Level::warning);
    EXPECT_THAT(test.log->destinations(), IsEmpty());
}

TEST(Setup, LeavesAnotherKindOfDestinationWithTheConsolesIdentifierAlone) {
    const DefaultLoggerOfATest test(false);
    const auto recording =
        make<RecordingDestination>(nullptr, std::string(Constants::baseConsoleDestinationIdentifier));
    test.log->add(recording);
    test.log->setup(withoutColumns(Level::info));
    EXPECT_TRUE(recording->showLevel());
    EXPECT_TRUE(recording->showDate());
    EXPECT_EQ(recording->outputLevel(), Level::info);
}

TEST(Setup, AddsAFileThatStartsWithTheHeader) {
    const TemporaryFolder folder;
    const std::string path = folder / "a b.log";
    writeFile(path, "what was there\n");
    const DefaultLoggerOfATest test(false);
    XCGLogger::SetupOptions options = withoutColumns(Level::info);
    options.writeToFile = path;
    test.log->setup(options);
    test.log->info("first");
    test.log->debug("below");
    EXPECT_EQ(readFile(path), processLine() +
                                  "\n> XCGLogger Version: 7.0.1 - Level: Info\n> XCGLogger writing log to: " +
                                  URL::fileURL(path).absoluteString() + "\n> first\n");
    ASSERT_NE(test.file(), nullptr);
    EXPECT_FALSE(test.file()->shouldAppend());
    EXPECT_EQ(test.file()->appendMarker(), "-- ** ** ** --");
    EXPECT_EQ(test.file()->fileAttributes(), std::nullopt);
    EXPECT_EQ(test.file()->outputLevel(), Level::info);
    EXPECT_EQ(test.file()->owner(), test.log);
}

TEST(Setup, GivesTheFileALevelOfItsOwn) {
    const TemporaryFolder folder;
    const std::string path = folder / "a.log";
    const DefaultLoggerOfATest test;
    XCGLogger::SetupOptions options = withoutColumns(Level::emergency);
    options.writeToFile = path;
    options.fileLevel = Level::verbose;
    EXPECT_THAT(linesPrintedBy([&] {
                    test.log->setup(options);
                    test.log->verbose("detail");
                }),
                IsEmpty());
    EXPECT_EQ(test.file()->outputLevel(), Level::verbose);
    EXPECT_EQ(test.console()->outputLevel(), Level::emergency);
    EXPECT_THAT(readFile(path), testing::EndsWith("> detail\n"));
    EXPECT_THAT(readFile(path), testing::HasSubstr("> XCGLogger Version: 7.0.1 - Level: Emergency\n"));
}

TEST(Setup, AnnouncesTheFileOnTheConsole) {
    const TemporaryFolder folder;
    const std::string path = folder / "a.log";
    const DefaultLoggerOfATest test;
    XCGLogger::SetupOptions options = withoutColumns(Level::debug);
    options.writeToFile = path;
    EXPECT_THAT(linesPrintedBy([&] { test.log->setup(options); }),
                ElementsAre("> XCGLogger writing log to: " + URL::fileURL(path).absoluteString(), processLine(),
                            "> XCGLogger Version: 7.0.1 - Level: Debug"));
}

TEST(Setup, TwiceKeepsTheFirstFileAndItsHeader) {
    const TemporaryFolder folder;
    const std::string path = folder / "a.log";
    const std::string other = folder / "b.log";
    const DefaultLoggerOfATest test(false);
    XCGLogger::SetupOptions options = withoutColumns(Level::info);
    options.writeToFile = path;
    test.log->setup(options);
    test.log->info("first");
    const std::string before = readFile(path);
    const auto file = test.file();
    test.log->setup(options);
    options.writeToFile = other;
    test.log->setup(options);
    test.log->info("second");
    EXPECT_EQ(test.file(), file);
    EXPECT_EQ(readFile(path), before + "> second\n");
    EXPECT_FALSE(std::filesystem::exists(other));
}

TEST(Setup, AddsAFileDestinationThatWritesNothingForATargetThatIsNone) {
    const DefaultLoggerOfATest test(false);
    XCGLogger::SetupOptions options = withoutColumns(Level::debug);
    options.writeToFile = std::any(42);
    test.log->setup(options);
    ASSERT_NE(test.file(), nullptr);
    EXPECT_EQ(test.file()->writeToFileURL(), std::nullopt);
    test.log->info("text");
    EXPECT_FALSE(test.file()->isOpen());
}

TEST(Setup, ReportsAFileThatCannotBeOpenedOnTheOtherDestinations) {
    const TemporaryFolder folder;
    const DefaultLoggerOfATest test;
    XCGLogger::SetupOptions options = withoutColumns(Level::error);
    options.writeToFile = folder / "missing/a.log";
    EXPECT_THAT(linesPrintedBy([&] { test.log->setup(options); }),
                ElementsAre(MatchesRegex("> Attempt to open log file for writing failed: .+")));
}

TEST(Setup, ShowsAllColumnsOnALine) {
    const DefaultLoggerOfATest test;
    linesPrintedBy(
        [&] { test.log->setup({.level = Level::debug, .showLogIdentifier = true, .showThreadName = true}); });
    test.log->setDateFormatter(std::make_shared<const DateFormatter>("'date'", "en_US_POSIX", "UTC"));
    EXPECT_THAT(linesPrintedBy([&] {
                    test.log->logln(Level::info, {"doWork", "/src/Main.cpp", 42}, {}, "hello");
                }),
                ElementsAre("date [Info] [the log] [main] [Main.cpp:42] doWork > hello"));
}

}  // namespace
}  // namespace velora::test
