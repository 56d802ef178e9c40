#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <support/RecordingDestination.h>
#include <support/TemporaryFolder.h>
#include <thread>
#include <vector>

#include <Velora_UserDefaults/Platform/DispatchQueue.h>
#include <Velora_UserDefaults/Platform/ThreadInfo.h>
#include <Velora_UserDefaults/XCGLogger/Destinations/FileDestination.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/JSONLogFormatter.h>
#include <Velora_UserDefaults/XCGLogger/XCGLogger.h>

#include "XCGLogger/LogFormatters/FormatterTestSupport.h"

namespace velora::test {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::SizeIs;

static_assert(!std::is_default_constructible_v<JSONLogFormatter>);

const LogDetails details{.level = Level::warning,
                         .date = Date(std::chrono::milliseconds(1'700'000'000'250)),
                         .message = "no route",
                         .functionName = "open",
                         .fileName = "/src/Session.cpp",
                         .lineNumber = 42,
                         .userInfo = {}};

std::string formattedAsJSON(LogDetails record, std::string line) {
    const auto formatter = make<JSONLogFormatter>();
    const std::string& returned = formatter->format(record, line);
    EXPECT_EQ(&returned, &line);
    return line;
}

std::string formattedAsJSON(std::string line) {
    return formattedAsJSON(details, std::move(line));
}

json parsed(const LogDetails& record, std::string line) {
    return json::parse(formattedAsJSON(record, std::move(line)));
}

TEST(JSONLogFormatter, WritesAnObjectWithAMemberForEachColumn) {
    EXPECT_EQ(formattedAsJSON("2023-11-14 22:13:20.250 [Warning] [app] [worker 3] [Session.cpp:42] open > no route"),
              R"({"date":"2023-11-14T22:13:20.250000Z","level":"Warning","logger":"app","thread":"worker 3",)"
              R"("file":"Session.cpp","line":42,"function":"open","message":"no route"})");
}

TEST(JSONLogFormatter, TakesLoggerAndThreadFromWhateverOtherColumnsAreShown) {
    for (const std::string line :
         {"[WARN] [app] [worker] > no route", "2023 [Warning] [app] [worker] [42] open > no route",
          "[Warning] [app] [worker] [Session.cpp] > no route", "1.1.70 [Hinweis!] [app] [worker] open > no route"}) {
        const json object = json::parse(formattedAsJSON(line));
        EXPECT_EQ(object["logger"], "app") << line;
        EXPECT_EQ(object["thread"], "worker") << line;
        EXPECT_EQ(object["file"], "Session.cpp");
    }
}

TEST(JSONLogFormatter, IsNotMisledByBracketsInTheMessageOrTheFunction) {
    LogDetails record = details;
    record.message = "[a] [b] [c] > d";
    record.functionName = "operator[]";
    const json object = parsed(record, "[Warning] [app] [worker] [Session.cpp:42] operator[] > [a] [b] [c] > d");
    EXPECT_EQ(object["logger"], "app");
    EXPECT_EQ(object["thread"], "worker");
    EXPECT_EQ(object["message"], "[a] [b] [c] > d");
    EXPECT_EQ(object["function"], "operator[]");
}

TEST(JSONLogFormatter, KeepsBracketsInTheNameOfAThread) {
    EXPECT_EQ(json::parse(formattedAsJSON("[Warning] [app] [pool [3]] open > no route"))["thread"], "pool [3]");
}

TEST(JSONLogFormatter, GuessesNeitherLoggerNorThread) {
    for (const std::string line :
         {"2023-11-14 22:13:20.250 [Warning] [Session.cpp:42] open > no route", "> no route", "", "no route",
          "[Warning] [either] [Session.cpp:42] open > no route", "rewritten by [some] [other] [formatter]"}) {
        const json object = json::parse(formattedAsJSON(line));
        EXPECT_FALSE(object.contains("logger")) << line;
        EXPECT_FALSE(object.contains("thread")) << line;
        EXPECT_EQ(object["message"], "no route");
    }
}

/// Runs jq on the file at `path` and returns what it prints, in lines.
std::vector<std::string> jq(const std::string& arguments, const std::string& path) {
    const std::string command = "jq " + arguments + " '" + path + "'";
    std::vector<std::string> lines;
    FILE* const output = ::popen(command.c_str(), "r");
    std::string line;
    for (int character = std::fgetc(output); character != EOF; character = std::fgetc(output)) {
        if (character == '\n') {
            lines.push_back(std::exchange(line, {}));
        } else {
            line += static_cast<char>(character);
        }
    }
    EXPECT_EQ(::pclose(output), 0) << command;
    return lines;
}

class JSONLogFile : public testing::Test {
protected:
    ~JSONLogFile() override { log->remove(file); }

