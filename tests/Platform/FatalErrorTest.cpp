#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/FatalError.h>

namespace velora::test {
namespace {

using FatalErrorDeathTest = testing::Test;

TEST_F(FatalErrorDeathTest, WritesALineOfTheViewItIsGivenEvenIfThatIsEmpty) {
    EXPECT_EXIT(fatalError(std::string_view("seen, unseen").substr(0, 4)), testing::KilledBySignal(SIGABRT),
                "^seen\n$");
    EXPECT_EXIT(fatalError({}), testing::KilledBySignal(SIGABRT), "^\n$");
}

TEST_F(FatalErrorDeathTest, WritesItsTextAsALineAndAbortsWithoutExitHandlers) {
    EXPECT_EXIT(
        {
            std::atexit([] { static_cast<void>(::write(STDERR_FILENO, "handler", 7) == 7); });
            fatalError("stop");
        },
        testing::KilledBySignal(SIGABRT), "^stop\n$");
}

TEST_F(FatalErrorDeathTest, AbortsWhenStandardErrorIsClosed) {
    EXPECT_EXIT(
        {
            ::close(STDERR_FILENO);
            fatalError("unheard");
        },
        testing::KilledBySignal(SIGABRT), "^$");
}

TEST_F(FatalErrorDeathTest, WritesTextAndNewlineTogether) {
    // A packet socket keeps the borders of each write.
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
    EXPECT_EXIT(
        {
            ::dup2(ends[1], STDERR_FILENO);
            fatalError("in one piece");
        },
        testing::KilledBySignal(SIGABRT), "");
    char packet[64];
    const ssize_t size = ::recv(ends[0], packet, sizeof packet, MSG_DONTWAIT);
    ASSERT_GT(size, 0);
    EXPECT_EQ(std::string(packet, static_cast<std::size_t>(size)), "in one piece\n");
    ::close(ends[0]);
    ::close(ends[1]);
}

}  // namespace
}  // namespace velora::test
