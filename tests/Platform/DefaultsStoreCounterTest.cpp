#include <array>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/Platform/DefaultsStoreCounter.h>

#include "DefaultsStoreTestSupport.h"
#include "support/OtherUser.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

class DefaultsStoreCounterTest : public ::testing::Test {
protected:
    ~DefaultsStoreCounterTest() override { ::shm_unlink(object().c_str()); }

    /// The name of the shared memory object.
    std::string object() const {
        struct stat status {};
        ::stat(path.c_str(), &status);
        return fmt::format("/velora-defaults-{}-{:x}-{:x}", status.st_uid, status.st_dev, status.st_ino);
    }

    TemporaryFolder folder;
    std::string path = folder.path().string();
    DefaultsStoreCounter counter{path};
};

bool isSettled(const DefaultsStoreCounter& counter) {
    return DefaultsStoreCounter::isSettled(counter.value());
}

TEST_F(DefaultsStoreCounterTest, IsUnsettledUntilItIsMapped) {
    EXPECT_FALSE(isSettled(counter));
    counter.verify();
    EXPECT_TRUE(isSettled(counter));
}

TEST_F(DefaultsStoreCounterTest, LeavesNothingInTheFolder) {
    counter.verify();
    EXPECT_TRUE(std::filesystem::is_empty(path));
}

TEST_F(DefaultsStoreCounterTest, ShowsEveryChangeToEveryMapping) {
    counter.verify();
    DefaultsStoreCounter other(path);
    other.verify();
    const std::uint64_t before = counter.value();
    {
        DefaultsStoreCounter::Change change(path);
        EXPECT_FALSE(isSettled(counter));
        EXPECT_FALSE(isSettled(other));
        EXPECT_EQ(change.complete(), before + 2);
    }
    EXPECT_EQ(counter.value(), before + 2);
    EXPECT_EQ(other.value(), before + 2);
}

TEST_F(DefaultsStoreCounterTest, StaysUnsettledWhenAWriterDiesUntilTheNextOneIsDone) {
    counter.verify();
    const std::uint64_t before = counter.value();
    inChildProcess([this] {
        const DefaultsStoreCounter::Change change(path);
        ::_exit(0);
        return 0;
    });
    EXPECT_EQ(counter.value(), before + 1);
    DefaultsStoreCounter::Change(path).complete();
    EXPECT_EQ(counter.value(), before + 2);
}

TEST_F(DefaultsStoreCounterTest, NoticesThatTheSystemRemovedIt) {
    counter.verify();
    ASSERT_EQ(::shm_unlink(object().c_str()), 0);
    DefaultsStoreCounter other(path);
    other.verify();
    DefaultsStoreCounter::Change(path).complete();
    DefaultsStoreCounter::Change(path).complete();
    EXPECT_NE(counter.value(), other.value());
    counter.verify();
    EXPECT_EQ(counter.value(), other.value());
}

TEST_F(DefaultsStoreCounterTest, IsNotToBeHadWhereAllMayWrite) {
    counter.verify();
    ASSERT_EQ(::chmod(path.c_str(), 01777), 0);
    counter.verify();
    EXPECT_FALSE(isSettled(counter));
    ASSERT_EQ(::chmod(path.c_str(), 0700), 0);
    counter.verify();
    EXPECT_TRUE(isSettled(counter));
}

