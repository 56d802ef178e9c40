#include "LogDecoding.h"

#include <array>
#include <cstddef>
#include <cstdint>

#include <Velora_UserDefaults/Platform/Text.h>

namespace velora {

namespace {

constexpr std::uint8_t noDigit = 64;

constexpr std::array<std::uint8_t, 256> valuesOfDigits = [] {
    std::array<std::uint8_t, 256> values{};
    values.fill(noDigit);
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    for (std::size_t value = 0; value < digits.size(); ++value) {
        values[static_cast<unsigned char>(digits[value])] = static_cast<std::uint8_t>(value);
    }
    return values;
}();

std::size_t sizeOfPadding(std::string_view line) {
    return line.ends_with("==") ? 2 : line.ends_with('=') ? 1 : 0;
}

}  // namespace

std::optional<std::string> decodedLine(std::string_view line) {
    if (line.empty() || line.size() % 4 != 0) {
        return std::nullopt;
    }
    const std::string_view digits = line.substr(0, line.size() - sizeOfPadding(line));
    std::string text;
    text.reserve(line.size() / 4 * 3);
    std::uint32_t bits = 0;
    int count = 0;
    for (const char digit : digits) {
        const std::uint8_t value = valuesOfDigits[static_cast<unsigned char>(digit)];
        if (value == noDigit) {
            return std::nullopt;
        }
        bits = bits << 6U | value;
        count += 6;
        if (count >= 8) {
            count -= 8;
            text += static_cast<char>(bits >> static_cast<unsigned>(count) & 0xFFU);
        }
    }
    return isValidUTF8(text) ? std::optional(std::move(text)) : std::nullopt;
}

}  // namespace velora
