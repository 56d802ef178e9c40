#include <array>
#include <charconv>
#include <cmath>

#include <Velora_UserDefaults/Platform/Date.h>

namespace velora {

std::string shortestRoundTripText(double number) {
    if (std::isnan(number)) {
        return "nan";
    }
    if (std::isinf(number)) {
        return number < 0 ? "-inf" : "inf";
    }
    // Room for the longest such text, that of the smallest negative numbers.
    std::array<char, 400> buffer;
    const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number, std::chars_format::fixed);
    std::string text(buffer.data(), result.ptr);
    if (text.find('.') == std::string::npos) {
        text += ".0";
    }
    return text;
}

}  // namespace velora
