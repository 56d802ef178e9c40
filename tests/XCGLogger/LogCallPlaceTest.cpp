// The place in the source that a log call tells.

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <support/RecordingDestination.h>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/LogCalls.h>

namespace velora::test {
namespace {

class LogCallPlace : public testing::Test {
protected:
    RecordedLogger<> recorded_;
    XCGLogger& log_ = *recorded_.log;

    void expectPlace(std::string_view functionName, std::int64_t lineNumber) const {
        const std::vector<LogDetails> records = recorded_.recording->records();
        ASSERT_EQ(records.size(), 1U);
        EXPECT_EQ(records[0].functionName, functionName);
        EXPECT_EQ(records[0].fileName, __FILE__);
        EXPECT_EQ(records[0].lineNumber, lineNumber);
    }
};

int logInAFunction(XCGLogger& log) {
    log.info("text");
    return __LINE__ - 1;
}

template <typename Value>
int logInATemplate(XCGLogger& log, const Value& value) {
    log.info("value {}", value);
    return __LINE__ - 1;
}

TEST_F(LogCallPlace, IsTheFunction) {
    expectPlace("logInAFunction", logInAFunction(log_));
}

TEST_F(LogCallPlace, IsTheTemplateAsTheCompilerNamesIt) {
    const int line = logInATemplate(log_, 1.5);
    const std::string name = recorded_.recording->records().at(0).functionName.string();
    EXPECT_EQ(name.substr(0, name.find('<')), "logInATemplate");
    expectPlace(name, line);
}

TEST_F(LogCallPlace, IsTheCallOfLogln) {
    constexpr int line = __LINE__ + 1;
    log_.logln("text", Level::info);
    expectPlace("TestBody", line);
}

TEST_F(LogCallPlace, IsTheCallOfLoglnWithAClosure) {
    constexpr int line = __LINE__ + 1;
    log_.logln(Level::info, [] { return "text"; });
    expectPlace("TestBody", line);
}

}  // namespace
}  // namespace velora::test
