#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <latch>
#include <optional>
#include <pthread.h>
#include <string>
#include <string_view>
#include <thread>

#include <Velora_UserDefaults/Platform/ThreadInfo.h>

#include "support/ForkedChild.h"

namespace velora {
namespace {

using std::string_literals::operator""s;
using test::resultOfForkedChild;

template <class Work>
auto onOtherThread(Work work) {
    decltype(work()) result{};
    std::thread([&] { result = work(); }).join();
    return result;
}

std::string kernelName() {
    char name[16];
    ::pthread_getname_np(::pthread_self(), name, sizeof name);
    return name;
}

void setKernelName(const char* name) {
    ::pthread_setname_np(::pthread_self(), name);
}

/// What the kernel calls threads that were given no name.
std::string programName() {
    return std::filesystem::read_symlink("/proc/self/exe").filename().string().substr(0, 15);
}

TEST(IsMainThread, IsTrueOnTheMainThreadOnly) {
    EXPECT_TRUE(isMainThread());
    EXPECT_TRUE(isMainThread());
    EXPECT_FALSE(onOtherThread([] { return isMainThread() || isMainThread(); }));
}

TEST(IsMainThread, IsTrueOfTheThreadThatForksInTheChild) {
    EXPECT_EQ(resultOfForkedChild([] { return isMainThread() ? 0 : 1; }), 0);
    const int result = onOtherThread([] {
        const bool before = isMainThread();
        return before ? -2 : resultOfForkedChild([] { return isMainThread() ? 0 : 1; });
    });
    EXPECT_EQ(result, 0);
    EXPECT_TRUE(isMainThread());
}

TEST(CurrentThreadName, IsAbsentForThreadsThatWereGivenNone) {
    EXPECT_EQ(currentThreadName(), std::nullopt);
    EXPECT_EQ(onOtherThread([] { return currentThreadName(); }), std::nullopt);
    std::string text = "kept";
    EXPECT_FALSE(appendCurrentThreadName(text));
    EXPECT_EQ(text, "kept");
}

TEST(CurrentThreadName, IsTheOneTheThreadWasGiven) {
    const auto name = onOtherThread([] {
        setCurrentThreadName("network");
        std::string text = "[";
        EXPECT_TRUE(appendCurrentThreadName(text));
        EXPECT_EQ(text, "[network");
        EXPECT_EQ(kernelName(), "network");
        return currentThreadName();
    });
    EXPECT_EQ(name, "network");
    EXPECT_EQ(currentThreadName(), std::nullopt) << "other threads have none by that";
}

TEST(CurrentThreadName, IsKeptInFullThoughTheKernelsIsShort) {
    onOtherThread([] {
        const std::string name = "a rather long name of a thread, ünïcödé";
        setCurrentThreadName(name);
        EXPECT_EQ(currentThreadName(), name);
        EXPECT_EQ(kernelName(), name.substr(0, 15));
        setCurrentThreadName("thirteen byteéé");  // the é would be cut in the middle
        EXPECT_EQ(currentThreadName(), "thirteen byteéé");
        EXPECT_EQ(kernelName(), "thirteen byteé");
        setCurrentThreadName("in\0side"s);
        EXPECT_EQ(currentThreadName(), "in\0side"s);
        EXPECT_EQ(kernelName(), "in");
        setCurrentThreadName("short");
        EXPECT_EQ(currentThreadName(), "short");
        return 0;
    });
}

TEST(CurrentThreadName, FollowsNamesGivenByTheKernelsMeans) {
    onOtherThread([] {
        EXPECT_EQ(currentThreadName(), std::nullopt);
        setKernelName("by pthread");
        EXPECT_EQ(currentThreadName(), "by pthread");
        setCurrentThreadName("ours and long enough to be cut");
        setKernelName("theirs");
        EXPECT_EQ(currentThreadName(), "theirs");
        setKernelName("ours and long e");
        EXPECT_EQ(currentThreadName(), "ours and long e") << "the full name went with the first renaming";
        return 0;
    });
}

TEST(CurrentThreadName, FollowsANameGivenByAnotherThread) {
    std::latch ready(1);
    std::latch named(1);
    std::optional<std::string> name;
    std::thread thread([&] {
        EXPECT_EQ(currentThreadName(), std::nullopt);
        ready.count_down();
        named.wait();
        name = currentThreadName();
    });
    ready.wait();
    ::pthread_setname_np(thread.native_handle(), "from outside");
    named.count_down();
    thread.join();
    EXPECT_EQ(name, "from outside");
}

TEST(CurrentThreadName, IsAbsentAgainWhenItIsTakenAway) {
    onOtherThread([] {
        setCurrentThreadName("network, and more than the kernel keeps");
        setCurrentThreadName("");
        EXPECT_EQ(currentThreadName(), std::nullopt);
        EXPECT_EQ(kernelName(), programName());
        setKernelName("");
        EXPECT_EQ(currentThreadName(), std::nullopt);
        return 0;
    });
}

TEST(CurrentThreadName, MayBeTheProgramsIfItWasGivenHere) {
    onOtherThread([] {
        setCurrentThreadName(programName());
        EXPECT_EQ(currentThreadName(), programName());
        return 0;
    });
}

// Each in a process of its own, because they rename the main thread.

TEST(CurrentThreadName, CountsForTheMainThreadToo) {
    EXPECT_EQ(resultOfForkedChild([] {
                  setKernelName("ui");
                  return currentThreadName() == "ui" ? 0 : 1;
              }),
              0);
}

#if !defined(__SANITIZE_THREAD__)  // which cannot start threads in a child of several threads
TEST(CurrentThreadName, IsAbsentIfItWasInheritedFromARenamedMainThread) {
    EXPECT_EQ(resultOfForkedChild([] {
                  setCurrentThreadName("ui");
                  return onOtherThread([] {
                      if (currentThreadName().has_value()) {
                          return 1;
                      }
                      setKernelName("worker");
                      return currentThreadName() == "worker" ? 0 : 2;
                  });
              }),
              0);
}

TEST(CurrentThreadName, StaysAbsentForAThreadThatInheritedItWhenTheMainThreadIsRenamed) {
    EXPECT_EQ(resultOfForkedChild([] {
                  setCurrentThreadName("early");
                  std::latch looked(1);
                  std::latch renamed(1);
                  int result = 0;
                  std::thread thread([&] {
                      result = currentThreadName().has_value() ? 1 : 0;
                      looked.count_down();
                      renamed.wait();
                      result += currentThreadName().has_value() ? 2 : 0;
                  });
                  looked.wait();
                  setCurrentThreadName("late");
                  renamed.count_down();
                  thread.join();
                  return result;
              }),
              0);
}
#endif

TEST(CurrentThreadName, IsKeptInAChildByTheThreadThatForks) {
    EXPECT_EQ(resultOfForkedChild([] { return currentThreadName().has_value() ? 1 : 0; }), 0);
    const int result = onOtherThread([] {
        setCurrentThreadName("a forking thread with a long name");
        return resultOfForkedChild([] { return currentThreadName() == "a forking thread with a long name" ? 0 : 1; });
    });
    EXPECT_EQ(result, 0);
}

/// Looks at the thread's name in its destructor.
struct LateLook {
    ~LateLook() {
        if (seen != nullptr) {
            *seen = currentThreadName().value_or("none");
            setCurrentThreadName("another name that is too long for the kernel");
            *seen += "; " + currentThreadName().value_or("none");
        }
    }
    std::string* seen = nullptr;
};

TEST(CurrentThreadName, MayBeAskedInDestructorsOfThreadLocalObjects) {
    std::string seen;
    std::thread([&] {
        thread_local LateLook look;  // made first, so it goes after the name
        look.seen = &seen;
        setCurrentThreadName("a name that is too long for the kernel");
    }).join();
    EXPECT_EQ(seen, "a name that is ; another name th") << "shortened then, but there";
}

TEST(CurrentThreadIdentifierText, IsTheThreadsAddress) {
    char expected[40];
    std::snprintf(expected, sizeof expected, "%p", reinterpret_cast<void*>(::pthread_self()));
    EXPECT_EQ(currentThreadIdentifierText(), expected);
    EXPECT_EQ(currentThreadIdentifierText().substr(0, 2), "0x");
    std::thread([&] { EXPECT_NE(currentThreadIdentifierText(), expected); }).join();
    EXPECT_EQ(resultOfForkedChild([&] { return currentThreadIdentifierText() == expected ? 0 : 1; }), 0);
}

}  // namespace
}  // namespace velora
