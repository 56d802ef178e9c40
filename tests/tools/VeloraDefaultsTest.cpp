// The program velora-defaults, run as scripts run it.

#include <algorithm>
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
#include <utility>
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
              "velora-defaults: Preferences_Logging_LoggingLevel takes 0 noLoggin (No logging), "
              "1 lowLevel (Low level), 2 highLevel (High level) or 3 allLevel (All events)\n");
    EXPECT_EQ(run({"write", "Server_ScreenControlMode", "on top"}).errors,
              "velora-defaults: Server_ScreenControlMode takes 0 notPinned or 1 alwaysOnTop\n");
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
              (Result{2, "",
                      "velora-defaults: pinCodeLength is a property; its key is " + key +
                          " (--force writes it all the same)\n"}));
    EXPECT_EQ(run({"read", "pinCodeLength"}).errors,
              "velora-defaults: no value is stored under pinCodeLength (pinCodeLength is a property; its key is " +
                  key + ")\n");
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
    const auto padded = [](const std::string& text, const std::string& longest) {
        return text + std::string(longest.size() - text.size() + 2, ' ');
    };
    const auto row = [&](const std::string& key, const std::string& property, const std::string& rest) {
        return "\n" + padded(key, "PermissionControlsServiceScreenRecordIsRequested") +
               padded(property, "customSupportServerEndpoint") + rest + "\n";
    };
    EXPECT_THAT(result.output, StartsWith(row("KEY", "PROPERTY", "TYPE    STATE    VALUE").substr(1)));
    EXPECT_THAT(result.output,
                HasSubstr(row("Preferences_Security_PinCodeLength", "pinCodeLength", "int     stored   8")));
    EXPECT_THAT(result.output, HasSubstr(row("Preferences_Logging_LoggingLevel", "loggingLevel",
                                             "int     default  1 lowLevel (Low level)")));
    EXPECT_THAT(result.output,
                HasSubstr(row("Server_ScreenControlMode", "serverScreenControlMode", "int     default  0 notPinned")));
    EXPECT_THAT(result.output, HasSubstr(row("Preferences_General_ComputerDisplayName", "computerDisplayName",
                                             R"(string  stored   Ann's\nPC)")));
    EXPECT_THAT(result.output, HasSubstr(row("Server_ID_String", "serverId", "string  absent")));
    EXPECT_THAT(result.output, HasSubstr(row("own", "", "real    stored   1.5")));
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
    EXPECT_EQ(list[0], expected(R"({"key": "Server_ID_String", "property": "serverId", "type": "string", "value": null,
                                    "stored": false})"));
    EXPECT_EQ(list[7], expected(R"({"key": "Preferences_General_DefaultMicrohponeSettings",
                                    "property": "defaultMicrophoneSettings", "type": "int", "value": 0,
                                    "stored": false, "case": "mute", "words": "Mute"})"));
    EXPECT_EQ(list[17], expected(R"({"key": "Preferences_Security_PinCodeLength", "property": "pinCodeLength",
                                     "type": "int", "value": 6, "stored": false})"));
    EXPECT_EQ(list[29], expected(R"({"key": "PermissionControlsIsShow", "property": null, "type": "bool",
                                     "value": false, "stored": false})"));
    EXPECT_EQ(list[33], expected(R"({"key": "CoreLoggerPath", "property": "coreLoggerPath", "type": "url",
                                     "value": {"url": "file:///a%20b"}, "stored": true})"));
    EXPECT_EQ(list[35], expected(R"({"key": "say \"hi\"\n", "property": null, "type": "string", "value": "ä",
                                     "stored": true})"));
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

TEST_F(VeloraDefaults, TellsOfADamagedStoreAndLeavesItWhereItIs) {
    std::filesystem::create_directories(folder / "store");
    writeFile(file, "{\"own\": ");
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{"list"}, {"read", "Preferences_Proxy_UseProxy"}, {"export", "-"}}) {
        const Result result = run(arguments);
        EXPECT_EQ(result.status, 1) << arguments[0];
        EXPECT_THAT(result.errors, ContainsRegex("^velora-defaults: .*cannot read .*: no well-formed JSON.*\n$"));
        EXPECT_EQ(readFile(file), "{\"own\": ");
    }
}

