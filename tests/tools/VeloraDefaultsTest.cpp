// The program velora-defaults, run as scripts run it.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <support/RunningProgram.h>
#include <support/TemporaryFolder.h>
#include <sys/wait.h>
#include <tools/VeloraDefaultsTestSupport.h>
#include <vector>

#include <Velora_UserDefaults/Platform/DefaultsStore.h>
#include <Velora_UserDefaults/UserDefaults/PreferenceTable.h>
#include <Velora_UserDefaults/UserDefaults/UserDefaultsManager.h>

namespace velora::test {
namespace {

using testing::AllOf;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

TEST_F(VeloraDefaults, WritesAKnownKeyAsItsPropertyReadsIt) {
    EXPECT_EQ(run({"write", "Preferences_Security_PinCodeLength", "8"}), prints(""));
    EXPECT_EQ(run({"write", "Preferences_Proxy_UseProxy", "Yes"}), prints(""));
    EXPECT_EQ(run({"write", "Server_ID_String", "42"}), prints(""));
    EXPECT_EQ(run({"write", "Preferences_Transfer_DownloadLocation", "/srv/in box"}), prints(""));
    EXPECT_EQ(run({"write", "CoreLoggerPath", "file:///var/log/a%20b/"}), prints(""));
    EXPECT_EQ(run({"write", "Preferences_Logging_LoggingLevel", "3"}), prints(""));
    EXPECT_EQ(stored("Preferences_Security_PinCodeLength"), "8");
    EXPECT_EQ(stored("Preferences_Proxy_UseProxy"), "true");
    EXPECT_EQ(stored("Server_ID_String"), R"("42")");
    EXPECT_EQ(stored("Preferences_Transfer_DownloadLocation"), R"({"url": "file:///srv/in%20box"})");
    EXPECT_EQ(stored("CoreLoggerPath"), R"({"url": "file:///var/log/a%20b/"})");
    EXPECT_EQ(stored("Preferences_Logging_LoggingLevel"), "3");
}

TEST_F(VeloraDefaults, TakesTypesWithOneDashAndWithTwo) {
    for (const std::string dashes : {"-", "--"}) {
        EXPECT_EQ(run({"write", "own", dashes + "int", "-5"}), prints(""));
        EXPECT_EQ(stored("own"), "-5");
        EXPECT_EQ(run({"write", "own", dashes + "bool", "no"}), prints(""));
        EXPECT_EQ(stored("own"), "false");
        EXPECT_EQ(run({"write", "own", dashes + "url", "~/x y"}), prints(""));
        EXPECT_EQ(stored("own"), "{\"url\": \"file://" + folder.path().string() + "/x%20y\"}");
        EXPECT_EQ(run({"write", dashes + "string", "own", "-string"}), prints(""));
        EXPECT_EQ(stored("own"), R"("-string")");
        EXPECT_EQ(run({"write", "own", dashes + "string", "--"}), prints(""));
        EXPECT_EQ(stored("own"), R"("--")");
    }
}

TEST_F(VeloraDefaults, TakesAnyValueForWhatItIs) {
    for (const std::string value : {"", "-x", "-5", "list", "delete", "[1,2]", "a b", "%%", "\"q\"", "ä\n\tb", "a,b"}) {
        EXPECT_EQ(run({"write", "own key", value}), prints("")) << value;
        EXPECT_EQ(run({"read", "own key"}), prints(value + "\n"));
        EXPECT_EQ(DefaultsStore(file).string("own key"), value);
    }
    EXPECT_EQ(run({"write", "own key", "--", "--force"}), prints(""));
    EXPECT_EQ(run({"read", "own key"}), prints("--force\n"));
    EXPECT_EQ(run({"write", "--", "-key", "list"}), prints(""));
    EXPECT_EQ(run({"read", "--", "-key"}), prints("list\n"));
    EXPECT_EQ(run({"write", "list", "1"}), prints(""));
    EXPECT_EQ(run({"read", "list"}), prints("1\n"));
}

TEST_F(VeloraDefaults, ShowsNothingThatATerminalObeysAndNothingInTwoWays) {
    const std::string written = "a\\nb\n\t\x1b[m\x7f\xc2\x80\xc2\x9b\xc2\xa0\xc3\xa4\xe2\x82\xac\\";
    const std::string shown = R"(a\\nb\n\t\x1b[m\x7f\u0080\u009b)"
                              "\xc2\xa0\xc3\xa4\xe2\x82\xac"
                              R"(\\)";
    EXPECT_EQ(run({"write", "own " + written, written}), prints(""));
    EXPECT_THAT(run({"list"}).output,
                AllOf(HasSubstr("\nown " + shown + " "), HasSubstr("  string  stored   " + shown + "\n")));
    EXPECT_THAT(run({"list", "--keys"}).output, HasSubstr("\nown " + shown + "\n"));
    EXPECT_EQ(run({"read", "own " + written}), prints(written + "\n")) << "one value alone is as it is";
    EXPECT_EQ(run({"read", written}).errors, "velora-defaults: no value is stored under " + shown + "\n");
    EXPECT_EQ(run({"read", "\xff\xc2\x9b\xc2"}).errors, R"(velora-defaults: no value is stored under \xff\u009b\xc2)"
                                                        "\n");
}

TEST_F(VeloraDefaults, RefusesWhatThePropertyCouldNotReadBack) {
    const std::vector<std::vector<std::string>> refused = {
        {"write", "Preferences_Logging_LoggingLevel", "4"},
        {"write", "Preferences_Logging_LoggingLevel", "-1"},
        {"write", "Preferences_Connection_DefaultAccessLevel", "2"},
        {"write", "Preferences_General_CommandCombinations", "3"},
        {"write", "Preferences_Security_PinCodeLength", "six"},
        {"write", "Preferences_Security_PinCodeLength", "6 "},
        {"write", "Preferences_Security_PinCodeLength", ""},
        {"write", "Preferences_Security_PinCodeLength", "9223372036854775808"},
        {"write", "Preferences_Security_PinCodeLength", "-string", "6"},
        {"write", "Preferences_Proxy_UseProxy", "maybe"},
        {"write", "Preferences_Proxy_UseProxy", "-int", "1"},
        {"write", "Server_ID_String", "-url", "file:///a"},
        {"write", "Server_ID_String", "\xff"},
        {"write", "Preferences_Logging_SaveChatLocation", "https://exa mple"},
        {"write", "Preferences_Logging_SaveChatLocation", ""},
        {"write", "Preferences_Logging_SaveChatLocation", "-string", "/a"},
        {"write", "own", "-int", "1.5"},
        {"write", "own", "-bool", "2"},
    };
    for (const std::vector<std::string>& arguments : refused) {
        const Result result = run(arguments);
        EXPECT_EQ(result.status, 2) << arguments.back();
        EXPECT_THAT(result.errors, StartsWith("velora-defaults: ")) << arguments.back();
        EXPECT_THAT(result.output, IsEmpty());
    }
    EXPECT_TRUE(DefaultsStore(file).allValues().empty());
    EXPECT_EQ(run(refused[0]).errors,
              "velora-defaults: Preferences_Logging_LoggingLevel takes 0 (No logging), "
              "1 (Low level), 2 (High level) or 3 (All events)\n");
}

TEST_F(VeloraDefaults, WritesItAllTheSameWhenForced) {
    EXPECT_EQ(run({"write", "--force", "Preferences_Connection_DefaultAccessLevel", "2"}), prints(""));
    EXPECT_EQ(stored("Preferences_Connection_DefaultAccessLevel"), "2");
    EXPECT_EQ(run({"write", "Preferences_Security_PinCodeLength", "six", "--force"}), prints(""));
    EXPECT_EQ(stored("Preferences_Security_PinCodeLength"), R"("six")");
    EXPECT_EQ(run({"write", "Preferences_Proxy_UseProxy", "--force", "-int", "1"}), prints(""));
    EXPECT_EQ(stored("Preferences_Proxy_UseProxy"), "1");
    EXPECT_EQ(run({"write", "--force", "own", "-int", "six"}).status, 2) << "there is no such integer";
}

TEST_F(VeloraDefaults, ReadsWhatIsStoredElseTheDefault) {
    EXPECT_EQ(run({"read", "Preferences_Security_PinCodeLength"}), prints("6\n"));
    EXPECT_EQ(run({"read", "Preferences_Logging_LoggingLevel"}), prints("1\n"));
    EXPECT_EQ(run({"read", "Preferences_Connection_IncomingConnectionAllow"}), prints("true\n"));
    EXPECT_EQ(run({"read", "Preferences_Proxy_UseProxy"}), prints("false\n"));
    EXPECT_EQ(run({"read", "Scaling_Image_Mode"}), prints("0\n"));
    EXPECT_EQ(run({"read", "Preferences_Transfer_DownloadLocation"}),
              prints("file://" + folder.path().string() + "/Downloads/\n"));
    DefaultsStore(file).setInteger("Preferences_Security_PinCodeLength", 12);
    EXPECT_EQ(run({"read", "Preferences_Security_PinCodeLength"}), prints("12\n"));
}

TEST_F(VeloraDefaults, FailsToReadOrDeleteWhatIsNotThere) {
    for (const char* key : {"Server_ID_String", "CoreLoggerPath", "unknown"}) {
        const Result result = run({"read", key});
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.errors, std::string("velora-defaults: no value is stored under ") + key + "\n");
        EXPECT_EQ(run({"delete", key}), result);
    }
    EXPECT_EQ(run({"delete", "Preferences_Security_PinCodeLength"}).status, 1) << "a default is not stored";
}

TEST_F(VeloraDefaults, TellsTheKeyToWhomeverNamesAProperty) {
    const std::string key = "Preferences_Security_PinCodeLength";
    EXPECT_EQ(run({"write", "pinCodeLength", "8"}),
              (Result{2, "", "velora-defaults: pinCodeLength is a property; its key is " + key + "\n"}));
    EXPECT_EQ(run({"read", "pinCodeLength"}).errors,
              "velora-defaults: no value is stored under pinCodeLength (the key of that property is " + key + ")\n");
    EXPECT_EQ(run({"delete", "pinCodeLength"}).status, 1);
    EXPECT_TRUE(DefaultsStore(file).allValues().empty());
    EXPECT_EQ(run({"write", "--force", "pinCodeLength", "8"}), prints(""));
    EXPECT_EQ(run({"read", "pinCodeLength"}), prints("8\n"));
}

TEST_F(VeloraDefaults, TakesANullForNothing) {
    writeFile(folder / "in.json", R"({"own": null, "Preferences_Security_PinCodeLength": null})");
    EXPECT_EQ(run({"import", folder / "in.json"}), prints(""));
    EXPECT_EQ(run({"read", "own"}).status, 1);
    EXPECT_EQ(run({"read", "Preferences_Security_PinCodeLength"}), prints("6\n"));
    EXPECT_THAT(run({"list", "--keys"}).output, EndsWith("\nLastMigrateSettings\n"));
}

TEST_F(VeloraDefaults, DeletesAStoredValue) {
    DefaultsStore(file).setString("own", "1");
    DefaultsStore(file).setString("other", "2");
    EXPECT_EQ(run({"delete", "own"}), prints(""));
    EXPECT_EQ(stored("own"), "");
    EXPECT_EQ(stored("other"), R"("2")");
}

TEST_F(VeloraDefaults, ListsEveryKeyInAlignedColumns) {
    DefaultsStore store(file);
    store.setInteger("Preferences_Security_PinCodeLength", 8);
    store.setString("Preferences_General_ComputerDisplayName", "Ann's\nPC");
    store.importText(R"({"own": 1.50})");
    const Result result = run({"list"});
    EXPECT_EQ(result.status, 0);
    const auto row = [](const std::string& key, const std::string& rest) {
        return "\n" + key +
               std::string(std::string("PermissionControlsServiceScreenRecordIsRequested").size() - key.size() + 2,
                           ' ') +
               rest + "\n";
    };
    EXPECT_THAT(result.output, StartsWith(row("KEY", "TYPE    STATE    VALUE").substr(1)));
    EXPECT_THAT(result.output, HasSubstr(row("Preferences_Security_PinCodeLength", "int     stored   8")));
    EXPECT_THAT(result.output, HasSubstr(row("Preferences_Logging_LoggingLevel", "int     default  1")));
    EXPECT_THAT(result.output,
                HasSubstr(row("Preferences_General_ComputerDisplayName", R"(string  stored   Ann's\nPC)")));
    EXPECT_THAT(result.output, HasSubstr(row("Server_ID_String", "string  absent")));
    EXPECT_THAT(result.output, HasSubstr(row("own", "real    stored   1.5")));
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1 + 35 + 1);
}

TEST_F(VeloraDefaults, ListsTheKeysInTheirOrder) {
    DefaultsStore(file).setString("own", "1");
    std::string expected;
    for (const PreferenceEntry& entry : preferenceTable()) {
        expected += std::string(entry.key) + "\n";
    }
    EXPECT_EQ(run({"list", "--keys"}), prints(expected + "own\n"));
}

TEST_F(VeloraDefaults, ListsAsJSON) {
    DefaultsStore store(file);
    store.setString("say \"hi\"\n", "ä");
    store.setURL("CoreLoggerPath", URL::fileURL("/a b"));
    const Result result = run({"list", "--json"});
    EXPECT_EQ(result.status, 0);
    const auto list = nlohmann::json::parse(result.output);
    ASSERT_EQ(list.size(), 36U);
    const auto expected = [](const char* text) { return nlohmann::json::parse(text); };
    EXPECT_EQ(list[0], expected(R"({"key": "Server_ID_String", "type": "string", "value": null, "stored": false})"));
    EXPECT_EQ(list[17],
              expected(R"({"key": "Preferences_Security_PinCodeLength", "type": "int", "value": 6, "stored": false})"));
    EXPECT_EQ(list[33], expected(R"({"key": "CoreLoggerPath", "type": "url", "value": {"url": "file:///a%20b"},
                                     "stored": true})"));
    EXPECT_EQ(list[35], expected(R"({"key": "say \"hi\"\n", "type": "string", "value": "ä", "stored": true})"));
}

TEST_F(VeloraDefaults, ExportsAndImports) {
    const std::string contents = "{\n  \"own\": 123456789012345678901234567890,\n  \"name\": \"ä\"\n}\n";
    writeFile(folder / "in.json", contents);
    EXPECT_EQ(run({"import", folder / "in.json"}), prints(""));
    EXPECT_EQ(stored("own"), "123456789012345678901234567890");
    EXPECT_EQ(run({"export", folder / "out.json"}), prints(""));
    EXPECT_EQ(readFile(folder / "out.json"), DefaultsStore(file).exportText());
    EXPECT_EQ(run({"export", "-"}), prints(DefaultsStore(file).exportText()));
    EXPECT_EQ(run({"delete", "own"}), prints(""));
    EXPECT_EQ(run({"import", "-"}, folder / "out.json"), prints(""));
    EXPECT_EQ(stored("own"), "123456789012345678901234567890");
}

TEST_F(VeloraDefaults, ImportsAllOrNothing) {
    DefaultsStore(file).setString("own", "before");
    const std::string before = readFile(file);
    for (const char* contents : {R"({"own": "after", "broken": })", R"(["own"])", "", "{\"own\": 1"}) {
        writeFile(folder / "in.json", contents);
        const Result result = run({"import", folder / "in.json"});
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.errors, StartsWith("velora-defaults: "));
        EXPECT_EQ(run({"import", "-"}, folder / "in.json").status, 1);
        EXPECT_EQ(readFile(file), before);
    }
    EXPECT_EQ(run({"import", folder / "missing.json"}).status, 1);
    EXPECT_EQ(run({"export", folder / "missing/out.json"}).status, 1);
}

TEST_F(VeloraDefaults, PrintsThePathOfTheStore) {
    std::filesystem::create_directories(folder / "store");
    EXPECT_EQ(run({"path"}), prints(std::filesystem::canonical(folder.path()).string() + "/store/UserDefaults.json\n"));
    ::unsetenv("VELORA_DEFAULTS_FILE");
    EXPECT_THAT(run({"path"}).output, HasSubstr("/.config/Quillon Velora/UserDefaults.json\n"));
}

TEST_F(VeloraDefaults, FailsWithTheStore) {
    std::filesystem::create_directories(file);
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {"write", "own", "1"}, {"import", folder / "in.json"}, {"list"}, {"export", "-"}, {"read", "own"}}) {
        writeFile(folder / "in.json", R"({"own": 1})");
        const Result result = run(arguments);
        EXPECT_EQ(result.status, 1) << arguments[0];
        EXPECT_THAT(result.errors, StartsWith("velora-defaults: ")) << arguments[0];
    }
}

