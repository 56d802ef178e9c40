#include <atomic>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <support/RecordingDestination.h>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

namespace velora::test {
namespace {

constexpr int threadCount = 4;
constexpr int linesPerThread = 250;

template <typename Work>
void runOnThreads(Work work) {
    std::atomic<int> ready = 0;
    std::vector<std::thread> threads;
    threads.reserve(threadCount);
    for (int thread = 0; thread < threadCount; ++thread) {
        threads.emplace_back([&, thread] {
            ++ready;
            while (ready < threadCount) {
                std::this_thread::yield();
            }
            work(thread);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(LoggingThreads, LoseTearAndMixNoLine) {
    const RecordedLogger<> recorded;
    const auto second = recorded.addRecording("second");
    const auto third = recorded.addRecording("third");
    third->setOutputLevel(Level::error);
    recorded.log->setNoMessageClosure([] { return "no message"; });
    runOnThreads([&](int thread) {
        for (int line = 0; line < linesPerThread; ++line) {
            const Level level = line % 2 == 0 ? Level::info : Level::error;
            recorded.log->logln(level, {"function", "file.cpp", thread * linesPerThread + line},
                                Tag::name(std::to_string(thread)), [&] {
                                    recorded.log->debug();
                                    return std::string(static_cast<std::size_t>(line), 'x') + std::to_string(thread);
                                });
        }
    });
    for (const auto& destination : {recorded.recording, second, third}) {
        const bool isThird = destination == third;
        std::vector<int> next(threadCount, isThird ? 1 : 0);
        std::size_t withoutMessage = 0;
        for (const LogDetails& record : destination->records()) {
            if (record.level == Level::debug) {
                EXPECT_EQ(record.message, "no message");
                EXPECT_TRUE(record.userInfo.empty());
                ++withoutMessage;
                continue;
            }
            const int thread = static_cast<int>(record.lineNumber) / linesPerThread;
            const int line = static_cast<int>(record.lineNumber) % linesPerThread;
            EXPECT_EQ(line, next.at(static_cast<std::size_t>(thread))) << "lines of a thread keep their order";
            next.at(static_cast<std::size_t>(thread)) = line + (isThird ? 2 : 1);
            EXPECT_EQ(record.message, std::string(static_cast<std::size_t>(line), 'x') + std::to_string(thread));
            EXPECT_EQ(record.level, line % 2 == 0 ? Level::info : Level::error);
            EXPECT_EQ(std::any_cast<std::string>(record.userInfo.at(std::string(Constants::userInfoKeyTags))),
                      std::to_string(thread));
        }
        for (const int reached : next) {
            EXPECT_EQ(reached, isThird ? linesPerThread + 1 : linesPerThread);
        }
        EXPECT_EQ(withoutMessage, isThird ? 0U : static_cast<std::size_t>(threadCount * linesPerThread));
    }
}

TEST(LoggingThreads, ShareDateColumnsAndInternalLines) {
    const auto log = make<XCGLogger>("name", false);
    const auto recording = make<RecordingDestination>(nullptr, "recording");
    recording->setShowThreadName(true);
    log->add(recording);
    runOnThreads([&](int thread) {
        for (int line = 0; line < linesPerThread; ++line) {
            log->info("line {} of {}", line, thread);
            log->_logln("internal", Level::warning);
        }
    });
    EXPECT_EQ(recording->lines().size(), static_cast<std::size_t>(2 * threadCount * linesPerThread));
    removeDestinations(*log);
}

TEST(LoggingThreads, MakeTheSharedObjectsOnce) {
    std::vector<const XCGLogger*> loggers(threadCount);
    std::vector<const DispatchQueue*> queues(threadCount);
    std::vector<const DateFormatter*> formatters(threadCount);
    runOnThreads([&](int thread) {
        const auto index = static_cast<std::size_t>(thread);
        loggers[index] = XCGLogger::defaultInstance().get();
        queues[index] = XCGLogger::logQueue().get();
        formatters[index] = XCGLogger::defaultInstance()->dateFormatter().get();
    });
    for (std::size_t index = 1; index < threadCount; ++index) {
        EXPECT_EQ(loggers[index], loggers[0]);
        EXPECT_EQ(queues[index], queues[0]);
        EXPECT_EQ(formatters[index], formatters[0]);
    }
}

}  // namespace
}  // namespace velora::test
