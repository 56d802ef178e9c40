// What becomes of a process that has closed its standard input, output and error before it logs: nothing that the
// library opens takes their descriptors, so that nothing printed lands in a file.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <memory>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/Date.h>
#include <Velora_UserDefaults/Platform/DateFormatter.h>
#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/FileManager.h>
#include <Velora_UserDefaults/Platform/FileMove.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AppleSystemLogDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/ConsoleDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "support/CountingFormatter.h"
#include "support/DevLog.h"
#include "support/ForkedChild.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

using namespace std::chrono_literals;

constexpr std::array standardStreams{STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};

void closeStandardStreams() {
    for (const int stream : standardStreams) {
        ::close(stream);
    }
}

bool areStandardStreamsClosed() {
    for (const int stream : standardStreams) {
        if (::fcntl(stream, F_GETFD) >= 0) {
            return false;
        }
    }
    return true;
}

/// Ends this process from now on where it does anything to what descriptors 0 to 2 stand for, however briefly they do.
/// Sanitizers have pipes and files of their own there.
bool endAtAnyUseOfStandardStreams() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#endif
    constexpr std::array calls{SYS_read,      SYS_write,     SYS_pread64,    SYS_pwrite64, SYS_readv,
                               SYS_writev,    SYS_fstat,     SYS_newfstatat, SYS_fchmod,   SYS_fchown,
                               SYS_fsync,     SYS_fdatasync, SYS_ftruncate,  SYS_flock,    SYS_fallocate,
                               SYS_fsetxattr, SYS_fgetxattr, SYS_utimensat,  SYS_sendto,   SYS_connect};
    constexpr auto jump = static_cast<unsigned short>(BPF_JMP | BPF_JEQ | BPF_K);
    std::vector<sock_filter> program{sock_filter BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (std::size_t i = 0; i < calls.size(); ++i) {
        const auto toTheCheck = static_cast<unsigned char>(calls.size() - i);
        program.push_back({jump, toTheCheck, 0, static_cast<unsigned>(calls[i])});
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    program.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args)));
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, STDERR_FILENO, 0, 1));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS));
    const sock_fprog filter{.len = static_cast<unsigned short>(program.size()), .filter = program.data()};
    return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
}

/// Runs `work`, which returns whether it did what it should, in a process that closed its standard streams; expects
/// that none of them is ever anything again.
template <typename Work>
void expectNoUseOfStandardStreams(Work work) {
    // The C library and ICU read the system's time zone once, and close it again.
    static_cast<void>(DateFormatter("z").string(currentDate()));
    EXPECT_EQ(resultOfForkedChild([&] {
                  closeStandardStreams();
                  if (!endAtAnyUseOfStandardStreams()) {
                      return 1;
                  }
                  if (!work()) {
                      return 2;
                  }
                  return areStandardStreamsClosed() ? 0 : 3;
              }),
              0);
}

std::shared_ptr<XCGLogger> bareLogger() {
    return make<XCGLogger>("app", false);
}

TEST(StandardStreams, AreNoLogFile) {
    const TemporaryFolder folder;
    expectNoUseOfStandardStreams([&] {
        const auto log = bareLogger();
        const auto file = make<FileDestination>(nullptr, folder / "a.log", "file", true);
        log->add(file);
        log->info("first");
        file->flush();
        return file->isOpen();
    });
    EXPECT_TRUE(readFile(folder / "a.log").ends_with("> first\n"));
}

TEST(StandardStreams, AreNoFileThatRotatesOnAQueue) {
    const TemporaryFolder folder;
    expectNoUseOfStandardStreams([&] {
        const auto log = bareLogger();
        const auto queue = DispatchQueue::make("q");
        const auto file = make<AutoRotatingFileDestination>(
            nullptr, folder / "a.log", "file",
            AutoRotatingFileDestination::Options{.archiveSuffixDateFormatter = std::make_shared<CountingFormatter>(),
                                                 .targetMaxLogFiles = 1});
        file->setLogQueue(queue);
        log->add(file);
        for (int i = 0; i < 3; ++i) {
            log->info("line");
            file->rotateFile();
        }
        queue->drain();
        return file->isOpen() && file->archivedFileURLs().size() == 1;
    });
}