TEST_F(VeloraDefaults, TellsOfADamagedStoreAndKeepsIt) {
    std::filesystem::create_directories(folder / "store");
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {"list"}, {"read", "Preferences_Proxy_UseProxy"}, {"write", "own", "1"}}) {
        std::filesystem::remove_all(folder / "store");
        std::filesystem::create_directories(folder / "store");
        writeFile(file, "{\"own\": ");
        std::filesystem::last_write_time(file, std::filesystem::last_write_time(file) - std::chrono::hours(1));
        const Result result = run(arguments);
        EXPECT_EQ(result.status, arguments[0] == "write" ? 0 : 1) << arguments[0];
        EXPECT_THAT(result.errors, ContainsRegex("^velora-defaults: .* is damaged .* It is kept as .*\n$"));
        const std::string kept = result.errors.substr(result.errors.find(" kept as ") + 9);
        EXPECT_EQ(readFile(kept.substr(0, kept.size() - 2)), "{\"own\": ");
        EXPECT_EQ(run({"list"}).errors, "") << "it is told once";
    }
}

TEST_F(VeloraDefaults, KeepsAnEarlierExportWhenTheStoreIsDamaged) {
    writeFile(folder / "backup.json", R"({"own": 1})");
    std::filesystem::create_directories(folder / "store");
    writeFile(file, "{\"own\": ");
    std::filesystem::last_write_time(file, std::filesystem::last_write_time(file) - std::chrono::hours(1));
    EXPECT_EQ(run({"export", folder / "backup.json"}).status, 1);
    EXPECT_EQ(readFile(folder / "backup.json"), R"({"own": 1})");
}

