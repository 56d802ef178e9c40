#include <gtest/gtest.h>
#include <new>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <Velora_UserDefaults/Platform/ExceptionGuard.h>

namespace thrown {

struct Problem {
    int code = 0;
};

template <class T>
struct Silent : std::exception {
    const char* what() const noexcept override { return nullptr; }
};

}  // namespace thrown

namespace velora {
namespace {

/// What guarding `closure` reports, each report in brackets, and whether it says that the closure finished.
template <class Closure>
std::string outcomeOf(Closure closure) {
    std::string reports;
    const bool finished =
        guarded(closure, [&](std::string_view text) { reports.append("[").append(text).append("]"); });
    return reports + (finished ? " finished" : " stopped");
}

TEST(Guarded, ReportsNothingWhenNothingIsThrown) {
    bool ran = false;
    EXPECT_EQ(outcomeOf([&] { ran = true; }), " finished");
    EXPECT_TRUE(ran);
}

TEST(Guarded, ReportsWhatAnExceptionSays) {
    EXPECT_EQ(outcomeOf([] { throw std::runtime_error("disk on fire"); }), "[disk on fire] stopped");
    EXPECT_EQ(outcomeOf([] { static_cast<void>(std::string().at(1)); }).ends_with(" stopped"), true);
    EXPECT_EQ(outcomeOf([] { throw std::bad_alloc(); }), "[std::bad_alloc] stopped");
}

TEST(Guarded, ReportsTheTypeOfWhatSaysNothing) {
    EXPECT_EQ(outcomeOf([] { throw 5; }), "[int] stopped");
    EXPECT_EQ(outcomeOf([] { throw "text"; }), "[char const*] stopped");
    EXPECT_EQ(outcomeOf([] { throw thrown::Problem(); }), "[thrown::Problem] stopped");
    EXPECT_EQ(outcomeOf([] { throw std::runtime_error(""); }), "[std::runtime_error] stopped");
    EXPECT_EQ(outcomeOf([] { throw thrown::Silent<int>(); }), "[thrown::Silent<int>] stopped");
}

TEST(Guarded, ReportsTheInnerExceptionOnceWhenNested) {
    EXPECT_EQ(outcomeOf([] { EXPECT_EQ(outcomeOf([] { throw std::runtime_error("inner"); }), "[inner] stopped"); }),
              " finished");
}

TEST(Guarded, LetsTheReportThrow) {
    EXPECT_THROW(guarded([] { throw 1; }, [](std::string_view) { throw std::logic_error("report"); }),
                 std::logic_error);
}

struct Trace {
    std::vector<std::string> events;
};

void* endThreadWhileGuarded(void* context) {
    auto& events = static_cast<Trace*>(context)->events;
    struct Unwound {
        std::vector<std::string>& events;
        ~Unwound() { events.emplace_back("unwound"); }
    } unwound{events};
    guarded([] { ::pthread_exit(nullptr); }, [&](std::string_view text) { events.emplace_back(text); });
    events.emplace_back("went on");
    return nullptr;
}

TEST(Guarded, LetsAThreadBeEnded) {
    Trace trace;
    pthread_t thread{};
    ASSERT_EQ(::pthread_create(&thread, nullptr, endThreadWhileGuarded, &trace), 0);
    ASSERT_EQ(::pthread_join(thread, nullptr), 0);
    EXPECT_EQ(trace.events, std::vector<std::string>{"unwound"});
}

}  // namespace
}  // namespace velora
