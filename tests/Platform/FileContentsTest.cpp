#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/FileContents.h>

#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

std::ptrdiff_t filesIn(const TemporaryFolder& folder) {
    return std::distance(std::filesystem::directory_iterator(folder.path()), std::filesystem::directory_iterator());
}

TEST(FileContents, AreReplacedAndNoOtherFileIsTouched) {
    const TemporaryFolder folder;
    const std::string neighbours[] = {"file.new", "file.spare", "file.tmp", "file~"};
    for (const std::string& name : neighbours) {
        writeFile(folder / name, name);
    }
    for (const std::string bytes : {"one", "two", "three"}) {
        ASSERT_EQ(replaceFile(folder / "file", bytes), "");
        EXPECT_EQ(readFile(folder / "file"), bytes);
    }
    for (const std::string& name : neighbours) {
        EXPECT_EQ(readFile(folder / name), name);
    }
    EXPECT_EQ(filesIn(folder), 1 + std::ssize(neighbours));
}

TEST(FileContents, AreWrittenToAnOpenFileThatAPathNames) {
    const TemporaryFolder folder;
    writeFile(folder / "log", "line\n");
    const int log = ::open((folder / "log").c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    for (const std::string& path : {"/dev/fd/" + std::to_string(log), "/proc/self/fd/" + std::to_string(log)}) {
        EXPECT_EQ(replaceFile(path, "settings\n"), "");
    }
    ::close(log);
    EXPECT_EQ(readFile(folder / "log"), "line\nsettings\nsettings\n");
    EXPECT_EQ(filesIn(folder), 1);
    EXPECT_EQ(replaceFile("/dev/fd/" + std::to_string(log), "settings"), "cannot write it: Bad file descriptor");
}

TEST(FileContents, AreOfARegularFile) {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder / "folder");
    EXPECT_EQ(replaceFile(folder / "folder", "bytes"), "it is a folder");
    EXPECT_EQ(replaceFile("/dev/null", "bytes"), "it is no regular file");
    EXPECT_EQ(replaceFile(folder / "missing/file", "bytes"), "cannot write it: No such file or directory");
}

}  // namespace
}  // namespace velora::test