TEST_F(DefaultsStoreCounterTest, TrustsNoObjectThatOthersMayChange) {
    const int planted = ::shm_open(object().c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    ASSERT_GE(planted, 0);
    ASSERT_EQ(::fchmod(planted, 0666), 0);
    counter.verify();
    EXPECT_FALSE(isSettled(counter));
    ASSERT_EQ(::fchmod(planted, 0600), 0);
    if (canBecomeOtherUsers()) {
        ASSERT_EQ(::fchown(planted, someUser, someUser), 0);
        counter.verify();
        EXPECT_FALSE(isSettled(counter));
    }
    ::close(planted);
}

TEST_F(DefaultsStoreCounterTest, IsSharedByRootAndTheOwnerOfTheFolder) {
    if (!canBecomeOtherUsers()) {
        GTEST_SKIP() << "only the superuser can act as another user";
    }
    ASSERT_EQ(::chown(path.c_str(), someUser, someUser), 0);
    counter.verify();
    ASSERT_TRUE(isSettled(counter));
    const std::uint64_t before = counter.value();
    EXPECT_EQ(resultAsUser(someUser,
                           [&] {
                               DefaultsStoreCounter own(path);
                               own.verify();
                               const bool isSame = own.value() == before;
                               DefaultsStoreCounter::Change(path).complete();
                               return isSame ? 0 : 1;
                           }),
              0);
    EXPECT_EQ(counter.value(), before + 2);
}

TEST_F(DefaultsStoreCounterTest, NeverChangesWithoutAFolder) {
    DefaultsStoreCounter memory("");
    memory.verify();
    EXPECT_EQ(memory.value(), 0U);
}

// What the counter is for, as a reader of the store sees it: the steps of a writer that dies between them.
TEST_F(DefaultsStoreCounterTest, KeepsReadersFreshWhenAWriterDiesBetweenItsSteps) {
    const std::string file = folder / "UserDefaults.json";
    DefaultsStore store(file);
    store.setInteger("key", 1);
    ASSERT_EQ(store.integer("key"), 1);
    for (int value = 2; value < 50; ++value) {
        inChildProcess([&] {
            const DefaultsStoreCounter::Change change(path);
            writeFile(folder / "new", "{\"key\": " + std::to_string(value) + "}");
            std::filesystem::rename(folder / "new", file);
            ::_exit(0);
            return 0;
        });
        ASSERT_EQ(store.integer("key"), value);
    }
}

TEST_F(DefaultsStoreCounterTest, KeepsReadersFreshWhereItIsNotToBeHad) {
    ASSERT_EQ(::chmod(path.c_str(), 01777), 0);
    const std::string file = folder / "UserDefaults.json";
    DefaultsStore reader(file);
    DefaultsStore writer(file);
    for (int value = 1; value < 30; ++value) {
        ASSERT_TRUE(writer.setInteger("key", value));
        ASSERT_EQ(reader.integer("key"), value);
    }
}

TEST_F(DefaultsStoreCounterTest, KeepsReadersFreshWithin50MillisecondsOfItsRemoval) {
    const std::string file = folder / "UserDefaults.json";
    DefaultsStore reader(file);
    DefaultsStore writer(file);
    for (int value = 1; value < 10; ++value) {
        ASSERT_TRUE(writer.setInteger("key", 2 * value));
        ASSERT_EQ(reader.integer("key"), 2 * value);
        ASSERT_EQ(::shm_unlink(object().c_str()), 0);
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        ASSERT_EQ(reader.integer("key"), 2 * value);
        ASSERT_TRUE(writer.setInteger("key", 2 * value + 1));
        ASSERT_EQ(reader.integer("key"), 2 * value + 1);
    }
}

/// In a child process with shared memory of its own, as in a container, stores each number that comes through `from`
/// and answers it through `to`. Returns `unable` where that is not allowed.
constexpr int unable = 77;
int storeInAnotherMountNamespace(const std::string& file, int from, int to) {
    if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", "/dev/shm", "tmpfs", 0, "size=64k") != 0) {
        return unable;
    }
    DefaultsStore store(file);
    for (int number = 0; ::read(from, &number, sizeof number) == sizeof number;) {
        if (!store.setInteger("key", number) || ::write(to, &number, sizeof number) != sizeof number) {
            return 1;
        }
    }
    return 0;
}

TEST_F(DefaultsStoreCounterTest, ShowsChangesFromAnotherMountNamespaceWithin50Milliseconds) {
    const std::string file = folder / "UserDefaults.json";
    DefaultsStore store(file);
    ASSERT_TRUE(store.setInteger("key", 0));
    std::array<int, 2> requests{};
    std::array<int, 2> answers{};
    ASSERT_EQ(::pipe2(requests.data(), O_CLOEXEC), 0);
    ASSERT_EQ(::pipe2(answers.data(), O_CLOEXEC), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(requests[1]);
        ::close(answers[0]);
        ::_exit(storeInAnotherMountNamespace(file, requests[0], answers[1]));
    }
    ::close(requests[0]);
    ::close(answers[1]);
    const auto isStored = [&](int number) {
        int stored = 0;
        const bool isAsked = ::write(requests[1], &number, sizeof number) == sizeof number;
        return isAsked && ::read(answers[0], &stored, sizeof stored) == sizeof stored && stored == number;
    };
    const auto previous = std::signal(SIGPIPE, SIG_IGN);
    int number = 0;
    while (number < 10 && isStored(number + 1)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        EXPECT_EQ(store.integer("key"), ++number);
    }
    std::signal(SIGPIPE, previous);
    ::close(requests[1]);
    ::close(answers[0]);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == unable) {
        GTEST_SKIP() << "mounting needs the superuser";
    }
    EXPECT_EQ(status, 0);
    EXPECT_EQ(number, 10);
}

}  // namespace
}  // namespace velora::test
