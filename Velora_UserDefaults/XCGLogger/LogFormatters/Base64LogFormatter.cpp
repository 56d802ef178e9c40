#include <cstdint>
#include <string_view>

#include <Velora_UserDefaults/Platform/Text.h>
#include <Velora_UserDefaults/Platform/TypeName.h>
#include <Velora_UserDefaults/XCGLogger/LogFormatters/Base64LogFormatter.h>

namespace velora {

namespace {

/// The four digits of up to three bytes; where there are fewer, "=" fills up.
void appendGroup(std::string& encoded, std::string_view bytes) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::uint32_t bits = 0;
    for (std::size_t index = 0; index < 3; ++index) {
        bits = bits << 8U | (index < bytes.size() ? static_cast<unsigned char>(bytes[index]) : 0U);
    }
    for (std::size_t index = 0; index < 4; ++index) {
        encoded += index <= bytes.size() ? digits[bits >> 18U & 0x3FU] : '=';
        bits <<= 6U;
    }
}

std::string base64Encoded(std::string_view bytes) {
    constexpr std::size_t bytesOfGroup = 3;
    std::string encoded;
    encoded.reserve((bytes.size() + bytesOfGroup - 1) / bytesOfGroup * 4);
    for (std::size_t start = 0; start < bytes.size(); start += bytesOfGroup) {
        appendGroup(encoded, bytes.substr(start, bytesOfGroup));
    }
    return encoded;
}

}  // namespace

Base64LogFormatter::Base64LogFormatter(Making key) : MadeInTwoSteps(key) {}

Base64LogFormatter::~Base64LogFormatter() = default;

const std::string& Base64LogFormatter::format(LogDetails& /*logDetails*/, std::string& message) {
    if (isValidUTF8(message)) {
        message = base64Encoded(message);
    }
    return message;
}

std::string Base64LogFormatter::debugDescription() const {
    return dynamicTypeName(*this);
}

}  // namespace velora