    TemporaryFolder folder;
    const std::string path = folder / "app.json";
    const std::shared_ptr<XCGLogger> log = make<XCGLogger>("app", false);
    const std::shared_ptr<FileDestination> file = make<FileDestination>(nullptr, path, "file");
};

TEST_F(JSONLogFile, IsReadByAnotherProgramLineForLine) {
    JSONLogFormatter::setUp(*file);
    ASSERT_TRUE(log->add(file));
    log->info("plain");
    log->warning("two\nlines \"quoted\" \x01");
    log->error(UserInfo{{"nan", std::numeric_limits<double>::quiet_NaN()},
                        {"list", std::vector<std::string>{"a", "b"}},
                        {"when", Date()},
                        {"n", 3},
                        {"x", 3.5},
                        {"yes", true}},
               "with {}", "info");
    std::size_t lines = 0;
    std::ifstream stream(path);
    for (std::string line; std::getline(stream, line); ++lines) {
        EXPECT_TRUE(json::accept(line)) << line;
    }
    EXPECT_EQ(lines, 6) << "the header's three, and three";
    EXPECT_THAT(jq("-c .level", path),
                ElementsAre(R"("Info")", R"("Info")", R"("Info")", R"("Info")", R"("Warning")", R"("Error")"));
    EXPECT_THAT(jq("-r '[.logger, .thread // \"-\"] | join(\" \")'", path),
                ElementsAre("app -", "app -", "app -", "app main", "app main", "app main"));
    EXPECT_THAT(
        jq("-c 'select(.userInfo.n) | .userInfo | map_values(type)'", path),
        ElementsAre(R"({"list":"array","n":"number","nan":"null","when":"string","x":"number","yes":"boolean"})"));
    EXPECT_THAT(jq("-c 'select(.level == \"Warning\") | .message'", path),
                ElementsAre(R"("two\nlines \"quoted\" \u0001")"));
    EXPECT_THAT(jq("-c 'select(.date | "
                   "test(\"^\\\\d{4}-\\\\d\\\\d-\\\\d\\\\dT\\\\d\\\\d:\\\\d\\\\d:\\\\d\\\\d\\\\.\\\\d{6}Z$\") | not)'",
                   path),
                SizeIs(0));
    EXPECT_THAT(jq("-r 'select(.userInfo.n) | .file, .function, (.line | type)'", path),
                ElementsAre("JSONLogFormatterTest.cpp", "TestBody", "number"));
}

TEST_F(JSONLogFile, HasNothingButJSONAlsoWhenItIsAppendedTo) {
    file->setShouldAppend(true);
    JSONLogFormatter::setUp(*file);
    for (const char* const run : {"first run", "second run"}) {
        ASSERT_TRUE(log->add(file));
        log->info(run);
        log->remove(file);
    }
    EXPECT_THAT(jq("-r 'select(.function) | .message'", path), ElementsAre("first run", "second run"));
}

TEST_F(JSONLogFile, NamesTheThreadThatLoggedAlsoThroughAQueue) {
    JSONLogFormatter::setUp(*file);
    const auto queue = DispatchQueue::make("json");
    file->setLogQueue(queue);
    ASSERT_TRUE(log->add(file));
    std::thread([&] {
        setCurrentThreadName("render");
        log->info("from a thread");
    }).join();
    queue->drain();
    EXPECT_THAT(jq("-r 'select(.message == \"from a thread\") | .thread'", path), ElementsAre("render"));
}

TEST(JSONLogFormatter, DescribesItselfByTheNameOfItsClass) {
    expectDescribesItselfByItsClass<JSONLogFormatter>("JSONLogFormatter");
}

}  // namespace
}  // namespace velora::test
