#include <cstdint>
#include <filesystem>
#include <fmt/format.h>
#include <functional>
#include <gtest/gtest.h>
#include <limits>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <Velora_UserDefaults/XCGLogger/Level.h>
#include <Velora_UserDefaults/XCGLogger/Message.h>

namespace velora::test {

struct Streamed {
    int value;
    friend std::ostream& operator<<(std::ostream& stream, const Streamed& streamed) {
        return stream << "streamed " << streamed.value;
    }
};

/// A collection that has its own idea of how it reads.
struct StreamedCollection {
    std::vector<int> items;
    auto begin() const { return items.begin(); }
    auto end() const { return items.end(); }
    friend std::ostream& operator<<(std::ostream& stream, const StreamedCollection& collection) {
        return stream << collection.items.size() << " items";
    }
};

struct Formatted {
    int value;
};

struct ReadsAsText {
    operator std::string() const { return "as text {}"; }
};

struct HasARenderOfItsOwn {
    bool render(std::string& out) const {
        out += "not what a logger means";
        return true;
    }
    friend std::ostream& operator<<(std::ostream& stream, const HasARenderOfItsOwn& /*object*/) {
        return stream << "streamed";
    }
};

struct Unprintable {};

}  // namespace velora::test

template <>
struct fmt::formatter<velora::test::Formatted> : fmt::formatter<int> {
    template <typename Context>
    auto format(const velora::test::Formatted& formatted, Context& context) const {
        return fmt::format_to(context.out(), "formatted {}", formatted.value);
    }
};

