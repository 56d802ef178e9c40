// What the library must not do to the process that uses it: change its umask or the identity of its system log, and
// leave descriptors to the programs that it starts.

#include <array>
#include <cstdarg>
#include <cstdio>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <mutex>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/FileManager.h>
#include <Velora_UserDefaults/Platform/FileMove.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AppleSystemLogDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/AutoRotatingFileDestination.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/ConsoleDestination.h>

#include "support/CountingFormatter.h"
#include "support/RecordingDestination.h"
#include "support/SyslogDaemon.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

/// Calls that are on no path of the library's, and files that were opened so that started programs inherit them.
struct Faults {
    std::mutex lock;
    bool areWatched = false;
    std::vector<std::string> list;

    void add(std::string fault) {
        const std::scoped_lock guard(lock);
        if (areWatched) {
            list.push_back(std::move(fault));
        }
    }
};

Faults& faults() {
    static auto& shared = *new Faults;
    return shared;
}

int openReporting(int folder, const char* path, int flags, mode_t mode) {
    if ((flags & O_CLOEXEC) == 0) {
        faults().add(std::string("open without O_CLOEXEC: ") + path);
    }
    return static_cast<int>(::syscall(SYS_openat, folder, path, flags, mode));
}

FILE* fopenReporting(const char* path, const char* mode) {
    if (std::string(mode).find('e') == std::string::npos) {
        faults().add(std::string("fopen without e: ") + path);
    }
    using Function = FILE* (*)(const char*, const char*);
    static const auto original = reinterpret_cast<Function>(::dlsym(RTLD_NEXT, "fopen"));
    return original(path, mode);
}

}  // namespace
}  // namespace velora::test

