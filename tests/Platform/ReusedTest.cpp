#include <atomic>
#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <thread>

#include <Velora_UserDefaults/Platform/Reused.h>

namespace velora::test {
namespace {

template <typename Test>
struct Counted {
    static inline std::atomic<int> living = 0;
    Counted() { ++living; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    ~Counted() { --living; }
    std::string text;
};

TEST(Reused, LendsTheSameObjectAgainAsItsLastUserLeftIt) {
    using Object = Counted<struct Again>;
    const Object* first = nullptr;
    {
        const Reused<Object> reused;
        EXPECT_EQ(reused->text, "");
        reused->text = "left behind";
        first = &*reused;
    }
    const Reused<Object> reused;
    EXPECT_EQ(&*reused, first);
    EXPECT_EQ(reused->text, "left behind");
    EXPECT_EQ(Object::living, 1);
}

TEST(Reused, LendsANestedBorrowerAnotherObject) {
    using Object = Counted<struct Nested>;
    {
        const Reused<Object> outer;
        outer->text = "outer";
        {
            const Reused<Object> inner;
            EXPECT_NE(&*inner, &*outer);
            EXPECT_EQ(inner->text, "");
            inner->text = "inner";
            EXPECT_EQ(Object::living, 2);
        }
        EXPECT_EQ(outer->text, "outer");
    }
    EXPECT_EQ(Object::living, 1) << "only one is kept";
}

TEST(Reused, KeepsOneObjectWhenTheOuterBorrowerIsDoneFirst) {
    using Object = Counted<struct OutOfOrder>;
    std::optional<Reused<Object>> outer(std::in_place);
    std::optional<Reused<Object>> inner(std::in_place);
    outer.reset();
    EXPECT_EQ(Object::living, 2);
    inner.reset();
    EXPECT_EQ(Object::living, 1);
}

TEST(Reused, KeepsTheTypesApart) {
    using One = Counted<struct FirstType>;
    using Other = Counted<struct SecondType>;
    { const Reused<One> one; }
    EXPECT_EQ(One::living, 1);
    EXPECT_EQ(Other::living, 0);
}

TEST(Reused, LendsEachThreadItsOwnAndDeletesItWhenTheThreadEnds) {
    using Object = Counted<struct Threads>;
    {
        const Reused<Object> mine;
        mine->text = "mine";
    }
    std::thread([] {
        {
            const Reused<Object> theirs;
            EXPECT_EQ(theirs->text, "");
        }
        EXPECT_EQ(Object::living, 2);
    }).join();
    EXPECT_EQ(Object::living, 1);
    const Reused<Object> mine;
    EXPECT_EQ(mine->text, "mine");
}

TEST(Reused, StillLendsWhenTheThreadsOwnObjectsAreGone) {
    using Object = Counted<struct AtEnd>;
    struct BorrowsAtTheEnd {
        std::string* result = nullptr;
        ~BorrowsAtTheEnd() {
            const Reused<Object> reused;
            reused->text += "lent at the end";
            *result = reused->text;
        }
    };
    std::string result;
    std::thread([&] {
        // Constructed before the spare object, and so destroyed after it.
        static thread_local BorrowsAtTheEnd last;
        last.result = &result;
        const Reused<Object> reused;
        reused->text = "spare";
    }).join();
    EXPECT_EQ(result, "lent at the end");
    EXPECT_EQ(Object::living, 0);
}

}  // namespace
}  // namespace velora::test