namespace velora::test {
namespace {

static_assert(Loggable<int> && Loggable<bool> && Loggable<std::string> && Loggable<std::string_view>);
static_assert(Loggable<const char*> && Loggable<char[4]> && Loggable<std::vector<std::string>>);
static_assert(Loggable<std::optional<int>> && Loggable<std::nullopt_t> && Loggable<Streamed> && Loggable<Formatted>);
static_assert(!Loggable<Unprintable>);

template <typename Value>
std::optional<std::string> rendered(const Value& value) {
    std::string text = "before ";
    const bool hasText = render(value, text);
    if (!hasText) {
        EXPECT_EQ(text, "before ");
        return std::nullopt;
    }
    EXPECT_EQ(text.substr(0, 7), "before ");
    return text.substr(7);
}

TEST(Message, OfTextIsThatText) {
    EXPECT_EQ(rendered("literal {} %n"), "literal {} %n");
    EXPECT_EQ(rendered(std::string("string {}")), "string {}");
    EXPECT_EQ(rendered(std::string_view("view {}")), "view {}");
    EXPECT_EQ(rendered(static_cast<const char*>("pointer {}")), "pointer {}");
    EXPECT_EQ(rendered(ReadsAsText()), "as text {}");
    EXPECT_EQ(rendered(""), "");
    EXPECT_EQ(rendered(std::string_view()), "");
}

TEST(Message, OfACharacterArrayEndsAtItsNull) {
    char buffer[16] = "short";
    EXPECT_EQ(rendered(buffer), "short");
    char* const text = buffer;
    EXPECT_EQ(rendered(text), "short");
}

TEST(Message, OfANullTextSaysSo) {
    EXPECT_EQ(rendered(static_cast<const char*>(nullptr)), "(null)");
    EXPECT_EQ(rendered(static_cast<char*>(nullptr)), "(null)");
}

TEST(Message, KeepsEveryByteOfAText) {
    using namespace std::string_literals;
    EXPECT_EQ(rendered("a\0b"s), "a\0b"s);
    EXPECT_EQ(rendered("\xff\xfe"s), "\xff\xfe"s);
    EXPECT_EQ(rendered("line\nline\r\n"s), "line\nline\r\n"s);
}

TEST(Message, OfANumberIsItsDecimalForm) {
    EXPECT_EQ(rendered(0), "0");
    EXPECT_EQ(rendered(-42), "-42");
    EXPECT_EQ(rendered(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(rendered(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
    EXPECT_EQ(rendered(std::uint8_t{200}), "200");
    EXPECT_EQ(rendered(1.5), "1.5");
    EXPECT_EQ(rendered(0.1F), "0.1");
    EXPECT_EQ(rendered(-std::numeric_limits<double>::infinity()), "-inf");
}

TEST(Message, OfABooleanIsAWord) {
    EXPECT_EQ(rendered(true), "true");
    EXPECT_EQ(rendered(false), "false");
    EXPECT_EQ(rendered(std::vector<bool>{true, false}[1]), "false");
}

TEST(Message, OfACharacterIsTheCharacter) {
    EXPECT_EQ(rendered('x'), "x");
}

TEST(Message, OfACollectionShowsItsElements) {
    EXPECT_EQ(rendered(std::vector<int>{1, 2, 3}), "[1, 2, 3]");
    EXPECT_EQ(rendered(std::vector<std::string>{"a", "b"}), R"(["a", "b"])");
    EXPECT_EQ(rendered(std::map<std::string, int>{{"a", 1}, {"b", 2}}), R"({"a": 1, "b": 2})");
    EXPECT_EQ(rendered(std::set<int>{2, 1}), "{1, 2}");
    EXPECT_EQ(rendered(std::vector<int>{}), "[]");
    EXPECT_EQ(rendered(std::pair(1, 'x')), "(1, 'x')");
}

TEST(Message, OfAPathIsThePathAsItIs) {
    EXPECT_EQ(rendered(std::filesystem::path("/tmp/a b\xff")), "/tmp/a b\xff");
}

TEST(Message, OfATypeWithAStreamOperatorIsWhatThatWrites) {
    EXPECT_EQ(rendered(Streamed{7}), "streamed 7");
    EXPECT_EQ(rendered(Level::emergency), "Emergency");
    EXPECT_EQ(rendered(HasARenderOfItsOwn()), "streamed");
}

TEST(Message, PrefersTheStreamOperatorOfACollectionToItsElements) {
    EXPECT_EQ(rendered(StreamedCollection{{1, 2, 3}}), "3 items");
}

TEST(Message, OfATypeWithAFormatterIsWhatThatFormats) {
    EXPECT_EQ(rendered(Formatted{7}), "formatted 7");
    EXPECT_EQ(rendered(std::vector<Formatted>{{1}, {2}}), "[formatted 1, formatted 2]");
}

TEST(Message, OfAnOptionalIsItsValueOrNothing) {
    EXPECT_EQ(rendered(std::optional<int>(7)), "7");
    EXPECT_EQ(rendered(std::optional<std::string>("{}")), "{}");
    EXPECT_EQ(rendered(std::optional<std::string>("")), "");
    EXPECT_EQ(rendered(std::optional<std::optional<int>>(std::optional<int>())), std::nullopt);
    EXPECT_EQ(rendered(std::optional<int>()), std::nullopt);
    EXPECT_EQ(rendered(std::nullopt), std::nullopt);
}

template <typename Message>
std::optional<std::string> referred(Message&& message) {
    const MessageReference reference(message);
    std::string text;
    return reference.render(text) ? std::optional(text) : std::nullopt;
}

std::string plainFunction() {
    return "from a function";
}

TEST(MessageReference, RendersAValueOnlyWhenAsked) {
    int value = 1;
    const MessageReference reference(value);
    value = 2;
    std::string text = "value ";
    EXPECT_TRUE(reference.render(text));
    EXPECT_EQ(text, "value 2");
}

TEST(MessageReference, RunsAClosureOncePerRendering) {
    int runs = 0;
    auto closure = [&] { return ++runs; };
    const MessageReference reference(closure);
    EXPECT_EQ(runs, 0);
    std::string text;
    EXPECT_TRUE(reference.render(text));
    EXPECT_EQ(text, "1");
    EXPECT_EQ(runs, 1);
}

TEST(MessageReference, TakesEveryKindOfClosure) {
    EXPECT_EQ(referred([] { return "literal {}"; }), "literal {}");
    EXPECT_EQ(referred([] { return std::vector<int>{1}; }), "[1]");
    EXPECT_EQ(referred([count = 0]() mutable { return ++count; }), "1");
    EXPECT_EQ(referred([]() -> std::optional<int> { return std::nullopt; }), std::nullopt);
    EXPECT_EQ(referred([] { return std::nullopt; }), std::nullopt);
    EXPECT_EQ(referred(std::function<std::string()>([] { return "function"; })), "function");
    EXPECT_EQ(referred(plainFunction), "from a function");
    EXPECT_EQ(referred(&plainFunction), "from a function");
    const std::string kept = "by reference";
    EXPECT_EQ(referred([&]() -> const std::string& { return kept; }), "by reference");
}

TEST(MessageReference, ShowsATypeByItsTextNotByAMemberNamedRender) {
    EXPECT_EQ(referred(HasARenderOfItsOwn()), "streamed");
}

TEST(MessageReference, RunsWhatAppendsToTheText) {
    auto append = [](std::string& out) { out += "appended"; };
    std::string text = "is ";
    EXPECT_TRUE(MessageReference::appendedBy(append).render(text));
    EXPECT_EQ(text, "is appended");
}

TEST(MessageClosure, IsRunEachTimeItIsAsked) {
    const MessageClosure closure([runs = 0]() mutable { return ++runs; });
    EXPECT_EQ(closure(), "1");
    EXPECT_EQ(closure(), "2");
    std::string text = "the ";
    EXPECT_TRUE(closure.render(text));
    EXPECT_EQ(text, "the 3");
}

TEST(MessageClosure, MayYieldNothing) {
    const MessageClosure closure([] { return std::optional<int>(); });
    EXPECT_EQ(closure(), std::nullopt);
    std::string text = "kept";
    EXPECT_FALSE(closure.render(text));
    EXPECT_EQ(text, "kept");
}

TEST(MessageClosure, IsAMessageItself) {
    EXPECT_EQ(referred(MessageClosure([] { return "text"; })), "text");
    EXPECT_EQ(referred(MessageClosure([] { return std::nullopt; })), std::nullopt);
    EXPECT_EQ(MessageClosure(plainFunction)(), "from a function");
}

TEST(LocatedFormat, HoldsTheFormatAndThePlaceWhereItIsWritten) {
    constexpr int line = __LINE__ + 1;
    const LocatedFormat<int> format("number {}");
    EXPECT_EQ(fmt::string_view(format.format).size(), 9U);
    EXPECT_EQ(format.location.functionName, "TestBody");
    EXPECT_EQ(format.location.fileName, __FILE__);
    EXPECT_EQ(format.location.lineNumber, line);
}

}  // namespace
}  // namespace velora::test