TEST_F(VeloraDefaults, TellsBadUsage) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{},
                                               {"frobnicate"},
                                               {"read"},
                                               {"read", "a", "b"},
                                               {"read", "--json", "a"},
                                               {"write"},
                                               {"write", "own"},
                                               {"write", "own", "1", "2"},
                                               {"write", "own", "1", "--frobnicate"},
                                               {"write", "--frobnicate", "own", "1"},
                                               {"write", "-int", "-bool", "own", "1"},
                                               {"delete"},
                                               {"import"},
                                               {"list", "a"},
                                               {"list", "--json", "--keys"},
                                               {"watch", "--count", "none"}}) {
        const Result result = run(arguments);
        EXPECT_EQ(result.status, 2) << testing::PrintToString(arguments);
        EXPECT_THAT(result.output, IsEmpty());
        EXPECT_THAT(result.errors, AllOf(StartsWith("velora-defaults: "), HasSubstr("--help"), Not(HasSubstr("-- "))));
    }
    EXPECT_THAT(run({"write", "own", "1", "2"}).errors, ContainsRegex("not expected: 2\n"));
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(VeloraDefaults, HelpsWhenAsked) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"--help"}, {"write", "--help"}, {"read", "-h"}}) {
        const Result result = run(arguments);
        EXPECT_EQ(result.status, 0);
        EXPECT_THAT(result.output, HasSubstr("Usage: velora-defaults"));
        EXPECT_THAT(result.errors, IsEmpty());
    }
    EXPECT_THAT(run({"--version"}).output, ContainsRegex("^velora-defaults [0-9]+\\.[0-9]+\\.[0-9]+\n$"));
}

