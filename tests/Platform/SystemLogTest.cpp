#include <atomic>
#include <chrono>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <syslog.h>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/SystemLog.h>

#include "support/ForkedChild.h"
#include "support/SyslogDaemon.h"

namespace velora {
namespace {

using std::string_literals::operator""s;
using test::SyslogDaemon;
using testing::ElementsAre;

class SystemLogTest : public testing::Test {
protected:
    void SetUp() override {
        if (const auto reason = daemon_.start()) {
            GTEST_SKIP() << *reason;
        }
        // The C library keeps the connection to the daemon of the test before.
        ::closelog();
    }

    SyslogDaemon daemon_;
};

TEST_F(SystemLogTest, GetsMessagesUnchangedAndInTheirOrder) {
    const std::vector<std::string> messages{"hello",
                                            "100 % sure",
                                            "%",
                                            "%n%n%n",
                                            "%s%s%s%s",
                                            "%m %d %1$s {} \\n",
                                            "  blanks \t ",
                                            "grüße 日本語 👩‍👩‍👧",
                                            "two\nlines\n",
                                            "\x1b[31mred\x1b[0m",
                                            "invalid \xff\xc3 utf-8"};
    for (const std::string& message : messages) {
        systemLog(message);
    }
    EXPECT_EQ(daemon_.waitForEntries(messages.size()), messages);
}

TEST_F(SystemLogTest, ShowsANulInsteadOfEndingTheMessageThere) {
    systemLog("a\0b\0\0c"s);
    EXPECT_THAT(daemon_.waitForEntries(1), ElementsAre("a\u2400b\u2400\u2400c"));
}

TEST_F(SystemLogTest, GetsLongMessagesInOneEntry) {
    for (const std::size_t size : {1023U, 1024U, 1025U, 60'000U, 131'072U}) {
        std::string message;
        for (std::size_t i = 0; i < size; ++i) {
            message += static_cast<char>('a' + i % 26);
        }
        systemLog(message);
        EXPECT_TRUE(daemon_.waitForEntry(message)) << size;
    }
}

TEST_F(SystemLogTest, GetsAllOfAMessageThatIsTooLongForOneEntry) {
    std::string message;
    while (message.size() < 400'000) {
        message += "x日本語";  // ten bytes, so that a character lies across the limit
    }
    systemLog(message);
    const auto entries = daemon_.waitForEntries(4);
    ASSERT_EQ(entries.size(), 4U);
    EXPECT_TRUE(entries[0] + entries[1] + entries[2] + entries[3] == message);
    for (const std::string& entry : entries) {
        const auto first = static_cast<unsigned char>(entry[0]);
        EXPECT_NE(first & 0xC0U, 0x80U) << "characters stay whole";
    }
}

TEST_F(SystemLogTest, GetsAllOfALongMessageThatIsNoText) {
    const std::string message(200'000, '\x80');
    systemLog(message);
    const auto entries = daemon_.waitForEntries(2);
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_TRUE(entries[0] + entries[1] == message);
}

TEST_F(SystemLogTest, GetsAnEmptyMessageAsAnEntry) {
    systemLog("");
    systemLog("after");
    EXPECT_THAT(daemon_.waitForEntries(2), ElementsAre("", "after"));
}

TEST_F(SystemLogTest, GetsTheMessagesOfSeveralThreads) {
    constexpr int count = 200;
    std::vector<std::thread> threads;
    for (const std::string name : {"a", "b", "c", "d"}) {
        threads.emplace_back([name] {
            for (int i = 0; i < count; ++i) {
                systemLog(name + std::to_string(i));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::vector<std::string> expected;
    for (const std::string name : {"a", "b", "c", "d"}) {
        for (int i = 0; i < count; ++i) {
            expected.push_back(name + std::to_string(i));
        }
    }
    EXPECT_THAT(daemon_.waitForEntries(expected.size()), testing::UnorderedElementsAreArray(expected));
}

TEST_F(SystemLogTest, TakesMessagesOfAChildForkedWhileAnotherThreadLogs) {
    std::atomic<bool> done = false;
    std::thread logging([&done] {
        while (!done) {
            systemLog("parent");
            // The daemon's file stays small enough to be read again and again.
            std::this_thread::sleep_for(std::chrono::microseconds(50));
        }
    });
    for (int i = 0; i < 30; ++i) {
        EXPECT_EQ(test::resultOfForkedChild([i] {
                      systemLog("child " + std::to_string(i));
                      return 0;
                  }),
                  0);
    }
    done = true;
    logging.join();
    for (int i = 0; i < 30; ++i) {
        EXPECT_TRUE(daemon_.waitForEntry("child " + std::to_string(i)));
    }
}

TEST(SystemLog, DoesNothingWithoutADaemon) {
    {
        SyslogDaemon daemon;
        if (const auto reason = daemon.start()) {
            GTEST_SKIP() << *reason;
        }
    }
    ::closelog();
    systemLog("lost");
    SyslogDaemon daemon;
    ASSERT_FALSE(daemon.start());
    systemLog("found");
    EXPECT_THAT(daemon.waitForEntries(1), ElementsAre("found"));
}

}  // namespace
}  // namespace velora
