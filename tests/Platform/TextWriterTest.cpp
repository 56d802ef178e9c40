#include <array>
#include <cstdint>
#include <gtest/gtest.h>
#include <limits>
#include <string>

#include <Velora_UserDefaults/Platform/TextWriter.h>

namespace velora::test {
namespace {

TEST(TextWriter, WritesTextsOfEveryLengthOneBehindTheOther) {
    std::string all;
    for (int i = 0; i < 300; ++i) {
        all += static_cast<char>('!' + i % 90);
    }
    for (std::size_t size = 0; size <= 100; ++size) {
        for (const std::size_t begin : {0U, 1U, 7U}) {
            const std::string text = all.substr(begin, size);
            std::array<char, 256> memory{};
            memory.fill('#');
            TextWriter writer(memory.data());
            writer.append('<');
            writer.append(text);
            writer.append(std::string_view(">"));
            EXPECT_EQ(writer.position(), memory.data() + size + 2);
            EXPECT_EQ(std::string(memory.data(), size + 3), "<" + text + ">#") << size;
        }
    }
}

TEST(TextWriter, WritesNumbers) {
    const auto text = [](auto number) {
        std::array<char, TextWriter::maximumNumberSize + 1> memory{};
        memory.fill('#');
        TextWriter writer(memory.data());
        writer.append(number);
        EXPECT_EQ(*writer.position(), '#');
        return std::string(memory.data(), writer.position());
    };
    EXPECT_EQ(text(std::int64_t{0}), "0");
    EXPECT_EQ(text(std::int64_t{-42}), "-42");
    EXPECT_EQ(text(std::numeric_limits<std::int64_t>::min()), "-9223372036854775808");
    EXPECT_EQ(text(std::numeric_limits<std::int64_t>::max()), "9223372036854775807");
    EXPECT_EQ(text(std::numeric_limits<std::uint64_t>::max()), "18446744073709551615");
}

TEST(TextWriter, GoesOnBehindWhatOthersWrote) {
    std::array<char, 8> memory{};
    TextWriter writer(memory.data());
    writer.append('a');
    *writer.position() = 'b';
    writer.skip(1);
    writer.append('c');
    EXPECT_STREQ(memory.data(), "abc");
}

}  // namespace
}  // namespace velora::test