TEST_F(VeloraDefaults, FailsWhenItsOutputCannotBeWritten) {
    const std::string command = std::string(VELORA_DEFAULTS_PROGRAM) + " list >/dev/full 2>" + (folder / "errors");
    const int status = std::system(command.c_str());
    EXPECT_EQ(WEXITSTATUS(status), 1);
    EXPECT_EQ(readFile(folder / "errors"), "velora-defaults: the output cannot be written\n");
}

TEST_F(VeloraDefaults, ChangesWhatPropertiesReadAtOnce) {
    auto& preferences = UserDefaultsManager::shared();
    // This is the one test in the program that asks for the standard store.
    ASSERT_EQ(DefaultsStore::standard().path(),
              std::filesystem::canonical(folder.path()).string() + "/store/UserDefaults.json");
    for (const std::int64_t length : {4, 5, 12}) {
        EXPECT_EQ(run({"write", "Preferences_Security_PinCodeLength", std::to_string(length)}), prints(""));
        EXPECT_EQ(preferences.pinCodeLength(), length);
        preferences.setPinCodeLength(length + 1);
        EXPECT_EQ(run({"read", "Preferences_Security_PinCodeLength"}), prints(std::to_string(length + 1) + "\n"));
    }
    EXPECT_EQ(run({"write", "Preferences_Transfer_DownloadLocation", "/srv/in box"}), prints(""));
    EXPECT_EQ(preferences.downloadLocation().path(), "/srv/in box");
    EXPECT_EQ(run({"write", "Preferences_Connection_DefaultAccessLevel", "1"}), prints(""));
    EXPECT_EQ(preferences.defaultAccessLevel(), DefaultAccessLevel::fullControl);
}

}  // namespace
}  // namespace velora::test
