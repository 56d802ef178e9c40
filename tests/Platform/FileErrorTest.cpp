#include <cerrno>
#include <gtest/gtest.h>
#include <memory>
#include <string>

#include <Velora_UserDefaults/Platform/FileError.h>

namespace velora {
namespace {

TEST(FileError, NamesTheFileAndTheReason) {
    const FileError error = FileError::make(ENOENT, "/tmp/my app.log", "couldn’t be opened for writing");
    EXPECT_EQ(error.code, ENOENT);
    EXPECT_EQ(error.description,
              "The file “/tmp/my app.log” couldn’t be opened for writing: No such file or directory");
}

TEST(FileError, SaysWhatThePathNames) {
    EXPECT_EQ(FileError::make(EACCES, "/root/x", "couldn’t be listed", "folder").description,
              "The folder “/root/x” couldn’t be listed: Permission denied");
}

TEST(FileError, TakesNothingInAPathForAFormat) {
    EXPECT_EQ(FileError::make(EIO, "{} %s {0}", "couldn’t be read").description,
              "The file “{} %s {0}” couldn’t be read: Input/output error");
}

TEST(FileResult, HoldsAValueOrAnError) {
    const FileResult<std::string> success(std::string("text"));
    ASSERT_TRUE(success);
    EXPECT_EQ(*success, "text");
    EXPECT_EQ(success->size(), 4U);
    const FileResult<std::string> failure(FileError{.code = EIO, .description = "broken"});
    ASSERT_FALSE(failure);
    EXPECT_EQ(failure.error().code, EIO);
    EXPECT_EQ(failure.error().description, "broken");
}

TEST(FileResult, GivesAwayAValueThatCannotBeCopied) {
    FileResult<std::unique_ptr<int>> result(std::make_unique<int>(5));
    const std::unique_ptr<int> value = *std::move(result);
    EXPECT_EQ(*value, 5);
}

TEST(FileResult, OfNothingIsSuccessOrAnError) {
    EXPECT_TRUE(FileResult<void>());
    const FileResult<void> failure(FileError{.code = ENOSPC, .description = "full"});
    ASSERT_FALSE(failure);
    EXPECT_EQ(failure.error().code, ENOSPC);
}

TEST(CanNameFile, RefusesPathsWithANulInside) {
    using std::string_literals::operator""s;
    EXPECT_TRUE(canNameFile("/tmp/\n ü"));
    EXPECT_FALSE(canNameFile("/tmp/a\0b"s));
}

}  // namespace
}  // namespace velora