TEST_F(VeloraDefaults, SetsADamagedStoreAsideWhenItWrites) {
    std::filesystem::create_directories(folder / "store");
    writeFile(file, "{\"own\": ");
    const Result result = run({"write", "own", "1"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.errors, ContainsRegex("^velora-defaults: .* is damaged .* It is kept as .*\n$"));
    const std::string kept = result.errors.substr(result.errors.find(" kept as ") + 9);
    EXPECT_EQ(readFile(kept.substr(0, kept.size() - 2)), "{\"own\": ");
    EXPECT_EQ(run({"list"}).errors, "") << "it is told once";
}

TEST_F(VeloraDefaults, AppendsWhereItsOutputAppends) {
    DefaultsStore(file).setInteger("own", 1);
    for (const std::string target : {"/dev/stdout", "/dev/fd/1", "/proc/self/fd/1", "-"}) {
        writeFile(folder / "log", "a line\n");
        const std::string command =
            std::string(VELORA_DEFAULTS_PROGRAM) + " export " + target + " >> '" + (folder / "log") + "'";
        EXPECT_EQ(std::system(command.c_str()), 0) << target;
        EXPECT_EQ(readFile(folder / "log"), "a line\n" + readFile(file)) << target;
        const std::string piped =
            std::string(VELORA_DEFAULTS_PROGRAM) + " export " + target + " | cat > '" + (folder / "piped") + "'";
        EXPECT_EQ(std::system(piped.c_str()), 0) << target;
        EXPECT_EQ(readFile(folder / "piped"), readFile(file)) << target;
    }
}

TEST_F(VeloraDefaults, FailsToStoreWithoutAHome) {
    ::unsetenv("VELORA_DEFAULTS_FILE");
    ::setenv("HOME", (folder / "missing").c_str(), 1);
    writeFile(folder / "in.json", R"({"own": 1})");
    for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
             {"write", "own", "1"}, {"delete", "own"}, {"reset", "--all"}, {"import", folder / "in.json"}, {"path"}}) {
        const Result result = run(arguments);
        EXPECT_EQ(result.status, 1) << arguments[0];
        EXPECT_THAT(result.errors, HasSubstr("velora-defaults: there is no home folder")) << arguments[0];
    }
    EXPECT_EQ(run({"list", "--keys"}).status, 0);
}

TEST_F(VeloraDefaults, ImportsNothingThatWriteRefuses) {
    const std::pair<const char*, const char*> refused[] = {
        {R"({"fine": 1, "Preferences_Logging_LoggingLevel": 99})", "Preferences_Logging_LoggingLevel takes 0 noLoggin"},
        {R"({"Preferences_Security_PinCodeLength": "six"})", "takes a value of type int, not string"},
        {R"({"Preferences_Security_PinCodeLength": 9223372036854775808})", "is not an integer of 64 bits"},
        {R"({"Preferences_Proxy_UseProxy": [true]})", "takes a value of type bool, not json"},
        {R"({"CoreLoggerPath": {"url": "no url"}})", "is not a URL"},
        {R"({"Preferences_Security_AllowUnattendedAccess": true})",
         "did you mean Preferences_Sucurity_AllowUnuttendedAccess?"},
    };
    for (const auto& [contents, reason] : refused) {
        writeFile(folder / "in.json", contents);
        for (const auto& [from, input] : {std::pair(folder / "in.json", std::string("/dev/null")),
                                          std::pair(std::string("-"), folder / "in.json")}) {
            const Result result = run({"import", from}, input);
            EXPECT_EQ(result.status, 2) << contents;
            EXPECT_THAT(result.errors, AllOf(HasSubstr(reason), HasSubstr("nothing was imported")));
            EXPECT_FALSE(std::filesystem::exists(file));
        }
    }
    EXPECT_EQ(run({"import", "--force", folder / "in.json"}), prints(""));
    EXPECT_EQ(stored("Preferences_Security_AllowUnattendedAccess"), "true");
    writeFile(folder / "in.json", R"({"CoreLoggerPath": "/var/log", "own": {"a": 1}, "none": null})");
    EXPECT_EQ(run({"import", folder / "in.json"}), prints(""));
}

