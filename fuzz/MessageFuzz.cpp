// Messages with arguments: the text that is filled in without {fmt} must be the one that {fmt} makes. The first line
// and what is left at the end are texts, in between come a byte for a character and eight for each of two numbers.

#include <array>
#include <bit>
#include <cstdint>
#include <fmt/format.h>
#include <string>
#include <string_view>
#include <support/Fuzzing.h>
#include <type_traits>

#include <Velora_UserDefaults/XCGLogger/Message.h>

namespace velora::test {
namespace {

template <typename... Arguments>
void compare(const LocatedFormat<std::type_identity_t<Arguments>...>& format, const Arguments&... arguments) {
    const fmt::string_view text = format.format;
    const std::string expected = "before " + fmt::vformat(text, fmt::make_format_args(arguments...));
    std::string out = "before ";
    if constexpr ((isPlainArgument<Arguments> && ...)) {
        if (format.fields.count() == sizeof...(Arguments)) {
            appendFilledIn(out, text, format.fields, arguments...);
            requireEqual(out, expected, "the message for " + std::string(text.data(), text.size()));
            out = "before ";
        }
    }
    appendFormatted(out, text, fmt::make_format_args(arguments...));
    requireEqual(out, expected, "the message for " + std::string(text.data(), text.size()));
}

template <typename Value>
void compareRendered(const Value& value) {
    std::string out = "before ";
    require(render(value, out), "a value has a text");
    requireEqual(out, "before " + fmt::format("{}", value), "the text of a value");
}

/// The formats that are filled in without {fmt}, and those that must not be.
template <typename First, typename Second>
void compareFormats(const First& first, const Second& second) {
    compare("{}", first);
    compare("{}{}", first, second);
    compare("value {}", first);
    compare("{} of {} done", first, second);
    compare("{{}} {}", first);
    compare("{}}}", first);
    compare("{{{}", second);
    compare("{0} {1}", first, second);
    compare("{1} {0}", first, second);
    compare("{}{}{}{}{}", first, second, first, second, first);
    compare("{}{}{}{}{}{}", first, second, first, second, first, second);
    compare("a longer text than fits in a register, and more than 32 bytes: {}; and some after it as well: {}.", first,
            second);
}

void compareNumbers(std::uint64_t word, std::uint64_t other) {
    const auto as64 = static_cast<std::int64_t>(word);
    compareFormats(as64, other);
    compareFormats(static_cast<int>(word), static_cast<unsigned>(word));
    compareFormats(static_cast<short>(word), static_cast<unsigned short>(word));
    compareFormats(static_cast<signed char>(word), static_cast<unsigned char>(word));
    compareFormats(static_cast<long long>(word), static_cast<unsigned long long>(other));
    compareFormats(std::bit_cast<double>(word), std::bit_cast<float>(static_cast<std::uint32_t>(other)));
    compare("{:>12} {:<4x}", as64, other);
    compareRendered(as64);
    compareRendered(other);
    compareRendered(std::bit_cast<double>(word));
    compareRendered(static_cast<short>(word));
}

void compareTexts(const std::string& first, const std::string& second, char character) {
    compareFormats(first, std::string_view(second));
    compareFormats(first.c_str(), second);
    compareFormats(character, first);
    compareFormats(character == 'y', second.c_str());
    std::array<char, 8> array{};
    first.copy(array.data(), array.size() - 1);
    compareFormats(array.data(), second);
    compareRendered(first);
    compareRendered(std::string_view(second));
    compareRendered(character);
    compareRendered(first.empty());
}

}  // namespace
}  // namespace velora::test

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    velora::test::Input input(data, size);
    const std::string first(input.line());
    const char character = static_cast<char>('0' + input.number(256));
    const std::uint64_t word = input.word();
    const std::uint64_t other = input.word();
    velora::test::compareNumbers(word, other);
    velora::test::compareTexts(first, std::string(input.rest()), character);
    return 0;
}
