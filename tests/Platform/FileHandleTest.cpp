
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <future>
#include <gtest/gtest.h>
#include <map>
#include <signal.h>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/Platform/FileHandle.h>

#include "support/ForkedChild.h"
#include "support/TemporaryFolder.h"

namespace velora {
namespace {

using std::string_literals::operator""s;
using test::readFile;
using test::TemporaryFolder;
using test::writeFile;

class FileHandleTest : public testing::Test {
protected:
    /// An open handle of a new file with the given contents.
    FileHandle opened(const std::string& path, const std::string& contents = "") {
        writeFile(path, contents);
        auto handle = FileHandle::openForWriting(path);
        EXPECT_TRUE(handle) << handle.error().description;
        return *std::move(handle);
    }

    static int openingError(const std::string& path) {
        const auto handle = FileHandle::openForWriting(path);
        return handle ? 0 : handle.error().code;
    }

    TemporaryFolder folder_;
};

TEST_F(FileHandleTest, KeepsTheBytesOfAFileItAppendsTo) {
    const std::string path = folder_ / "app.log";
    FileHandle handle = opened(path, "old\n");
    EXPECT_TRUE(handle.write("new\n"));
    EXPECT_TRUE(handle.write("first ", "second\n"));
    EXPECT_EQ(readFile(path), "old\nnew\nfirst second\n");
}

TEST_F(FileHandleTest, WritesWhatIsInTheKernelWhenTheCallReturns) {
    const std::string path = folder_ / "app.log";
    writeFile(path, "");
    EXPECT_EQ(test::resultOfForkedChild([&] {
                  auto handle = FileHandle::openForWriting(path);
                  static_cast<void>(handle->write("line\n"));
                  ::raise(SIGKILL);
                  return 0;
              }),
              -1);
    EXPECT_EQ(readFile(path), "line\n");
}

TEST_F(FileHandleTest, WritesBytesOfAnyKind) {
    const std::string path = folder_ / "app.log";
    FileHandle handle = opened(path);
    EXPECT_TRUE(handle.write("a\0b\xff"s, "\0"s));
    EXPECT_TRUE(handle.write(""));
    EXPECT_TRUE(handle.write("", "x"));
    EXPECT_TRUE(handle.write("y", ""));
    EXPECT_EQ(readFile(path), "a\0b\xff\0xy"s);
}

TEST_F(FileHandleTest, OpensFilesOfAnyName) {
    for (const std::string name : {"with space", "ünïcödé 日本", "line\nend", "percent%20"}) {
        FileHandle handle = opened(folder_ / name);
        EXPECT_TRUE(handle.write("x")) << name;
        EXPECT_EQ(readFile(folder_ / name), "x") << name;
        EXPECT_EQ(handle.path(), folder_ / name);
    }
}

TEST_F(FileHandleTest, MakesNoFile) {
    const std::string path = folder_ / "missing.log";
    const auto handle = FileHandle::openForWriting(path);
    ASSERT_FALSE(handle);
    EXPECT_EQ(handle.error().code, ENOENT);
    EXPECT_EQ(handle.error().description,
              "The file “" + path + "” couldn’t be opened for writing: No such file or directory");
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST_F(FileHandleTest, OpensNeitherFoldersNorWhatIsBehindFiles) {
    EXPECT_EQ(openingError(folder_.path().string()), EISDIR);
    writeFile(folder_ / "file", "");
    EXPECT_EQ(openingError(folder_ / "file/below"), ENOTDIR);
    EXPECT_EQ(openingError(""), ENOENT);
    EXPECT_EQ(openingError((folder_ / "file") + "\0x"s), EINVAL);
}

TEST_F(FileHandleTest, WritesThroughALink) {
    writeFile(folder_ / "target", "");
    std::filesystem::create_symlink("target", folder_ / "link");
    auto handle = FileHandle::openForWriting(folder_ / "link");
    ASSERT_TRUE(handle);
    EXPECT_TRUE(handle->write("x"));
    EXPECT_EQ(readFile(folder_ / "target"), "x");
    std::filesystem::create_symlink("nowhere", folder_ / "broken");
    EXPECT_EQ(openingError(folder_ / "broken"), ENOENT);
}

TEST_F(FileHandleTest, WritesAtTheEndAfterTheFileWasCutShort) {
    const std::string path = folder_ / "app.log";
    FileHandle handle = opened(path);
    EXPECT_TRUE(handle.write("0123456789"));
    std::filesystem::resize_file(path, 4);
    EXPECT_TRUE(handle.write("ab"));
    EXPECT_EQ(readFile(path), "0123ab");
}

TEST_F(FileHandleTest, WritesTenMegabytes) {
    const std::string path = folder_ / "app.log";
    FileHandle handle = opened(path, "head");
    std::string bytes(10'000'000, '\0');
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(i * 7 + i / 251);
    }
    EXPECT_TRUE(handle.write(bytes, "tail"));
    EXPECT_TRUE(readFile(path) == "head" + bytes + "tail");
}

void writeLines(FileHandle& handle, const std::string& writer, int count) {
    for (int i = 0; i < count; ++i) {
        const std::string text =
            writer + " " + std::to_string(i) + " " + std::string(static_cast<std::size_t>(i % 300), 'x');
        EXPECT_TRUE(handle.write(text, "\n"));
    }
}

/// Expects each of the named writers' lines to be there once, whole and in its order, and nothing else.
void expectLinesOf(const std::vector<std::string>& writers, int count, const std::string& contents) {
    std::istringstream lines(contents);
    std::map<std::string, int> next;
    for (std::string line; std::getline(lines, line);) {
        const std::string writer = line.substr(0, line.find(' '));
        const int i = next[writer]++;
        ASSERT_EQ(line, writer + " " + std::to_string(i) + " " + std::string(static_cast<std::size_t>(i % 300), 'x'));
    }
    ASSERT_EQ(next.size(), writers.size());
    for (const std::string& writer : writers) {
        EXPECT_EQ(next[writer], count) << writer;
    }
}

TEST_F(FileHandleTest, KeepsLinesWholeThatSeveralThreadsWrite) {
    constexpr int count = 2000;
    const std::string path = folder_ / "app.log";
    FileHandle handle = opened(path);
    const std::vector<std::string> writers{"a", "b", "c", "d"};
    std::vector<std::thread> threads;
    for (const std::string& writer : writers) {
        threads.emplace_back([&handle, writer] { writeLines(handle, writer, count); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    expectLinesOf(writers, count, readFile(path));
}

TEST_F(FileHandleTest, KeepsLinesWholeThatSeveralProcessesWrite) {
    constexpr int count = 2000;
    const std::string path = folder_ / "app.log";
    FileHandle handle = opened(path);
    auto other = FileHandle::openForWriting(path);
    ASSERT_TRUE(other);
    // Not on a thread: a child forked beside one may find the sanitizer's allocator locked.
    const pid_t child = ::fork();
    if (child == 0) {
        writeLines(*other, "child", count);
        ::_exit(0);
    }
    writeLines(handle, "parent", count);
    int status = -1;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    expectLinesOf({"parent", "child"}, count, readFile(path));
}

TEST_F(FileHandleTest, ReportsAFullDisk) {
    auto handle = FileHandle::openForWriting("/dev/full");
    ASSERT_TRUE(handle) << handle.error().description;
    const auto one = handle->write("x");
    ASSERT_FALSE(one);
    EXPECT_EQ(one.error().code, ENOSPC);
    EXPECT_EQ(one.error().description, "The file “/dev/full” couldn’t be written: No space left on device");
    EXPECT_FALSE(handle->write("x", "y"));
    EXPECT_TRUE(handle->isOpen());
}

TEST_F(FileHandleTest, ReportsWhatDoesNotFitInALimitedFileAndKeepsTheRest) {
    const std::string path = folder_ / "app.log";
    writeFile(path, "");
    EXPECT_EQ(test::resultOfForkedChild([&] {
                  const rlimit limit{.rlim_cur = 10, .rlim_max = 10};
                  ::setrlimit(RLIMIT_FSIZE, &limit);
                  ::signal(SIGXFSZ, SIG_IGN);
                  auto handle = FileHandle::openForWriting(path);
                  // The first system call takes six bytes of the second part, the next one none.
                  const auto result = handle->write("0123", "456789abcdef");
                  return result ? 1 : result.error().code == EFBIG ? 0 : 2;
              }),
              0);
    EXPECT_EQ(readFile(path), "0123456789");
}

TEST_F(FileHandleTest, IsNotLeftToProgramsThatTheProcessStarts) {
    const FileHandle handle = opened(folder_ / "app.log");
    EXPECT_NE(::fcntl(handle.descriptor(), F_GETFD) & FD_CLOEXEC, 0);
    EXPECT_NE(::fcntl(handle.descriptor(), F_GETFL) & O_APPEND, 0);
    EXPECT_EQ(::fcntl(handle.descriptor(), F_GETFL) & O_NONBLOCK, 0);
}

TEST_F(FileHandleTest, ClosesTheFileWhenItGoes) {
    int descriptor = -1;
    {
        const FileHandle handle = opened(folder_ / "app.log");
        descriptor = handle.descriptor();
        EXPECT_TRUE(handle.isOpen());
        EXPECT_NE(::fcntl(descriptor, F_GETFD), -1);
    }
    EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
}

TEST_F(FileHandleTest, RefusesEverythingWhenClosed) {
    const std::string path = folder_ / "app.log";
    FileHandle handle = opened(path);
    EXPECT_TRUE(handle.close());
    EXPECT_FALSE(handle.isOpen());
    EXPECT_EQ(handle.descriptor(), -1);
    EXPECT_TRUE(handle.close());
    const auto written = handle.write("x");
    ASSERT_FALSE(written);
    EXPECT_EQ(written.error().code, EBADF);
    EXPECT_FALSE(handle.write("x", "y"));
    EXPECT_FALSE(handle.write(""));
    EXPECT_FALSE(handle.synchronize());
    EXPECT_FALSE(handle.seekToEnd());
    EXPECT_FALSE(handle.stillAt(path));
    EXPECT_FALSE(FileHandle().isOpen());
}

TEST_F(FileHandleTest, GivesItsFileAwayWhenMoved) {
    const std::string path = folder_ / "app.log";
    FileHandle first = opened(path);
    FileHandle second = std::move(first);
    EXPECT_FALSE(first.isOpen());  // NOLINT(bugprone-use-after-move): the promise tested
    EXPECT_TRUE(second.write("2"));
    FileHandle third = opened(folder_ / "other.log");
    const int replaced = third.descriptor();
    third = std::move(second);
    EXPECT_EQ(::fcntl(replaced, F_GETFD), -1) << "assignment closes the file that it replaces";
    EXPECT_TRUE(third.write("3"));
    EXPECT_TRUE(third.stillAt(path));
    FileHandle& same = third;
    third = std::move(same);
    EXPECT_TRUE(third.isOpen());
    EXPECT_EQ(readFile(path), "23");
}

TEST_F(FileHandleTest, TellsTheSizeByItsEnd) {
    FileHandle handle = opened(folder_ / "app.log", "12345");
    const auto end = handle.seekToEnd();
    ASSERT_TRUE(end);
    EXPECT_EQ(*end, 5);
    EXPECT_TRUE(handle.write("67"));
    EXPECT_EQ(*handle.seekToEnd(), 7);
}

TEST_F(FileHandleTest, SynchronizesFilesAndHasNothingToDoForOthers) {
    FileHandle handle = opened(folder_ / "app.log");
    EXPECT_TRUE(handle.write("x"));
    EXPECT_TRUE(handle.synchronize());
    auto device = FileHandle::openForWriting("/dev/null");
    ASSERT_TRUE(device);
    EXPECT_TRUE(device->write("x"));
    EXPECT_TRUE(device->synchronize());
}

TEST_F(FileHandleTest, KnowsWhetherAPathStillNamesItsFile) {
    const std::string path = folder_ / "app.log";
    const FileHandle handle = opened(path);
    EXPECT_TRUE(handle.stillAt(path));
    std::filesystem::create_symlink("app.log", folder_ / "link");
    EXPECT_TRUE(handle.stillAt(folder_ / "link"));
    EXPECT_FALSE(handle.stillAt(path + "\0x"s));
    std::filesystem::rename(path, folder_ / "moved.log");
    EXPECT_FALSE(handle.stillAt(path));
    EXPECT_TRUE(handle.stillAt(folder_ / "moved.log"));
    writeFile(path, "another file");
    EXPECT_FALSE(handle.stillAt(path));
    std::filesystem::remove(folder_ / "moved.log");
    EXPECT_FALSE(handle.stillAt(folder_ / "moved.log"));
}

class PipeTest : public FileHandleTest {
protected:
    PipeTest() { EXPECT_EQ(::mkfifo(path_.c_str(), 0600), 0); }

    int openReader() { return ::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }

    std::string path_ = folder_ / "pipe";
};

TEST_F(PipeTest, IsNotWaitedForWithoutAReader) {
    EXPECT_EQ(openingError(path_), ENXIO);
}

TEST_F(PipeTest, TakesMoreThanItHoldsAsItsReaderReads) {
    const int reader = openReader();
    auto handle = FileHandle::openForWriting(path_);
    ASSERT_TRUE(handle);
    EXPECT_EQ(::fcntl(handle->descriptor(), F_GETFL) & O_NONBLOCK, 0);
    ::fcntl(reader, F_SETFL, 0);
    const std::string bytes(300'000, 'p');
    auto received = std::async(std::launch::async, [&] {
        std::string text;
        std::array<char, 5000> block{};
        while (text.size() < bytes.size()) {
            const ssize_t count = ::read(reader, block.data(), block.size());
            if (count <= 0) {
                break;
            }
            text.append(block.data(), static_cast<std::size_t>(count));
        }
        return text;
    });
    EXPECT_TRUE(handle->write(bytes));
    EXPECT_TRUE(received.get() == bytes);
    EXPECT_TRUE(handle->synchronize());
    EXPECT_EQ(handle->seekToEnd().error().code, ESPIPE);
    ::close(reader);
}

TEST_F(PipeTest, WhoseReaderHasGoneIsAnErrorAndKillsNobody) {
    const int reader = openReader();
    auto handle = FileHandle::openForWriting(path_);
    ASSERT_TRUE(handle);
    ::close(reader);
    const auto result = handle->write("x");
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().code, EPIPE);
    sigset_t mask;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_EQ(::sigismember(&mask, SIGPIPE), 0) << "the signal mask must be as before";
    sigset_t pending;
    ::sigpending(&pending);
    EXPECT_EQ(::sigismember(&pending, SIGPIPE), 0);
}

std::atomic<int> interruptions = 0;

TEST_F(PipeTest, IsWrittenOnAfterASignal) {
    struct sigaction action {};
    action.sa_handler = [](int) { ++interruptions; };  // without SA_RESTART
    struct sigaction before {};
    ::sigaction(SIGUSR1, &action, &before);
    const int reader = openReader();
    auto handle = FileHandle::openForWriting(path_);
    ASSERT_TRUE(handle);
    const std::string bytes(200'000, 's');  // more than the pipe holds, so the writer waits
    std::atomic<bool> done = false;
    std::thread writer([&] {
        EXPECT_TRUE(handle->write(bytes));
        done = true;
    });
    // Nothing is read before the waiting writer was interrupted several times.
    while (interruptions < 5) {
        ::pthread_kill(writer.native_handle(), SIGUSR1);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    EXPECT_FALSE(done);
    std::string received;
    std::array<char, 5000> block{};
    for (bool wasDone = false; !wasDone;) {
        wasDone = done;  // asked first, so that nothing written before is missed
        for (ssize_t count = 1; count > 0;) {
            count = ::read(reader, block.data(), block.size());
            if (count > 0) {
                received.append(block.data(), static_cast<std::size_t>(count));
            }
        }
    }
    writer.join();
    EXPECT_TRUE(received == bytes);
    ::close(reader);
    ::sigaction(SIGUSR1, &before, nullptr);
}

}  // namespace
}  // namespace velora
