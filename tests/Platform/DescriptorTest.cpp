#include <cerrno>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>
#include <utility>

#include <Velora_UserDefaults/Platform/Descriptor.h>

#include "support/ForkedChild.h"

namespace velora::test {
namespace {

bool isOpen(int descriptor) {
    return ::fcntl(descriptor, F_GETFD) >= 0;
}

int openNull() {
    return ::open("/dev/null", O_WRONLY | O_CLOEXEC);
}

void closeStandardStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        ::close(stream);
    }
}

TEST(Descriptor, ClosesWhatItOwns) {
    int number = -1;
    {
        const Descriptor descriptor(openNull());
        number = descriptor.get();
        EXPECT_TRUE(isOpen(number));
    }
    EXPECT_FALSE(isOpen(number));
    EXPECT_FALSE(Descriptor(-1));
}

TEST(Descriptor, GivesAway) {
    Descriptor first(openNull());
    const int number = first.get();
    Descriptor second(std::move(first));
    EXPECT_EQ(second.get(), number);
    EXPECT_EQ(second.release(), number);
    EXPECT_FALSE(second);
    EXPECT_EQ(::close(number), 0);
}

TEST(Descriptor, NeverHasTheNumberOfAStandardStream) {
    EXPECT_EQ(resultOfForkedChild([] {
                  closeStandardStreams();
                  const Descriptor first(openNull());
                  const Descriptor second(openNull());
                  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
                      if (isOpen(stream)) {
                          return 1;
                      }
                  }
                  const bool areRight = first.get() > STDERR_FILENO && second.get() > STDERR_FILENO &&
                                        first.get() != second.get() && ::write(second.get(), "x", 1) == 1;
                  const bool isClosedOnExec = (::fcntl(first.get(), F_GETFD) & FD_CLOEXEC) != 0;
                  return areRight && isClosedOnExec ? 0 : 2;
              }),
              0);
}

TEST(Descriptor, KeepsTheReasonWhyNothingWasOpened) {
    const Descriptor none(::open("/nowhere/at all", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(none);
}

TEST(StandardStreamsInUse, KeepsOthersAwayFromTheirNumbersForATime) {
    EXPECT_EQ(resultOfForkedChild([] {
                  ::close(STDIN_FILENO);
                  ::close(STDERR_FILENO);
                  {
                      const StandardStreamsInUse inUse;
                      const int opened = openNull();
                      if (opened <= STDERR_FILENO || ::write(STDERR_FILENO, "x", 1) >= 0) {
                          return 1;
                      }
                      ::close(opened);
                  }
                  return isOpen(STDIN_FILENO) || isOpen(STDERR_FILENO) || !isOpen(STDOUT_FILENO) ? 2 : 0;
              }),
              0);
}

TEST(StandardStreamsInUse, LeavesWhatTheHostOpenedMeanwhile) {
    EXPECT_EQ(resultOfForkedChild([] {
                  closeStandardStreams();
                  {
                      const StandardStreamsInUse inUse;
                      const int opened = openNull();
                      ::dup2(opened, STDOUT_FILENO);
                  }
                  return isOpen(STDOUT_FILENO) && !isOpen(STDERR_FILENO) ? 0 : 1;
              }),
              0);
}

}  // namespace
}  // namespace velora::test
