// What becomes of waiting work when a process ends. Each test runs this program again as a process that
// plays one scenario; its main() is at the end.

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>

namespace velora::test {
namespace {

using std::chrono::milliseconds;

void say(std::string_view text) {
    [[maybe_unused]] const auto written = ::write(STDOUT_FILENO, text.data(), text.size());
}

/// A queue that still has work to do for a while, and then says "late".
std::shared_ptr<DispatchQueue> busyQueue() {
    auto queue = DispatchQueue::make("busy");
    // Its thread has started: a fork amid that is a test of the allocator, which AddressSanitizer's fails.
    queue->sync([] {});
    queue->async([] { std::this_thread::sleep_for(milliseconds(50)); });
    queue->async([] { say("late"); });
    return queue;
}

/// A static object whose destructor hands over work. Made before the queue was used, so that it is destroyed
/// after the queues were finished.
class HandsOverWhenDestroyed {
public:
    HandsOverWhenDestroyed() = default;
    HandsOverWhenDestroyed(const HandsOverWhenDestroyed&) = delete;
    HandsOverWhenDestroyed& operator=(const HandsOverWhenDestroyed&) = delete;
    ~HandsOverWhenDestroyed() {
        const auto outer = std::this_thread::get_id();
        queue->async([&] {
            queue->async([] { say(" third"); });
            say(std::this_thread::get_id() == outer ? " first" : " elsewhere");
            say(queue->isCurrent() && DispatchQueue::currentLabel() == "busy" ? "" : " unlabelled");
            queue->sync([] { say(" second"); });
        });
        queue->sync([] { say(" fourth"); });
        queue->drain();
        DispatchQueue::drainAll();
        say(DispatchQueue::currentLabel() ? " labelled" : "");
        auto fresh = DispatchQueue::make("fresh");
        fresh->async([] { say(" fresh"); });
        fresh.reset();
    }

