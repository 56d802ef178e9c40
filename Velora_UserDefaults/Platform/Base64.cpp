#include <cstddef>
#include <cstdint>

#include <Velora_UserDefaults/Platform/Base64.h>

namespace velora {

namespace {

constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::size_t bytesOfGroup = 3;

/// The four digits of up to three bytes; where there are fewer, "=" fills up.
void appendGroup(std::string& encoded, std::string_view bytes) {
    std::uint32_t bits = 0;
    for (std::size_t index = 0; index < bytesOfGroup; ++index) {
        bits = bits << 8U | (index < bytes.size() ? static_cast<unsigned char>(bytes[index]) : 0U);
    }
    for (std::size_t index = 0; index < 4; ++index) {
        encoded += index <= bytes.size() ? digits[bits >> 18U & 0x3FU] : '=';
        bits <<= 6U;
    }
}

}  // namespace

std::string base64Encoded(std::string_view bytes) {
    std::string encoded;
    encoded.reserve((bytes.size() + bytesOfGroup - 1) / bytesOfGroup * 4);
    for (std::size_t start = 0; start < bytes.size(); start += bytesOfGroup) {
        appendGroup(encoded, bytes.substr(start, bytesOfGroup));
    }
    return encoded;
}

std::optional<std::string> base64Decoded(std::string_view text) {
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    std::string bytes;
    std::uint32_t bits = 0;
    unsigned count = 0;
    for (const char digit : text.substr(0, text.size() - padding)) {
        const std::size_t value = digits.find(digit);
        if (value == std::string_view::npos) {
            return std::nullopt;
        }
        bits = bits << 6U | static_cast<std::uint32_t>(value);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count & 0xFFU);
        }
    }
    return bytes;
}

}  // namespace velora
