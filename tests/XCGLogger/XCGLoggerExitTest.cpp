// Logging while a thread or the whole process is coming to its end.

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>
#include <support/RecordingDestination.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/Destinations/ConsoleDestination.h>
#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {
namespace {

/// What a forked child that ends by `exit` printed to its standard output; "(died)" if it did not end so.
template <typename Work>
std::string printedByExitingChild(Work work) {
    int ends[2];
    if (::pipe(ends) != 0) {
        return "(no pipe)";
    }
    std::fflush(stdout);
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(60);
        ::dup2(ends[1], STDOUT_FILENO);
        ::close(ends[0]);
        ::close(ends[1]);
        work();
        std::exit(0);
    }
    ::close(ends[1]);
    std::string printed;
    char buffer[256];
    for (ssize_t count = 0; (count = ::read(ends[0], buffer, sizeof buffer)) > 0;) {
        printed.append(buffer, static_cast<std::size_t>(count));
    }
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? printed : printed + "(died)";
}

void hideColumnsOfTheSharedLogger() {
    for (const auto& destination : XCGLogger::defaultInstance()->destinations()) {
        hideColumns(dynamic_cast<BaseDestination&>(*destination));
    }
}

struct LogsAtItsEnd {
    std::string name;
    explicit LogsAtItsEnd(std::string nameOfIt) : name(std::move(nameOfIt)) {}
    ~LogsAtItsEnd() {
        XCGLogger::Default::info(Tag("end"), "{} ends", name);
        XCGLogger::Default::info([&] {
            XCGLogger::Default::info("nested");
            return name + " has ended";
        });
    }
};

TEST(LoggingAtTheEnd, WorksInTheDestructorsOfStaticObjects) {
    const std::string printed = printedByExitingChild([] {
        // Made before the logger's own objects, and so destroyed after them.
        static const LogsAtItsEnd early("early");
        hideColumnsOfTheSharedLogger();
        XCGLogger::Default::info("running");
        static const LogsAtItsEnd late("late");
    });
    EXPECT_EQ(printed,
              "> running\n> late ends\n> nested\n> late has ended\n> early ends\n> nested\n> early has ended\n");
}

TEST(LoggingAtTheEnd, WorksInAFunctionRegisteredForTheExit) {
    const std::string printed = printedByExitingChild([] {
        std::atexit([] { XCGLogger::Default::info("at exit"); });
        hideColumnsOfTheSharedLogger();
    });
    EXPECT_EQ(printed, "> at exit\n");
}

TEST(LoggingAtTheEnd, WorksInTheDestructorsOfAThreadsObjects) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    struct LogsWhenTheThreadEnds {
        XCGLogger* log = nullptr;
        std::string name;
        ~LogsWhenTheThreadEnds() {
            log->info("{} ends", name);
            log->info([&] {
                log->info("nested");
                return name + " has ended";
            });
        }
    };
    std::thread([&] {
        static thread_local LogsWhenTheThreadEnds early;
        early.log = recorded.log.get();
        early.name = "early";
        recorded.log->info("running");
        static thread_local LogsWhenTheThreadEnds late;
        late.log = recorded.log.get();
        late.name = "late";
    }).join();
    const std::vector<std::string> expected = {"> running",    "> late ends", "> nested",         "> late has ended",
                                               "> early ends", "> nested",    "> early has ended"};
    EXPECT_EQ(recorded.recording->lines(), expected);
    EXPECT_EQ(second->lines(), expected);
}

TEST(LoggingAfterAFork, GoesOnInTheChild) {
    XCGLogger::Default::verbose("the logger is in use before the fork");
    const std::string printed = printedByExitingChild([] {
        hideColumnsOfTheSharedLogger();
        XCGLogger::Default::info("from the child");
    });
    EXPECT_EQ(printed, "> from the child\n");
}

}  // namespace
}  // namespace velora::test
