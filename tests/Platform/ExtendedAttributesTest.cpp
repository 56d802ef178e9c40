#include <array>
#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <sys/xattr.h>

#include <Velora_UserDefaults/Platform/ExtendedAttributes.h>

#include "support/TemporaryFolder.h"

namespace velora {
namespace {

using std::string_literals::operator""s;
using test::TemporaryFolder;
using test::writeFile;

class ExtendedAttributesTest : public testing::Test {
protected:
    void SetUp() override {
        writeFile(file_, "contents");
        if (::setxattr(file_.c_str(), "user.velora.probe", "", 0, 0) != 0) {
            GTEST_SKIP() << "no extended attributes on the file system of " << folder_.path();
        }
    }

    /// What the file's attribute holds, expecting that reading works.
    std::optional<std::string> valueOf(const std::string& name) {
        const auto value = readExtendedAttribute(file_, name);
        EXPECT_TRUE(value) << value.error().description;
        return value ? *value : std::nullopt;
    }

    TemporaryFolder folder_;
    std::string file_ = folder_ / "app.log";
};

TEST_F(ExtendedAttributesTest, KeepBytesOfAnyKind) {
    for (const std::string& bytes : {"text"s, ""s, "a\0b\n\xff"s, std::string(2000, 'x')}) {
        const auto written = writeExtendedAttribute(file_, "velora.archived.by", bytes);
        ASSERT_TRUE(written) << written.error().description;
        EXPECT_EQ(valueOf("velora.archived.by"), bytes);
    }
    EXPECT_EQ(test::readFile(file_), "contents");
}

TEST_F(ExtendedAttributesTest, AreFoundByOtherProgramsUnderTheUserPrefix) {
    ASSERT_TRUE(writeExtendedAttribute(file_, "velora.archived.by", "me"));
    std::array<char, 10> value{};
    ASSERT_EQ(::getxattr(file_.c_str(), "user.velora.archived.by", value.data(), value.size()), 2);
    EXPECT_STREQ(value.data(), "me");
    ASSERT_EQ(::setxattr(file_.c_str(), "user.other", "you", 3, 0), 0);
    EXPECT_EQ(valueOf("other"), "you");
}

TEST_F(ExtendedAttributesTest, AreAbsentAndNoErrorWhereverTheyCannotBeFound) {
    EXPECT_EQ(valueOf("missing"), std::nullopt);
    EXPECT_EQ(valueOf("probe"), std::nullopt);
    EXPECT_EQ(valueOf(""), std::nullopt);
    EXPECT_EQ(valueOf(std::string(300, 'n')), std::nullopt);
    EXPECT_EQ(valueOf("velora.probe\0x"s), std::nullopt);
    for (const std::string& path : {folder_ / "missing", file_ + "/below", "/proc/self/status"s, file_ + "\0x"s}) {
        const auto value = readExtendedAttribute(path, "velora.probe");
        ASSERT_TRUE(value) << path;
        EXPECT_EQ(*value, std::nullopt) << path;
    }
}

TEST_F(ExtendedAttributesTest, FollowLinks) {
    std::filesystem::create_symlink("app.log", folder_ / "link");
    ASSERT_TRUE(writeExtendedAttribute(folder_ / "link", "velora.a", "1"));
    EXPECT_EQ(valueOf("velora.a"), "1");
    EXPECT_EQ(*readExtendedAttribute(folder_ / "link", "velora.a"), "1");
}

TEST_F(ExtendedAttributesTest, SayWhyTheyCannotBeWritten) {
    const std::string missing = folder_ / "missing";
    const auto result = writeExtendedAttribute(missing, "velora.a", "1");
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().code, ENOENT);
    EXPECT_EQ(result.error().description,
              "The file “" + missing + "” couldn’t be given the attribute “velora.a”: No such file or directory");
    EXPECT_EQ(writeExtendedAttribute(file_, "velora\0x"s, "1").error().code, EINVAL);
    EXPECT_EQ(writeExtendedAttribute(file_ + "\0x"s, "velora", "1").error().code, EINVAL);
    EXPECT_EQ(writeExtendedAttribute(file_, std::string(300, 'n'), "1").error().code, ERANGE);
    EXPECT_EQ(writeExtendedAttribute(file_, "velora.large", std::string(70'000, 'x')).error().code, E2BIG);
    EXPECT_EQ(writeExtendedAttribute("/proc/self/status", "velora.a", "1").error().code, ENOTSUP);
    EXPECT_EQ(valueOf("velora.large"), std::nullopt);
}

}  // namespace
}  // namespace velora
