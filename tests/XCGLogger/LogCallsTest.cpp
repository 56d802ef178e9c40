#include <array>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <source_location>
#include <stdexcept>
#include <string>
#include <string_view>
#include <support/RecordingDestination.h>
#include <utility>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/LogCalls.h>
#include <Velora_UserDefaults/XCGLogger/UserInfoTagging.h>

namespace velora::test {
namespace {

using testing::ElementsAre;

/// Each level, and what `calls`, be it a logger or `XCGLogger::Default`, has to log at it.
template <typename Calls>
auto logCallsOf(const Calls& calls) {
    return std::array{std::pair(Level::verbose, &calls.verbose),    std::pair(Level::debug, &calls.debug),
                      std::pair(Level::info, &calls.info),          std::pair(Level::notice, &calls.notice),
                      std::pair(Level::warning, &calls.warning),    std::pair(Level::error, &calls.error),
                      std::pair(Level::severe, &calls.severe),      std::pair(Level::alert, &calls.alert),
                      std::pair(Level::emergency, &calls.emergency)};
}

template <typename Calls>
auto execCallsOf(const Calls& calls) {
    return std::array{std::pair(Level::verbose, &calls.verboseExec),    std::pair(Level::debug, &calls.debugExec),
                      std::pair(Level::info, &calls.infoExec),          std::pair(Level::notice, &calls.noticeExec),
                      std::pair(Level::warning, &calls.warningExec),    std::pair(Level::error, &calls.errorExec),
                      std::pair(Level::severe, &calls.severeExec),      std::pair(Level::alert, &calls.alertExec),
                      std::pair(Level::emergency, &calls.emergencyExec)};
}

/// The calls `log->info` and so on of a logger.
class OwnCalls {
public:
    using Call = LogCalls<OwnLogger>;

    XCGLogger& logger() const { return *recorded_.log; }
    RecordingDestination& recording() const { return *recorded_.recording; }

    auto calls() const { return logCallsOf(logger()); }
    auto execs() const { return execCallsOf(logger()); }
    template <typename Closure>
    void exec(Level level, Closure closure) const {
        logger().exec(level, closure);
    }

private:
    RecordedLogger<> recorded_;
};

/// The calls `XCGLogger::Default::info` and so on, with a recording destination alone in the shared logger.
class ClassLevelCalls {
public:
    using Call = LogCalls<DefaultLogger>;

    ClassLevelCalls() {
        removeDestinations(logger());
        hideColumns(*recording_);
        recording_->setOutputLevel(Level::verbose);
        logger().add(recording_);
    }
    ClassLevelCalls(const ClassLevelCalls&) = delete;
    ClassLevelCalls& operator=(const ClassLevelCalls&) = delete;
    ~ClassLevelCalls() {
        removeDestinations(logger());
        logger().setOutputLevel(Level::debug);
        logger().setNoMessageClosure([] { return ""; });
        for (const auto& destination : before_) {
            logger().add(destination);
        }
    }

    XCGLogger& logger() const { return *XCGLogger::defaultInstance(); }
    RecordingDestination& recording() const { return *recording_; }

    static auto calls() { return logCallsOf(XCGLogger::Default()); }
    static auto execs() { return execCallsOf(XCGLogger::Default()); }
    template <typename Closure>
    static void exec(Level level, Closure closure) {
        XCGLogger::Default::exec(level, closure);
    }

private:
    const std::vector<std::shared_ptr<DestinationProtocol>> before_ = logger().destinations();
    std::shared_ptr<RecordingDestination> recording_ = make<RecordingDestination>(nullptr, "recording");
};

/// What a call is expected to have left in the record.
struct Expected {
    std::string message;
    std::string functionName = "operator()";
    std::string fileName = __FILE__;
    std::int64_t lineNumber = 0;
    std::vector<std::string> userInfoKeys = {};
};

template <typename Form>
class EveryLogCall : public testing::Test {
protected:
    /// Makes the call at each of the nine levels, where nothing but its one record must arrive. `makeCall`
    /// gets the call object and returns the line it made its call on.
    template <typename MakeCall>
    void expectAtEachLevel(Expected expected, MakeCall makeCall) {
        for (const auto& [level, call] : form_.calls()) {
            SCOPED_TRACE(description(level));
            form_.recording().clear();
            expected.lineNumber = makeCall(*call);
            const std::vector<LogDetails> records = form_.recording().records();
            ASSERT_EQ(records.size(), 1U);
            EXPECT_EQ(records[0].level, level);
            EXPECT_EQ(records[0].message, expected.message);
            EXPECT_EQ(records[0].functionName, std::string_view(expected.functionName));
            EXPECT_EQ(records[0].fileName, std::string_view(expected.fileName));
            EXPECT_EQ(records[0].lineNumber, expected.lineNumber);
            std::vector<std::string> keys;
            for (const auto& entry : records[0].userInfo) {
                keys.push_back(entry.first);
            }
            EXPECT_EQ(keys, expected.userInfoKeys);
            EXPECT_THAT(form_.recording().lines(), ElementsAre("> " + expected.message));
        }
    }

