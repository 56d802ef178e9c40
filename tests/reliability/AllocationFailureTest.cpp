// What becomes of the host and its next lines when there is no memory for a log call. This program has an
// `operator new` of its own, which fails when a test wants.

#include <atomic>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/Destinations/ConsoleDestination.h>
#include <Velora_UserDefaults/XCGLogger/Filters/FileNameFilter.h>
#include <Velora_UserDefaults/XCGLogger/Filters/TagFilter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/ANSIColorLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/Base64LogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/PrePostFixLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>

#include "reliability/LoggedLines.h"
#include "support/OwnAllocation.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

/// The requests for memory that fail, of all threads.
class FailingMemory {
public:
    static constexpr int always = std::numeric_limits<int>::max();

    /// Has `count` requests fail after so many.
    static void fail(int after, int count) {
        failed = 0;
        failures = count;
        passing = after;
        isOn = true;
    }
    /// Lets all requests pass; returns whether any failed.
    static bool end() {
        isOn = false;
        return failed > 0;
    }
    static void ask() {
        if (isOn && passing.fetch_sub(1) <= 0 && failures.fetch_sub(1) > 0) {
            ++failed;
            throw std::bad_alloc();
        }
    }

private:
    static inline std::atomic<bool> isOn = false;
    static inline std::atomic<int> passing = 0;
    static inline std::atomic<int> failures = 0;
    static inline std::atomic<int> failed = 0;
};

}  // namespace

void allocationIsAsked(std::size_t /*size*/) {
    FailingMemory::ask();
}

namespace {

using testing::HasSubstr;

const std::string longText(130, 'x');

void logText(XCGLogger& log) {
    log.info(longText);
}
void logClosure(XCGLogger& log) {
    log.info([] { return "closure " + longText; });
}
void logFormat(XCGLogger& log) {
    log.error("number {} and text {}", 17, longText);
}
const UserInfo userInfo = Tag("net") | Dev("ann") | UserInfo{{"more", std::any(longText)}};

void logWithUserInfo(XCGLogger& log) {
    log.warning(userInfo, longText);
}
void logFromElsewhere(XCGLogger& log) {
    log.info(longText, SourceLocation(longText, "/a/long/path/to/a/source/file/which/needs/memory.cpp", 42));
}

/// In memory, where closing a file waits for no disk: the tests close thousands.
[[maybe_unused]] const bool usesMemory =
    ::access("/dev/shm", W_OK) == 0 && ::setenv("TMPDIR", "/dev/shm", /*overwrite=*/1) == 0;

struct Case {
    const char* name = "";
    void (*call)(XCGLogger& log) = nullptr;
    Mode mode;
    /// Whether the host has filters and formatters.
    bool hasProcessing = false;
    /// How many requests for memory fail.
    int failures = 1;
};

void PrintTo(const Case& each, std::ostream* stream) {
    *stream << each.name;
}

std::vector<Case> allCases() {
    std::vector<Case> cases;
    for (const bool hasProcessing : {false, true}) {
        for (const int failures : {1, FailingMemory::always}) {
            cases.push_back({"text", logText, allModes[0], hasProcessing, failures});
            cases.push_back({"closure", logClosure, allModes[0], hasProcessing, failures});
            cases.push_back({"format", logFormat, allModes[0], hasProcessing, failures});
            cases.push_back({"elsewhere", logFromElsewhere, allModes[0], hasProcessing, failures});
            for (const Mode& mode : notRotatingModes) {
                cases.push_back({"userInfo", logWithUserInfo, mode, hasProcessing, failures});
            }
        }
    }
    for (const int failures : {1, FailingMemory::always}) {
        cases.push_back({"text", logText, rotatingModes[0], /*hasProcessing=*/false, failures});
        cases.push_back({"userInfo", logWithUserInfo, rotatingModes[1], /*hasProcessing=*/false, failures});
    }
    return cases;
}

std::string nameOfCase(const testing::TestParamInfo<Case>& info) {
    return std::string(info.param.name) + info.param.mode.name + (info.param.hasProcessing ? "Processed" : "") +
           (info.param.failures == 1 ? "Once" : "Always");
}

void giveFiltersAndFormatters(XCGLogger& log) {
    const auto prefix = make<PrePostFixLogFormatter>();
    prefix->apply("a prefix that is long enough to need memory ", " and a postfix that is long enough, too");
    log.setFilters(Filters{{make<TagFilter>(ExcludeFrom{"noisy"}), make<FileNameFilter>(ExcludeFrom{"Other.cpp"})}});
    log.setFormatters(Formatters{{prefix, make<ANSIColorLogFormatter>()}});
}

/// The bytes of everything in the folder.
std::string everythingIn(const std::filesystem::path& folder) {
    std::string all;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        all += readFile(entry.path());
    }
    return all;
}

class NoMemory : public testing::TestWithParam<Case> {
protected:
    static constexpr int highest = 2'000;

    static Mode mode() {
        Mode mode = GetParam().mode;
        mode.maxFileSize = mode.maxFileSize == 0 ? 0 : 260;  // reached by the call, not by announcements alone
        return mode;
    }