TEST_F(VeloraDefaults, MarksWhatThePropertyCannotRead) {
    DefaultsStore(file).setInteger("Preferences_Logging_LoggingLevel", 99);
    DefaultsStore(file).setString("Preferences_Security_PinCodeLength", "six");
    EXPECT_THAT(run({"list"}).output, AllOf(ContainsRegex("loggingLevel +int +invalid +99\n"),
                                            ContainsRegex("pinCodeLength +string +invalid +six\n")));
    const auto list = nlohmann::json::parse(run({"list", "--json"}).output);
    EXPECT_THAT(list[14]["problem"].get<std::string>(), HasSubstr("takes 0 noLoggin"));
    EXPECT_FALSE(list[14].contains("case"));
    const Result result = run({"read", "Preferences_Logging_LoggingLevel"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.output, "99\n");
    EXPECT_THAT(result.errors,
                HasSubstr("the application cannot read this value: Preferences_Logging_LoggingLevel takes"));
}

TEST_F(VeloraDefaults, RefusesAKeyThatIsNearAKnownOne) {
    const std::pair<const char*, const char*> mistyped[] = {
        {"Preferences_Security_AllowUnattendedAccess", "Preferences_Sucurity_AllowUnuttendedAccess"},
        {"Preferences_General_DefaultMicrophoneSettings", "Preferences_General_DefaultMicrohponeSettings"},
        {"Preferences_Connection_PromptIncomingConnection", "Preferences_Connection_PromtIncomingConnection"},
        {"preferences_security_pincodelength", "Preferences_Security_PinCodeLength"},
        {"PermissionControlsAccessibilityIsRequested", "PermissionControlsAccessabilityIsRequested"},
        {"VLEndpoint", "VLEnpoint"},
        {"pinCodeLenght", "Preferences_Security_PinCodeLength"},
        {"encryptionRequired", "Preferences_Security_EncryptionRequired"},
    };
    for (const auto& [key, meant] : mistyped) {
        const Result result = run({"write", key, "1"});
        EXPECT_EQ(result.status, 2) << key;
        EXPECT_EQ(result.errors, std::string("velora-defaults: ") + key + " is no known key; did you mean " + meant +
                                     "? (--force writes it all the same)\n");
        EXPECT_EQ(run({"read", key}).errors, std::string("velora-defaults: no value is stored under ") + key + " (" +
                                                 key + " is no known key; did you mean " + meant + "?)\n");
        EXPECT_EQ(run({"watch", key}).status, 2);
    }
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(run({"write", "--force", mistyped[0].first, "1"}), prints(""));
    for (const char* key : {"own", "x", "Preferences_Own_Thing", "server", "Preferences_Proxy_Password"}) {
        EXPECT_EQ(run({"write", key, "1"}), prints("")) << key;
    }
}

TEST_F(VeloraDefaults, WritesAChoiceByTheNameOfItsCase) {
    EXPECT_EQ(run({"write", "Preferences_Connection_DefaultAccessLevel", "fullControl"}), prints(""));
    EXPECT_EQ(stored("Preferences_Connection_DefaultAccessLevel"), "1");
    EXPECT_EQ(run({"write", "Preferences_Connection_DefaultAccessLevel", "VIEWONLY"}), prints(""));
    EXPECT_EQ(stored("Preferences_Connection_DefaultAccessLevel"), "0");
    EXPECT_EQ(run({"write", "Preferences_Logging_LoggingLevel", "allLevel"}), prints(""));
    EXPECT_EQ(stored("Preferences_Logging_LoggingLevel"), "3");
    EXPECT_EQ(run({"write", "Server_ID_String", "mute"}), prints(""));
    EXPECT_EQ(stored("Server_ID_String"), R"("mute")") << "text is no choice";
}

TEST_F(VeloraDefaults, DescribesAKey) {
    EXPECT_EQ(run({"describe", "Preferences_Connection_DefaultAccessLevel"}),
              prints("Key:       Preferences_Connection_DefaultAccessLevel\n"
                     "Property:  defaultAccessLevel\n"
                     "Type:      int\n"
                     "Values:    0 viewOnly (View-only) or 1 fullControl (Full control)\n"
                     "Default:   0 viewOnly (View-only)\n"
                     "Stored:    (nothing)\n"
                     "Purpose:   what a connecting user may do at first\n"));
    DefaultsStore(file).setInteger("Preferences_Logging_LoggingLevel", 7);
    EXPECT_THAT(run({"describe", "loggingLevel"}).output,
                AllOf(HasSubstr("Stored:    7\n"), HasSubstr("Problem:   Preferences_Logging_LoggingLevel takes 0 ")));
    DefaultsStore(file).setBool("own", true);
    EXPECT_EQ(run({"describe", "own"}),
              prints("Key:       own\nType:      bool\nStored:    true\nPurpose:   not known to this tool\n"));
    EXPECT_EQ(run({"describe", "missing"}).status, 1);
    for (const PreferenceEntry& entry : preferenceTable()) {
        EXPECT_THAT(run({"describe", std::string(entry.key)}).output, ContainsRegex("\nPurpose:   [a-z].*\n$"));
    }
}

TEST_F(VeloraDefaults, ResetsSomeKeysOrAll) {
    const auto fill = [this] {
        DefaultsStore(file).importText(R"({"own": 1, "other": 2, "Preferences_Security_PinCodeLength": 8,
                                           "Preferences_Proxy_UseProxy": true, "Server_ID_String": "a"})");
    };
    fill();
    EXPECT_EQ(run({"reset", "Preferences_Security_PinCodeLength", "own", "CoreLoggerPath"}), prints(""));
    EXPECT_EQ(stored("Preferences_Security_PinCodeLength"), "");
    EXPECT_EQ(stored("own"), "");
    EXPECT_EQ(stored("Preferences_Proxy_UseProxy"), "true");
    EXPECT_EQ(run({"reset", "Preferences_Proxy_UseProxy", "nowhere"}).status, 1);
    EXPECT_EQ(stored("Preferences_Proxy_UseProxy"), "true") << "all or none";
    EXPECT_EQ(run({"reset", "--all"}), prints(""));
    EXPECT_EQ(readFile(file), "{\n    \"other\": 2\n}\n") << "what the application does not know stays";
    EXPECT_EQ(run({"reset", "--all"}), prints(""));
    EXPECT_EQ(run({"reset"}).status, 2);
    EXPECT_EQ(run({"reset", "--all", "own"}).status, 2);
}