    std::shared_ptr<DispatchQueue> queue;
};

int returnFromMain() {
    static const auto queue = busyQueue();
    return 0;
}

int callExit() {
    const auto queue = busyQueue();
    std::exit(7);  // NOLINT(concurrency-mt-unsafe)
}

int handOverInStaticDestructor() {
    static HandsOverWhenDestroyed last;
    last.queue = busyQueue();
    return 0;
}

int workHandsOverWork() {
    static const auto first = DispatchQueue::make("first");
    static const auto second = DispatchQueue::make("second");
    first->async([] {
        std::this_thread::sleep_for(milliseconds(20));
        second->async([] {
            std::this_thread::sleep_for(milliseconds(20));
            first->async([] { say("back"); });
        });
    });
    return 0;
}

int workWaitsForOtherQueue() {
    static const auto first = DispatchQueue::make("first");
    static const auto second = DispatchQueue::make("second");
    second->async([] { say("0"); });
    first->async([] { second->sync([] { say("1"); }); });
    first->async([] {
        std::this_thread::sleep_for(milliseconds(20));
        second->sync([] { say("2"); });
    });
    return 0;
}

int exitFromWork() {
    static HandsOverWhenDestroyed last;
    last.queue = DispatchQueue::make("busy");
    static const auto other = DispatchQueue::make("other");
    other->async([] {
        std::this_thread::sleep_for(milliseconds(20));
        last.queue->sync([] { say(" other"); });
    });
    last.queue->async([] {
        last.queue->async([] { say("late"); });
        std::exit(3);  // NOLINT(concurrency-mt-unsafe)
    });
    for (;;) {
        pause();
    }
}

int threadsStillHandOver() {
    static std::atomic<int> ran = 0;
    static const auto& queue = *new auto(DispatchQueue::make("racing"));
    static const auto& other = *new auto(DispatchQueue::make("other"));
    for (int thread = 0; thread < 3; ++thread) {
        std::thread([] {
            for (;;) {
                queue->async([] {
                    ++ran;
                    other->async([] { queue->async([] { ++ran; }); });
                });
                other->async([] { queue->async([] { ++ran; }); });
            }
        }).detach();
    }
    while (ran < 1000) {
        std::this_thread::yield();
    }
    say("exiting");
    return 0;
}

/// Is killed after a minute, lest an end that hangs hang the tests.
int threadsHandOverFasterThanWorkRuns() {
    alarm(60);
    static std::atomic<int> ran = 0;
    static std::atomic<int> submitted = 0;
    static const auto& queue = *new auto(DispatchQueue::make("slow"));
    for (int thread = 0; thread < 3; ++thread) {
        std::thread([] {
            for (;;) {
                queue->async([] {
                    std::this_thread::sleep_for(std::chrono::microseconds(50));
                    ++ran;
                });
                // There is always more to run than is run until the process ends, but not all memory.
                for (++submitted; submitted - ran > 1'000;) {
                    std::this_thread::yield();
                }
            }
        }).detach();
    }
    while (ran < 5'000) {
        std::this_thread::yield();
    }
    queue->async([] { say("late"); });
    return 0;
}

int lastReferenceGoneOnOwnThread() {
    auto queue = DispatchQueue::make("own");
    queue->async([queue] { std::this_thread::sleep_for(milliseconds(20)); });
    queue->async([] {
        std::this_thread::sleep_for(milliseconds(20));
        say("late");
    });
    queue.reset();
    return 0;
}

int childOfForkExits() {
    static const auto queue = busyQueue();
    const pid_t child = fork();
    if (child == 0) {
        queue->async([] { say("child "); });
        std::exit(0);  // NOLINT(concurrency-mt-unsafe)
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0 ? 0 : 1;
}

int unusedChildOfForkExits() {
    static const auto queue = busyQueue();
    const pid_t child = fork();
    if (child == 0) {
        std::exit(0);  // NOLINT(concurrency-mt-unsafe)
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status == 0 ? 0 : 1;
}

int childOfWorkExits(bool whileParentExits) {
    static const auto queue = DispatchQueue::make("forking");
    queue->async([] {
        std::this_thread::sleep_for(milliseconds(20));
        const pid_t child = fork();
        if (child == 0) {
            queue->async([] { say("child "); });
            std::exit(0);  // NOLINT(concurrency-mt-unsafe)
        }
        int status = 0;
        waitpid(child, &status, 0);
        say(status == 0 ? "good " : "bad ");
    });
    queue->async([] { say("parent"); });
    if (!whileParentExits) {
        queue->drain();
    }
    return 0;
}

int endAtOnce() {
    const auto queue = DispatchQueue::make("blocked");
    queue->async([] { pause(); });
    queue->async([] { say("late"); });
    _exit(0);
}

const std::map<std::string_view, int (*)()> scenarios = {
    {"returnFromMain", returnFromMain},
    {"callExit", callExit},
    {"handOverInStaticDestructor", handOverInStaticDestructor},
    {"workHandsOverWork", workHandsOverWork},
    {"workWaitsForOtherQueue", workWaitsForOtherQueue},
    {"exitFromWork", exitFromWork},
    {"threadsStillHandOver", threadsStillHandOver},
    {"threadsHandOverFasterThanWorkRuns", threadsHandOverFasterThanWorkRuns},
    {"lastReferenceGoneOnOwnThread", lastReferenceGoneOnOwnThread},
    {"childOfForkExits", childOfForkExits},
    {"unusedChildOfForkExits", unusedChildOfForkExits},
    {"childOfWorkExits", [] { return childOfWorkExits(false); }},
    {"childOfWorkExitsWhileParentExits", [] { return childOfWorkExits(true); }},
    {"endAtOnce", endAtOnce},
};

struct Outcome {
    int status = 0;  ///< Exit status, or minus the number of the signal that ended the process.
    std::string output;
    bool operator==(const Outcome&) const = default;
};

void PrintTo(const Outcome& outcome, std::ostream* stream) {
    *stream << "status " << outcome.status << ", output \"" << outcome.output << '"';
}

std::string readToEnd(int descriptor) {
    std::string text;
    std::array<char, 4096> buffer;
    for (ssize_t got = 0; (got = ::read(descriptor, buffer.data(), buffer.size())) > 0;) {
        text.append(buffer.data(), static_cast<std::size_t>(got));
    }
    return text;
}

/// Plays `scenario` in a process of its own, whose standard output is caught.
Outcome play(const char* scenario) {
    std::array<int, 2> ends = {};
    if (::pipe(ends.data()) != 0) {
        return {.status = -1, .output = "no pipe"};
    }
    const pid_t child = fork();
    if (child == 0) {
        ::dup2(ends[1], STDOUT_FILENO);
        ::close(ends[0]);
        ::close(ends[1]);
        ::execl("/proc/self/exe", "DispatchQueueExitTest", "play", scenario, nullptr);
        _exit(127);
    }
    ::close(ends[1]);
    Outcome outcome{.output = readToEnd(ends[0])};
    ::close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    return outcome;
}

TEST(DispatchQueueAtExit, RunsPendingWorkOnReturnFromMain) {
    EXPECT_EQ(play("returnFromMain"), (Outcome{0, "late"}));
}

TEST(DispatchQueueAtExit, RunsPendingWorkOnExit) {
    EXPECT_EQ(play("callExit"), (Outcome{7, "late"}));
}

TEST(DispatchQueueAtExit, RunsWorkOfStaticDestructorsInPlaceAndInOrder) {
    EXPECT_EQ(play("handOverInStaticDestructor"), (Outcome{0, "late first second third fourth fresh"}));
}

TEST(DispatchQueueAtExit, RunsWorkThatPendingWorkHandsOverBackAndForth) {
    EXPECT_EQ(play("workHandsOverWork"), (Outcome{0, "back"}));
}

TEST(DispatchQueueAtExit, LetsPendingWorkWaitForOtherQueues) {
    EXPECT_EQ(play("workWaitsForOtherQueue"), (Outcome{0, "012"}));
}

TEST(DispatchQueueAtExit, RunsTheRestWhenWorkOfAQueueExits) {
    EXPECT_EQ(play("exitFromWork"), (Outcome{3, "late other first second third fourth fresh"}));
}

TEST(DispatchQueueAtExit, NeitherHangsNorCrashesWhileThreadsStillHandOver) {
    for (int round = 0; round < 10; ++round) {
        EXPECT_EQ(play("threadsStillHandOver"), (Outcome{0, "exiting"}));
    }
}

TEST(DispatchQueueAtExit, ComesToAnEndWhileThreadsHandOverFasterThanWorkRuns) {
    EXPECT_EQ(play("threadsHandOverFasterThanWorkRuns"), (Outcome{0, "late"}));
}

TEST(DispatchQueueAtExit, RunsWhatAQueueHasLeftWhoseLastReferenceIsGone) {
    EXPECT_EQ(play("lastReferenceGoneOnOwnThread"), (Outcome{0, "late"}));
}

TEST(DispatchQueueAtExit, RunsOnlyTheChildsOwnWorkInAForkedChild) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "ThreadSanitizer does not support starting threads in a forked child of a process with threads";
#endif
    EXPECT_EQ(play("childOfForkExits"), (Outcome{0, "child late"}));
}

TEST(DispatchQueueAtExit, LetsAForkedChildExitThatUsesNoQueue) {
    EXPECT_EQ(play("unusedChildOfForkExits"), (Outcome{0, "late"}));
}

TEST(DispatchQueueAtExit, LetsAChildExitThatWorkForked) {
    EXPECT_EQ(play("childOfWorkExits"), (Outcome{0, "child good parent"}));
}

TEST(DispatchQueueAtExit, LetsAChildExitThatWorkForkedWhileItsParentWasExiting) {
    EXPECT_EQ(play("childOfWorkExitsWhileParentExits"), (Outcome{0, "child good parent"}));
}

TEST(DispatchQueueAtExit, RunsNothingWhenTheProcessEndsAtOnce) {
    EXPECT_EQ(play("endAtOnce"), (Outcome{0, ""}));
}

}  // namespace
}  // namespace velora::test

int main(int argc, char** argv) {
    if (argc == 3 && std::string_view(argv[1]) == "play") {
        alarm(60);
        return velora::test::scenarios.at(argv[2])();
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
