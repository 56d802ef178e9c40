#include <chrono>
#include <cstdint>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>

#include "DefaultsStoreTestSupport.h"
#include "support/TemporaryFolder.h"

namespace velora::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using Type = DefaultsStore::Type;

class DefaultsStoreTest : public ::testing::Test {
protected:
    /// What another process would read.
    DefaultsStore another() const { return DefaultsStore(file); }

    TemporaryFolder folder;
    std::string file = folder / "UserDefaults.json";
    DefaultsStore store{file};
};

TEST_F(DefaultsStoreTest, ReadsNothingFromAnEmptyStore) {
    EXPECT_EQ(store.string("key"), std::nullopt);
    EXPECT_EQ(store.integer("key"), 0);
    EXPECT_FALSE(store.boolean("key"));
    EXPECT_EQ(store.url("key"), std::nullopt);
    EXPECT_FALSE(store.contains("key"));
    EXPECT_TRUE(store.allValues().empty());
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(DefaultsStoreTest, KeepsStrings) {
    const std::string texts[] = {"",
                                 "plain",
                                 "two\nlines\r\n\ttabbed",
                                 R"("quoted" and \escaped\)",
                                 "Grüße, 世界 🙂",
                                 "{}",
                                 "true",
                                 std::string("a\0b", 3),
                                 "\x7f\x01"};
    for (const std::string& text : texts) {
        ASSERT_TRUE(store.setString("key", text));
        EXPECT_EQ(store.string("key"), text);
        EXPECT_EQ(another().string("key"), text);
    }
}

TEST_F(DefaultsStoreTest, KeepsIntegersToTheExtremes) {
    for (const std::int64_t value :
         {std::int64_t{0}, std::int64_t{-1}, std::int64_t{6}, std::numeric_limits<std::int64_t>::max(),
          std::numeric_limits<std::int64_t>::min()}) {
        ASSERT_TRUE(store.setInteger("key", value));
        EXPECT_EQ(store.integer("key"), value);
        EXPECT_EQ(another().integer("key"), value);
    }
}

TEST_F(DefaultsStoreTest, KeepsBools) {
    ASSERT_TRUE(store.setBool("key", true));
    EXPECT_TRUE(another().boolean("key"));
    ASSERT_TRUE(store.setBool("key", false));
    EXPECT_FALSE(another().boolean("key"));
    EXPECT_TRUE(another().contains("key"));
}

TEST_F(DefaultsStoreTest, KeepsURLsOfAnyScheme) {
    const URL urls[] = {URL::fileURL("/tmp/my chats/Grüße/"), URL::fileURL("/a"), URL::fileURL("/a", true),
                        *URL::parse("https://example.com/a%20b?q=%22#x"), *URL::parse("mailto:ann@example.com")};
    for (const URL& url : urls) {
        ASSERT_TRUE(store.setURL("key", url));
        EXPECT_EQ(store.url("key"), url);
        EXPECT_EQ(another().url("key"), url);
        EXPECT_EQ(another().allValues().at(0).type, Type::url);
    }
}

TEST_F(DefaultsStoreTest, WritesAFileThatAPersonCanRead) {
    store.setString("Name", "Ann's \"PC\"");
    store.setInteger("PinLength", 6);
    store.setBool("Warnings", true);
    store.setURL("Chats", URL::fileURL("/home/ann/my chats", true));
    EXPECT_EQ(readFile(file),
              "{\n"
              "    \"Name\": \"Ann's \\\"PC\\\"\",\n"
              "    \"PinLength\": 6,\n"
              "    \"Warnings\": true,\n"
              "    \"Chats\": {\"url\": \"file:///home/ann/my%20chats/\"}\n"
              "}\n");
}

TEST_F(DefaultsStoreTest, KeepsTheFileToItsOwner) {
    const std::string deep = folder / "new/config/UserDefaults.json";
    DefaultsStore deepStore(deep);
    ASSERT_TRUE(deepStore.setBool("key", true));
    struct stat status {};
    ASSERT_EQ(::stat(deep.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    ASSERT_EQ(::stat((folder / "new/config").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0700U);
    ASSERT_EQ(::stat((folder / "new").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0700U);
}

TEST_F(DefaultsStoreTest, RemovesAKeyWhenTheValueIsAbsent) {
    store.setString("text", "a");
    store.setURL("url", URL::fileURL("/a"));
    store.setInteger("integer", 1);
    ASSERT_TRUE(store.setString("text", std::nullopt));
    ASSERT_TRUE(store.setURL("url", std::nullopt));
    ASSERT_TRUE(store.remove("integer"));
    EXPECT_EQ(readFile(file), "{}\n");
    EXPECT_FALSE(store.contains("text"));
}

TEST_F(DefaultsStoreTest, WritesNothingWhenTheValueIsStoredAlready) {
    store.setInteger("key", 1);
    const auto before = std::filesystem::last_write_time(file);
    std::filesystem::last_write_time(file, before - std::chrono::hours(1));
    ASSERT_TRUE(store.setInteger("key", 1));
    ASSERT_TRUE(store.remove("other"));
    EXPECT_EQ(std::filesystem::last_write_time(file), before - std::chrono::hours(1));
}

TEST_F(DefaultsStoreTest, KeepsWhatItDoesNotKnowExactly) {
    const std::string text =
        "{\"big\":12345678901234567890123, \"fine\" : 0.1000000000000000055,\n\"huge\":1e400,\"neg\":-0.0,"
        "\"list\": [ 1,  {\"a\" :[]} ], \"none\":null, \"\\u0041\": \"\\u00e9\\/\", \"half\\ud800\": 1}";
    writeFile(file, text);
    ASSERT_TRUE(store.setInteger("mine", 1));
    ASSERT_TRUE(store.setInteger("mine", 2));
    EXPECT_EQ(readFile(file),
              "{\n"
              "    \"big\": 12345678901234567890123,\n"
              "    \"fine\": 0.1000000000000000055,\n"
              "    \"huge\": 1e400,\n"
              "    \"neg\": -0.0,\n"
              "    \"list\": [ 1,  {\"a\" :[]} ],\n"
              "    \"none\": null,\n"
              "    \"\\u0041\": \"\\u00e9\\/\",\n"
              "    \"half\\ud800\": 1,\n"
              "    \"mine\": 2\n"
              "}\n");
    EXPECT_EQ(store.string("A"), "é/");
    EXPECT_EQ(store.string("big"), "12345678901234567890123");
}

TEST_F(DefaultsStoreTest, TakesTheLastOfDuplicateKeys) {
    writeFile(file, R"({"a": 1, "b": 2, "a": 3})");
    EXPECT_EQ(store.integer("a"), 3);
    ASSERT_TRUE(store.setInteger("c", 4));
    EXPECT_EQ(readFile(file), "{\n    \"b\": 2,\n    \"a\": 3,\n    \"c\": 4\n}\n");
    ASSERT_TRUE(store.setInteger("a", 5));
    EXPECT_EQ(readFile(file), "{\n    \"b\": 2,\n    \"a\": 5,\n    \"c\": 4\n}\n");
    writeFile(file, R"({"a": 1, "a": 3})");
    ASSERT_TRUE(store.remove("a"));
    EXPECT_EQ(readFile(file), "{}\n");
}

TEST_F(DefaultsStoreTest, ReplacesWhatIsNoUTF8InTextAndRefusesItInKeys) {
    const Reports reports(store);
    ASSERT_TRUE(store.setString("key",
                                "a\xff"
                                "b"));
    EXPECT_EQ(store.string("key"),
              "a\xEF\xBF\xBD"
              "b");
    EXPECT_FALSE(store.setString("\xff", "value"));
    EXPECT_THAT(reports.lines(), ElementsAre(HasSubstr("not UTF-8")));
    EXPECT_EQ(store.allValues().size(), 1U);
}

TEST_F(DefaultsStoreTest, ReadsRegisteredDefaultsBelowTheUsersValues) {
    store.registerDefaults({{"flag", true}, {"number", 6}, {"text", "abc"}, {"path", "/tmp/x"}});
    EXPECT_TRUE(store.boolean("flag"));
    EXPECT_EQ(store.integer("number"), 6);
    EXPECT_EQ(store.string("number"), "6");
    EXPECT_EQ(store.string("text"), "abc");
    EXPECT_EQ(store.url("path"), URL::fileURL("/tmp/x"));
    EXPECT_FALSE(store.contains("flag"));
    EXPECT_TRUE(store.allValues().empty());
    EXPECT_FALSE(another().boolean("flag"));

    store.setBool("flag", false);
    store.registerDefault("flag", true);
    EXPECT_FALSE(store.boolean("flag"));
    store.remove("flag");
    EXPECT_TRUE(store.boolean("flag"));

    store.registerDefault("number", 7);
    EXPECT_EQ(store.integer("number"), 7);
    store.registerDefault("number", "8");
    EXPECT_EQ(store.integer("number"), 8);
}

TEST_F(DefaultsStoreTest, DoesNotFallBackToARegisteredDefaultForAStoredValueOfAnotherType) {
    writeFile(file, R"({"number": [1], "flag": {"a": 1}, "none": null})");
    store.registerDefaults({{"number", 6}, {"flag", true}, {"none", true}});
    EXPECT_EQ(store.integer("number"), 0);
    EXPECT_FALSE(store.boolean("flag"));
    EXPECT_TRUE(store.boolean("none"));
    EXPECT_FALSE(store.contains("none"));
}

TEST_F(DefaultsStoreTest, ListsItsValuesWithTheirTypes) {
    writeFile(file,
              R"({"s": "a\nb", "i": -5, "t": true, "r": 1.50, "u": {"url": "file:///a%20b"}, "o": [1], "s": "c"})");
    EXPECT_THAT(store.allValues(),
                ElementsAre(DefaultsStore::Entry{"i", Type::integer, "-5", "-5"},
                            DefaultsStore::Entry{"t", Type::boolean, "true", "true"},
                            DefaultsStore::Entry{"r", Type::real, "1.5", "1.50"},
                            DefaultsStore::Entry{"u", Type::url, "file:///a%20b", R"({"url": "file:///a%20b"})"},
                            DefaultsStore::Entry{"o", Type::other, "[1]", "[1]"},
                            DefaultsStore::Entry{"s", Type::string, "c", "\"c\""}));
}

TEST_F(DefaultsStoreTest, ExportsAndImportsEverything) {
    writeFile(file, R"({"big": 12345678901234567890123, "text": "a"})");
    ASSERT_TRUE(store.exportTo(folder / "export.json"));
    EXPECT_EQ(readFile(folder / "export.json"), readFile(file));

    DefaultsStore other(folder / "other.json");
    other.setString("text", "before");
    other.setBool("kept", true);
    ASSERT_TRUE(other.importFrom(folder / "export.json"));
    EXPECT_EQ(readFile(folder / "other.json"),
              "{\n    \"text\": \"a\",\n    \"kept\": true,\n    \"big\": 12345678901234567890123\n}\n");
}

TEST_F(DefaultsStoreTest, ImportsAllOrNothing) {
    const Reports reports(store);
    store.setString("text", "before");
    const std::string before = readFile(file);
    EXPECT_FALSE(store.importText(R"({"text": "after", "broken")"));
    EXPECT_FALSE(store.importText("[]"));
    EXPECT_FALSE(store.importFrom(folder / "missing.json"));
    EXPECT_FALSE(store.importFrom(folder.path().string()));
    EXPECT_EQ(readFile(file), before);
    EXPECT_EQ(store.string("text"), "before");
    EXPECT_EQ(reports.lines().size(), 4U);
}

TEST_F(DefaultsStoreTest, ImportsAndExportsRegularFilesOnly) {
    const Reports reports(store);
    ASSERT_TRUE(store.setInteger("number", 1));
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    std::filesystem::create_symlink("pipe", folder / "link");
    std::filesystem::create_directory(folder / "folder");
    for (const char* name : {"pipe", "link", "folder"}) {
        EXPECT_FALSE(store.exportTo(folder / name)) << name;
        EXPECT_FALSE(store.importFrom(folder / name)) << name;
    }
    EXPECT_TRUE(std::filesystem::is_fifo(folder / "pipe"));
    EXPECT_THAT(reports.lines(), ElementsAre(EndsWith("it is no regular file."), EndsWith("it is no regular file."),
                                             EndsWith("it is no regular file."), EndsWith("it is no regular file."),
                                             EndsWith("it is a folder."), EndsWith("it is a folder.")));
}

TEST_F(DefaultsStoreTest, RefusesToBeExportedToItself) {
    const Reports reports(store);
    std::filesystem::create_symlink(file, folder / "link");
    EXPECT_FALSE(store.exportTo(file));
    EXPECT_FALSE(store.exportTo(folder / "link"));
    EXPECT_THAT(reports.lines(), Each(EndsWith("it is the store itself.")));
    EXPECT_EQ(reports.lines().size(), 2U);
}

TEST_F(DefaultsStoreTest, TakesNoNullForAValue) {
    ASSERT_TRUE(store.importText(R"({"none": null, "twice": 1, "twice": null, "some": 1})"));
    EXPECT_THAT(store.allValues(), ElementsAre(DefaultsStore::Entry{"some", Type::integer, "1", "1"}));
    EXPECT_FALSE(store.contains("twice"));
}

TEST_F(DefaultsStoreTest, ReportsAnExportThatFails) {
    const Reports reports(store);
    EXPECT_FALSE(store.exportTo(folder / "no/such/folder/export.json"));
    EXPECT_THAT(reports.lines(), ElementsAre(HasSubstr("cannot export to")));
}

TEST_F(DefaultsStoreTest, WorksInMemoryWithoutAPath) {
    DefaultsStore memory("");
    memory.registerDefault("registered", 1);
    EXPECT_EQ(memory.path(), "");
    EXPECT_TRUE(memory.setString("key", "value"));
    EXPECT_EQ(memory.string("key"), "value");
    EXPECT_EQ(memory.waitForChange(memory.generation(), std::chrono::milliseconds(1)), memory.generation());
    EXPECT_EQ(memory.string("key"), "value");
    EXPECT_EQ(memory.integer("registered"), 1);
    EXPECT_EQ(memory.exportText(), "{\n    \"key\": \"value\"\n}\n");
    EXPECT_TRUE(memory.remove("key"));
    EXPECT_FALSE(memory.contains("key"));
}

TEST_F(DefaultsStoreTest, CountsChangesMadeThroughAnyStore) {
    const std::uint64_t first = store.generation();
    EXPECT_EQ(store.generation(), first);
    DefaultsStore other(file);
    other.setInteger("key", 1);
    const std::uint64_t second = store.generation();
    EXPECT_NE(second, first);
    store.registerDefault("other", 1);
    EXPECT_EQ(store.generation(), second);
}

TEST_F(DefaultsStoreTest, WaitsForAChange) {
    const std::uint64_t before = store.generation();
    EXPECT_EQ(store.waitForChange(before, std::chrono::milliseconds(20)), before);
    std::jthread writer([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        another().setInteger("key", 1);
    });
    EXPECT_NE(store.waitForChange(before, std::chrono::milliseconds::max()), before);
    EXPECT_EQ(store.integer("key"), 1);
}

TEST_F(DefaultsStoreTest, KeepsRealNumbers) {
    for (const double value : {0.0, 1.0, -2.5, 0.1, 1e300, -1e-300, 123456789.125}) {
        ASSERT_TRUE(store.setReal("key", value));
        EXPECT_EQ(store.real("key"), value);
        EXPECT_EQ(another().real("key"), value);
        EXPECT_EQ(another().allValues().at(0).type, Type::real) << value;
    }
    EXPECT_EQ(store.real("missing"), 0);
}

TEST_F(DefaultsStoreTest, RefusesRealNumbersThatJSONHasNot) {
    const Reports reports(store);
    EXPECT_FALSE(store.setReal("key", std::numeric_limits<double>::infinity()));
    EXPECT_FALSE(store.setReal("key", std::numeric_limits<double>::quiet_NaN()));
    EXPECT_THAT(reports.lines(), ElementsAre(HasSubstr("inf cannot be stored"), HasSubstr("nan cannot be stored")));
    EXPECT_FALSE(store.contains("key"));
}

TEST_F(DefaultsStoreTest, KeepsListsOfText) {
    const std::vector<std::string> some = {"a", "", "two\nlines", "Grüße", "\"quoted\", [x]"};
    ASSERT_TRUE(store.setStrings("some", some));
    ASSERT_TRUE(store.setStrings("none", {}));
    EXPECT_EQ(another().strings("some"), some);
    EXPECT_EQ(another().strings("none"), std::vector<std::string>());
    EXPECT_EQ(store.string("some"), std::nullopt);
    writeFile(file, R"({"mixed": ["a", 1], "text": "a", "number": 1})");
    for (const char* key : {"mixed", "text", "number", "missing"}) {
        EXPECT_EQ(DefaultsStore(file).strings(key), std::nullopt) << key;
    }
}

TEST_F(DefaultsStoreTest, KeepsBytes) {
    for (std::size_t size = 0; size < 300; size += size < 10 ? 1 : 97) {
        std::vector<std::byte> bytes(size);
        for (std::size_t index = 0; index < size; ++index) {
            bytes[index] = static_cast<std::byte>(index * 37 + size);
        }
        ASSERT_TRUE(store.setBytes("key", bytes));
        EXPECT_EQ(another().bytes("key"), bytes);
    }
    ASSERT_TRUE(store.setBytes("key", std::vector<std::byte>{std::byte{0}, std::byte{1}}));
    EXPECT_EQ(readFile(file), "{\n    \"key\": {\"base64\": \"AAE=\"}\n}\n");
    writeFile(file, R"({"bad": {"base64": "A"}, "other": {"base64": "AAE=", "b": 1}, "text": "AAE="})");
    for (const char* key : {"bad", "other", "text", "missing"}) {
        EXPECT_EQ(DefaultsStore(file).bytes(key), std::nullopt) << key;
    }
}

TEST_F(DefaultsStoreTest, RemovesSeveralKeysInOneWrite) {
    store.importText(R"({"a": 1, "b": 2, "c": 3, "d": 4})");
    store.registerDefault("a", 6);
    const std::uint64_t before = store.generation();
    const std::vector<std::string> keys = {"a", "c", "missing"};
    ASSERT_TRUE(store.removeKeys(keys));
    EXPECT_EQ(store.generation(), before + 1);
    EXPECT_EQ(readFile(file), "{\n    \"b\": 2,\n    \"d\": 4\n}\n");
    EXPECT_EQ(store.integer("a"), 6);
    const auto written = std::filesystem::last_write_time(file);
    ASSERT_TRUE(store.removeKeys(keys));
    EXPECT_EQ(std::filesystem::last_write_time(file), written);
}

TEST_F(DefaultsStoreTest, TakesANullPointerForNoText) {
    const char* const none = nullptr;
    char* const writable = nullptr;
    for (const OptionalText& absent : {OptionalText(nullptr), OptionalText(none), OptionalText(writable)}) {
        store.setString("key", "text");
        ASSERT_TRUE(store.setString("key", absent));
        EXPECT_FALSE(store.contains("key"));
    }
    store.setString("key", "text");
    ASSERT_TRUE(store.setString("key", nullptr));
    EXPECT_FALSE(store.contains("key"));
    ASSERT_TRUE(store.setString("key", std::optional<std::string>("owned")));
    EXPECT_EQ(store.string("key"), "owned");
    ASSERT_TRUE(store.setString("key", std::optional<std::string_view>()));
    EXPECT_FALSE(store.contains("key"));
}

TEST_F(DefaultsStoreTest, ReadsBySlotWhatItReadsByText) {
    store.setInteger("before", 1);
    ASSERT_EQ(store.integer("before"), 1);
    static const auto before = DefaultsStore::Key::slot("before");
    static const auto after = DefaultsStore::Key::slot(std::string("after"));
    EXPECT_EQ(before.text(), "before");
    EXPECT_EQ(store.integer(before), 1) << "a slot that is newer than what was read";
    store.setString("after", "42 px");
    EXPECT_EQ(store.integer(after), 42);
    EXPECT_EQ(store.string(after), "42 px");
    store.registerDefault(after, 7);
    EXPECT_EQ(store.integer(after), 42);
    store.remove("after");
    EXPECT_EQ(store.integer(after), 7);
    EXPECT_EQ(another().integer(after), 0) << "registered defaults are those of a store";
    store.registerDefault("after", 8);
    EXPECT_EQ(store.integer(after), 8);
    static const auto twice = DefaultsStore::Key::slot("after");
    EXPECT_EQ(store.integer(twice), 8);
}

TEST_F(DefaultsStoreTest, RegistersAndReadsInOneStep) {
    static const auto slot = DefaultsStore::Key::slot("in one step");
    for (const DefaultsStore::Key& key : {slot, DefaultsStore::Key("by text")}) {
        for (int round = 0; round < 3; ++round) {
            EXPECT_EQ(store.integer(key, 6), 6);
            EXPECT_EQ(store.integer(key), 6);
            EXPECT_EQ(store.integer(key, 7), 7) << "in place of an earlier one";
            EXPECT_TRUE(store.boolean(key, true));
            EXPECT_EQ(store.string(key), "1") << "registered as a truth value";
            EXPECT_EQ(store.integer(key, 1), 1);
            EXPECT_FALSE(store.boolean(key, false));
        }
        store.setInteger(key.text(), 12);
        EXPECT_EQ(store.integer(key, 6), 12);
        store.setString(key.text(), "no number");
        EXPECT_EQ(store.integer(key, 6), 0);
        store.remove(key.text());
        EXPECT_EQ(store.integer(key, 6), 6);
    }
    EXPECT_TRUE(store.allValues().empty());
}

TEST_F(DefaultsStoreTest, ReadsByASlotThatIsMadeWhileTheFileStaysAsItIs) {
    store.setInteger("key", 5);
    store.integer("key");
    const auto slot = DefaultsStore::Key::slot("key");
    EXPECT_EQ(store.integer(slot), 5);
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    EXPECT_EQ(store.integer(slot), 5);
    store.setInteger("key", 6);
    EXPECT_EQ(store.integer(slot), 6);
}

TEST_F(DefaultsStoreTest, ReadsAtOnceWhatItWroteItselfThoughTheFileIsBrokenNow) {
    store.setInteger("key", 12);
    writeFile(file, "");
    EXPECT_EQ(store.integer("key"), 12);
}

TEST_F(DefaultsStoreTest, FollowsALinkAndKeepsIt) {
    std::filesystem::create_directory(folder / "real");
    std::filesystem::create_symlink("real/store.json", folder / "link.json");
    DefaultsStore linked(folder / "link.json");
    ASSERT_TRUE(linked.setInteger("key", 1));
    EXPECT_TRUE(std::filesystem::is_symlink(folder / "link.json"));
    EXPECT_EQ(linked.path(), folder / "real/store.json");
    EXPECT_EQ(DefaultsStore(folder / "real/store.json").integer("key"), 1);
}

TEST_F(DefaultsStoreTest, ReadsAFileThatBeginsWithAByteOrderMark) {
    writeFile(file, "\xEF\xBB\xBF{\"key\": 1}");
    EXPECT_EQ(store.integer("key"), 1);
}

TEST_F(DefaultsStoreTest, ServesSeveralStoresInOneThreadAlternately) {
    DefaultsStore other(folder / "other.json");
    store.setInteger("key", 1);
    other.setInteger("key", 2);
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(store.integer("key"), 1);
        EXPECT_EQ(other.integer("key"), 2);
    }
    DefaultsStore same(file);
    same.setInteger("key", 3);
    EXPECT_EQ(store.integer("key"), 3);
}

TEST_F(DefaultsStoreTest, AllowsItsReportHandlerToUseIt) {
    std::int64_t seen = 0;
    writeFile(file, "broken");
    store.setReportHandler([&](const std::string&) {
        store.setInteger("key", 5);
        seen = store.integer("key");
    });
    store.integer("key");
    EXPECT_EQ(seen, 5);
}

}  // namespace
}  // namespace velora::test