    template <typename MakeCall>
    void expectNothingAtEachLevel(MakeCall makeCall) {
        for (const auto& [level, call] : form_.calls()) {
            SCOPED_TRACE(description(level));
            makeCall(*call);
            EXPECT_EQ(form_.recording().records().size(), 0U);
        }
    }

    Form form_;
};

using Forms = testing::Types<OwnCalls, ClassLevelCalls>;
class FormNames {
public:
    template <typename Form>
    static std::string GetName(int /*index*/) {
        return std::is_same_v<Form, OwnCalls> ? "OfALogger" : "OfTheClass";
    }
};
TYPED_TEST_SUITE(EveryLogCall, Forms, FormNames);

const std::string tagsKey(Constants::userInfoKeyTags);
const std::string devsKey(Constants::userInfoKeyDevs);

/// A place that no call in this file is made at.
SourceLocation elsewhere() {
    return {"elsewhere", "/far/away.cpp", 4711};
}

TYPED_TEST(EveryLogCall, WithoutAMessageLogsTheNoMessageText) {
    this->expectAtEachLevel({.message = ""}, [](const typename TypeParam::Call& call) {
        call();
        return __LINE__ - 1;
    });
    this->form_.logger().setNoMessageClosure([] { return 42; });
    this->expectAtEachLevel({.message = "42"}, [](const typename TypeParam::Call& call) {
        call();
        return __LINE__ - 1;
    });
    this->expectAtEachLevel({.message = "42", .userInfoKeys = {tagsKey}}, [](const typename TypeParam::Call& call) {
        call(Tag("net"));
        return __LINE__ - 1;
    });
    this->expectAtEachLevel({.message = "42", .functionName = "elsewhere", .fileName = "/far/away.cpp"},
                            [](const typename TypeParam::Call& call) {
                                call(elsewhere());
                                return 4711;
                            });
    this->expectAtEachLevel(
        {.message = "42", .functionName = "elsewhere", .fileName = "/far/away.cpp", .userInfoKeys = {tagsKey}},
        [](const typename TypeParam::Call& call) {
            call(elsewhere(), Tag("net"));
            return 4711;
        });
}

TYPED_TEST(EveryLogCall, WithoutAMessageLogsNothingIfTheNoMessageClosureYieldsNone) {
    this->form_.logger().setNoMessageClosure([] { return std::nullopt; });
    this->expectNothingAtEachLevel([](const typename TypeParam::Call& call) { call(); });
}

TYPED_TEST(EveryLogCall, LogsTextAsItIs) {
    this->expectAtEachLevel({.message = "text {} %n"}, [](const typename TypeParam::Call& call) {
        call("text {} %n");
        return __LINE__ - 1;
    });
    this->expectAtEachLevel({.message = "{}"}, [text = std::string("{}")](const typename TypeParam::Call& call) {
        call(text);
        return __LINE__ - 1;
    });
}

TYPED_TEST(EveryLogCall, LogsAValue) {
    this->expectAtEachLevel({.message = "42"}, [](const typename TypeParam::Call& call) {
        call(42);
        return __LINE__ - 1;
    });
    this->expectAtEachLevel({.message = "7"}, [](const typename TypeParam::Call& call) {
        call(std::optional<int>(7));
        return __LINE__ - 1;
    });
}

TYPED_TEST(EveryLogCall, LogsNothingForAnEmptyOptional) {
    this->expectNothingAtEachLevel([](const typename TypeParam::Call& call) {
        call(std::optional<int>());
        call(std::nullopt);
        call(Tag("net"), std::optional<std::string>());
        call([]() -> std::optional<std::string> { return std::nullopt; });
        call(Tag("net"), [] { return std::optional<int>(); });
    });
}

TYPED_TEST(EveryLogCall, LogsAValueWithUserInfo) {
    this->expectAtEachLevel({.message = "{}", .userInfoKeys = {devsKey, tagsKey}},
                            [](const typename TypeParam::Call& call) {
                                call(Tag("net") | Dev("ann"), "{}");
                                return __LINE__ - 1;
                            });
    this->expectAtEachLevel({.message = "42", .userInfoKeys = {"key"}}, [](const typename TypeParam::Call& call) {
        call(UserInfo{{"key", 1}}, 42);
        return __LINE__ - 1;
    });
}

TYPED_TEST(EveryLogCall, LogsAValueAtAPlaceTold) {
    this->expectAtEachLevel({.message = "{}", .functionName = "elsewhere", .fileName = "/far/away.cpp"},
                            [](const typename TypeParam::Call& call) {
                                call("{}", elsewhere());
                                return 4711;
                            });
    this->expectAtEachLevel(
        {.message = "{}", .functionName = "elsewhere", .fileName = "/far/away.cpp", .userInfoKeys = {tagsKey}},
        [](const typename TypeParam::Call& call) {
            call("{}", elsewhere(), Tag("net"));
            return 4711;
        });
    this->expectAtEachLevel(
        {.message = "{}", .functionName = "elsewhere", .fileName = "/far/away.cpp", .userInfoKeys = {tagsKey}},
        [](const typename TypeParam::Call& call) {
            call(Tag("net"), "{}", elsewhere());
            return 4711;
        });
}

#if defined(__cpp_lib_source_location)
TYPED_TEST(EveryLogCall, TakesTheStandardsSourceLocation) {
    const std::source_location here = std::source_location::current();
    this->expectAtEachLevel({.message = "text", .functionName = here.function_name()},
                            [&](const typename TypeParam::Call& call) {
                                call("text", here);
                                return here.line();
                            });
    this->expectAtEachLevel({.message = "text", .functionName = here.function_name()},
                            [&](const typename TypeParam::Call& call) {
                                call(here, [] { return "text"; });
                                return here.line();
                            });
}
#endif

TYPED_TEST(EveryLogCall, LogsWhatAClosureMakes) {
    this->expectAtEachLevel({.message = "{}"}, [](const typename TypeParam::Call& call) {
        call([] { return "{}"; });
        return __LINE__ - 1;
    });
    this->expectAtEachLevel({.message = "42", .userInfoKeys = {tagsKey}}, [](const typename TypeParam::Call& call) {
        call(Tag("net"), [] { return 42; });
        return __LINE__ - 1;
    });
    this->expectAtEachLevel({.message = "42", .functionName = "elsewhere", .fileName = "/far/away.cpp"},
                            [](const typename TypeParam::Call& call) {
                                call(elsewhere(), [] { return 42; });
                                return 4711;
                            });
    this->expectAtEachLevel(
        {.message = "42", .functionName = "elsewhere", .fileName = "/far/away.cpp", .userInfoKeys = {tagsKey}},
        [](const typename TypeParam::Call& call) {
            call(elsewhere(), Tag("net"), [] { return 42; });
            return 4711;
        });
}

TYPED_TEST(EveryLogCall, FillsInAFormat) {
    const int number = 42;
    this->expectAtEachLevel({.message = "pin length 42"}, [&](const typename TypeParam::Call& call) {
        call("pin length {}", number);
        return __LINE__ - 1;
    });
    this->expectAtEachLevel({.message = "{}"}, [](const typename TypeParam::Call& call) {
        call("{}", "{}");
        return __LINE__ - 1;
    });
    this->expectAtEachLevel({.message = "retry 3", .userInfoKeys = {devsKey, tagsKey}},
                            [](const typename TypeParam::Call& call) {
                                call(Tag("net") | Dev("ann"), "retry {}", 3);
                                return __LINE__ - 1;
                            });
}

TYPED_TEST(EveryLogCall, DoesNothingBelowTheDestinationsLevel) {
    int evaluations = 0;
    struct Costly {
        int* conversions;
        operator UserInfo() const {
            ++*conversions;
            return {};
        }
    };
    this->form_.recording().setOutputLevel(Level::none);
    this->form_.logger().setNoMessageClosure([&] { return ++evaluations; });
    this->expectNothingAtEachLevel([&](const typename TypeParam::Call& call) {
        const Costly costly{&evaluations};
        call();
        call(costly);
        call("text");
        call(costly, "text");
        call([&] { return ++evaluations; });
        call(costly, [&] { return ++evaluations; });
        call(elsewhere(), [&] { return ++evaluations; });
        call("number {}", 1);
        call(costly, "number {}", 1);
    });
    EXPECT_EQ(evaluations, 0);
}

TYPED_TEST(EveryLogCall, ReachesExactlyTheLevelsFromTheThresholdUp) {
    for (const Level threshold : Levels::allCases) {
        this->form_.recording().setOutputLevel(threshold);
        this->form_.recording().clear();
        std::vector<Level> expected;
        for (const auto& [level, call] : this->form_.calls()) {
            (*call)("text");
            if (threshold <= level) {
                expected.push_back(level);
            }
        }
        std::vector<Level> reached;
        for (const LogDetails& record : this->form_.recording().records()) {
            reached.push_back(record.level);
        }
        EXPECT_EQ(reached, expected) << threshold;
    }
}

TYPED_TEST(EveryLogCall, ExecutesAClosureOnlyIfTheLoggersThresholdLetsItsLevelThrough) {
    for (const Level threshold : Levels::allCases) {
        this->form_.logger().setOutputLevel(threshold);
        // What the destinations accept must make no difference.
        this->form_.recording().setOutputLevel(threshold == Level::none ? Level::verbose : Level::none);
        for (const auto& [level, exec] : this->form_.execs()) {
            SCOPED_TRACE(testing::Message() << threshold << " " << level);
            int runs = 0;
            (*exec)([&] { ++runs; });
            EXPECT_EQ(runs, threshold <= level ? 1 : 0);
            this->form_.exec(level, [&] { ++runs; });
            EXPECT_EQ(runs, threshold <= level ? 2 : 0);
        }
    }
    EXPECT_EQ(this->form_.recording().records().size(), 0U);
}

TYPED_TEST(EveryLogCall, LetsTheExceptionOfAnExecutedClosureThrough) {
    EXPECT_THROW(this->form_.exec(Level::error, [] { throw std::runtime_error("the host's own"); }),
                 std::runtime_error);
}

// What is no message does not compile, wherever it is put.
struct Unprintable {};
template <typename Message>
concept CanBeLogged = requires(XCGLogger& log, Message message) {
    log.info(message);
};
template <typename Message>
concept CanBeLoggedWithUserInfo = requires(XCGLogger& log, Message message) {
    log.info(Tag("net"), message);
};
static_assert(CanBeLogged<int> && CanBeLogged<const char*> && CanBeLogged<std::optional<std::string>>);
static_assert(!CanBeLogged<Unprintable> && !CanBeLogged<std::optional<Unprintable>>);
static_assert(CanBeLoggedWithUserInfo<int> && !CanBeLoggedWithUserInfo<Unprintable>);
static_assert(!CanBeLogged<void (*)()> && !CanBeLogged<int (*)(int)>, "a closure makes a message");
static_assert(!CanBeLogged<decltype([] {})>);
static_assert(CanBeLogged<std::string (*)()>);
static_assert(!std::is_copy_constructible_v<LogCalls<OwnLogger>>, "a call belongs to its logger");

}  // namespace
}  // namespace velora::test