TEST_F(VeloraDefaults, AsksOnATerminalBeforeItResets) {
    const auto resetOnTerminal = [this](const std::string& options, const std::string& answer) {
        DefaultsStore(file).setInteger("Preferences_Security_PinCodeLength", 8);
        const std::string command = "echo " + answer + " | script -qec '" + VELORA_DEFAULTS_PROGRAM +
                                    " reset Preferences_Security_PinCodeLength " + options + "' /dev/null >'" +
                                    (folder / "screen") + "'";
        return WEXITSTATUS(std::system(command.c_str()));
    };
    EXPECT_EQ(resetOnTerminal("", "n"), 1);
    EXPECT_EQ(stored("Preferences_Security_PinCodeLength"), "8");
    EXPECT_THAT(readFile(folder / "screen"),
                HasSubstr("Remove the value of Preferences_Security_PinCodeLength? [y/N]"));
    EXPECT_EQ(resetOnTerminal("", "y"), 0);
    EXPECT_EQ(stored("Preferences_Security_PinCodeLength"), "");
    EXPECT_EQ(resetOnTerminal("--yes", "n"), 0);
    EXPECT_EQ(stored("Preferences_Security_PinCodeLength"), "");
}

TEST_F(VeloraDefaults, NamesACommandThatThereIsNot) {
    EXPECT_EQ(run({"frobnicate"}).errors,
              "velora-defaults: there is no command frobnicate\nRun with --help for more information.\n");
    EXPECT_EQ(
        run({"wacth"}).errors,
        "velora-defaults: there is no command wacth; did you mean watch?\nRun with --help for more information.\n");
}

TEST_F(VeloraDefaults, KeepsAnEarlierExportWhenTheStoreIsDamaged) {
    writeFile(folder / "backup.json", R"({"own": 1})");
    std::filesystem::create_directories(folder / "store");
    writeFile(file, "{\"own\": ");
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
                                               {"describe"},
                                               {"reset"},
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
