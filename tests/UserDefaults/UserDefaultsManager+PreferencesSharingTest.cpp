// Preferences shared by threads and processes.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <memory>
#include <poll.h>
#include <string>
#include <support/ForkedChild.h>
#include <support/RecordingDestination.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/UserDefaults/UserDefaultsManager.h>

#include "PreferencesTestSupport.h"

namespace velora::test {
namespace {

class SharedPreferences : public PreferencesTest {};

TEST_F(SharedPreferences, AnnounceEachChangeOnceWhileTheLoggerIsReplaced) {
    constexpr std::size_t changesPerThread = 50;
    const RecordedLogger first("first");
    const RecordedLogger second("second");
    logger = first.log;
    std::atomic<bool> isDone{false};
    std::jthread replacing([&] {
        while (!isDone) {
            logger = second.log;
            logger = first.log;
        }
    });
    {
        std::vector<std::jthread> setting;
        setting.reserve(3);
        for (int thread = 0; thread < 3; ++thread) {
            setting.emplace_back([this] {
                for (std::size_t n = 0; n < changesPerThread; ++n) {
                    preferences.setUseProxy(true);
                    preferences.loggingLevel();
                }
            });
        }
    }
    isDone = true;
    replacing.join();
    EXPECT_EQ(first.recording->lines().size() + second.recording->lines().size(), 3 * changesPerThread);
}

TEST_F(SharedPreferences, AreStoredWhileTheLoggerComesAndGoes) {
    std::atomic<bool> isDone{false};
    std::jthread replacing([&] {
        while (!isDone) {
            // The thread that still uses it when it is cleared is the one that ends it.
            logger = make<XCGLogger>("passing", false);
            logger = nullptr;
        }
    });
    std::vector<std::jthread> threads;
    threads.emplace_back([this] {
        for (std::int64_t n = 1; n <= 50; ++n) {
            preferences.setPinCodeLength(n);
        }
    });
    threads.emplace_back([this] {
        for (int n = 1; n <= 50; ++n) {
            preferences.setServerId(std::to_string(n));
            preferences.enableDisconnectWarnings();
        }
    });
    threads.clear();
    isDone = true;
    replacing.join();
    EXPECT_EQ(preferences.pinCodeLength(), 50);
    EXPECT_EQ(preferences.serverId(), "50");
}

TEST_F(SharedPreferences, HaveAUsableLoggerInTheChildOfAnyFork) {
    const RecordedLogger recorded;
    std::atomic<bool> isDone{false};
    std::jthread replacing([&] {
        while (!isDone) {
            logger = recorded.log;
            logger = nullptr;
        }
    });
    for (int round = 0; round < 50; ++round) {
        EXPECT_EQ(resultOfForkedChild([&] {
                      const std::shared_ptr<XCGLogger> found = logger.load();
                      logger = recorded.log;
                      return (found == nullptr || found == recorded.log) && logger.load() == recorded.log ? 0 : 1;
                  }),
                  0);
    }
    isDone = true;
}

/// A pipe that hands over numbers.
class NumberPipe {
public:
    NumberPipe() { EXPECT_EQ(::pipe(ends_.data()), 0); }
    NumberPipe(const NumberPipe&) = delete;
    NumberPipe& operator=(const NumberPipe&) = delete;
    ~NumberPipe() {
        ::close(ends_[0]);
        ::close(ends_[1]);
    }
    bool send(std::int64_t number) const { return ::write(ends_[1], &number, sizeof number) == sizeof number; }
    /// The next number; -1 if none comes within half a minute.
    std::int64_t receive() const {
        std::int64_t number = 0;
        pollfd waiting{.fd = ends_[0], .events = POLLIN, .revents = 0};
        return ::poll(&waiting, 1, 30'000) == 1 && ::read(ends_[0], &number, sizeof number) == sizeof number ? number
                                                                                                             : -1;
    }

private:
    std::array<int, 2> ends_{};
};

TEST_F(SharedPreferences, AreSeenByAnotherProcessAtOnce) {
    constexpr std::int64_t rounds = 100;
    const NumberPipe toChild;
    const NumberPipe toParent;
    std::int64_t seen = 0;
    std::thread parent([&] {
        for (std::int64_t n = 1; n <= rounds; ++n) {
            if (toParent.receive() != n || preferences.pinCodeLength() != n) {
                return;
            }
            seen = n;
            preferences.setComputerDisplayName("computer " + std::to_string(n));
            toChild.send(n);
        }
    });
    EXPECT_EQ(
        resultOfForkedChild([&] {
            for (std::int64_t n = 1; n <= rounds; ++n) {
                preferences.setPinCodeLength(n);
                toParent.send(n);
                if (toChild.receive() != n || preferences.computerDisplayName() != "computer " + std::to_string(n)) {
                    return 1;
                }
            }
            return 0;
        }),
        0);
    parent.join();
    EXPECT_EQ(seen, rounds);
}

}  // namespace
}  // namespace velora::test