TEST(StandardStreams, AreNoFileOfPendingLines) {
    const TemporaryFolder folder;
    expectNoUseOfStandardStreams([&] {
        const auto log = bareLogger();
        const auto file = make<FileDestination>(nullptr, folder / "a.log", "file", true);
        log->add(file);
        file->setWriteBufferCapacity(10'000);
        const bool isKept{file->setPendingLinesFile(folder / "pending")};
        log->info("pending");
        file->flush();
        return isKept;
    });
}

TEST(StandardStreams, AreNoFileThatIsMovedToAnotherFileSystem) {
    const TemporaryFolder folder;
    writeFile(folder / "a", "contents");
    ASSERT_TRUE(FileManager::createFolder(folder / "tree/inner", true));
    writeFile(folder / "tree/inner/b", "contents");
    expectNoUseOfStandardStreams([&] {
        return copyWithoutReplacing(folder / "a", folder / "copy") == 0 &&
               copyWithoutReplacing(folder / "tree", folder / "copy of tree") == 0 &&
               FileManager::contentsOfFolder(folder / "tree") && FileManager::remove(folder / "tree");
    });
    EXPECT_EQ(readFile(folder / "copy of tree/inner/b"), "contents");
}

TEST(StandardStreams, AreNoFileOfTheDefaultsStore) {
    const TemporaryFolder folder;
    expectNoUseOfStandardStreams([&] {
        DefaultsStore store(folder / "sub/store.json");
        const bool isWritten = store.setInteger("one", 1);
        store.waitForChange(store.generation(), 1ms);
        return isWritten && store.integer("one") == 1 && store.exportTo(folder / "exported");
    });
}

TEST(StandardStreams, AreNotTheSystemLog) {
    const TemporaryFolder folder;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    (folder / "log").copy(address.sun_path, sizeof address.sun_path - 1);
    const int receiver = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(receiver, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    const int result = resultOfForkedChild([&] {
        if (leadDevLogTo(folder / "log")) {
            return 77;
        }
        closeStandardStreams();
        const auto log = bareLogger();
        log->add(make<AppleSystemLogDestination>(nullptr, "system log"));
        log->info("one");
        log->info("two");
        return areStandardStreamsClosed() ? 0 : 1;
    });
    if (result == 77) {
        ::close(receiver);
        GTEST_SKIP() << "/dev/log cannot lead elsewhere here";
    }
    EXPECT_EQ(result, 0);
    std::string entry(1000, '\0');
    entry.resize(
        static_cast<std::size_t>(std::max<ssize_t>(0, ::recv(receiver, entry.data(), entry.size(), MSG_DONTWAIT))));
    EXPECT_TRUE(entry.ends_with("> one")) << entry;
    ::close(receiver);
}

TEST(StandardStreams, CarryNoConsoleLinesIntoALogFile) {
    const TemporaryFolder folder;
    EXPECT_EQ(resultOfForkedChild([&] {
                  closeStandardStreams();
                  static_cast<void>(::open("/dev/null", O_RDONLY | O_CLOEXEC));  // the lowest number left is 1
                  const auto files = bareLogger();
                  files->add(make<FileDestination>(nullptr, folder / "a.log", "file", true));
                  const auto consoles = bareLogger();
                  consoles->add(make<ConsoleDestination>(nullptr, "console"));
                  for (int i = 0; i < 3; ++i) {
                      files->info("file");
                      consoles->info("console");
                      std::fputs("printed\n", stdout);
                      std::fflush(stdout);
                      std::fputs("printed\n", stderr);
                  }
                  return 0;
              }),
              0);
    const std::string text = readFile(folder / "a.log");
    EXPECT_TRUE(text.ends_with("> file\n"));
    EXPECT_EQ(text.find("console"), std::string::npos);
    EXPECT_EQ(text.find("printed"), std::string::npos);
}

}  // namespace
}  // namespace velora::test