// These stand before the C library's functions for the whole program, the library and the C++ library included.
#pragma GCC visibility push(default)
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name): the C library's are reserved names
extern "C" {

mode_t umask(mode_t mask) noexcept {
    velora::test::faults().add("umask");
    return static_cast<mode_t>(::syscall(SYS_umask, mask));
}

void openlog(const char* identity, int /*option*/, int /*facility*/) {
    velora::test::faults().add(std::string("openlog with ") + (identity == nullptr ? "nothing" : identity));
}

int openat(int folder, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : mode_t{0};
    va_end(arguments);
    return velora::test::openReporting(folder, path, flags, mode);
}

int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const auto mode = (flags & (O_CREAT | __O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : mode_t{0};
    va_end(arguments);
    return velora::test::openReporting(AT_FDCWD, path, flags, mode);
}

FILE* fopen(const char* path, const char* mode) {
    return velora::test::fopenReporting(path, mode);
}

// The same functions under the names that they have for programs with large files.
int openat64(int folder, const char* path, int flags, ...) __attribute__((alias("openat")));
int open64(const char* path, int flags, ...) __attribute__((alias("open")));
FILE* fopen64(const char* path, const char* mode) __attribute__((alias("fopen")));

}  // extern "C"
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
#pragma GCC visibility pop

namespace velora::test {
namespace {

/// The descriptors that a program has which this one starts: each with what it leads to.
std::string descriptorsOfStartedProgram(const std::string& folder) {
    const std::string output = folder + "/descriptors";
    const std::string script =
        "for each in /proc/self/fd/*; do echo \"$(readlink \"$each\")\"; done > '" + output + "' 2>/dev/null";
    std::array<const char*, 4> arguments{"sh", "-c", script.c_str(), nullptr};
    pid_t process = -1;
    if (::posix_spawn(&process, "/bin/sh", nullptr, nullptr, const_cast<char**>(arguments.data()), environ) != 0) {
        return "could not be started";
    }
    ::waitpid(process, nullptr, 0);
    return readFile(output);
}

/// The open descriptors of this process that a started program would inherit.
std::vector<std::string> inheritable() {
    std::vector<std::string> descriptors;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        const int number = std::stoi(entry.path().filename().string());
        const int flags = ::fcntl(number, F_GETFD);
        if (flags >= 0 && (flags & FD_CLOEXEC) == 0) {
            descriptors.push_back(entry.path().filename().string() + " " +
                                  std::filesystem::read_symlink(entry.path(), ignored).string());
        }
    }
    return descriptors;
}

class ProcessSecurity : public testing::Test {
protected:
    ProcessSecurity() {
        ::setenv("HOME", folder_.path().c_str(), 1);
        ::setenv("TMPDIR", folder_.path().c_str(), 1);
        ::unsetenv("XDG_CONFIG_HOME");
        file_->setLogQueue(DispatchQueue::make("of the file"));
    }
    ~ProcessSecurity() override { ::unsetenv("TMPDIR"); }

    /// Does everything that opens something.
    void useEverything() {
        logger_.log->add(file_);
        leaveLinesAndRecover();
        logger_.log->add(make<ConsoleDestination>(nullptr, "console"));
        if (hasSystemLog_) {
            logger_.log->add(make<AppleSystemLogDestination>(nullptr, "system"));
        }
        logger_.log->info("text");
        file_->flush();
        file_->rotateFile();
        file_->cleanUpLogFiles();
        static_cast<void>(AutoRotatingFileDestination::defaultLogFolderURL());
        store_.setInteger("number", 1);
        store_.setInteger("number", 2);
        EXPECT_EQ(store_.integer("number"), 2);
        writeFile(folder_ / "from", "bytes");
        EXPECT_EQ(copyWithoutReplacing(folder_ / "from", folder_ / "to"), 0);
        std::filesystem::create_directories(folder_ / "a/b");
        EXPECT_EQ(copyWithoutReplacing(folder_ / "a", folder_ / "c"), 0);
        EXPECT_TRUE(FileManager::remove(folder_ / "c"));
        EXPECT_TRUE(FileManager::contentsOfFolder(folder_.path().string()));
        EXPECT_FALSE(FileManager::downloadsFolders().empty());
        ::unsetenv("HOME");
        static_cast<void>(FileManager::homeFolder());
    }

    /// Has a killed process leave a line that waits, and writes it, to a log that ends inside a line.
    void leaveLinesAndRecover() {
        const std::string path = folder_ / "kept.log";
        const auto file = make<FileDestination>(nullptr, path, "kept", /*shouldAppend=*/true);
        file->setWriteBufferCapacity(10'000);
        const pid_t child = ::fork();
        if (child == 0) {
            static_cast<void>(file->setPendingLinesFile(folder_ / "pending"));
            logger_.log->add(file);
            logger_.log->info("left");
            ::raise(SIGKILL);
        }
        ::waitpid(child, nullptr, 0);
        faults().areWatched = false;
        writeFile(path, "inside a line");
        faults().areWatched = true;
        EXPECT_TRUE(file->setPendingLinesFile(folder_ / "pending"));
        logger_.log->add(file);
        logger_.log->remove(file);
        faults().areWatched = false;
        EXPECT_NE(readFile(path).find("left\n"), std::string::npos);
        faults().areWatched = true;
    }

    std::vector<std::string> faultsOfEverything() {
        faults().list.clear();
        ::testing::internal::CaptureStdout();
        faults().areWatched = true;
        useEverything();
        faults().areWatched = false;
        ::testing::internal::GetCapturedStdout();
        std::vector<std::string> found = faults().list;
        // The tests' own.
        std::erase_if(found, [this](const std::string& fault) { return fault.ends_with(folder_ / "from"); });
        return found;
    }

    // First: nothing may have started a thread, and the machine's own log is to see nothing of this.
    SyslogDaemon daemon_;
    const bool hasSystemLog_ = !daemon_.start();
    TemporaryFolder folder_;
    DefaultsStore store_{folder_ / ".config/UserDefaults.json"};
    const RecordedLogger<> logger_;
    const std::shared_ptr<AutoRotatingFileDestination> file_ = make<AutoRotatingFileDestination>(
        nullptr, folder_ / "app.log", "file",
        AutoRotatingFileDestination::Options{.archiveSuffixDateFormatter = std::make_shared<CountingFormatter>()});
};

TEST_F(ProcessSecurity, IsNotTouchedWhereItIsTheHosts) {
    std::filesystem::create_directory(folder_ / ".config");
    writeFile(folder_ / ".config/user-dirs.dirs", "XDG_DOWNLOAD_DIR=\"$HOME/down\"\n");
    EXPECT_THAT(faultsOfEverything(), testing::IsEmpty());
}

TEST_F(ProcessSecurity, LeavesNoDescriptorToProgramsThatItStarts) {
    const std::vector<std::string> before = inheritable();
    ::testing::internal::CaptureStdout();
    useEverything();
    ::testing::internal::GetCapturedStdout();
    ASSERT_TRUE(file_->isOpen());
    EXPECT_EQ(inheritable(), before);
    EXPECT_THAT(descriptorsOfStartedProgram(folder_.path().string()), testing::Not(testing::HasSubstr("app.log")));
}

// Without this, a test that finds no fault could have looked at nothing.
TEST_F(ProcessSecurity, IsSeenWhenItIsTouched) {
    writeFile(folder_ / "file", "bytes");
    faults().list.clear();
    faults().areWatched = true;
    ::umask(::umask(0));
    ::openlog("identity", 0, 0);
    static_cast<void>(readFile(folder_ / "file"));
    const int descriptor = ::open((folder_ / "file").c_str(), O_RDONLY);
    faults().areWatched = false;
    EXPECT_THAT(faults().list, testing::SizeIs(5));
    EXPECT_THAT(descriptorsOfStartedProgram(folder_.path().string()), testing::HasSubstr(folder_ / "file"));
    ::close(descriptor);
}

}  // namespace
}  // namespace velora::test
