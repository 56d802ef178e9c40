#include <any>
#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <string_view>

#include <Velora_UserDefaults/XCGLogger/FileTarget.h>

namespace velora::test {
namespace {

std::optional<std::string> urlText(const FileTarget& target) {
    return target.url() ? std::optional(target.url()->absoluteString()) : std::nullopt;
}

URL url(std::string_view text) {
    return URL::parse(text).value();
}

TEST(FileTarget, IsTheFileThatAPathNames) {
    EXPECT_EQ(urlText("/tmp/a b.log"), "file:///tmp/a%20b.log");
    EXPECT_EQ(urlText(std::string("/tmp/a.log")), "file:///tmp/a.log");
    EXPECT_EQ(urlText(std::string_view("/tmp/a.log")), "file:///tmp/a.log");
    EXPECT_EQ(urlText(std::filesystem::path("/tmp/a.log")), "file:///tmp/a.log");
}

TEST(FileTarget, TakesTextForAPathEvenIfItLooksLikeAURL) {
    const std::string here = std::filesystem::current_path().string();
    EXPECT_EQ(FileTarget("file:///tmp/a.log").url()->path(), here + "/file:///tmp/a.log");
    EXPECT_EQ(FileTarget("https://host/a.log").url()->path(), here + "/https://host/a.log");
}

TEST(FileTarget, IsTheFileURLItIsGiven) {
    EXPECT_EQ(urlText(url("file:///tmp/a%20b.log")), "file:///tmp/a%20b.log");
}

TEST(FileTarget, IsNoneForAURLThatIsNoFileURL) {
    EXPECT_EQ(urlText(url("https://host/a.log")), std::nullopt);
    EXPECT_EQ(urlText(URL()), std::nullopt);
}

TEST(FileTarget, IsNoneForANullText) {
    EXPECT_EQ(urlText(static_cast<const char*>(nullptr)), std::nullopt);
    EXPECT_EQ(urlText(std::any(static_cast<const char*>(nullptr))), std::nullopt);
}

TEST(FileTarget, IsWhatAnAnyHolds) {
    char buffer[] = "/tmp/a.log";
    for (const std::any& value : {std::any("/tmp/a.log"), std::any(static_cast<char*>(buffer)),
                                  std::any(std::string("/tmp/a.log")), std::any(std::string_view("/tmp/a.log")),
                                  std::any(std::filesystem::path("/tmp/a.log")), std::any(url("file:///tmp/a.log"))}) {
        EXPECT_EQ(urlText(value), "file:///tmp/a.log") << value.type().name();
    }
}

TEST(FileTarget, IsNoneForAnAnyThatHoldsAnythingElse) {
    EXPECT_EQ(urlText(std::any()), std::nullopt);
    EXPECT_EQ(urlText(std::any(42)), std::nullopt);
    EXPECT_EQ(urlText(std::any(url("https://host/a.log"))), std::nullopt);
}

}  // namespace
}  // namespace velora::test
