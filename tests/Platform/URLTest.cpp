#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <support/TemporaryFolder.h>
#include <sys/wait.h>
#include <unistd.h>

#include <Velora_UserDefaults/Platform/URL.h>

namespace velora::test {
namespace {

using std::string_view_literals::operator""sv;  // NOLINT(misc-unused-using-decls): it is used

URL parsed(std::string_view text) {
    const std::optional<URL> url = URL::parse(text);
    EXPECT_TRUE(url.has_value()) << text;
    return url.value_or(URL());
}

TEST(URL, OfAFileHasAnEmptyHost) {
    const URL url = URL::fileURL("/a/b.log");
    EXPECT_EQ(url.absoluteString(), "file:///a/b.log");
    EXPECT_EQ(url.scheme(), "file");
    EXPECT_EQ(url.path(), "/a/b.log");
    EXPECT_TRUE(url.isFileURL());
    EXPECT_FALSE(url.hasDirectoryPath());
}

TEST(URL, OfAFileEncodesWhatAURLMayNotHold) {
    EXPECT_EQ(URL::fileURL("/a b/c").absoluteString(), "file:///a%20b/c");
    EXPECT_EQ(URL::fileURL("/100%?#[]|").absoluteString(), "file:///100%25%3F%23%5B%5D%7C");
    EXPECT_EQ(URL::fileURL("/Grüße").absoluteString(), "file:///Gr%C3%BC%C3%9Fe");
    EXPECT_EQ(URL::fileURL("/a%20b").absoluteString(), "file:///a%2520b");
    EXPECT_EQ(URL::fileURL("/\xFF\xC3").absoluteString(), "file:///%FF%C3") << "no UTF-8";
    EXPECT_EQ(URL::fileURL("/-._~!$&'()*+,;=:@").absoluteString(), "file:///-._~!$&'()*+,;=:@");
}

TEST(URL, OfAFileGivesBackEveryByteOfThePath) {
    std::string path = "/";
    for (int byte = 1; byte < 256; ++byte) {
        path += static_cast<char>(byte);
    }
    path += "end";
    const URL url = URL::fileURL(path);
    EXPECT_EQ(url.path(), path);
    EXPECT_TRUE(URL::parse(url.absoluteString()) == url);
}

TEST(URL, NeverLetsANulByteCutAPathShort) {
    const URL url = URL::fileURL("/safe\0/etc"sv);
    EXPECT_EQ(url.absoluteString(), "file:///safe%00/etc");
    EXPECT_EQ(url.path(), "/safe%00/etc");
    EXPECT_EQ(parsed("file:///a%00b").path(), "/a%00b");
    EXPECT_EQ(URL::fileURL("/a").appendingPathComponent("b\0c"sv).path(), "/a/b%00c");
    EXPECT_EQ(URL::fileURL("/a").appendingPathExtension("b\0c"sv).path(), "/a.b%00c");
    EXPECT_FALSE(URL::parse("file:///a\0b"sv).has_value());
}

TEST(URL, OfAPathThatEndsInASlashIsADirectory) {
    const URL url = URL::fileURL("/a/b/");
    EXPECT_EQ(url.absoluteString(), "file:///a/b/");
    EXPECT_EQ(url.path(), "/a/b");
    EXPECT_TRUE(url.hasDirectoryPath());
}

TEST(URL, OfTheRootKeepsItsSlash) {
    EXPECT_EQ(URL::fileURL("/").absoluteString(), "file:///");
    EXPECT_EQ(URL::fileURL("/").path(), "/");
    EXPECT_EQ(URL::fileURL("/").lastPathComponent(), "/");
    EXPECT_EQ(URL::fileURL("/", false).absoluteString(), "file:///");
    EXPECT_EQ(URL::fileURL("/", true).absoluteString(), "file:///");
    EXPECT_EQ(parsed("file:////").path(), "/");
}

TEST(URL, IsADirectoryWhenToldSoAndNotOtherwise) {
    EXPECT_EQ(URL::fileURL("/a", true).absoluteString(), "file:///a/");
    EXPECT_EQ(URL::fileURL("/a/", true).absoluteString(), "file:///a/");
    EXPECT_EQ(URL::fileURL("/a//", true).absoluteString(), "file:///a/");
    EXPECT_EQ(URL::fileURL("/a/", false).absoluteString(), "file:///a");
    EXPECT_EQ(URL::fileURL("/a", false).absoluteString(), "file:///a");
}

TEST(URL, TakesARelativePathFromTheCurrentDirectory) {
    const std::string current = std::filesystem::current_path().string();
    EXPECT_EQ(URL::fileURL("a/b").path(), current + "/a/b");
    EXPECT_EQ(URL::fileURL("./a").path(), current + "/./a");
    EXPECT_EQ(URL::fileURL("~/a").path(), current + "/~/a");
    EXPECT_EQ(URL::fileURL("").path(), current);
    EXPECT_TRUE(URL::fileURL("").hasDirectoryPath());
    EXPECT_EQ(URL::fileURL("a", true).absoluteString(), URL::fileURL("a/").absoluteString());
}

TEST(URLDeathTest, TakesARelativePathFromTheRootWhenTheCurrentDirectoryIsGone) {
    const TemporaryFolder folder;
    EXPECT_EXIT(
        {
            const std::string gone = folder / "gone";
            std::filesystem::create_directory(gone);
            std::filesystem::current_path(gone);
            std::filesystem::remove(gone);
            const std::string path = URL::fileURL("a").path();
            std::filesystem::current_path("/");
            std::exit(path == "/a" ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(URL, DoesNotResolveDots) {
    EXPECT_EQ(URL::fileURL("/a/./b/../c").path(), "/a/./b/../c");
    EXPECT_EQ(parsed("file:///a/./b/../c").absoluteString(), "file:///a/./b/../c");
}

TEST(URL, ParsesAnythingWithAScheme) {
    for (const char* text : {"file:///a", "http://h", "https://user:pw@h:80/a/b?q=1#f", "mailto:a@b.c", "urn:isbn:1",
                             "x-y+z.1:", "file://[::1]/a", "a:b"}) {
        EXPECT_EQ(parsed(text).absoluteString(), text);
    }
}

TEST(URL, RejectsWhatIsNotAURI) {
    for (const std::string_view text :
         {""sv, "a"sv, "/a/b"sv, "//h/a"sv, ":a"sv, "1a:b"sv, "file:///a b"sv, " file:///a"sv, "file:///a\n"sv,
          "file:///%"sv, "file:///%2"sv, "file:///%GG"sv, "file:///ü"sv, "file:///\xFF"sv, "http://[::1/a"sv,
          "http://h:port/"sv, "file:///a|b"sv, "a_b:c"sv}) {
        EXPECT_FALSE(URL::parse(text).has_value()) << text;
    }
    EXPECT_FALSE(URL::parse({}).has_value());
}

TEST(URL, ParsesOnlyTheViewItIsGiven) {
    EXPECT_EQ(parsed("file:///a b"sv.substr(0, 9)).absoluteString(), "file:///a");
}

TEST(URL, ParsesTextOfAMegabyte) {
    const std::string text = "file:///" + std::string(1'000'000, 'a') + "/b";
    EXPECT_EQ(parsed(text).lastPathComponent(), "b");
}

TEST(URL, IsAFileURLOnThisMachineOnly) {
    EXPECT_TRUE(parsed("file:///a").isFileURL());
    EXPECT_TRUE(parsed("FILE:///a").isFileURL());
    EXPECT_TRUE(parsed("file:/a").isFileURL());
    EXPECT_TRUE(parsed("file://localhost/a").isFileURL());
    EXPECT_TRUE(parsed("file://LocalHost/a").isFileURL());
    EXPECT_FALSE(parsed("file://server/a").isFileURL());
    EXPECT_FALSE(parsed("file://localhost:1/a").isFileURL());
    EXPECT_FALSE(parsed("file://localhosts/a").isFileURL());
    EXPECT_FALSE(parsed("http:///a").isFileURL());
    EXPECT_FALSE(parsed("files:///a").isFileURL());
    EXPECT_FALSE(URL().isFileURL());
}

TEST(URL, HasItsPathBetweenHostAndQuery) {
    EXPECT_EQ(parsed("https://h:80/a%20b/c?q=/x#/y").path(), "/a b/c");
    EXPECT_EQ(parsed("https://h?q=/x").path(), "");
    EXPECT_EQ(parsed("https://h#/x").path(), "");
    EXPECT_EQ(parsed("file:/a#f?").path(), "/a");
    EXPECT_EQ(parsed("mailto:a@b.c").path(), "a@b.c");
    EXPECT_EQ(parsed("file://localhost/a/").path(), "/a");
    EXPECT_EQ(parsed("file:///%c3%BC%2F").path(), "/ü");
    EXPECT_EQ(parsed("HTTPS://h/").scheme(), "HTTPS");
}

TEST(URL, HasTheLastComponentAndTheExtensionOfItsDecodedPath) {
    const URL url = URL::fileURL("/a.x/b%.c d/");
    EXPECT_EQ(url.lastPathComponent(), "b%.c d");
    EXPECT_EQ(url.pathExtension(), "c d");
    EXPECT_EQ(parsed("https://h.c").lastPathComponent(), "");
    EXPECT_EQ(parsed("https://h.c").pathExtension(), "");
}

TEST(URL, AppendsAComponentWithOneSlash) {
    EXPECT_EQ(URL::fileURL("/a").appendingPathComponent("b c").absoluteString(), "file:///a/b%20c");
    EXPECT_EQ(URL::fileURL("/a/").appendingPathComponent("b").absoluteString(), "file:///a/b");
    EXPECT_EQ(URL::fileURL("/a/").appendingPathComponent("//b").absoluteString(), "file:///a/b");
    EXPECT_EQ(URL::fileURL("/").appendingPathComponent("b").absoluteString(), "file:///b");
    EXPECT_EQ(URL::fileURL("/a").appendingPathComponent("b/c").absoluteString(), "file:///a/b/c");
    EXPECT_EQ(URL::fileURL("/a").appendingPathComponent("%?#").path(), "/a/%?#");
}

TEST(URL, AppendsADirectoryWhenToldSoOrByItsSlash) {
    EXPECT_EQ(URL::fileURL("/a").appendingPathComponent("b", true).absoluteString(), "file:///a/b/");
    EXPECT_EQ(URL::fileURL("/a").appendingPathComponent("b/", true).absoluteString(), "file:///a/b/");
    EXPECT_EQ(URL::fileURL("/a").appendingPathComponent("b/").absoluteString(), "file:///a/b/");
}

TEST(URL, AppendingNoComponentChangesAtMostTheSlash) {
    EXPECT_EQ(URL::fileURL("/a").appendingPathComponent("").absoluteString(), "file:///a");
    EXPECT_EQ(URL::fileURL("/a").appendingPathComponent("/").absoluteString(), "file:///a");
    EXPECT_EQ(URL::fileURL("/a").appendingPathComponent("", true).absoluteString(), "file:///a/");
}

TEST(URL, AppendsBeforeQueryAndFragment) {
    EXPECT_EQ(parsed("https://h?q=1#f").appendingPathComponent("a").absoluteString(), "https://h/a?q=1#f");
    EXPECT_EQ(parsed("https://h/a/?q").appendingPathExtension("x").absoluteString(), "https://h/a.x/?q");
}

TEST(URL, AppendsAnExtension) {
    EXPECT_EQ(URL::fileURL("/a/b").appendingPathExtension("log").absoluteString(), "file:///a/b.log");
    EXPECT_EQ(URL::fileURL("/a/b.c").appendingPathExtension("log").absoluteString(), "file:///a/b.c.log");
    EXPECT_EQ(URL::fileURL("/a/b/").appendingPathExtension("d").absoluteString(), "file:///a/b.d/");
    EXPECT_EQ(URL::fileURL("/a").appendingPathExtension("x y").absoluteString(), "file:///a.x%20y");
}

TEST(URL, LeavesOutAnExtensionThatNothingCouldCarry) {
    EXPECT_EQ(URL::fileURL("/a/b").appendingPathExtension("").absoluteString(), "file:///a/b");
    EXPECT_EQ(URL::fileURL("/a/b").appendingPathExtension("x/y").absoluteString(), "file:///a/b");
    EXPECT_EQ(URL::fileURL("/").appendingPathExtension("log").absoluteString(), "file:///");
    EXPECT_EQ(parsed("https://h").appendingPathExtension("log").absoluteString(), "https://h");
}

TEST(URL, ThatIsEmptyStaysEmpty) {
    const URL empty;
    EXPECT_EQ(empty.absoluteString(), "");
    EXPECT_EQ(empty.scheme(), "");
    EXPECT_EQ(empty.path(), "");
    EXPECT_EQ(empty.lastPathComponent(), "");
    EXPECT_EQ(empty.pathExtension(), "");
    EXPECT_FALSE(empty.hasDirectoryPath());
    EXPECT_EQ(empty.appendingPathComponent("a", true), empty);
    EXPECT_EQ(empty.appendingPathExtension("a"), empty);
}

TEST(URL, EqualsByItsText) {
    EXPECT_EQ(URL::fileURL("/a b"), parsed("file:///a%20b"));
    EXPECT_NE(URL::fileURL("/a"), URL::fileURL("/a/"));
    EXPECT_NE(parsed("file:///a"), parsed("FILE:///a"));
    EXPECT_NE(parsed("file:///a"), parsed("file://localhost/a"));
}

}  // namespace
}  // namespace velora::test