    /// Makes the call on a thread of its own, which has no memory of earlier calls, while memory fails. Returns whether
    /// any failed; an exception that comes out of the call ends the program.
    static bool callWithoutMemory(LoggedFile& file, int after) {
        bool hasFailed = false;
        std::thread([&] {
            FailingMemory::fail(after, GetParam().failures);
            GetParam().call(file.logger());
            if (const auto& queue = file.file().logQueue()) {
                queue->drain();
            }
            hasFailed = FailingMemory::end();
        }).join();
        return hasFailed;
    }
};

INSTANTIATE_TEST_SUITE_P(ForEachCall, NoMemory, testing::ValuesIn(allCases()), nameOfCase);

TEST_P(NoMemory, HarmsNeitherTheHostNorItsNextLine) {
    bool hasFailed = true;
    int after = 0;
    for (; hasFailed && after < highest; ++after) {
        const TemporaryFolder folder;
        const std::string printed = printedBy([&] {
            LoggedFile file(mode(), folder / "app.log");
            if (GetParam().hasProcessing) {
                giveFiltersAndFormatters(file.logger());
            }
            file.open();
            hasFailed = callWithoutMemory(file, after);
            file.logger().info("the next line");
            file.settle();
        });
        EXPECT_THAT(everythingIn(folder.path()), HasSubstr("the next line"))
            << "after " << after << " requests for memory; printed: " << printed;
        if (!hasFailed) {
            EXPECT_THAT(everythingIn(folder.path()), HasSubstr(longText)) << "with enough memory";
            EXPECT_EQ(printed, "");
        }
    }
    EXPECT_LT(after, highest);
    EXPECT_GT(after, 1) << "the call asks for no memory at all";
}

TEST(NoMemoryForTheConsole, HarmsNeitherTheHostNorItsNextLine) {
    for (const int failures : {1, FailingMemory::always}) {
        bool hasFailed = true;
        for (int after = 0; hasFailed && after < 1'000; ++after) {
            const RecordedLogger<> logger;
            const auto console = make<ConsoleDestination>(nullptr, "console");
            hideColumns(*console);
            logger.log->add(console);
            giveFiltersAndFormatters(*logger.log);
            const std::string printed = printedBy([&] {
                std::thread([&] {
                    FailingMemory::fail(after, failures);
                    logWithUserInfo(*logger.log);
                    hasFailed = FailingMemory::end();
                }).join();
                logger.log->info("the next line");
            });
            EXPECT_THAT(printed, HasSubstr("> the next line"));
        }
        EXPECT_FALSE(hasFailed);
    }
}

TEST(NoMemoryOnAFullDisk, HarmsNeitherTheHostNorItsNextLine) {
    for (const bool hasQueue : {false, true}) {
        for (const int failures : {1, FailingMemory::always}) {
            bool hasFailed = true;
            for (int after = 0; hasFailed && after < 1'000; ++after) {
                const TemporaryFolder folder;
                const std::string printed = printedBy([&] {
                    LoggedFile file({.name = "full", .hasQueue = hasQueue}, "/dev/full");
                    file.open();
                    std::thread([&] {
                        FailingMemory::fail(after, failures);
                        logText(file.logger());
                        if (hasQueue) {
                            file.file().logQueue()->drain();
                        }
                        hasFailed = FailingMemory::end();
                    }).join();
                    file.file().setWriteToFileURL(FileTarget(folder / "app.log"));
                    file.logAndSettle(1, 2);
                });
                EXPECT_EQ(linesOf(readFile(folder / "app.log")).numbers, numbersFrom(1, 2));
                EXPECT_THAT(linesOf(readFile(folder / "app.log")).torn, testing::IsEmpty());
            }
            EXPECT_FALSE(hasFailed);
        }
    }
}

/// What a host may ask of a file beside logging, and be told that there is no memory for it.
void expectAFileUsableAfter(void (*work)(LoggedFile& file, const std::string& folder)) {
    for (const Mode& mode : notRotatingModes) {
        bool hasFailed = true;
        for (int after = 0; hasFailed && after < 2'000; ++after) {
            const TemporaryFolder folder;
            const std::string printed = printedBy([&] {
                LoggedFile file(mode, folder / "app.log");
                file.open();
                file.logAndSettle(0, 5);
                FailingMemory::fail(after, 1);
                try {
                    work(file, folder.path().string());
                } catch (const std::bad_alloc&) {
                    // It is told so.
                }
                if (const auto& queue = file.file().logQueue()) {
                    queue->drain();
                }
                hasFailed = FailingMemory::end();
                file.logAndSettle(5, 10);
            });
            FoundLines found;
            for (const char* const name : {"archive", "app.log"}) {
                found.append(linesOf(readFile(folder / name)));
            }
            EXPECT_EQ(found.numbers, numbersFrom(0, 10)) << mode.name << " after " << after;
            EXPECT_THAT(found.torn, testing::IsEmpty());
        }
        EXPECT_FALSE(hasFailed);
    }
}

TEST(NoMemoryForARotation, LosesNoLine) {
    expectAFileUsableAfter(
        [](LoggedFile& file, const std::string& folder) { file.file().rotateFile(folder + "/archive"); });
}

TEST(NoMemoryForAFlush, LosesNoLine) {
    expectAFileUsableAfter([](LoggedFile& file, const std::string& /*folder*/) { file.file().flush([] {}); });
}

}  // namespace
}  // namespace velora::test
